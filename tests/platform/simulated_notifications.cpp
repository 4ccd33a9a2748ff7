// What is looked up at run time: the modules, and the functions that tell of changes by calling back.
#include <algorithm>
#include <cstring>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

using std::chrono::milliseconds;

// How the system passes the callback for suspend and resume. Not in every toolchain's headers.
struct PowerRecipient {
  ULONG(CALLBACK* callback)(PVOID context, ULONG type, PVOID setting);
  PVOID context;
};
constexpr DWORD kPowerCallback = 2;       // DEVICE_NOTIFY_CALLBACK
constexpr ULONG kSuspend = 0x04;          // PBT_APMSUSPEND
constexpr ULONG kResumeAutomatic = 0x12;  // PBT_APMRESUMEAUTOMATIC
constexpr ULONG kResumeSuspend = 0x07;    // PBT_APMRESUMESUSPEND
constexpr ULONGLONG kProxyChangeFlags = 1;

// Registered callbacks that the thread is in.
thread_local std::size_t callbacksHere = 0;

void checkLoaded(Entry& call, std::wstring_view module) {
  if (call.windows().modules.loaded.contains(std::wstring(module))) return;
  for (const auto& [handle, name] : call.state().changes.modules) {
    const auto resource = call.state().resources.find(handle);
    if (name == module && resource != call.state().resources.end() && !resource->second.released) return;
  }
  call.state().complaints.push_back(call.name() + " was called while its module was not loaded");
}

// Calls back, once, if it is still registered.
void tell(State& state, void* handle, ULONG type) {
  const MemoryWatch::Pause pause;
  std::unique_lock lock(state.mutex);
  Registration& registration = state.changes.registrations.at(handle);
  if (registration.cancelled) return;
  ++registration.running;
  ++callbacksHere;
  lock.unlock();
  registration.tell(type);
  lock.lock();
  --callbacksHere;
  --registration.running;
  state.wake();
}

void tellLater(State& state, Registration::Of of, ULONG type) {
  for (const auto& [handle, registration] : state.changes.registrations) {
    if (registration.of != of || registration.cancelled) continue;
    state.later(milliseconds(0), [&state, handle = handle, type] { tell(state, handle, type); });
  }
}

HANDLE enroll(State& state, Registration::Of of, std::function<void(ULONG)> callback) {
  void* handle = state.newHandle(Kind::Registration, "registration");
  state.changes.registrations[handle] = {.of = of, .tell = std::move(callback)};
  return handle;
}

// Waits for callbacks that run, as the system does: from inside one that is for ever.
DWORD unregister(Entry& call, HANDLE handle) {
  call.handle(L"registration", handle);
  State& state = call.state();
  if (callbacksHere) {
    state.complaints.push_back(call.name() + " was called from a callback, where it waits for ever");
  }
  if (!state.release(handle, Kind::Registration, call.name())) return call.failWith<DWORD>(ERROR_INVALID_PARAMETER);
  Registration& registration = state.changes.registrations.at(handle);
  registration.cancelled = true;
  if (!callbacksHere) {
    const std::string subject = "the callbacks of " + state.resources.at(handle).name;
    state.await(
        call.lock(), subject, [&] { return registration.running == 0; }, std::nullopt);
  }
  return call.succeed(DWORD{NO_ERROR});
}

DWORD WINAPI registerForAddresses(ADDRESS_FAMILY family, PUNICAST_IPADDRESS_CHANGE_CALLBACK callback, PVOID context,
                                  BOOLEAN initial, HANDLE* handle) {
  Entry call("NotifyUnicastIpAddressChange");
  call.number(L"family", family).number(L"initial", initial ? 1 : 0);
  checkLoaded(call, L"iphlpapi.dll");
  if (call.fault()) return call.failWith<DWORD>(*call.fault());
  if (!callback || !handle) return call.failWith<DWORD>(ERROR_INVALID_PARAMETER);
  *handle = nullptr;
  if (!call.windows().modules.addressNotifications) return call.succeed(DWORD{NO_ERROR});
  *handle = enroll(call.state(), Registration::Of::Addresses, [callback, context](ULONG type) {
    MIB_UNICASTIPADDRESS_ROW row{};
    const bool isFirst = type == MibInitialNotification;
    const MemoryWatch::Resume resume;
    callback(context, isFirst ? nullptr : &row, static_cast<MIB_NOTIFICATION_TYPE>(type));
  });
  if (initial) {
    State& state = call.state();
    state.later(milliseconds(0), [&state, told = *handle] { tell(state, told, MibInitialNotification); });
  }
  return call.succeed(DWORD{NO_ERROR});
}

DWORD WINAPI cancelAddressNotification(HANDLE handle) {
  Entry call("CancelMibChangeNotify2");
  checkLoaded(call, L"iphlpapi.dll");
  return unregister(call, handle);
}

DWORD WINAPI getAddressTable(ADDRESS_FAMILY family, PMIB_UNICASTIPADDRESS_TABLE* table) {
  Entry call("GetUnicastIpAddressTable");
  call.number(L"family", family);
  checkLoaded(call, L"iphlpapi.dll");
  if (call.fault()) return call.failWith<DWORD>(*call.fault());
  if (!table || (family != AF_UNSPEC && family != AF_INET && family != AF_INET6)) {
    return call.failWith<DWORD>(ERROR_INVALID_PARAMETER);
  }
  std::vector<MIB_UNICASTIPADDRESS_ROW> rows;
  for (const UnicastAddress& address : call.state().changes.addresses) {
    MIB_UNICASTIPADDRESS_ROW row{};
    if (!parseAddress(address.address, 0, row.Address)) {
      call.state().complaints.push_back("\"" + address.address + "\" in the script is no address");
    }
    row.InterfaceIndex = address.interfaceId;
    const ULONG64 luid = address.interfaceId;
    std::memcpy(&row.InterfaceLuid, &luid, sizeof luid);
    row.OnLinkPrefixLength = address.prefix;
    row.DadState = address.preferred ? IpDadStatePreferred : IpDadStateTentative;
    if (family == AF_UNSPEC || family == row.Address.si_family) rows.push_back(row);
  }
  constexpr std::size_t start = offsetof(MIB_UNICASTIPADDRESS_TABLE, Table);
  std::vector<std::byte> bytes(std::max(sizeof(MIB_UNICASTIPADDRESS_TABLE), start + rows.size() * sizeof rows[0]));
  const auto count = static_cast<ULONG>(rows.size());
  std::memcpy(bytes.data(), &count, sizeof count);
  if (!rows.empty()) std::memcpy(bytes.data() + start, rows.data(), rows.size() * sizeof rows[0]);
  *table =
      static_cast<PMIB_UNICASTIPADDRESS_TABLE>(call.state().newBlock(Kind::AddressTable, bytes.data(), bytes.size()));
  return call.succeed(DWORD{NO_ERROR});
}

void WINAPI freeAddressTable(PVOID table) {
  Entry call("FreeMibTable");
  call.handle(L"table", table);
  checkLoaded(call, L"iphlpapi.dll");
  if (table) call.state().release(table, Kind::AddressTable, call.name());
  lastError() = kClobbered;
}

DWORD WINAPI registerForWinHttpProxy(ULONGLONG flags, void(CALLBACK* callback)(ULONGLONG, void*), void* context,
                                     void** handle) {
  Entry call("WinHttpRegisterProxyChangeNotification");
  call.number(L"flags", flags);
  checkLoaded(call, L"winhttp.dll");
  if (call.fault()) return call.failWith<DWORD>(*call.fault());
  if (flags != kProxyChangeFlags || !callback || !handle) return call.failWith<DWORD>(ERROR_INVALID_PARAMETER);
  *handle = enroll(call.state(), Registration::Of::WinHttpProxy, [callback, context](ULONG) {
    const MemoryWatch::Resume resume;
    callback(kProxyChangeFlags, context);
  });
  return call.succeed(DWORD{NO_ERROR});
}

DWORD WINAPI unregisterForWinHttpProxy(void* handle) {
  Entry call("WinHttpUnregisterProxyChangeNotification");
  checkLoaded(call, L"winhttp.dll");
  return unregister(call, handle);
}

DWORD WINAPI registerForPower(DWORD flags, HANDLE recipient, HANDLE* handle) {
  Entry call("PowerRegisterSuspendResumeNotification");
  call.number(L"flags", flags);
  checkLoaded(call, L"powrprof.dll");
  if (call.fault()) return call.failWith<DWORD>(*call.fault());
  if (flags != kPowerCallback || !recipient || !handle) return call.failWith<DWORD>(ERROR_INVALID_PARAMETER);
  // The recipient need not outlive the call.
  *handle = enroll(call.state(), Registration::Of::Power, [who = *static_cast<PowerRecipient*>(recipient)](ULONG type) {
    const MemoryWatch::Resume resume;
    who.callback(who.context, type, nullptr);
  });
  return call.succeed(DWORD{NO_ERROR});
}

DWORD WINAPI unregisterForPower(HANDLE handle) {
  Entry call("PowerUnregisterSuspendResumeNotification");
  checkLoaded(call, L"powrprof.dll");
  return unregister(call, handle);
}

BOOLEAN NTAPI isProcessEnding() {
  Entry call("RtlDllShutdownInProgress", Entry::Noise::Quiet);
  return call.windows().processEnds ? TRUE : FALSE;
}

struct Procedure {
  std::wstring_view module;
  std::string_view name;
  FARPROC address;
};

const std::vector<Procedure>& procedures() {
  static const std::vector<Procedure> all = {
      {L"iphlpapi.dll", "NotifyUnicastIpAddressChange", toProcedure(&registerForAddresses)},
      {L"iphlpapi.dll", "CancelMibChangeNotify2", toProcedure(&cancelAddressNotification)},
      {L"iphlpapi.dll", "GetUnicastIpAddressTable", toProcedure(&getAddressTable)},
      {L"iphlpapi.dll", "FreeMibTable", toProcedure(&freeAddressTable)},
      {L"winhttp.dll", "WinHttpRegisterProxyChangeNotification", toProcedure(&registerForWinHttpProxy)},
      {L"winhttp.dll", "WinHttpUnregisterProxyChangeNotification", toProcedure(&unregisterForWinHttpProxy)},
      {L"powrprof.dll", "PowerRegisterSuspendResumeNotification", toProcedure(&registerForPower)},
      {L"powrprof.dll", "PowerUnregisterSuspendResumeNotification", toProcedure(&unregisterForPower)},
      {L"ntdll.dll", "RtlDllShutdownInProgress", toProcedure(&isProcessEnding)},
      {L"secur32.dll", "AcquireCredentialsHandleW", toProcedure(&AcquireCredentialsHandleW)},
      {L"secur32.dll", "FreeCredentialsHandle", toProcedure(&FreeCredentialsHandle)},
      {L"secur32.dll", "InitializeSecurityContextW", toProcedure(&InitializeSecurityContextW)},
      {L"secur32.dll", "CompleteAuthToken", toProcedure(&CompleteAuthToken)},
      {L"secur32.dll", "DeleteSecurityContext", toProcedure(&DeleteSecurityContext)},
      {L"secur32.dll", "FreeContextBuffer", toProcedure(&FreeContextBuffer)},
      {L"secur32.dll", "QuerySecurityPackageInfoW", toProcedure(&QuerySecurityPackageInfoW)},
  };
  return all;
}

// In lower case, with the ending that the loader adds.
std::wstring moduleName(LPCWSTR name) {
  std::wstring lower(name ? name : L"");
  for (wchar_t& c : lower) {
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c + 32);
  }
  if (lower.find(L'.') == std::wstring::npos) lower += L".dll";
  return lower;
}

bool isPresent(const Modules& modules, const std::wstring& name) {
  return !modules.absent.contains(name) && std::ranges::count(procedures(), name, &Procedure::module) > 0;
}

}  // namespace

FARPROC findSystemProcedure(Entry& call, HMODULE module, std::string_view name) {
  State& state = call.state();
  const std::wstring& file = state.changes.modules.at(module);
  if (state.resources.contains(module) && !state.check(module, Kind::Module, call.name())) {
    return call.fail(ERROR_MOD_NOT_FOUND, FARPROC{});
  }
  if (call.windows().modules.absentFunctions.contains(std::string(name))) {
    return call.fail(ERROR_PROC_NOT_FOUND, FARPROC{});
  }
  for (const Procedure& procedure : procedures()) {
    if (procedure.module == file && procedure.name == name) return call.succeed(procedure.address);
  }
  return call.fail(ERROR_PROC_NOT_FOUND, FARPROC{});
}

void SimulatedWindows::changeAddresses(std::vector<UnicastAddress> addresses) {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  state_->changes.addresses = std::move(addresses);
  tellLater(*state_, Registration::Of::Addresses, MibAddInstance);
}

void SimulatedWindows::changeWinHttpProxy() {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  tellLater(*state_, Registration::Of::WinHttpProxy, 0);
}

void SimulatedWindows::resumeFromSleep() {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  for (const ULONG type : {kSuspend, kResumeAutomatic, kResumeSuspend}) {
    tellLater(*state_, Registration::Of::Power, type);
  }
}

}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

HMODULE WINAPI LoadLibraryExW(LPCWSTR fileName, HANDLE file, DWORD flags) {
  Entry call("LoadLibraryExW");
  call.text(L"file", fileName).text(L"handle", file ? L"set" : L"null").flags(L"flags", flags);
  if (call.fault()) return call.fail(*call.fault(), HMODULE{});
  const std::wstring name = moduleName(fileName);
  if (!isPresent(call.windows().modules, name)) return call.fail(ERROR_MOD_NOT_FOUND, HMODULE{});
  void* handle = call.state().newHandle(Kind::Module, "module");
  call.state().changes.modules[handle] = name;
  return call.succeed(static_cast<HMODULE>(handle));
}

HMODULE WINAPI GetModuleHandleW(LPCWSTR moduleFile) {
  Entry call("GetModuleHandleW");
  call.text(L"module", moduleFile);
  if (call.fault()) return call.fail(*call.fault(), HMODULE{});
  const std::wstring name = moduleName(moduleFile);
  State& state = call.state();
  for (const auto& [handle, loaded] : state.changes.modules) {
    const auto resource = state.resources.find(handle);
    const bool isLoaded = resource == state.resources.end() || !resource->second.released;
    if (loaded == name && isLoaded) return call.succeed(static_cast<HMODULE>(handle));
  }
  const Modules& modules = call.windows().modules;
  if (!modules.loaded.contains(name) || !isPresent(modules, name)) {
    return call.fail(ERROR_MOD_NOT_FOUND, HMODULE{});
  }
  // It is not the caller's to free, so it is in no ledger.
  void* handle = reinterpret_cast<void*>(std::exchange(state.nextHandle, state.nextHandle + 16));
  state.changes.modules[handle] = name;
  return call.succeed(static_cast<HMODULE>(handle));
}
