// Tests of noticing changes of the settings, of addresses, and of sleep.
#include "changes/changes.h"

#include <gmock/gmock.h>

#include "loop/system_error.h"
#include "platform/platform_test.h"
#include "platform/virtual_time.h"

namespace kiv::test {
namespace {

using namespace std::chrono_literals;
using session::Changes;
using session::EventLoop;
using session::LockGuard;
using session::makeRef;
using session::Ref;

#define KIV_SETTINGS L"Microsoft\\Windows\\CurrentVersion\\Internet Settings"
constexpr const wchar_t* kUserSettings = L"HKCU\\Software\\" KIV_SETTINGS L"\\Connections";
constexpr const wchar_t* kMachineSettings = L"HKLM\\SOFTWARE\\" KIV_SETTINGS;
constexpr const wchar_t* kPolicySettings = L"HKLM\\SOFTWARE\\Policies\\" KIV_SETTINGS;
#undef KIV_SETTINGS

class Listener final : public session::ChangesListener {
 public:
  void changed() noexcept override { ++count; }
  int count = 0;
};

class Stop final : public session::Task {
 public:
  explicit Stop(Changes& changes) : changes_(&changes) {}

 private:
  void run() noexcept override { changes_->stop(); }
  Ref<Changes> changes_;
};

class ChangesTest : public PlatformTest {
 protected:
  ChangesTest() { windows.user.proxy = L"proxy:8080"; }
  ~ChangesTest() override { stop(); }

  void start() {
    {
      const LockGuard guard(loop->lock());
      changes = Changes::start(*loop, listener);
    }
    time.settle();
    EXPECT_EQ(listener.count, 0);
  }
  void stop() {
    if (changes) loop->post(*makeRef<Stop>(*changes));
    time.advance(10s);
    changes = {};
    time.settle();
  }
  void set(std::wstring proxy, const wchar_t* key = kUserSettings) {
    windows.change([&] { windows.user.proxy = std::move(proxy); });
    windows.changeRegistry(key);
  }
  // How many changes were told since the last call.
  int told() { return std::exchange(listener.count, 0); }
  int toldAfter(std::chrono::milliseconds duration) {
    time.advance(duration);
    return told();
  }

  VirtualTime time{windows};
  Ref<EventLoop> loop = EventLoop::create();
  Listener listener;
  Ref<Changes> changes;
};

TEST_F(ChangesTest, TellsOfOtherSettingsAtOnce) {
  start();
  for (const wchar_t* key : {kUserSettings, kMachineSettings, kPolicySettings}) {
    set(std::wstring(L"other:1 of ") + key, key);
    EXPECT_EQ(toldAfter(0ms), 1) << testing::PrintToString(std::wstring(key));
  }
}

TEST_F(ChangesTest, ComparesWhatIsRead) {
  start();
  const std::vector<std::function<void()>> edits = {
      [&] { windows.user.autoDetect = true; }, [&] { windows.user.autoConfigUrl = L"http://pac/"; },
      [&] { windows.user.proxy = std::nullopt; }, [&] { windows.user.bypass = L"<local>"; },
      [&] { windows.user.error = ERROR_FILE_NOT_FOUND; }};
  for (const auto& edit : edits) {
    windows.change(edit);
    windows.changeRegistry(kUserSettings);
    EXPECT_EQ(toldAfter(0ms), 1);
    windows.changeRegistry(kUserSettings);
    EXPECT_EQ(toldAfter(0ms), 0);
  }
}

TEST_F(ChangesTest, SaysNothingOfIdenticalWrites) {
  start();
  for (int i = 0; i < 100; ++i) {
    set(L"proxy:8080");
    time.settle();
  }
  EXPECT_EQ(toldAfter(10s), 0);
  set(L"other:1");
  EXPECT_EQ(toldAfter(0ms), 1);
}

TEST_F(ChangesTest, WatchesAsTheDocumentationAsks) {
  start();
  EXPECT_THAT(windows.count("RegNotifyChangeKeyValue"), 3U);
  for (std::size_t nth = 1; nth <= 3; ++nth) {
    const std::wstring arguments = windows.arguments("RegNotifyChangeKeyValue", nth);
    EXPECT_NE(arguments.find(L"10000005"), std::wstring::npos) << testing::PrintToString(arguments);
  }
}

TEST_F(ChangesTest, LosesNothingBetweenTheFirstReadingAndTheRegistration) {
  std::size_t readings = 0;
  windows.onCall = [&](const std::string& name) {
    if (name == "WinHttpGetIEProxyConfigForCurrentUser") ++readings;
    if (name == "RegNotifyChangeKeyValue" && readings == 1) windows.user.proxy = L"other:1";
  };
  {
    const LockGuard guard(loop->lock());
    changes = Changes::start(*loop, listener);
  }
  time.settle();
  EXPECT_EQ(told(), 1);
}

TEST_F(ChangesTest, FollowsThePoliciesThatComeAndGo) {
  windows.registry.missing = {kPolicySettings};
  start();
  windows.change([&] { windows.user.proxy = L"other:1"; });
  windows.createRegistryKey(kPolicySettings);
  EXPECT_EQ(toldAfter(0ms), 1);
  set(L"other:2", kPolicySettings);
  EXPECT_EQ(toldAfter(0ms), 1);
  set(L"other:3", L"HKLM\\SOFTWARE\\Policies\\Else");
  EXPECT_EQ(toldAfter(0ms), 0) << "only the key itself is watched once it is there";
}

TEST_F(ChangesTest, WorksWithoutTheFlagOfWindows8) {
  windows.failNth("RegNotifyChangeKeyValue", 1, ERROR_INVALID_PARAMETER);
  start();
  set(L"other:1");
  EXPECT_EQ(toldAfter(0ms), 1);
}

TEST_F(ChangesTest, TellsOfWinHttpsOwnNotification) {
  windows.failAlways("RegOpenKeyExW", ERROR_ACCESS_DENIED);
  start();
  windows.change([&] { windows.user.proxy = L"other:1"; });
  windows.changeWinHttpProxy();
  EXPECT_EQ(toldAfter(0ms), 1);
  windows.changeWinHttpProxy();
  EXPECT_EQ(toldAfter(0ms), 0);
}

TEST_F(ChangesTest, WaitsUntilAddressesAreQuiet) {
  start();
  windows.changeAddresses({{.address = "10.0.0.1"}});
  EXPECT_EQ(toldAfter(1'499ms), 0);
  EXPECT_EQ(toldAfter(1ms), 1);
  windows.changeAddresses({{.address = "10.0.0.2"}});
  EXPECT_EQ(toldAfter(1'000ms), 0);
  windows.changeAddresses({{.address = "10.0.0.3"}});
  EXPECT_EQ(toldAfter(1'499ms), 0);
  EXPECT_EQ(toldAfter(1ms), 1);
}

TEST_F(ChangesTest, WaitsForAddressesNoLongerThanFiveSeconds) {
  start();
  int changesTold = 0;
  std::chrono::milliseconds when{0};
  for (int i = 1; i <= 6; ++i) {
    windows.changeAddresses({{.address = "10.0.0." + std::to_string(i)}});
    for (int j = 0; j < 10; ++j) {
      const int now = toldAfter(100ms);
      if (now != 0 && changesTold == 0) when = 1'000ms * (i - 1) + 100ms * (j + 1);
      changesTold += now;
    }
  }
  EXPECT_EQ(changesTold, 1);
  EXPECT_EQ(when, 5'000ms);
  EXPECT_EQ(toldAfter(10s), 1);
}

TEST_F(ChangesTest, ComparesAddressesThatCanBeUsed) {
  struct Case {
    const char* description;
    std::vector<UnicastAddress> addresses;
    int changes;
  };
  const UnicastAddress first{.address = "10.0.0.1"};
  const UnicastAddress second{.address = "fd00::1", .prefix = 64};
  windows.changeAddresses({first});
  time.settle();
  start();
  for (const Case& c : std::initializer_list<Case>{
           {"the same", {first}, 0},
           {"one more", {first, second}, 1},
           {"in another order", {second, first}, 0},
           {"loopback and link-local ones",
            {first,
             second,
             {.address = "127.0.0.1"},
             {.address = "::1"},
             {.address = "fe80::1"},
             {.address = "169.254.1.1"}},
            0},
           {"one that is still checked", {first, second, {.address = "10.0.0.9", .preferred = false}}, 0},
           {"and now can be used", {first, second, {.address = "10.0.0.9"}}, 1},
           {"of another interface", {first, second, {.address = "10.0.0.9", .interfaceId = 2}}, 1},
           {"with another prefix", {first, second, {.address = "10.0.0.9", .interfaceId = 2, .prefix = 8}}, 1},
           {"none", {}, 1}}) {
    windows.changeAddresses(c.addresses);
    EXPECT_EQ(toldAfter(2s), c.changes) << c.description;
  }
}

TEST_F(ChangesTest, TakesEveryResumeForAChange) {
  windows.changeAddresses({{.address = "10.0.0.1"}});
  time.settle();
  start();
  windows.resumeFromSleep();
  EXPECT_GE(toldAfter(0ms), 1);
  windows.changeRegistry(kUserSettings);
  windows.changeAddresses({{.address = "10.0.0.1"}});
  EXPECT_EQ(toldAfter(10s), 0) << "what was read anew has not changed";
  windows.change([&] { windows.user.proxy = L"other:1"; });
  windows.resumeFromSleep();
  EXPECT_GE(toldAfter(0ms), 1);
  windows.changeRegistry(kUserSettings);
  EXPECT_EQ(toldAfter(10s), 0) << "the settings of before the resume do not count any more";
}

TEST_F(ChangesTest, WorksWithWhatTheSystemHas) {
  struct Case {
    std::set<std::wstring> modules;
    std::set<std::string> functions;
  };
  for (const Case& c :
       std::initializer_list<Case>{{{L"iphlpapi.dll", L"powrprof.dll"}, {}},
                                   {{},
                                    {"NotifyUnicastIpAddressChange", "WinHttpRegisterProxyChangeNotification",
                                     "PowerRegisterSuspendResumeNotification"}},
                                   {{}, {"GetUnicastIpAddressTable"}},
                                   {{}, {"FreeMibTable"}},
                                   {{},
                                    {"CancelMibChangeNotify2", "WinHttpUnregisterProxyChangeNotification",
                                     "PowerUnregisterSuspendResumeNotification"}}}) {
    windows.modules.absent = c.modules;
    windows.modules.absentFunctions = c.functions;
    start();
    set(L"proxy:" + std::to_wstring(c.modules.size() * 10 + c.functions.size()));
    EXPECT_EQ(toldAfter(0ms), 1);
    windows.changeAddresses({{.address = "10.0.0.1"}});
    EXPECT_EQ(toldAfter(10s), 0);
    stop();
    windows.changeAddresses({});
    time.settle();
    set(L"proxy:8080");
  }
}

TEST_F(ChangesTest, WorksWhereAddressesAreNeverTold) {
  windows.modules.addressNotifications = false;
  start();
  windows.changeAddresses({{.address = "10.0.0.1"}});
  EXPECT_EQ(toldAfter(10s), 0);
}

TEST_F(ChangesTest, SaysNothingOnceItWasStopped) {
  start();
  windows.changeAddresses({{.address = "10.0.0.1"}});
  time.settle();
  set(L"other:1");
  windows.changeWinHttpProxy();
  windows.resumeFromSleep();
  {
    const LockGuard guard(loop->lock());
    loop->post(*makeRef<Stop>(*changes));
  }
  time.settle();
  told();
  set(L"other:2");
  windows.changeAddresses({});
  windows.changeWinHttpProxy();
  windows.resumeFromSleep();
  EXPECT_EQ(toldAfter(10s), 0);
}

TEST_F(ChangesTest, CanBeStoppedBeforeItHasBegun) {
  {
    const LockGuard guard(loop->lock());
    changes = Changes::start(*loop, listener);
  }
  stop();
  EXPECT_EQ(told(), 0);
}

TEST_F(ChangesTest, WatchesTheKeysOfTheSessionsUser) {
  loop = {};
  windows.otherUsers[L"pam"] = {.proxy = L"pams:1"};
  windows.impersonate(L"pam");
  loop = EventLoop::create();
  windows.impersonate(L"");
  start();
  windows.change([&] { windows.otherUsers[L"pam"].proxy = L"pams:2"; });
  windows.changeRegistry(kUserSettings);
  EXPECT_EQ(toldAfter(0ms), 1);
  windows.change([&] { windows.user.proxy = L"other:1"; });
  windows.changeRegistry(kUserSettings);
  EXPECT_EQ(toldAfter(0ms), 0);
}

TEST(ChangesFaults, LeaveNothingBehind) {
  forEachFault([](SimulatedWindows& windows) {
    VirtualTime time(windows);
    try {
      const Ref<EventLoop> loop = EventLoop::create();
      Listener listener;
      Ref<Changes> changes;
      {
        const LockGuard guard(loop->lock());
        changes = Changes::start(*loop, listener);
      }
      time.settle();
      windows.user.proxy = L"other:1";
      windows.changeRegistry(kUserSettings);
      windows.changeAddresses({{.address = "10.0.0.1"}});
      windows.changeWinHttpProxy();
      windows.resumeFromSleep();
      time.advance(3s);
      loop->post(*makeRef<Stop>(*changes));
      time.advance(10s);
    } catch (const session::SystemError&) {  // no loop
    }
    time.settle();
  });
}

}  // namespace
}  // namespace kiv::test
