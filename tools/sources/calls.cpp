// What Windows returns to programs that ask for the proxy settings.
#include "sources/calls.h"

#include <windows.h>
#include <winhttp.h>

#include "resolve/failures.h"
#include "support/owners.h"

namespace kiv::tool {
namespace {

std::wstring take(wchar_t* text) {
  const support::UniqueGlobalText<wchar_t> owned(text);
  return owned ? owned.get() : std::wstring();
}

Place afterCall(Place place, DWORD error) {
  if (error == ERROR_SUCCESS) {
    place.state = PlaceState::Found;
  } else if (error != ERROR_FILE_NOT_FOUND) {
    place.state = PlaceState::NotReadable;
    place.remark = errorText(error);
  }
  return place;
}

Place callForUser() {
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
  const DWORD error = WinHttpGetIEProxyConfigForCurrentUser(&config) ? ERROR_SUCCESS : GetLastError();
  Place place = afterCall({.id = kUserCall,
                           .title = L"What Windows returns for the current user",
                           .location = L"WinHttpGetIEProxyConfigForCurrentUser"},
                          error);
  place.naming = {config.fAutoDetect != FALSE, take(config.lpszAutoConfigUrl), take(config.lpszProxy),
                  take(config.lpszProxyBypass)};
  if (place.state != PlaceState::NothingThere) return place;
  place.remark = L"no settings are stored: Windows assumes automatic detection";
  place.naming.automaticDetection = true;
  return place;
}

Place callForMachine() {
  WINHTTP_PROXY_INFO info{};
  const DWORD error = WinHttpGetDefaultProxyConfiguration(&info) ? ERROR_SUCCESS : GetLastError();
  Place place = afterCall({.id = kMachineCall,
                           .title = L"What Windows returns for WinHTTP's default proxy",
                           .location = L"WinHttpGetDefaultProxyConfiguration"},
                          error);
  place.naming = {.manualList = take(info.lpszProxy), .bypassList = take(info.lpszProxyBypass)};
  return place;
}

}  // namespace

std::vector<Place> readCalls() { return {callForUser(), callForMachine()}; }

}  // namespace kiv::tool
