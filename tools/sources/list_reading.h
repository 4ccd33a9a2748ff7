// How Windows and kiv.dll read the same manual list and bypass list.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kiv::tool {

// The entries of a list. By Microsoft's documentation of WINHTTP_PROXY_INFO, ";" or white space separates them.
std::vector<std::wstring_view> entriesByWindows(std::wstring_view list);
// Only ";" separates entries of a bypass list for kiv.dll; white space around an entry is dropped.
std::vector<std::wstring_view> bypassEntriesByKiv(std::wstring_view list);

// An entry of a manual list: [scheme=][scheme://]host[:port]
struct ListEntry {
  std::wstring_view urlScheme;    // in front of "="
  std::wstring_view proxyScheme;  // in front of "://"
  std::wstring_view host;
  std::wstring_view port;
  std::wstring_view rest;  // what does not belong there, such as a path
};
ListEntry readEntry(std::wstring_view entry);

struct ListReading {
  std::vector<std::wstring> forHttp;   // by Windows, for http URLs: "gate:8080"
  std::vector<std::wstring> forHttps;  // by Windows, for https URLs
  std::vector<std::wstring> byKiv;     // by kiv.dll, for all URLs: "http://gate:8080"
  std::vector<std::wstring> differences;
};
ListReading readingOf(std::wstring_view manualList, std::wstring_view bypassList);

}  // namespace kiv::tool
