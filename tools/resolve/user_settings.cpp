// Reads the user's proxy settings. The library reads them too, but does not report them.
#include "resolve/user_settings.h"

#include "common/presentable.h"
#include "support/owners.h"

namespace kiv::tool {
namespace {

std::wstring take(wchar_t* text) {
  const support::UniqueGlobalText<wchar_t> owned(text);
  return owned ? presentable(owned.get()) : std::wstring();
}

}  // namespace

UserSettings readUserSettings() {
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
  UserSettings settings;
  settings.found = WinHttpGetIEProxyConfigForCurrentUser(&config) != FALSE;
  // For a user without settings Windows assumes automatic detection.
  settings.automaticDetection = !settings.found || config.fAutoDetect;
  settings.scriptUrl = take(config.lpszAutoConfigUrl);
  settings.manualList = take(config.lpszProxy);
  settings.bypassList = take(config.lpszProxyBypass);
  return settings;
}

}  // namespace kiv::tool
