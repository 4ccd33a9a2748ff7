// A complete application in C++: finds the proxy that reaches a URL, and tests with the library's own HTTP client.
//
//   x86_64-w64-mingw32-g++ -municode -static -Iinclude examples/resolve.cpp build/windows-x64/lib/libkiv.dll.a
#include <cstdio>
#include <exception>

#include "kiv/kiv.hpp"

namespace {

int resolve(const wchar_t* url) {
  kiv::Request request;
  request.url = url;
  request.user_agent = L"example";
  request.logger = [](const kiv::LogRecord& line) {
    if (!line.is_debug()) std::fwprintf(stderr, L"%ls\n", line.message().data());
  };
  const kiv::ProxyConfig found = kiv::resolve_with_client(request);
  if (found.is_none()) return 2;
  std::wprintf(L"%ls\n", found.display_string().c_str());
  return 0;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count != 2) {
    std::fwprintf(stderr, L"usage: resolve_cpp URL\n");
    return 64;
  }
  try {
    return resolve(arguments[1]);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
