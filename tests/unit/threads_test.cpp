// Resolutions on several threads at once, each with its own client and logger, against one platform.
#include <gmock/gmock.h>

#include <functional>
#include <future>
#include <thread>

#include "platform/platform_test.h"
#include "unit/support/http_scenario.h"
#include "unit/support/scripted_application.h"

namespace kiv::test {
namespace {

using Lines = std::vector<std::wstring>;

constexpr std::size_t kThreads = 8;
constexpr std::size_t kRounds = 25;

constexpr ScriptedApplication::Login kProxyLogin = {L"pam", kProxyPassword};
constexpr ScriptedApplication::Login kServerLogin = {L"sam", kServerPassword};

// One proxy is dead, one refuses, and the third asks for credentials, as does the server behind it.
Exchange answer(const RequestRecord& request) {
  const std::wstring proxy = request.proxy.value_or(ProxyOption()).list.value_or(L"");
  if (proxy == L"http://dead:1") return {.sendError = 12029};
  if (proxy == L"http://refusing:2") return {.status = 502};
  bool proxyKnows = false, serverKnows = false;
  for (const Credentials& given : request.credentials) {
    if (given.target == WINHTTP_AUTH_TARGET_PROXY && given.password == kProxyPassword) proxyKnows = true;
    if (given.target == WINHTTP_AUTH_TARGET_SERVER && given.password == kServerPassword) serverKnows = true;
  }
  return {.status = !proxyKnows ? 407U : !serverKnows ? 401U : 200U};
}

// A whole resolution with everything of its own. The threads differ in nothing but the target's name.
Lines resolveOnce(const std::wstring& target) {
  ScriptedApplication application;
  application.forbid(kProxyPassword);
  application.forbid(kServerPassword);
  application.targetUrl = target.c_str();
  application.proxyLogin = kProxyLogin;
  application.serverLogin = kServerLogin;
  const UniqueHttpClient client = createClient(target.c_str());
  application.client = client.get();
  const UniqueProxyConfig preferred = parsed(L"http://dead:1");
  const UniqueProxyConfig result = application.resolve(preferred.get(), nullptr, L"other.test;*.local;<local>");
  Lines lines = application.transcript();
  lines.push_back(textOf(result));
  return lines;
}

std::wstring targetOf(std::size_t thread) {
  return L"http://target" + std::to_wstring(thread) + L".test:8080/path?query";
}

class ThreadsTest : public PlatformTest {
 protected:
  ThreadsTest() {
    windows.user.autoDetect = true;
    windows.autoDetection = {{.proxy = L"refusing:2;asking:3", .bypass = L"never.test"}};
    windows.environment[L"PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME"] = L"1";
    windows.http.decide = answer;
    windows.http.delay = windows.http.closeDelay = std::chrono::microseconds(0);
  }

  // Calls `body` with the number of the thread, on all threads at once.
  static void onAllThreads(const std::function<void(std::size_t)>& body) {
    std::promise<void> allAreStarted;
    const std::shared_future<void> start = allAreStarted.get_future().share();
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
      threads.emplace_back([&body, start, i] {
        start.wait();
        body(i);
      });
    }
    allAreStarted.set_value();
    for (std::thread& thread : threads) thread.join();
  }

  // What each thread saw in each round.
  static std::vector<std::vector<Lines>> resolveOnAllThreads(std::size_t rounds = kRounds) {
    std::vector<std::vector<Lines>> seen(kThreads);
    onAllThreads([&](std::size_t i) {
      for (std::size_t round = 0; round < rounds; ++round) seen[i].push_back(resolveOnce(targetOf(i)));
    });
    return seen;
  }
};

// The first use of the library in the process is on all threads at once, if this test runs alone.
TEST_F(ThreadsTest, ResolvesOnEightThreadsAsOnOne) {
  const std::vector<std::vector<Lines>> seen = resolveOnAllThreads();
  for (std::size_t i = 0; i < kThreads; ++i) {
    const Lines expected = resolveOnce(targetOf(i));
    ASSERT_EQ(expected.back(), L"http://pam:" + std::wstring(kProxyPassword) + L"@asking:3");
    ASSERT_EQ(seen[i].size(), kRounds);
    for (const Lines& lines : seen[i]) EXPECT_THAT(lines, testing::ElementsAreArray(expected));
  }
}

TEST_F(ThreadsTest, ResolvesOnEightThreadsHoweverCompletionsArrive) {
  for (const Delivery delivery : {Delivery::Inside, Delivery::OtherThread, Delivery::OtherThreadEarly}) {
    windows.http.delivery = delivery;
    for (const auto& rounds : resolveOnAllThreads(4)) {
      for (const Lines& lines : rounds) {
        EXPECT_EQ(lines.back(), L"http://pam:" + std::wstring(kProxyPassword) + L"@asking:3");
      }
    }
  }
}

// What is only read may be shared.
TEST_F(ThreadsTest, SharesConfigurationsThatAreOnlyRead) {
  const UniqueProxyConfig shared = parsed(kProxyText);
  const std::wstring expected = textOf(shared);
  std::vector<Lines> seen(kThreads);
  onAllThreads([&](std::size_t i) {
    for (std::size_t round = 0; round < kRounds; ++round) {
      ScriptedApplication application;
      application.statuses = {500};
      seen[i].push_back(textOf(application.resolve(shared.get(), shared.get())));
    }
  });
  // The system's proxies come between the two.
  for (const Lines& results : seen) EXPECT_EQ(results, Lines(kRounds, L"http://refusing:2"));
  EXPECT_EQ(textOf(shared), expected);
}

}  // namespace
}  // namespace kiv::test
