// Proves that registry keys, addresses, WinHTTP and power tell of changes as on Windows, and that misuse is noticed.
#include <gtest/gtest.h>

#include "platform/platform_test.h"
#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

using Lines = std::vector<std::string>;

constexpr std::chrono::milliseconds kLong(100);
constexpr DWORD kFilter = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_THREAD_AGNOSTIC;

class SimulatedRegistry : public PlatformTest {
 protected:
  SimulatedRegistry() : event_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
    EXPECT_EQ(RegOpenCurrentUser(KEY_READ, &user_), LONG{ERROR_SUCCESS});
    EXPECT_EQ(RegOpenKeyExW(user_, L"Software\\Settings", 0, KEY_NOTIFY, &key_), LONG{ERROR_SUCCESS});
  }
  ~SimulatedRegistry() override {
    RegCloseKey(key_);
    RegCloseKey(user_);
    CloseHandle(event_);
  }

  LONG watch(bool subtree, DWORD filter = kFilter) {
    return RegNotifyChangeKeyValue(key_, subtree ? TRUE : FALSE, filter, event_, TRUE);
  }
  bool isTold() const { return WaitForSingleObject(event_, 0) == WAIT_OBJECT_0; }

  HKEY user_ = nullptr;
  HKEY key_ = nullptr;
  HANDLE event_;
};

TEST_F(SimulatedRegistry, TellsOnceOfAChange) {
  ASSERT_EQ(watch(false), LONG{ERROR_SUCCESS});
  EXPECT_FALSE(isTold());
  windows.changeRegistry(L"HKCU\\SOFTWARE\\Settings");
  EXPECT_TRUE(isTold());
  windows.changeRegistry(L"HKCU\\SOFTWARE\\Settings");
  EXPECT_FALSE(isTold());
}

TEST_F(SimulatedRegistry, TellsOfWhatIsWatched) {
  struct Case {
    const wchar_t* path;
    bool subtree;
    DWORD filter;
    bool told;
  };
  for (const Case& c :
       {Case{L"HKCU\\Software\\Settings\\Connections", true, kFilter, true},
        Case{L"HKCU\\Software\\Settings\\Connections", false, kFilter, false},
        Case{L"HKCU\\Software\\SettingsX", true, kFilter, false}, Case{L"HKCU\\Software", true, kFilter, false},
        Case{L"HKLM\\Software\\Settings", true, kFilter, false},
        Case{L"HKCU\\Software\\Settings", true, DWORD{REG_NOTIFY_THREAD_AGNOSTIC}, false}}) {
    SCOPED_TRACE(testing::Message() << c.path << " " << c.subtree);
    watch(c.subtree, c.filter);
    windows.changeRegistry(c.path);
    EXPECT_EQ(isTold(), c.told);
    RegCloseKey(key_);
    isTold();
    RegOpenKeyExW(user_, L"Software\\Settings", 0, KEY_NOTIFY, &key_);
  }
}

TEST_F(SimulatedRegistry, TellsOfTheClosingOfTheKey) {
  watch(true);
  RegCloseKey(key_);
  EXPECT_TRUE(isTold());
  EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, nullptr, 0, KEY_NOTIFY, &key_), LONG{ERROR_SUCCESS});
}

TEST_F(SimulatedRegistry, HasKeysThatAreMissingUntilTheyAreMade) {
  windows.registry.missing = {L"HKCU\\Software\\Settings\\Policies"};
  HKEY missing = nullptr;
  EXPECT_EQ(RegOpenKeyExW(key_, L"policies", 0, KEY_NOTIFY, &missing), LONG{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(RegOpenKeyExW(key_, L"policies\\below", 0, KEY_NOTIFY, &missing), LONG{ERROR_FILE_NOT_FOUND});
  watch(false);
  windows.createRegistryKey(L"HKCU\\Software\\Settings\\Policies");
  EXPECT_TRUE(isTold());
  EXPECT_EQ(RegOpenKeyExW(key_, L"policies", 0, KEY_NOTIFY, &missing), LONG{ERROR_SUCCESS});
  RegCloseKey(missing);
}

TEST_F(SimulatedRegistry, MayBeWatchedWithoutTheFlagThatWasRefused) {
  windows.failOnce("RegNotifyChangeKeyValue", ERROR_INVALID_PARAMETER);
  EXPECT_EQ(watch(true), LONG{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(watch(true, REG_NOTIFY_CHANGE_LAST_SET), LONG{ERROR_SUCCESS});
  windows.changeRegistry(L"HKCU\\Software\\Settings");
  EXPECT_TRUE(isTold());
}

TEST_F(SimulatedRegistry, FailsWhereItIsToldToAndWhereItMust) {
  windows.failOnce("RegNotifyChangeKeyValue", ERROR_ACCESS_DENIED);
  EXPECT_EQ(watch(true), LONG{ERROR_ACCESS_DENIED});
  HKEY key = nullptr;
  windows.failOnce("RegOpenKeyExW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegOpenKeyExW(user_, L"x", 0, KEY_NOTIFY, &key), LONG{ERROR_ACCESS_DENIED});
  ASSERT_EQ(RegOpenKeyExW(user_, L"x", 0, KEY_QUERY_VALUE, &key), LONG{ERROR_SUCCESS});
  EXPECT_EQ(RegNotifyChangeKeyValue(key, TRUE, kFilter, event_, TRUE), LONG{ERROR_ACCESS_DENIED});
  RegCloseKey(key);
  EXPECT_FALSE(SimulatedWindows::canFail("RegCloseKey"));
}

TEST(MisusedRegistry, IsComplainedAbout) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  HKEY key = nullptr, leaked = nullptr;
  RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"x", 0, KEY_NOTIFY, &key);
  RegNotifyChangeKeyValue(key, TRUE, REG_NOTIFY_CHANGE_LAST_SET, event, TRUE);
  CloseHandle(event);
  RegCloseKey(key);
  RegCloseKey(key);
  RegOpenCurrentUser(KEY_NOTIFY, &leaked);
  EXPECT_EQ(windows.complaints(), (Lines{"registry key 1 is watched only until the calling thread ends",
                                         "event 1 was closed while registry key 1 would signal it",
                                         "registry key 1 was released twice", "registry key 2 was never released"}));
}

template <class Function>
Function find(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

// iphlpapi.dll, as the library finds it.
struct AddressModule {
  HMODULE module = LoadLibraryExW(L"iphlpapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  decltype(&NotifyUnicastIpAddressChange) notify =
      find<decltype(&NotifyUnicastIpAddressChange)>(module, "NotifyUnicastIpAddressChange");
  decltype(&CancelMibChangeNotify2) cancel = find<decltype(&CancelMibChangeNotify2)>(module, "CancelMibChangeNotify2");
  decltype(&GetUnicastIpAddressTable) table =
      find<decltype(&GetUnicastIpAddressTable)>(module, "GetUnicastIpAddressTable");
  decltype(&FreeMibTable) free = find<decltype(&FreeMibTable)>(module, "FreeMibTable");
};

void NETIOAPI_API_ countType(PVOID context, PMIB_UNICASTIPADDRESS_ROW, MIB_NOTIFICATION_TYPE type) {
  static_cast<std::vector<int>*>(context)->push_back(type);
}

TEST(SimulatedAddresses, TellOfChangesUntilTheyAreCancelled) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  const AddressModule module;
  std::vector<int> told;
  HANDLE handle = nullptr;
  EXPECT_EQ(module.notify(AF_UNSPEC, &countType, &told, TRUE, &handle), DWORD{NO_ERROR});
  time.advance(kLong);
  windows.changeAddresses({});
  EXPECT_EQ(told, std::vector<int>{MibInitialNotification});
  time.advance(kLong);
  EXPECT_EQ(told, (std::vector<int>{MibInitialNotification, MibAddInstance}));
  windows.changeAddresses({});
  EXPECT_EQ(module.cancel(handle), DWORD{NO_ERROR});
  time.advance(kLong);
  EXPECT_EQ(told.size(), 2U);
  EXPECT_EQ(module.cancel(nullptr), DWORD{ERROR_INVALID_PARAMETER});
  FreeLibrary(module.module);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(SimulatedAddresses, AreHandedOutAsATable) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  const AddressModule module;
  windows.changeAddresses(
      {{.address = "10.0.0.7", .interfaceId = 3, .prefix = 8}, {.address = "fd00::7", .preferred = false}});
  struct Case {
    ADDRESS_FAMILY family;
    Lines addresses;
  };
  for (const Case& c : {Case{AF_UNSPEC, {"10.0.0.7", "fd00::7"}}, Case{AF_INET6, {"fd00::7"}}}) {
    PMIB_UNICASTIPADDRESS_TABLE table = nullptr;
    ASSERT_EQ(module.table(c.family, &table), DWORD{NO_ERROR});
    Lines addresses;
    for (ULONG i = 0; i < table->NumEntries; ++i) addresses.push_back(formatAddress(table->Table[i].Address));
    EXPECT_EQ(addresses, c.addresses);
    EXPECT_EQ(table->Table[table->NumEntries - 1].DadState, IpDadStateTentative);
    EXPECT_EQ(table->Table[0].OnLinkPrefixLength, c.family == AF_UNSPEC ? 8 : 24);
    module.free(table);
  }
  windows.failOnce("GetUnicastIpAddressTable", ERROR_NOT_ENOUGH_MEMORY);
  PMIB_UNICASTIPADDRESS_TABLE table = nullptr;
  EXPECT_EQ(module.table(AF_INET, &table), DWORD{ERROR_NOT_ENOUGH_MEMORY});
  EXPECT_EQ(module.table(AF_INET, &table), DWORD{NO_ERROR});
  FreeLibrary(module.module);
  EXPECT_EQ(windows.complaints(), Lines{"address table 3 was never released"});
}

TEST(SimulatedAddresses, MaySayNothingAsInWine) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  windows.modules.addressNotifications = false;
  const AddressModule module;
  std::vector<int> told;
  HANDLE handle = &windows;
  EXPECT_EQ(module.notify(AF_UNSPEC, &countType, &told, TRUE, &handle), DWORD{NO_ERROR});
  EXPECT_EQ(handle, nullptr);
  windows.changeAddresses({});
  time.advance(kLong);
  EXPECT_EQ(told, std::vector<int>{});
  FreeLibrary(module.module);
  EXPECT_EQ(windows.complaints(), Lines{});
}

struct CancelInside {
  AddressModule module;
  HANDLE handle = nullptr;
};

void NETIOAPI_API_ cancelInside(PVOID context, PMIB_UNICASTIPADDRESS_ROW, MIB_NOTIFICATION_TYPE) {
  auto* inside = static_cast<CancelInside*>(context);
  inside->module.cancel(inside->handle);
}

TEST(MisusedNotifications, AreComplainedAbout) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  CancelInside inside;
  inside.module.notify(AF_UNSPEC, &cancelInside, &inside, FALSE, &inside.handle);
  windows.changeAddresses({});
  time.advance(kLong);
  HANDLE leaked = nullptr;
  inside.module.notify(AF_UNSPEC, &cancelInside, &inside, FALSE, &leaked);
  FreeLibrary(inside.module.module);
  inside.module.cancel(inside.handle);
  EXPECT_EQ(windows.complaints(), (Lines{"CancelMibChangeNotify2 was called from a callback, where it waits for ever",
                                         "CancelMibChangeNotify2 was called while its module was not loaded",
                                         "registration 1 was released twice", "registration 2 was never released"}));
}

using RegisterProxy = DWORD(WINAPI*)(ULONGLONG, void(CALLBACK*)(ULONGLONG, void*), void*, void**);
using UnregisterProxy = DWORD(WINAPI*)(void*);

TEST(SimulatedWinHttp, TellsOfChangesOfTheProxyWhereItCan) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  HMODULE module = GetModuleHandleW(L"winhttp.dll");
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(GetModuleHandleW(L"WinHTTP"), module);
  const auto enroll = find<RegisterProxy>(module, "WinHttpRegisterProxyChangeNotification");
  const auto unregister = find<UnregisterProxy>(module, "WinHttpUnregisterProxyChangeNotification");
  int told = 0;
  void* handle = nullptr;
  EXPECT_EQ(enroll(
                1, [](ULONGLONG, void* context) { ++*static_cast<int*>(context); }, &told, &handle),
            0U);
  windows.changeWinHttpProxy();
  EXPECT_EQ(told, 0);
  time.advance(kLong);
  EXPECT_EQ(told, 1);
  EXPECT_EQ(unregister(handle), 0U);
  windows.modules.absentFunctions = {"WinHttpRegisterProxyChangeNotification"};
  EXPECT_EQ(GetProcAddress(module, "WinHttpRegisterProxyChangeNotification"), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_PROC_NOT_FOUND});
  EXPECT_EQ(windows.complaints(), Lines{}) << "a module that is always there is nobody's to free";
}

struct PowerRecipient {
  ULONG(CALLBACK* callback)(PVOID, ULONG, PVOID);
  PVOID context;
};

TEST(SimulatedPower, TellsOfTheEndOfSleep) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  HMODULE module = LoadLibraryExW(L"powrprof.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  const auto enroll = find<DWORD(WINAPI*)(DWORD, HANDLE, HANDLE*)>(module, "PowerRegisterSuspendResumeNotification");
  const auto unregister = find<DWORD(WINAPI*)(HANDLE)>(module, "PowerUnregisterSuspendResumeNotification");
  std::vector<ULONG> told;
  HANDLE handle = nullptr;
  {
    PowerRecipient recipient{[](PVOID context, ULONG type, PVOID) {
                               static_cast<std::vector<ULONG>*>(context)->push_back(type);
                               return ULONG{0};
                             },
                             &told};
    EXPECT_EQ(enroll(2, &recipient, &handle), 0U);
  }
  windows.resumeFromSleep();
  time.advance(kLong);
  EXPECT_EQ(told, (std::vector<ULONG>{0x04, 0x12, 0x07}));
  EXPECT_EQ(unregister(handle), 0U);
  FreeLibrary(module);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(SimulatedModules, AreThereUnlessTheScriptSaysOtherwise) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  windows.modules.absent = {L"powrprof.dll"};
  EXPECT_EQ(LoadLibraryExW(L"PowrProf.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
  EXPECT_EQ(LoadLibraryExW(L"other.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32), nullptr);
  EXPECT_EQ(GetModuleHandleW(L"iphlpapi.dll"), nullptr) << "it is not loaded";
  HMODULE module = LoadLibraryExW(L"iphlpapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  EXPECT_EQ(GetModuleHandleW(L"iphlpapi.dll"), module);
  EXPECT_EQ(windows.complaints(), Lines{"module 1 was never released"});
  FreeLibrary(module);
  EXPECT_EQ(GetModuleHandleW(L"iphlpapi.dll"), nullptr);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(SimulatedModules, SayWhetherTheProcessEnds) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  const auto isEnding = find<BOOLEAN(NTAPI*)()>(GetModuleHandleW(L"ntdll.dll"), "RtlDllShutdownInProgress");
  EXPECT_FALSE(isEnding());
  windows.processEnds = true;
  EXPECT_TRUE(isEnding());
}

}  // namespace
}  // namespace kiv::test
