// The two text forms in which the system names proxies, read into raw candidates.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::impl {

// A raw candidate, as the text named it. DIRECT is the entry with nothing in it.
struct ProxyListEntry {
  std::wstring type;      // the keyword or the word before "="; empty if there is none
  std::wstring host;      // as written
  std::int32_t port = 0;  // 0 if none was written

  bool operator==(const ProxyListEntry&) const = default;
};

// Reads what a proxy script answers: "PROXY host:port; SOCKS host:port; DIRECT". `out` is cleared first. False at the
// first syntax error; the entries in front of it are kept.
bool ParsePacProxyList(std::wstring_view text, std::vector<ProxyListEntry>& out);

// Reads what WinHTTP and the user's settings hold: "host:port", "http=host:port;https=host:port", with ";" or blanks
// between entries and "scheme://" allowed in front of a host. Same contract.
bool ParseWinHttpProxyList(std::wstring_view text, std::vector<ProxyListEntry>& out);

// The tokens of either form, up to the first NUL. They point into `text` or at static text.
std::vector<std::wstring_view> TokenizePacProxyList(std::wstring_view text);
std::vector<std::wstring_view> TokenizeWinHttpProxyList(std::wstring_view text);

// Reads [-+](0x<hexadecimal digits>|<decimal digits>); 0 for any other text; saturates at the limits of 32 bits.
std::int32_t portNumber(std::wstring_view token);

}  // namespace kiv::impl
