// Tests of a request whose calls read as if they were synchronous: notifications, waits, and the end of the handle.
#include "http/pending_request.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "platform/loaded_module.h"
#include "platform/simulated_state.h"
#include "unit/support/http_scenario.h"

namespace kiv::test {
namespace {

using impl::CallResult;
using impl::PendingRequest;
using support::UniqueInternet;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(!std::is_copy_constructible_v<PendingRequest> && !std::is_move_constructible_v<PendingRequest>,
              "WinHTTP knows its address");

constexpr CallResult kFine;

// A completion that comes so late that another thread has said its own before, on a busy machine too.
constexpr std::chrono::milliseconds kLongerThanAnyPause{300};

class PendingRequestTest : public PlatformTest {
 protected:
  PendingRequestTest() { calls.forget(); }

  UniqueInternet open() const {
    return UniqueInternet(WinHttpOpenRequest(connection.get(), L"HEAD", L"", nullptr, nullptr, nullptr, 0x40));
  }

  // Runs the body on another thread once the calling thread waits for the nth time.
  std::thread onceWaiting(std::size_t nth, std::function<void()> body) {
    return std::thread([this, nth, body = std::move(body)] {
      while (windows.count("WaitForSingleObject") < nth) std::this_thread::sleep_for(std::chrono::microseconds(100));
      body();
    });
  }

  bool isNotificationDue() const {
    const std::lock_guard lock(windows.state().mutex);
    return !windows.state().jobs.empty();
  }

  // Notifies the request's callback of anything, on the calling thread.
  void notify(HINTERNET request, DWORD status, DWORD error = 0, bool withContext = true) {
    WINHTTP_STATUS_CALLBACK callback = nullptr;
    DWORD_PTR context = 0;
    {
      const std::lock_guard lock(windows.state().mutex);
      const Internet& internet = windows.state().internets.at(request);
      callback = internet.callback;
      context = withContext ? internet.context : 0;
    }
    WINHTTP_ASYNC_RESULT result{API_SEND_REQUEST, error};
    callback(request, context, status, &result, sizeof result);
  }

  UniqueInternet session{WinHttpOpen(L"agent", 1, nullptr, nullptr, WINHTTP_FLAG_ASYNC)};
  UniqueInternet connection{WinHttpConnect(session.get(), L"h", 80, 0)};
  CallsSince calls{windows};
};

constexpr auto kDeliveries = {Delivery::Inside, Delivery::OtherThread, Delivery::OtherThreadEarly};

TEST_F(PendingRequestTest, InstallsItsCallbackBeforeAnythingElseAndPassesItselfAlong) {
  {
    PendingRequest request(open());
    EXPECT_EQ(request.send(), kFine);
    EXPECT_EQ(request.receive(), kFine);
  }
  const RequestCalls first;
  EXPECT_THAT(calls.take(),
              ElementsAre(first.open(L"HEAD", L"", L"0x40"), first.event(), first.event(), first.callback(),
                          first.context(), first.send(), first.receive(), first.close()));
}

TEST_F(PendingRequestTest, LendsItsHandle) {
  UniqueInternet opened = open();
  HINTERNET handle = opened.get();
  const PendingRequest request(std::move(opened));
  EXPECT_EQ(request.handle(), handle);
}

TEST_F(PendingRequestTest, FinishesBeforeItReturns) {
  for (const Delivery delivery : kDeliveries) {
    windows.http.delivery = delivery;
    windows.http.delay = std::chrono::milliseconds(5);
    PendingRequest request(open());
    EXPECT_EQ(request.send(), kFine);
    EXPECT_FALSE(isNotificationDue());
    EXPECT_EQ(request.receive(), kFine);
    EXPECT_FALSE(isNotificationDue());
  }
}

TEST_F(PendingRequestTest, GivesTheErrorHoweverItIsTold) {
  for (const Delivery delivery : kDeliveries) {
    for (const ErrorBy errorBy : {ErrorBy::Notification, ErrorBy::ReturnValue}) {
      for (const DWORD code : {DWORD{12029}, DWORD{ERROR_WINHTTP_RESEND_REQUEST}, DWORD{1}, DWORD{0xFFFFFFFF}}) {
        windows.http.delivery = delivery;
        windows.http.failSend(code, errorBy).failReceive(code, errorBy);
        PendingRequest request(open());
        EXPECT_EQ(request.send(), CallResult::failed(code));
        EXPECT_EQ(request.send(), kFine);
        EXPECT_EQ(request.receive(), CallResult::failed(code));
        EXPECT_EQ(request.send(), kFine);
        EXPECT_EQ(request.receive(), kFine);
      }
    }
  }
}

TEST_F(PendingRequestTest, IgnoresNotificationsThatEndNoCall) {
  windows.http.delay = kLongerThanAnyPause;
  PendingRequest request(open());
  std::thread other = onceWaiting(1, [&] {
    constexpr DWORD kResolvingName = 0x1;
    for (const DWORD status : {kResolvingName, DWORD{WINHTTP_CALLBACK_STATUS_HANDLE_CREATED},
                               DWORD{WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE}}) {
      notify(request.handle(), status);
    }
  });
  EXPECT_EQ(request.send(), kFine);
  other.join();
  EXPECT_EQ(windows.count("SetEvent"), 1U);
}

TEST_F(PendingRequestTest, GoesOnWaitingAfterAnotherCallsCompletion) {
  windows.http.delay = kLongerThanAnyPause;
  PendingRequest request(open());
  EXPECT_EQ(request.send(), kFine);
  std::thread other = onceWaiting(2, [&] { notify(request.handle(), WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE); });
  EXPECT_EQ(request.receive(), kFine);
  EXPECT_FALSE(isNotificationDue()) << "it did not wait for the headers";
  other.join();
  EXPECT_EQ(windows.count("WaitForSingleObject"), 3U);
}

TEST_F(PendingRequestTest, DoesNotTreatAnEarlierCompletionAsThatOfTheNextCall) {
  windows.http.delay = std::chrono::milliseconds(20);
  PendingRequest request(open());
  windows.failOnce("WaitForSingleObject", 6);
  EXPECT_EQ(request.send(), CallResult::failed(6));
  windows.settle();
  EXPECT_EQ(request.send(), kFine);
  EXPECT_FALSE(isNotificationDue());
  EXPECT_EQ(request.receive(), kFine);
  EXPECT_FALSE(isNotificationDue());
}

TEST_F(PendingRequestTest, IgnoresNotificationsWithoutAContext) {
  windows.http.delay = std::chrono::milliseconds(20);
  PendingRequest request(open());
  std::thread other = onceWaiting(1, [&] {
    notify(request.handle(), WINHTTP_CALLBACK_STATUS_REQUEST_ERROR, 1, false);
    notify(request.handle(), WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING, 0, false);
  });
  EXPECT_EQ(request.send(), kFine);
  other.join();
}

// The end of the handle.

TEST_F(PendingRequestTest, OutlivesItsHandle) {
  for (const Delivery closing : kDeliveries) {
    windows.http.closeDelivery = closing;
    windows.http.closeDelay = std::chrono::milliseconds(20);
    {
      PendingRequest request(open());
      EXPECT_EQ(request.send(), kFine);
    }
    EXPECT_FALSE(isNotificationDue()) << "it went before its handle reported that it had closed";
  }
}

TEST_F(PendingRequestTest, OutlivesItsHandleAfterAFailureToo) {
  for (const ErrorBy errorBy : {ErrorBy::Notification, ErrorBy::ReturnValue}) {
    windows.http.closeDelay = std::chrono::milliseconds(20);
    windows.http.respond(200).failSend(12029, errorBy);
    {
      PendingRequest request(open());
      EXPECT_EQ(request.send(), kFine);
      EXPECT_EQ(request.receive(), kFine);
      EXPECT_EQ(request.send(), CallResult::failed(12029));
    }
    EXPECT_FALSE(isNotificationDue()) << "it went before its handle reported that it had closed";
  }
}

TEST_F(PendingRequestTest, CancelsACallWhoseEndItCouldNotAwait) {
  windows.http.delay = std::chrono::milliseconds(20);
  PendingRequest request(open());
  windows.failOnce("WaitForSingleObject", 6);
  EXPECT_EQ(request.send(), CallResult::failed(6));
}

// What happens to a request before it is closed.
using Life = void (*)(SimulatedWindows&, PendingRequest&);
constexpr std::pair<const char*, Life> kLives[] = {
    {"never sent", [](SimulatedWindows&, PendingRequest&) {}},
    {"its send does not start",
     [](SimulatedWindows& windows, PendingRequest& request) {
       windows.http.failSend(12029, ErrorBy::ReturnValue);
       EXPECT_EQ(request.send(), CallResult::failed(12029));
     }},
    {"its send is refused",
     [](SimulatedWindows& windows, PendingRequest& request) {
       windows.failOnce("WinHttpSendRequest", 12030);
       EXPECT_EQ(request.send(), CallResult::failed(12030));
     }},
    {"a second send starts after one that did not",
     [](SimulatedWindows& windows, PendingRequest& request) {
       windows.http.failSend(12032, ErrorBy::ReturnValue);
       EXPECT_EQ(request.send(), CallResult::failed(12032));
       EXPECT_EQ(request.send(), kFine);
     }},
};

TEST_F(PendingRequestTest, WaitsForTheEndOfItsHandleWhateverBecameOfIt) {
  for (const auto& [what, life] : kLives) {
    for (const Delivery closing : kDeliveries) {
      SCOPED_TRACE(what);
      windows.http.closeDelivery = closing;
      windows.http.closeDelay = std::chrono::milliseconds(5);
      const std::size_t waits = windows.count("WaitForSingleObject");
      std::size_t waitsOfLife = 0;
      {
        PendingRequest request(open());
        life(windows, request);
        waitsOfLife = windows.count("WaitForSingleObject") - waits;
      }
      EXPECT_EQ(windows.count("WaitForSingleObject") - waits, waitsOfLife + 1);
      EXPECT_FALSE(isNotificationDue()) << "it went before its handle reported that it had closed";
    }
  }
}

TEST_F(PendingRequestTest, KeepsTheLibraryLoadedBeforeItCanBeNotified) {
  const std::size_t before = timesKeptLoaded();
  const PendingRequest request(open());
  EXPECT_EQ(timesKeptLoaded(), before + 1);
}

// Without notifications.

struct Fault {
  const char* function;
  std::size_t nth;
};

class WithoutNotifications : public PendingRequestTest, public ::testing::WithParamInterface<Fault> {
 protected:
  WithoutNotifications() { windows.failNth(GetParam().function, GetParam().nth, 8); }
};

INSTANTIATE_TEST_SUITE_P(PendingRequest, WithoutNotifications,
                         ::testing::Values(Fault{"CreateEventW", 1}, Fault{"CreateEventW", 2},
                                           Fault{"WinHttpSetStatusCallback", 1}, Fault{"WinHttpSetOption", 1}),
                         [](const auto& info) { return info.param.function + std::to_string(info.param.nth); });

TEST_P(WithoutNotifications, CallsCountAsFinishedWhenTheyReturn) {
  windows.http.synchronous = true;
  {
    PendingRequest request(open());
    EXPECT_EQ(request.send(), kFine);
    EXPECT_EQ(request.receive(), kFine);
  }
  EXPECT_EQ(windows.count("WaitForSingleObject"), 0U);
  EXPECT_NE(windows.arguments("WinHttpSendRequest").find(L"context=0"), std::wstring::npos);
}

TEST_P(WithoutNotifications, CallsFailByTheirResult) {
  windows.http.synchronous = true;
  windows.http.failSend(12029).failReceive(12002);
  PendingRequest request(open());
  EXPECT_EQ(request.send(), CallResult::failed(12029));
  EXPECT_EQ(request.send(), kFine);
  EXPECT_EQ(request.receive(), CallResult::failed(12002));
}

TEST_P(WithoutNotifications, TheEndOfTheHandleIsNotAwaited) {
  windows.http.closeDelay = std::chrono::milliseconds(5);
  {
    PendingRequest request(open());
    EXPECT_EQ(request.send(), kFine);
  }
  windows.settle();
  EXPECT_EQ(windows.count("WaitForSingleObject"), 0U);
}

TEST_F(PendingRequestTest, TakesItsCallbackAwayIfItCannotSetItsContext) {
  windows.failOnce("WinHttpSetOption", 12009);
  { const PendingRequest request(open()); }
  EXPECT_NE(windows.arguments("WinHttpSetStatusCallback", 2).find(L"callback=null"), std::wstring::npos);
}

TEST_F(PendingRequestTest, InstallsNoCallbackWithoutItsEvents) {
  windows.failAlways("CreateEventW", 8);
  { const PendingRequest request(open()); }
  EXPECT_EQ(windows.count("CreateEventW"), 2U);
  EXPECT_EQ(windows.count("WinHttpSetStatusCallback"), 0U);
}

}  // namespace
}  // namespace kiv::test
