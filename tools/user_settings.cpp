// Reads the user's proxy settings, which the library reads as well but tells nobody.
#include "user_settings.h"

#include <windows.h>
#include <winhttp.h>

#include "presentable.h"

namespace kiv::tool {
namespace {

std::wstring take(wchar_t* text) {
  if (!text) return {};
  std::wstring taken = presentable(text);
  GlobalFree(text);
  return taken;
}

}  // namespace

UserSettings readUserSettings() {
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
  UserSettings settings;
  settings.found = WinHttpGetIEProxyConfigForCurrentUser(&config) != FALSE;
  // A user without settings has automatic detection on, as the system assumes.
  settings.automaticDetection = !settings.found || config.fAutoDetect;
  settings.scriptUrl = take(config.lpszAutoConfigUrl);
  settings.manualList = take(config.lpszProxy);
  settings.bypassList = take(config.lpszProxyBypass);
  return settings;
}

}  // namespace kiv::tool
