// Prints, for each text, the lines that set the variable http_proxy to http://TEXT:80 in a shell, or none if the shell
// cannot have them, and then a line "--". The end-to-end tests give the lines to real shells.
//
//   quoted_lines SHELL TEXT...
#include <span>

#include "common/console.h"
#include "environment/lines.h"

int wmain(int count, wchar_t** arguments) {
  using namespace kiv::tool;
  const auto reader = count > 2 ? readerNamed(arguments[1]) : std::nullopt;
  if (!reader) return 64;
  for (const wchar_t* const text : std::span(arguments + 2, arguments + count)) {
    std::vector<Route> routes;
    routes.push_back({.url = L"http://host/", .proxy = ProxyServer{.scheme = L"http", .host = text, .port = 80}});
    for (const std::wstring& line : linesFor(*reader, routes, L"", LogOn::None).lines) {
      print(Stream::Output, line + L"\n");
    }
    print(Stream::Output, L"--\n");
  }
  return 0;
}
