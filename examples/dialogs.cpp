// An application that lets Windows ask the user for credentials, for a proxy and for a server, when they are needed. A
// prompt blocks the thread that resolves: an application with a window resolves on another thread, and passes the
// window's handle as the prompts' parent.
#include <windows.h>

#include <cstdio>
#include <exception>

#include "kiv/kiv.hpp"

namespace {

// The owner of a prompt must be a window that is shown. In Windows Terminal the console's own window is never shown;
// its root owner is the terminal's window.
HWND window_of_console() {
  const HWND window = GetAncestor(GetConsoleWindow(), GA_ROOTOWNER);
  return IsWindowVisible(window) ? window : nullptr;
}

int resolve(const wchar_t* url) {
  kiv::Request request;
  request.url = url;
  request.user_agent = L"example";
  request.proxy_cred = kiv::ProxyAuthDialog{L"kiv example", window_of_console()};
  request.server_cred = kiv::ServerAuthDialog{L"kiv example", window_of_console()};
  const kiv::ProxyConfig found = kiv::resolve_with_client(request);
  if (found.is_none()) return 2;
  // found.cred() also has the password that the user has typed. Do not print it.
  std::wprintf(L"%ls\n", found.display_string().c_str());
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
