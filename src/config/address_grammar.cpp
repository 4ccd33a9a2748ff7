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
#include <cwctype>

namespace kiv::impl {
namespace {

constexpr std::wstring_view kDelimiters = L"/:@?";
constexpr std::wstring_view kPathDelimiters = L":@?";
constexpr std::wstring_view kSchemeEnd = L"://";

bool isSpace(wchar_t c) { return std::iswspace(c) != 0; }
bool isDigit(wchar_t c) { return std::iswdigit(c) != 0; }

// Reads the text from its front.
class Cursor {
 public:
  explicit Cursor(std::wstring_view rest) : rest_(rest) {}

  // The characters up to the next delimiter, without reading them.
  std::wstring_view run(std::wstring_view delimiters = kDelimiters) const {
    return rest_.substr(0, rest_.find_first_of(delimiters));
  }
  std::wstring_view behind(std::wstring_view part) const { return rest_.substr(part.size()); }
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
  const std::wstring_view first = cursor.run();
  if (first.empty()) return;
  const auto space = std::ranges::find_if_not(first, isSpace) - first.begin();
  cursor.skip(std::min<std::size_t>(space, first.size() - 1));
}

void readScheme(Cursor& cursor, AddressParts& parts) {
  const std::wstring_view run = cursor.run();
  if (run.empty() || !cursor.behind(run).starts_with(kSchemeEnd)) return;
  parts.scheme = cursor.take(run);
  cursor.skip(kSchemeEnd.size());
}

void readUserAndPassword(Cursor& cursor, AddressParts& parts) {
  Cursor ahead = cursor;
  const std::wstring_view user = ahead.take(ahead.run());
  if (user.empty() || !ahead.accept(L':')) return;
  const std::wstring_view password = ahead.take(ahead.run());
  if (password.empty() || !ahead.accept(L'@')) return;
  parts.user = user;
  parts.password = password;
  cursor = ahead;
}

bool readPort(Cursor& cursor, AddressParts& parts) {
  if (!cursor.accept(L':')) return true;
  const std::wstring_view rest = cursor.rest();
  parts.port = cursor.take(rest.substr(0, std::ranges::find_if_not(rest, isDigit) - rest.begin()));
  return !parts.port.empty();
}

void readPathAndQuery(Cursor& cursor, AddressParts& parts) {
  if (!cursor.accept(L'/')) return;
  parts.path = cursor.take(cursor.run(kPathDelimiters));
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
  readScheme(cursor, parts);
  readUserAndPassword(cursor, parts);
  parts.host = cursor.take(cursor.run());
  if (parts.host.empty() || !readPort(cursor, parts)) return std::nullopt;
  readPathAndQuery(cursor, parts);
  if (!cursor.onlySpaceLeft()) return std::nullopt;
  return parts;
}

}  // namespace kiv::impl
