// The grammar of an address: which texts are one, and which part is what.
//
// The grammar is this regular expression (ECMAScript, case-sensitive), matched against the whole text:
//
//   ^\s*(?:([^/:@\?]+)://)?(?:([^/:@\?]+):([^/:@\?]+)@)?([^/:@\?]+)(?::(\d+))?(?:/([^:@\?]+)?(?:\?([^/:@\?]+))?)?\s*$
//
// It is not given to std::regex, whose recursion exhausts the stack on long texts. Reading from left to right needs no
// way back: every group but the port ends only at a delimiter (/ : @ ?) or at the end of the text, so at each delimiter
// the characters that follow decide which group it was. White space is no delimiter, hence it belongs to the groups
// around it, with two exceptions: in front of the first group, unless nothing else would be left for that group, and
// behind a port.
#include "config/address_grammar.h"

#include <algorithm>

#include "support/find_any.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

using support::isDigit;
using support::isSpace;

// Reads the text from its front.
class Cursor {
 public:
  explicit Cursor(std::wstring_view rest) : rest_(rest) {}

  // The characters up to the next delimiter, without reading them.
  std::wstring_view run() const { return rest_.substr(0, support::findAny<L'/', L':', L'@', L'?'>(rest_)); }
  // The same with "/" as any other character.
  std::wstring_view runOfPath() const { return rest_.substr(0, support::findAny<L':', L'@', L'?'>(rest_)); }
  void skip(std::size_t count) { rest_.remove_prefix(count); }
  std::wstring_view take(std::wstring_view part) {
    skip(part.size());
    return part;
  }
  bool accept(wchar_t c) {
    if (!rest_.starts_with(c)) return false;
    skip(1);
    return true;
  }
  bool onlySpaceLeft() const { return std::ranges::all_of(rest_, isSpace); }
  std::wstring_view rest() const { return rest_; }

 private:
  std::wstring_view rest_;
};

// Leading white space is dropped, but its last character when that is all there is in front of the delimiter.
void skipLeadingSpace(Cursor& cursor) {
  if (cursor.rest().empty() || !isSpace(cursor.rest().front())) return;
  const std::wstring_view first = cursor.run();
  const auto space = std::ranges::find_if_not(first, isSpace) - first.begin();
  cursor.skip(std::min<std::size_t>(space, first.size() - 1));
}

// The three that follow take the run at the cursor, so that no character is looked at twice for each part that it might
// have belonged to; the first two give the run behind what they read.
std::wstring_view readScheme(Cursor& cursor, std::wstring_view run, AddressParts& parts) {
  Cursor ahead = cursor;
  const std::wstring_view scheme = ahead.take(run);
  if (scheme.empty() || !ahead.accept(L':') || !ahead.accept(L'/') || !ahead.accept(L'/')) return run;
  parts.scheme = scheme;
  cursor = ahead;
  return cursor.run();
}

std::wstring_view readUserAndPassword(Cursor& cursor, std::wstring_view run, AddressParts& parts) {
  Cursor ahead = cursor;
  const std::wstring_view user = ahead.take(run);
  if (user.empty() || !ahead.accept(L':')) return run;
  const std::wstring_view password = ahead.take(ahead.run());
  if (password.empty() || !ahead.accept(L'@')) return run;
  parts.user = user;
  parts.password = password;
  cursor = ahead;
  return cursor.run();
}

bool readHost(Cursor& cursor, std::wstring_view run, AddressParts& parts) {
  parts.host = cursor.take(run);
  return !parts.host.empty();
}

bool readPort(Cursor& cursor, AddressParts& parts) {
  if (!cursor.accept(L':')) return true;
  const std::wstring_view rest = cursor.rest();
  parts.port = cursor.take(rest.substr(0, std::ranges::find_if_not(rest, isDigit) - rest.begin()));
  return !parts.port.empty();
}

void readPathAndQuery(Cursor& cursor, AddressParts& parts) {
  if (!cursor.accept(L'/')) return;
  parts.path = cursor.take(cursor.runOfPath());
  Cursor ahead = cursor;
  if (!ahead.accept(L'?')) return;
  parts.query = ahead.take(ahead.run());
  if (!parts.query.empty()) cursor = ahead;
}

}  // namespace

std::optional<AddressParts> splitAddress(std::wstring_view text) {
  Cursor cursor(text);
  AddressParts parts;
  skipLeadingSpace(cursor);
  std::wstring_view run = cursor.run();
  if (run.size() == cursor.rest().size() && !run.empty()) {  // as in most bypass rules
    parts.host = run;
    return parts;
  }
  run = readScheme(cursor, run, parts);
  run = readUserAndPassword(cursor, run, parts);
  if (!readHost(cursor, run, parts) || !readPort(cursor, parts)) return std::nullopt;
  readPathAndQuery(cursor, parts);
  if (!cursor.onlySpaceLeft()) return std::nullopt;
  return parts;
}

}  // namespace kiv::impl
