// Proves that simulated requests and discoveries take their time, keep to their time-outs, and can be abandoned.
#include <gtest/gtest.h>

#include <array>

#include "platform/platform_test.h"
#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

// Notes the notifications of one request, with the time at which each came.
class Request {
 public:
  explicit Request(const wchar_t* proxy = nullptr) {
    const DWORD access = proxy ? WINHTTP_ACCESS_TYPE_NAMED_PROXY : WINHTTP_ACCESS_TYPE_NO_PROXY;
    session_ = WinHttpOpen(L"agent", access, proxy, nullptr, WINHTTP_FLAG_ASYNC);
    set(session_, WINHTTP_OPTION_MAX_CONNS_PER_SERVER, 16);
    connection_ = WinHttpConnect(session_, L"host", 80, 0);
    handle_ = WinHttpOpenRequest(connection_, L"HEAD", L"x", nullptr, nullptr, nullptr, 0);
    auto context = reinterpret_cast<DWORD_PTR>(this);
    WinHttpSetOption(handle_, WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof context);
    WinHttpSetStatusCallback(handle_, &Request::onStatus,
                             WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES |
                                 WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER,
                             0);
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request() {
    close();
    WinHttpCloseHandle(connection_);
    WinHttpCloseHandle(session_);
  }

  static BOOL set(HINTERNET handle, DWORD option, DWORD value) {
    return WinHttpSetOption(handle, option, &value, sizeof value);
  }
  BOOL set(DWORD option, DWORD value) { return set(handle_, option, value); }
  void send() { EXPECT_TRUE(WinHttpSendRequest(handle_, nullptr, 0, nullptr, 0, 0, 0)); }
  void close() {
    AcquireSRWLockExclusive(&lock_);
    if (handle_) WinHttpCloseHandle(std::exchange(handle_, nullptr));
    ReleaseSRWLockExclusive(&lock_);
  }
  HINTERNET handle() const { return handle_; }

  Lines notes;
  HANDLE closed = nullptr;  // if set, an event for that

 private:
  static void CALLBACK onStatus(HINTERNET handle, DWORD_PTR context, DWORD status, LPVOID information, DWORD) {
    const MemoryWatch::Pause pause;
    auto& self = *reinterpret_cast<Request*>(context);
    std::string what = "closed";
    if (status == WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER) what = "connected";
    if (status == WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE) what = "sent";
    if (status == WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE) what = "answered";
    if (status == WINHTTP_CALLBACK_STATUS_REQUEST_ERROR) {
      const auto& result = *static_cast<WINHTTP_ASYNC_RESULT*>(information);
      what = std::to_string(result.dwError) + " of " + std::to_string(result.dwResult);
    }
    self.notes.push_back(what + " " + std::to_string(GetTickCount64() - 3600000));
    if (what == "closed" && self.closed) SetEvent(self.closed);
    if (what != "sent") return;
    AcquireSRWLockExclusive(&self.lock_);
    if (self.handle_) WinHttpReceiveResponse(handle, nullptr);
    ReleaseSRWLockExclusive(&self.lock_);
  }

  HINTERNET session_ = nullptr;
  HINTERNET connection_ = nullptr;
  HINTERNET handle_ = nullptr;
  SRWLOCK lock_ = SRWLOCK_INIT;  // so that nothing is received on a handle that is being closed
};

class TimedExchanges : public PlatformTest {
 protected:
  VirtualTime time{windows};
};

TEST_F(TimedExchanges, TakeTheirTime) {
  windows.http.respond({.connecting = 30ms, .answering = 200ms});
  Request request;
  request.send();
  time.advance(1s);
  EXPECT_EQ(request.notes, (Lines{"connected 30", "sent 30", "answered 230"}));
  request.close();
  time.settle();
  EXPECT_EQ(request.notes.back(), "closed 1000");
}

TEST_F(TimedExchanges, NeedNoTimeIfNothingIsSaid) {
  for (const Delivery delivery : {Delivery::Inside, Delivery::OtherThread, Delivery::OtherThreadEarly}) {
    windows.http.delivery = delivery;
    Request request;
    request.send();
    EXPECT_EQ(request.notes.size(), delivery == Delivery::OtherThread ? 0U : 3U);
    time.settle();
    EXPECT_EQ(request.notes, (Lines{"connected 0", "sent 0", "answered 0"}));
    request.close();
    time.settle();
    EXPECT_EQ(request.notes.back(), "closed 0");
  }
}

TEST_F(TimedExchanges, FailWithTheirErrorWhenTheyWouldHaveEnded) {
  windows.http.respond({.sendError = 12029, .connecting = 40ms});
  windows.http.respond({.sendError = 12175, .connecting = 40ms});
  windows.http.respond({.receiveError = 12030, .answering = 50ms});
  Request refused, untrusted, lost;
  refused.send();
  untrusted.send();
  lost.send();
  time.advance(1s);
  EXPECT_EQ(refused.notes, Lines{"12029 of 5 40"});
  EXPECT_EQ(untrusted.notes, (Lines{"connected 40", "12175 of 5 40"}));
  EXPECT_EQ(lost.notes, (Lines{"connected 0", "sent 0", "12030 of 1 50"}));
  refused.close();
  untrusted.close();
  lost.close();
  time.settle();
}

TEST_F(TimedExchanges, KeepToTheTimeOuts) {
  struct Case {
    DWORD option, value;
    Exchange exchange;
    Lines notes;
  };
  const std::vector<Case> cases = {
      {WINHTTP_OPTION_CONNECT_TIMEOUT, 500, {.connecting = 501ms}, {"12002 of 5 500"}},
      {WINHTTP_OPTION_CONNECT_TIMEOUT, 500, {.connecting = 500ms}, {"connected 500", "sent 500", "answered 500"}},
      {WINHTTP_OPTION_CONNECT_TIMEOUT, 500, {.connecting = kNever}, {"12002 of 5 500"}},
      {WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, 70, {.answering = kNever}, {"connected 0", "sent 0", "12002 of 1 70"}},
      {WINHTTP_OPTION_RECEIVE_TIMEOUT, 80, {.answering = 1s}, {"connected 0", "sent 0", "12002 of 1 80"}},
      {WINHTTP_OPTION_CONNECT_TIMEOUT, 0, {.connecting = kNever}, {}},
  };
  for (const Case& one : cases) {
    SimulatedWindows others;
    VirtualTime otherTime(others);
    others.http.respond(one.exchange);
    Request request;
    EXPECT_TRUE(request.set(one.option, one.value));
    EXPECT_EQ(others.requests().at(0).options.at(one.option), one.value);
    request.send();
    otherTime.advance(1h);
    EXPECT_EQ(request.notes, one.notes);
    request.close();
    otherTime.settle();
  }
}

TEST_F(TimedExchanges, TakeAllTimeOutsFromOneCall) {
  windows.http.respond({.connecting = kNever});
  Request request;
  EXPECT_TRUE(WinHttpSetTimeouts(request.handle(), 1, 2, 3, -1));
  EXPECT_FALSE(WinHttpSetTimeouts(request.handle(), 1, -2, 3, 4));
  EXPECT_EQ(windows.requests().at(0).options, (std::map<DWORD, DWORD>{{WINHTTP_OPTION_RESOLVE_TIMEOUT, 1},
                                                                      {WINHTTP_OPTION_CONNECT_TIMEOUT, 2},
                                                                      {WINHTTP_OPTION_SEND_TIMEOUT, 3},
                                                                      {WINHTTP_OPTION_RECEIVE_TIMEOUT, 0xFFFFFFFF},
                                                                      {WINHTTP_OPTION_MAX_CONNS_PER_SERVER, 16}}));
  request.send();
  time.advance(1s);
  EXPECT_EQ(request.notes, Lines{"12002 of 5 2"});
  request.close();
  time.settle();
}

TEST_F(TimedExchanges, SayThatTheyWereCancelledAndThenThatTheyClosed) {
  windows.http.respond({.connecting = 50ms}).respond({.answering = kNever});
  Request connecting, answering;
  connecting.send();
  answering.send();
  time.advance(20ms);
  connecting.close();
  answering.close();
  EXPECT_EQ(connecting.notes, Lines{});
  time.advance(1h);
  EXPECT_EQ(connecting.notes, (Lines{"12017 of 5 20", "closed 20"}));
  EXPECT_EQ(answering.notes, (Lines{"connected 0", "sent 0", "12017 of 1 20", "closed 20"}));
}

TEST_F(TimedExchanges, SayNothingUntilTheAnswerWouldHaveComeIfTheyAreToldTo) {
  windows.http.closingWaits = true;
  windows.http.respond({.connecting = 50ms, .answering = 100ms}).respond({.answering = 300ms});
  windows.http.respond({.answering = kNever});
  Request connecting, answering, limited;
  limited.set(WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, 400);
  connecting.send();
  answering.send();
  limited.send();
  time.advance(20ms);
  connecting.close();
  answering.close();
  limited.close();
  time.advance(1h);
  EXPECT_EQ(connecting.notes, (Lines{"sent 150", "closed 150"}));
  EXPECT_EQ(answering.notes, (Lines{"connected 0", "sent 0", "answered 300", "closed 300"}));
  EXPECT_EQ(limited.notes.back(), "closed 420");
}

TEST(TimedExchange, ClosesAtTheEndOfTimeIfItWouldNeverHave) {
  SimulatedWindows windows;
  windows.http.closingWaits = true;
  windows.http.respond({.answering = kNever});
  std::optional<Request> request;
  {
    VirtualTime time(windows);
    request.emplace();
    request->set(WINHTTP_OPTION_RECEIVE_TIMEOUT, 0);
    request->set(WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, 0);
    request->send();
    time.settle();
    request->close();
    time.advance(1h);
    EXPECT_EQ(request->notes.back(), "sent 0");
  }
  EXPECT_EQ(request->notes.back().substr(0, 6), "closed");
  request.reset();
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(FreeExchanges, AreAnsweredOrCancelledAtOnce) {
  SimulatedWindows windows;
  windows.http.otherwise = {.connecting = 30ms, .answering = 30ms};
  HANDLE closed = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  {
    VirtualTime time(windows, VirtualTime::Mode::Free);
    for (int repeat = 0; repeat < 20; ++repeat) {
      Request request;
      request.closed = closed;
      request.send();
      if (repeat % 2 == 0) time.advance(50ms);
      request.close();
      EXPECT_EQ(WaitForSingleObject(closed, INFINITE), DWORD{WAIT_OBJECT_0});
      EXPECT_EQ(request.notes.back().substr(0, 6), "closed");
    }
  }
  CloseHandle(closed);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST_F(TimedExchanges, RecordTheProxyOfTheirSessionAndTheirOptions) {
  Request request(L"p:1");
  EXPECT_TRUE(request.set(WINHTTP_OPTION_DISABLE_FEATURE, WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_COOKIES));
  EXPECT_TRUE(request.set(WINHTTP_OPTION_AUTOLOGON_POLICY, WINHTTP_AUTOLOGON_SECURITY_LEVEL_HIGH));
  EXPECT_FALSE(request.set(12345, 1));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_WINHTTP_INVALID_OPTION});
  const RequestRecord record = windows.requests().at(0);
  EXPECT_EQ(record.proxy->access, DWORD{WINHTTP_ACCESS_TYPE_NAMED_PROXY});
  EXPECT_EQ(record.proxy->list, L"p:1");
  EXPECT_EQ(record.options.at(WINHTTP_OPTION_DISABLE_FEATURE), 3U);
  EXPECT_EQ(record.options.at(WINHTTP_OPTION_AUTOLOGON_POLICY), 2U);
  request.close();
  time.settle();
}

TEST_F(TimedExchanges, AnswerForTheirHeaderFields) {
  windows.http.respond({.status = 407,
                        .fields = {{L"Proxy-Authenticate", L"Negotiate"},
                                   {L"Location", L"http://x/"},
                                   {L"Proxy-Authenticate", L"Basic realm=\"r\""}}});
  Request request;
  request.send();
  time.settle();
  DWORD index = 0;
  const auto query = [&](DWORD field, LPDWORD at) {
    std::array<wchar_t, 20> text{};
    DWORD size = sizeof text;
    if (!WinHttpQueryHeaders(request.handle(), field, nullptr, text.data(), &size, at)) {
      return std::to_wstring(GetLastError());
    }
    return std::wstring(text.data(), size / sizeof(wchar_t));
  };
  EXPECT_EQ(query(WINHTTP_QUERY_LOCATION, nullptr), L"http://x/");
  EXPECT_EQ(query(WINHTTP_QUERY_PROXY_AUTHENTICATE, &index), L"Negotiate");
  EXPECT_EQ(query(WINHTTP_QUERY_PROXY_AUTHENTICATE, &index), L"Basic realm=\"r\"");
  EXPECT_EQ(query(WINHTTP_QUERY_PROXY_AUTHENTICATE, &index), L"12150");
  EXPECT_EQ(query(WINHTTP_QUERY_WWW_AUTHENTICATE, nullptr), L"12150");
  DWORD size = 0;
  EXPECT_FALSE(WinHttpQueryHeaders(request.handle(), WINHTTP_QUERY_LOCATION, nullptr, nullptr, &size, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(size, 10 * sizeof(wchar_t));
  request.close();
  time.settle();
}

// Asks for the proxies of a URL; gives the text or the error, and the time at which it had them.
std::wstring discover(DWORD flags, const wchar_t* url = L"http://t") {
  HINTERNET session = WinHttpOpen(L"x", WINHTTP_ACCESS_TYPE_NO_PROXY, nullptr, nullptr, 0);
  WINHTTP_AUTOPROXY_OPTIONS options{};
  options.dwFlags = flags;
  WINHTTP_PROXY_INFO info{};
  const BOOL found = WinHttpGetProxyForUrl(session, url, &options, &info);
  const DWORD error = GetLastError();
  const std::wstring text = !found ? std::to_wstring(error) : info.lpszProxy ? info.lpszProxy : L"direct";
  if (info.lpszProxy) GlobalFree(info.lpszProxy);
  WinHttpCloseHandle(session);
  return text + L" " + std::to_wstring(GetTickCount64() - 3600000);
}

TEST_F(TimedExchanges, LetDiscoveryTakeTimeToo) {
  windows.autoDetection = {{.proxy = L"p:1", .takes = 700ms}};
  windows.decideConfig = [](const std::wstring& url) {
    return url == L"http://direct" ? AutoProxyAnswer{} : AutoProxyAnswer{.proxy = url.substr(7), .takes = 100ms};
  };
  EXPECT_EQ(discover(WINHTTP_AUTOPROXY_AUTO_DETECT), L"p:1 700");
  EXPECT_EQ(discover(WINHTTP_AUTOPROXY_CONFIG_URL), L"t 800");
  EXPECT_EQ(discover(WINHTTP_AUTOPROXY_CONFIG_URL, L"http://direct"), L"direct 800");
}

TEST(TimedDiscovery, EndsWithTimeIfItWouldNeverHave) {
  SimulatedWindows windows;
  windows.autoDetection = {{.proxy = L"p:1", .takes = kNever}};
  std::wstring result;
  {
    VirtualTime time(windows);
    time.startThread([&] { result = discover(WINHTTP_AUTOPROXY_AUTO_DETECT); });
    time.advance(10h);
    EXPECT_EQ(result, L"");
  }
  EXPECT_EQ(result.substr(0, 5), L"12178");
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST_F(TimedExchanges, LetTheScriptEngineTakeTime) {
  windows.scriptEngine.takes = 60ms;
  windows.scriptEngine.answer = "DIRECT";
  HMODULE module = LoadLibraryW(L"jsproxy.dll");
  using GetInfo = BOOL(CALLBACK*)(LPCSTR, DWORD, LPSTR, DWORD, LPSTR*, LPDWORD);
  const auto getInfo =
      reinterpret_cast<GetInfo>(reinterpret_cast<void (*)()>(GetProcAddress(module, "InternetGetProxyInfo")));
  std::string host = "h";
  LPSTR answer = nullptr;
  DWORD length = 0;
  const auto start = GetTickCount64();
  EXPECT_TRUE(getInfo("http://h/", 9, host.data(), 1, &answer, &length));
  EXPECT_EQ(GetTickCount64(), start + 60);
  GlobalFree(answer);
  FreeLibrary(module);
}

}  // namespace
}  // namespace kiv::test
