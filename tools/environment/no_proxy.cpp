// A bypass list as a NO_PROXY list, which can say less.
//
// There is no standard. curl, Go, Python and .NET agree on names, for which curl, Go and Python also take the names
// below them, and on a leading dot. curl (since 7.86) and Go read networks such as 10.0.0.0/8; Go reads ports.
#include "environment/no_proxy.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include "common/ascii.h"

namespace kiv::tool {
namespace {

using std::wstring_view;

constexpr wstring_view kSpace = L" \t\r\n\v\f";
constexpr wstring_view kDigits = L"0123456789";

wstring_view trimmed(wstring_view text) {
  const std::size_t first = text.find_first_not_of(kSpace);
  if (first == wstring_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kSpace) + 1 - first);
}

bool equalNames(wstring_view left, wstring_view right) {
  return std::ranges::equal(left, right, {}, asciiLower<wchar_t>, asciiLower<wchar_t>);
}

// Whether programs that ignore a leading dot, and take a name for the names below it, would exempt the host.
bool covers(wstring_view name, wstring_view host) {
  if (name.starts_with(L'.')) name.remove_prefix(1);
  if (host.size() < name.size() || !equalNames(host.substr(host.size() - name.size()), name)) return false;
  return host.size() == name.size() || host[host.size() - name.size() - 1] == L'.';
}

bool isName(wstring_view text) {
  return !text.empty() && std::ranges::all_of(text, [](wchar_t c) {
    return isAsciiLetter(c) || isAsciiDigit(c) || c == L'-' || c == L'.' || c == L'_';
  });
}

bool isNumber(wstring_view text, std::uint32_t limit) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of(kDigits) != wstring_view::npos) return false;
  std::uint32_t value = 0;
  for (const wchar_t digit : text) value = value * 10 + static_cast<std::uint32_t>(digit - L'0');
  return value <= limit;
}

// "10.*" and "10.*.*.*" are 10.0.0.0/8. Nothing for other texts.
std::optional<std::wstring> networkOf(wstring_view pattern) {
  std::wstring address;
  int numbers = 0;
  int parts = 0;
  for (wstring_view rest = pattern; parts < 4; ++parts) {
    const std::size_t end = std::min(rest.find(L'.'), rest.size());
    const wstring_view part = rest.substr(0, end);
    if (part != L"*" && (parts != numbers || !isNumber(part, 255))) return std::nullopt;
    if (part != L"*") address.append(numbers++ > 0 ? L"." : L"").append(part);
    if (end == rest.size()) {
      rest = {};
      ++parts;
      break;
    }
    rest.remove_prefix(end + 1);
    if (parts == 3) return std::nullopt;
  }
  if (numbers == 0 || numbers == 4) return std::nullopt;
  for (int missing = numbers; missing < 4; ++missing) address += L".0";
  return address + L"/" + std::to_wstring(8 * numbers);
}

class Converter {
 public:
  Converter(wstring_view targetHost, ExceptionsRead reads) : targetHost_(targetHost), reads_(reads) {}

  BypassEntry convert(wstring_view entry) const {
    const auto dropped = [&](const wchar_t* reason) { return BypassEntry{std::wstring(entry), {}, reason}; };
    if (entry == L"<local>") return dropped(L"NO_PROXY has no entry for all names without a dot");
    if (entry.find(L"://") != wstring_view::npos) return dropped(L"NO_PROXY entries have no scheme");
    const std::size_t colon = entry.find(L':');
    if (colon != wstring_view::npos) return withPort(entry, entry.substr(0, colon), entry.substr(colon + 1));
    if (entry.find(L'*') != wstring_view::npos) return pattern(entry);
    if (!isName(entry)) return dropped(kInvalid);
    return named(entry, entry, L"");
  }

 private:
  static constexpr const wchar_t* kInvalid = L"it is not a host name of ASCII characters";

  BypassEntry named(wstring_view entry, wstring_view name, const wchar_t* reason) const {
    if (covers(name, targetHost_)) {
      return {std::wstring(entry), {}, L"most programs would also take " + std::wstring(targetHost_) + L" for a match"};
    }
    return {std::wstring(entry), std::wstring(name), reason};
  }

  BypassEntry withPort(wstring_view entry, wstring_view name, wstring_view port) const {
    if (!isName(name) || !isNumber(port, 65535)) return {std::wstring(entry), {}, L"it is not a host name with a port"};
    if (!reads_.ports) return {std::wstring(entry), {}, L"ports are not read"};
    return {std::wstring(entry), std::wstring(entry), L"only Go programs read ports; others ignore the entry"};
  }

  BypassEntry pattern(wstring_view entry) const {
    if (const auto network = networkOf(entry)) {
      if (!reads_.networks) return {std::wstring(entry), {}, L"networks are not read"};
      return {std::wstring(entry), *network,
              L"NO_PROXY has no patterns; curl (since 7.86) and Go read networks, other programs may not"};
    }
    if (entry.starts_with(L"*.") && isName(entry.substr(2))) {
      return named(entry, entry.substr(1), L"NO_PROXY has no patterns; most programs also match the name itself");
    }
    return {std::wstring(entry), {}, L"NO_PROXY has no patterns"};
  }

  wstring_view targetHost_;
  ExceptionsRead reads_;
};

}  // namespace

std::vector<BypassEntry> convertBypassList(wstring_view list, wstring_view targetHost, ExceptionsRead reads) {
  const Converter converter(targetHost, reads);
  std::vector<BypassEntry> entries;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(L';'), list.size());
    const wstring_view entry = trimmed(list.substr(0, end));
    if (!entry.empty()) entries.push_back(converter.convert(entry));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return entries;
}

std::wstring noProxyText(const std::vector<BypassEntry>& entries) {
  std::vector<wstring_view> written;
  std::wstring text;
  for (const BypassEntry& entry : entries) {
    if (entry.becomes.empty() || std::ranges::count(written, entry.becomes) > 0) continue;
    written.push_back(entry.becomes);
    text.append(text.empty() ? L"" : L",").append(entry.becomes);
  }
  return text;
}

}  // namespace kiv::tool
