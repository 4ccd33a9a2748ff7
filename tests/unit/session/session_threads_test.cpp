// Sessions that many threads use at once, for ThreadSanitizer: everything at any time, and closing amid it.
#include <atomic>
#include <thread>

#include "unit/session/support/session_test.h"

namespace kiv::test {
namespace {

constexpr std::size_t kThreads = 8;
constexpr std::size_t kRounds = 2;
constexpr auto kSettingsKey = L"HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections";

bool isEnd(KivStatus status) {
  return status == KIV_STATUS_OK || status == KIV_STATUS_TIMED_OUT || status == KIV_STATUS_CANCELLED ||
         status == KIV_STATUS_CLOSED;
}

// One application's threads on one session.
class Traffic {
 public:
  explicit Traffic(const UniqueSession& session) : session_(session) {}

  // Does one thing after the other until the session is closed.
  void useUntilClosed(std::size_t thread) {
    for (std::size_t turn = thread; !closed_; ++turn) {
      const std::wstring url = L"http://h" + std::to_wstring(turn % 5) + L".test/";
      doOneThing(turn % 9, url.c_str());
    }
  }
  void close() {
    KivSession_Close(session_.get());
    closed_ = true;
  }
  bool isClosed() const { return closed_; }

 private:
  void doOneThing(std::size_t what, const wchar_t* url) {
    switch (what) {
      case 0:
        last_ = lookup(session_, url).status;
        return;
      case 1:
        EXPECT_TRUE(isEnd(resolve(session_, url, 1'000).status));
        return;
      case 2: {
        const Started started = start(session_, url, 1'000, 1);
        KivRequest_Cancel(started.request.get());
        return;
      }
      case 3: {
        const Started started = start(session_, url, 1'000, 2, onDone);
        EXPECT_TRUE(!started.request || isEnd(started.wait().status));
        return;
      }
      case 4:
        for (Told told = next(session_, 10); told.event; told = next(session_)) {
          if (told.kind() == KIV_EVENT_CLOSED) return;
          if (told.kind() == KIV_EVENT_CHALLENGE) respond(told.challenge());
        }
        return;
      case 5: {
        const Result result = lookup(session_, url);
        if (!result.decision) return;
        const std::uint32_t reason = KIV_FAILURE_PROXY_UNREACHABLE + turns_++ % 3;
        KivSession_ReportFailure(session_.get(), result.decision.get(), reason);
        return;
      }
      case 6:
        KivSession_Forget(session_.get());
        return;
      case 7:
        KivSession_ForgetCredentials(session_.get());
        return;
      default:
        counter(session_, KIV_COUNTER_WAITING);
        counter(session_, KIV_COUNTER_KEPT_ANSWERS);
        return;
    }
  }
  void respond(const UniqueChallenge& challenge) {
    switch (turns_++ % 3) {
      case 0:
        KivChallenge_Answer(challenge.get(), L"ann", L"right");
        return;
      case 1:
        KivChallenge_Answer(challenge.get(), L"ann", L"wrong");
        return;
      default:
        return;  // released unanswered, it declines
    }
  }
  static void onDone(std::uint64_t, KivStatus status, KivDecision* decision) {
    const UniqueDecision owned(decision);
    EXPECT_TRUE(isEnd(status));
  }

  const UniqueSession& session_;
  std::atomic<bool> closed_{false};
  std::atomic<std::uint32_t> turns_{0};
  std::atomic<KivStatus> last_{0};
};

void arrange(SimulatedWindows& windows) {
  windows.user.proxy = L"10.0.0.1:8080;proxy:1;other:2";
  windows.network.listeners[{"10.0.0.1", 8080}] = {.answer = Listener::Answer::Silent};
  windows.http.decide = [](const RequestRecord& request) {
    if (proxyOf(request) == L"10.0.0.1:8080") return Exchange{.connecting = kNever};
    if (proxyOf(request) == L"proxy:1") return wantsPassword(request, L"right");
    return Exchange{.connecting = 1ms, .answering = 5ms};
  };
}

TEST(SessionThreads, UseOneSessionUntilSeveralCloseIt) {
  for (std::size_t round = 0; round < kRounds; ++round) {
    SimulatedWindows windows;
    arrange(windows);
    {
      VirtualTime time(windows, VirtualTime::Mode::Free);
      const UniqueSession session = newSession();
      KivSession_SetNumber(session.get(), KIV_OPTION_CONNECT_TIME_OUT, 400);
      Traffic traffic(session);
      std::vector<VirtualTime::Thread> threads;
      for (std::size_t i = 0; i < kThreads; ++i) {
        threads.push_back(time.startThread([&traffic, i] { traffic.useUntilClosed(i); }));
      }
      for (int change = 0; change < 4; ++change) {
        windows.change([&] { windows.user.bypass = L"b" + std::to_wstring(change); });
        windows.changeRegistry(kSettingsKey);
        windows.changeAddresses({{.address = "10.9.9." + std::to_string(change)}});
        if (change % 2 == 0) windows.resumeFromSleep();
        time.advance(1'000ms);
      }
      for (int i = 0; i < 3; ++i) threads.push_back(time.startThread([&traffic] { traffic.close(); }));
      for (VirtualTime::Thread& thread : threads) thread.join();
    }
    expectNoComplaints(windows);
  }
}

TEST(SessionThreads, LeaveASessionThatIsDestructedMeanwhile) {
  for (std::size_t round = 0; round < kRounds; ++round) {
    SimulatedWindows windows;
    windows.user.proxy = std::nullopt;
    windows.http.decide = [](const RequestRecord&) { return Exchange{.answering = kNever}; };
    {
      VirtualTime time(windows, VirtualTime::Mode::Free);
      UniqueSession session = newSession();
      // A thread that is not scheduled for long does not find its time over.
      for (const std::uint32_t option : {KIV_OPTION_TIME_OUT, KIV_OPTION_DISCOVERY_TIME_OUT,
                                         KIV_OPTION_CONNECT_TIME_OUT, KIV_OPTION_ANSWER_TIME_OUT}) {
        KivSession_SetNumber(session.get(), option, 86'400'000);
      }
      const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
      KivSession* const handle = session.get();
      std::vector<VirtualTime::Thread> threads;
      for (std::size_t i = 0; i < kThreads / 2; ++i) {
        threads.push_back(time.startThread([handle] {
          KivDecision* decision = nullptr;
          EXPECT_EQ(KivSession_Resolve(handle, L"http://a.test/", KIV_NO_TIME_OUT, &decision), KIV_STATUS_CLOSED);
        }));
        threads.push_back(time.startThread([&started] {
          KivStatus status = KIV_STATUS_NOT_YET;
          while (status == KIV_STATUS_NOT_YET) status = started.wait(10).status;
          EXPECT_EQ(status, KIV_STATUS_CLOSED);
        }));
      }
      // All are inside.
      while (counter(session, KIV_COUNTER_WAITING) < 1 + kThreads / 2) std::this_thread::yield();
      session.reset();
      for (VirtualTime::Thread& thread : threads) thread.join();
    }
    expectNoComplaints(windows);
  }
}

}  // namespace
}  // namespace kiv::test
