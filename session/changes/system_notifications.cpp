// The notifications that the system sends by callbacks: of addresses, of WinHTTP's settings, of resuming from sleep.
#include "changes/system_notifications.h"

#include "changes/ip_helper.h"
#include "changes/notice.h"

namespace kiv::session {
namespace {

// As the documentation declares them: not every toolchain does.
constexpr ULONGLONG kProxyChanges = 1;  // WINHTTP_PROXY_NOTIFY_CHANGE
constexpr DWORD kByCallback = 2;        // DEVICE_NOTIFY_CALLBACK
// PBT_APMRESUMEAUTOMATIC, which "is always sent when the system resumes" ("PBT_APMRESUMESUSPEND event"); the other
// event only follows it if a user is there.
constexpr ULONG kResumed = 0x12;
using ProxyCallback = void(CALLBACK*)(ULONGLONG flags, void* context);
using RegisterForProxy = DWORD(WINAPI*)(ULONGLONG flags, ProxyCallback callback, void* context, HANDLE* registration);
using RegisterForResume = DWORD(WINAPI*)(DWORD flags, HANDLE recipient, HANDLE* registration);

void CALLBACK onProxy(ULONGLONG /*flags*/, void* context) { Notice::post(context); }

VOID NETIOAPI_API_ onAddress(PVOID context, PMIB_UNICASTIPADDRESS_ROW /*row*/, MIB_NOTIFICATION_TYPE /*type*/) {
  Notice::post(context);
}

ULONG CALLBACK onPower(PVOID context, ULONG type, PVOID /*setting*/) {
  if (type == kResumed) Notice::post(context);
  return ERROR_SUCCESS;
}

}  // namespace

SystemNotifications::SystemNotifications(void* settings, void* addresses, void* resume) noexcept
    : ipHelper_(loadFromSystem(L"iphlpapi.dll")), power_(loadFromSystem(L"powrprof.dll")) {
  watchSettings(settings);
  watchAddresses(addresses);
  watchResume(resume);
}

// Windows 11.
void SystemNotifications::watchSettings(void* context) noexcept {
  const HMODULE winHttp = GetModuleHandleW(L"winhttp.dll");
  const auto begin = lookUp<RegisterForProxy>(winHttp, "WinHttpRegisterProxyChangeNotification");
  if (!begin) return;
  settingsRegistration_.begin(lookUp<End>(winHttp, "WinHttpUnregisterProxyChangeNotification"),
                              [&](HANDLE* handle) { return begin(kProxyChanges, onProxy, context, handle); });
}

void SystemNotifications::watchAddresses(void* context) noexcept {
  const auto begin = lookUp<decltype(&NotifyUnicastIpAddressChange)>(ipHelper_.get(), "NotifyUnicastIpAddressChange");
  if (!begin) return;
  addressesRegistration_.begin(lookUp<End>(ipHelper_.get(), "CancelMibChangeNotify2"),
                               [&](HANDLE* handle) { return begin(AF_UNSPEC, onAddress, context, FALSE, handle); });
}

// Windows 8.
void SystemNotifications::watchResume(void* context) noexcept {
  const auto begin = lookUp<RegisterForResume>(power_.get(), "PowerRegisterSuspendResumeNotification");
  if (!begin) return;
  resumed_ = {onPower, context};
  resumeRegistration_.begin(lookUp<End>(power_.get(), "PowerUnregisterSuspendResumeNotification"),
                            [&](HANDLE* handle) { return begin(kByCallback, &resumed_, handle); });
}

}  // namespace kiv::session
