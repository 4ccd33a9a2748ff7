// A host that lets the system ask its user for credentials, for a proxy and for a server, when the resolution needs
// them. A prompt blocks the thread that resolves: a program with a window resolves on a thread of its own and gives the
// window's handle as the prompts' parent.
#include <windows.h>

#include <cstdio>
#include <exception>

#include "kiv/kiv.hpp"

namespace {

int resolve(const wchar_t* url) {
  kiv::Request request;
  request.url = url;
  request.user_agent = L"example";
  request.proxy_cred = kiv::ProxyAuthDialog{L"kiv example", GetConsoleWindow()};
  request.server_cred = kiv::ServerAuthDialog{L"kiv example", GetConsoleWindow()};
  const kiv::ProxyConfig found = kiv::resolve_with_client(request);
  if (found.is_none()) return 2;
  // The password that the user has typed is in found.cred(); it is not for the screen.
  std::wprintf(L"%ls\n", found.is_direct() ? L"direct" : found.to_string().c_str());
  if (found.has_cred()) std::wprintf(L"as %ls\n", found.cred().username().data());
  return 0;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count != 2) {
    std::fwprintf(stderr, L"usage: dialogs URL\n");
    return 64;
  }
  try {
    return resolve(arguments[1]);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
