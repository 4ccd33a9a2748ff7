// Proves that the simulated Windows behaves as scripted, and that it notices what it is there to notice.
#include "platform/simulated_windows.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "platform/platform_test.h"
#include "platform/sanitizers.h"

namespace kiv::test {
namespace {

using Lines = std::vector<std::string>;

// Sends a request the asynchronous way, as a library does: the state lives until the handle reports that it closed.
class Client {
 public:
  explicit Client(DWORD flags = WINHTTP_FLAG_ASYNC) {
    session_ = WinHttpOpen(L"agent", WINHTTP_ACCESS_TYPE_NO_PROXY, nullptr, nullptr, flags);
    connection_ = WinHttpConnect(session_, L"host", 80, 0);
    request_ = WinHttpOpenRequest(connection_, L"HEAD", L"x", nullptr, nullptr, nullptr, 0x40);
    done_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    closed_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    WinHttpSetStatusCallback(request_, &Client::onStatus,
                             WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES, 0);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() {
    close();
    WinHttpCloseHandle(connection_);
    WinHttpCloseHandle(session_);
    CloseHandle(done_);
    CloseHandle(closed_);
  }

  // Gives 0, or the error with which sending or receiving failed, however it was told.
  DWORD exchange() {
    const auto context = reinterpret_cast<DWORD_PTR>(this);
    const DWORD error = finish(WinHttpSendRequest(request_, nullptr, 0, nullptr, 0, 0, context));
    return error ? error : finish(WinHttpReceiveResponse(request_, nullptr));
  }

  void startOnly() {
    sent_ = true;
    WinHttpSendRequest(request_, nullptr, 0, nullptr, 0, 0, reinterpret_cast<DWORD_PTR>(this));
  }

  DWORD status() const {
    DWORD status = 0, size = sizeof status;
    WinHttpQueryHeaders(request_, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr, &status, &size,
                        nullptr);
    return status;
  }

  void close() {
    if (!request_) return;
    WinHttpCloseHandle(request_);
    WaitForSingleObject(closed_, sent_ ? INFINITE : 0);
    request_ = nullptr;
  }

  HINTERNET request() const { return request_; }
  bool calledElsewhere() const { return callbackThread_ != std::this_thread::get_id(); }

 private:
  DWORD finish(BOOL started) {
    sent_ = true;
    if (!started) return GetLastError();
    WaitForSingleObject(done_, INFINITE);
    return error_;
  }

  static void CALLBACK onStatus(HINTERNET, DWORD_PTR context, DWORD status, LPVOID information, DWORD) {
    auto* client = reinterpret_cast<Client*>(context);
    if (!client) return;
    client->callbackThread_ = std::this_thread::get_id();
    if (status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING) {
      SetEvent(client->closed_);
      return;
    }
    const bool failed = status == WINHTTP_CALLBACK_STATUS_REQUEST_ERROR;
    client->error_ = failed ? static_cast<WINHTTP_ASYNC_RESULT*>(information)->dwError : 0;
    SetEvent(client->done_);
  }

  HINTERNET session_ = nullptr;
  HINTERNET connection_ = nullptr;
  HINTERNET request_ = nullptr;
  HANDLE done_ = nullptr;
  HANDLE closed_ = nullptr;
  bool sent_ = false;
  DWORD error_ = 0;
  std::thread::id callbackThread_;
};

TEST(SimulatedWindows, RecordsCallsWithTheirArgumentsInOrder) {
  SimulatedWindows windows;
  HINTERNET session = WinHttpOpen(L"x", 0, nullptr, nullptr, 0);
  HINTERNET connection = WinHttpConnect(session, L"host", 8080, 0);
  WinHttpCloseHandle(connection);
  WinHttpCloseHandle(session);
  EXPECT_EQ(windows.callNames(), (Lines{"WinHttpOpen", "WinHttpConnect", "WinHttpCloseHandle", "WinHttpCloseHandle"}));
  EXPECT_EQ(windows.calls()[0].arguments, L"agent=x, access=0, proxy=null, bypass=null, flags=0x0");
  EXPECT_EQ(windows.arguments("WinHttpConnect"), L"session=session 1, host=host, port=8080, reserved=0");
  EXPECT_EQ(windows.count("WinHttpCloseHandle"), 2U);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(SimulatedWindows, LeavesQuietCallsOutOfTheTranscript) {
  SimulatedWindows windows;
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  SetEvent(event);
  CloseHandle(event);
  EXPECT_EQ(windows.callNames(), Lines{"CreateEventW"});
  EXPECT_EQ(windows.callNames(Transcript::Everything), (Lines{"CreateEventW", "SetEvent", "CloseHandle"}));
}

TEST(SimulatedWindows, ComplainsAboutAHandleThatIsNotClosed) {
  SimulatedWindows windows;
  WinHttpOpen(L"x", 0, nullptr, nullptr, 0);
  EXPECT_EQ(windows.complaints(), Lines{"session 1 was never released"});
}

TEST(SimulatedWindows, ComplainsAboutAHandleThatIsClosedTwice) {
  SimulatedWindows windows;
  HINTERNET session = WinHttpOpen(L"x", 0, nullptr, nullptr, 0);
  WinHttpCloseHandle(session);
  EXPECT_FALSE(WinHttpCloseHandle(session));
  EXPECT_EQ(windows.complaints(), Lines{"session 1 was released twice"});
}

TEST(SimulatedWindows, ComplainsAboutAHandleThatIsUsedAfterItWasClosed) {
  SimulatedWindows windows;
  HINTERNET session = WinHttpOpen(L"x", 0, nullptr, nullptr, 0);
  WinHttpCloseHandle(session);
  EXPECT_EQ(WinHttpConnect(session, L"host", 80, 0), nullptr);
  EXPECT_EQ(windows.complaints(), Lines{"session 1 was used after its release, by WinHttpConnect"});
}

TEST(SimulatedWindows, ComplainsAboutTheWrongReleaseFunction) {
  SimulatedWindows windows;
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  GlobalFree(event);
  CloseHandle(event);
  int local = 0;
  CoTaskMemFree(&local);
  EXPECT_EQ(windows.complaints(), (Lines{"event 1 was released with the wrong function, GlobalFree",
                                         "CoTaskMemFree was given a value that was never handed out"}));
}

TEST(SimulatedWindows, FailsANullHandleWithoutAComplaint) {
  SimulatedWindows windows;
  EXPECT_EQ(WinHttpConnect(nullptr, L"host", 80, 0), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(SimulatedWindows, OverwritesTheLastErrorWithEverySuccess) {
  const SimulatedWindows windows;
  SetLastError(5);
  EXPECT_EQ(GetLastError(), 5U);
  EXPECT_EQ(GetLastError(), 5U);
  CloseHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  EXPECT_EQ(GetLastError(), 0xDEADU);
}

TEST(SimulatedWindows, KeepsALastErrorPerThread) {
  const SimulatedWindows windows;
  SetLastError(5);
  std::thread([] { SetLastError(6); }).join();
  EXPECT_EQ(GetLastError(), 5U);
}

TEST(SimulatedWindows, FailsTheCallsThatItIsToldToFail) {
  SimulatedWindows windows;
  windows.failNth("CreateEventW", 2, 8);
  HANDLE first = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  EXPECT_EQ(CreateEventW(nullptr, TRUE, FALSE, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), 8U);
  CloseHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  CloseHandle(first);
  windows.failAlways("WinHttpOpen", 9);
  EXPECT_EQ(WinHttpOpen(L"", 0, nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(WinHttpOpen(L"", 0, nullptr, nullptr, 0), nullptr);
  EXPECT_TRUE(windows.calls().back().failed);
  EXPECT_EQ(windows.calls().back().error, 9U);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(SimulatedWindows, SweepsThroughEveryCallThatCanFail) {
  Lines failed;
  forEachFault([&](SimulatedWindows& windows) {
    windows.user.proxy = L"p:1";
    WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
    WinHttpGetIEProxyConfigForCurrentUser(&config);
    if (config.lpszProxy) GlobalFree(config.lpszProxy);
    if (HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr)) CloseHandle(event);
    for (const Call& call : windows.calls()) {
      if (call.failed) failed.push_back(call.name);
    }
  });
  EXPECT_EQ(failed, (Lines{"WinHttpGetIEProxyConfigForCurrentUser", "CreateEventW"}));
}

TEST(SimulatedWindows, HandsOutTheUsersSettings) {
  SimulatedWindows windows;
  windows.user = {.autoDetect = true, .autoConfigUrl = L"http://pac", .bypass = L"<local>"};
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
  ASSERT_TRUE(WinHttpGetIEProxyConfigForCurrentUser(&config));
  EXPECT_TRUE(config.fAutoDetect);
  EXPECT_STREQ(config.lpszAutoConfigUrl, L"http://pac");
  EXPECT_EQ(config.lpszProxy, nullptr);
  EXPECT_STREQ(config.lpszProxyBypass, L"<local>");
  EXPECT_EQ(windows.complaints(), (Lines{"global block 1 was never released", "global block 2 was never released"}));
  GlobalFree(config.lpszAutoConfigUrl);
  GlobalFree(config.lpszProxyBypass);
  EXPECT_EQ(windows.complaints(), Lines{});
}

#ifdef KIV_TEST_ADDRESS_SANITIZER
TEST(SimulatedWindowsDeathTest, EndsTheProcessAtAReadOfAReleasedBlock) {
  SimulatedWindows windows;
  windows.user = {.autoConfigUrl = L"http://pac"};
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
  ASSERT_TRUE(WinHttpGetIEProxyConfigForCurrentUser(&config));
  GlobalFree(config.lpszAutoConfigUrl);
  EXPECT_DEATH(EXPECT_EQ(*config.lpszAutoConfigUrl, L'h'), "use-after-poison");
}
#endif

TEST(SimulatedWindows, AnswersForAutomaticProxiesInSequence) {
  SimulatedWindows windows;
  windows.autoConfig = {{.error = 12015}, {.proxy = L"p:1"}};
  HINTERNET session = WinHttpOpen(L"x", 0, nullptr, nullptr, 0);
  WINHTTP_AUTOPROXY_OPTIONS options{};
  options.dwFlags = WINHTTP_AUTOPROXY_CONFIG_URL;
  options.lpszAutoConfigUrl = L"http://pac";
  WINHTTP_PROXY_INFO info{};
  EXPECT_FALSE(WinHttpGetProxyForUrl(session, L"http://t", &options, &info));
  EXPECT_EQ(GetLastError(), 12015U);
  options.fAutoLogonIfChallenged = TRUE;
  for (int repeat = 0; repeat < 2; ++repeat) {
    info = {};
    ASSERT_TRUE(WinHttpGetProxyForUrl(session, L"http://t", &options, &info));
    EXPECT_STREQ(info.lpszProxy, L"p:1");
    GlobalFree(info.lpszProxy);
  }
  options.dwFlags = WINHTTP_AUTOPROXY_AUTO_DETECT;
  EXPECT_FALSE(WinHttpGetProxyForUrl(session, L"http://t", &options, &info));
  EXPECT_EQ(GetLastError(), 12180U);
  EXPECT_EQ(windows.arguments("WinHttpGetProxyForUrl", 2),
            L"session=session 1, url=http://t, flags=2, detect=0, configUrl=http://pac, autoLogon=1");
  WinHttpCloseHandle(session);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(SimulatedWindows, RunsTheScriptEngine) {
  SimulatedWindows windows;
  windows.scriptEngine.answer = "PROXY p:1";
  windows.scriptEngine.reportedLength = 10;
  HMODULE module = LoadLibraryW(L"jsproxy.dll");
  const auto procedure = [&](const char* name) { return reinterpret_cast<void (*)()>(GetProcAddress(module, name)); };
  using Initialize = BOOL(CALLBACK*)(DWORD, LPSTR, LPSTR, LPVOID, LPVOID);
  using GetInfo = BOOL(CALLBACK*)(LPCSTR, DWORD, LPSTR, DWORD, LPSTR*, LPDWORD);
  std::string path = "C:/p.pac", host = "h";
  EXPECT_TRUE(reinterpret_cast<Initialize>(procedure("InternetInitializeAutoProxyDll"))(0, path.data(), nullptr,
                                                                                        nullptr, nullptr));
  const auto getInfo = reinterpret_cast<GetInfo>(procedure("InternetGetProxyInfo"));
  LPSTR answer = nullptr;
  DWORD length = 0;
  ASSERT_TRUE(getInfo("http://h/", 9, host.data(), 1, &answer, &length));
  FreeLibrary(module);
  EXPECT_STREQ(answer, "PROXY p:1");
  EXPECT_EQ(length, 10U);
  GlobalFree(answer);
  EXPECT_EQ(windows.arguments("InternetGetProxyInfo"), L"url=http://h/, urlLength=9, host=h, hostLength=1");
  EXPECT_EQ(windows.complaints(), Lines{});
  getInfo("http://h/", 9, host.data(), 1, &answer, &length);
  GlobalFree(answer);
  EXPECT_EQ(windows.complaints(), Lines{"InternetGetProxyInfo was called while its module was not loaded"});
}

TEST(SimulatedWindows, CracksTheHostOutOfAUrl) {
  const SimulatedWindows windows;
  const auto crack = [](const wchar_t* url, DWORD capacity) {
    std::array<wchar_t, 64> host{};
    URL_COMPONENTS components{};
    components.dwStructSize = sizeof components;
    components.lpszHostName = host.data();
    components.dwHostNameLength = capacity;
    if (!WinHttpCrackUrl(url, 0, 0, &components)) return std::to_wstring(GetLastError());
    return std::wstring(host.data(), components.dwHostNameLength);
  };
  EXPECT_EQ(crack(L"http://u:p@host:80/a?b", 64), L"host");
  EXPECT_EQ(crack(L"HTTPS://[::1]:443", 64), L"[::1]");
  EXPECT_EQ(crack(L"http://host", 4), L"122");
  EXPECT_EQ(crack(L"host", 64), L"12005");
  EXPECT_EQ(crack(L"http:///a", 64), L"12005");
  EXPECT_EQ(crack(L"file://c/p", 64), L"12006");
}

TEST(SimulatedWindows, ConvertsNamesOfHostsToAscii) {
  const SimulatedWindows windows;
  const auto convert = [](std::wstring_view name) {
    std::wstring ascii(name.size() + 80, L'#');
    const int length =
        IdnToAscii(0, name.data(), static_cast<int>(name.size()), ascii.data(), static_cast<int>(ascii.size()));
    return length ? ascii.substr(0, static_cast<std::size_t>(length)) : std::to_wstring(GetLastError());
  };
  EXPECT_EQ(convert(L"Host.example."), L"Host.example.");
  EXPECT_EQ(convert(L"\x65E5\x672C\x8A9E.jp"), L"xn--wgv71a119e.jp");
  EXPECT_EQ(convert(L"b\xFC"
                    L"cher.example"),
            L"xn--bcher-kva.example");
  EXPECT_EQ(convert(L""), L"123");
  EXPECT_EQ(convert(L"a..b"), L"123");
  EXPECT_EQ(convert(std::wstring(63, L'a')), std::wstring(63, L'a'));
  EXPECT_EQ(convert(std::wstring(64, L'a')), L"123");
  EXPECT_EQ(convert(std::wstring(1 << 20, L'\x65E5')), L"123");
  std::array<wchar_t, 4> small{};
  EXPECT_EQ(IdnToAscii(0, L"host", -1, small.data(), 4), 0);
  EXPECT_EQ(IdnToAscii(0, L"host", -1, nullptr, 0), 5);
}

TEST(SimulatedWindows, ConvertsBetweenWideAndNarrowText) {
  const SimulatedWindows windows;
  std::array<char, 8> narrow{};
  EXPECT_EQ(WideCharToMultiByte(CP_THREAD_ACP, 0, L"a\x65E5", -1, nullptr, 0, nullptr, nullptr), 5);
  EXPECT_EQ(WideCharToMultiByte(CP_THREAD_ACP, 0, L"a\x65E5", -1, narrow.data(), 4, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(WideCharToMultiByte(CP_THREAD_ACP, 0, L"a\x65E5", -1, narrow.data(), 8, nullptr, nullptr), 5);
  EXPECT_STREQ(narrow.data(), "a\xE6\x97\xA5");
  std::array<wchar_t, 8> wide{};
  EXPECT_EQ(MultiByteToWideChar(CP_THREAD_ACP, 0, narrow.data(), 4, nullptr, 0), 2);
  EXPECT_EQ(MultiByteToWideChar(CP_THREAD_ACP, 0, narrow.data(), -1, wide.data(), 8), 3);
  EXPECT_STREQ(wide.data(), L"a\x65E5");
  EXPECT_EQ(MultiByteToWideChar(CP_THREAD_ACP, 0, "\xF0\x9F\x98\x80", 4, nullptr, 0), sizeof(wchar_t) == 2 ? 2 : 1);
  EXPECT_EQ(MultiByteToWideChar(CP_THREAD_ACP, 0, "\xE6x", 2, wide.data(), 8), 2);
  EXPECT_EQ(wide[0], L'\xFFFD');
}

TEST(SimulatedWindows, AnswersForTheEnvironment) {
  SimulatedWindows windows;
  windows.environment[L"A"] = L"xy";
  std::array<wchar_t, 3> value{};
  EXPECT_EQ(GetEnvironmentVariableW(L"B", nullptr, 0), 0U);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_ENVVAR_NOT_FOUND});
  EXPECT_EQ(GetEnvironmentVariableW(L"A", nullptr, 0), 3U);
  EXPECT_EQ(GetEnvironmentVariableW(L"A", value.data(), 3), 2U);
  EXPECT_STREQ(value.data(), L"xy");
}

TEST(SimulatedWindows, ProtectsMemoryReversibly) {
  SimulatedWindows windows;
  const std::array<unsigned char, 16> zeros{};
  std::array<unsigned char, 16> data{};
  EXPECT_FALSE(CryptProtectMemory(data.data(), 15, 0));
  ASSERT_TRUE(CryptProtectMemory(data.data(), 16, 0));
  for (const unsigned char byte : data) EXPECT_NE(byte, 0);
  ASSERT_TRUE(CryptUnprotectMemory(data.data(), 16, 0));
  EXPECT_EQ(data, zeros);
  EXPECT_EQ(windows.protections().back().size, 16U);
}

TEST(SimulatedWindows, PromptsForCredentialsAndKeepsTheReleasedBlock) {
  SimulatedWindows windows;
  windows.prompt.password = L"hidden";
  CREDUI_INFOW info{};
  info.cbSize = sizeof info;
  info.pszCaptionText = L"caption";
  ULONG package = 0, size = 0;
  LPVOID packed = nullptr;
  BOOL save = FALSE;
  ASSERT_EQ(CredUIPromptForWindowsCredentialsW(&info, 0, &package, nullptr, 0, &packed, &size, &save, 1), 0U);
  DWORD userSize = 0, passwordSize = 0;
  EXPECT_FALSE(
      CredUnPackAuthenticationBufferW(1, packed, size, nullptr, &userSize, nullptr, nullptr, nullptr, &passwordSize));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  std::wstring user(userSize, L'\0'), password(passwordSize, L'\0');
  ASSERT_TRUE(CredUnPackAuthenticationBufferW(1, packed, size, user.data(), &userSize, nullptr, nullptr,
                                              password.data(), &passwordSize));
  EXPECT_STREQ(user.c_str(), L"user");
  EXPECT_STREQ(password.c_str(), L"hidden");
  CoTaskMemFree(packed);
  ASSERT_EQ(windows.releasedBlocks().size(), 1U);
  EXPECT_TRUE(windows.releasedBlocks()[0].contains(L"hidden"));
  EXPECT_FALSE(windows.releasedBlocks()[0].isZero());
  for (const Call& call : windows.calls()) EXPECT_EQ(call.arguments.find(L"hidden"), std::wstring::npos);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(SimulatedWindows, ReportsTheCancelledPromptAsItsResult) {
  SimulatedWindows windows;
  windows.prompt.result = ERROR_CANCELLED;
  CREDUI_INFOW info{};
  info.cbSize = sizeof info;
  ULONG package = 0, size = 0;
  LPVOID packed = nullptr;
  SetLastError(5);
  EXPECT_EQ(CredUIPromptForWindowsCredentialsW(&info, 0, &package, nullptr, 0, &packed, &size, nullptr, 1),
            DWORD{ERROR_CANCELLED});
  EXPECT_EQ(GetLastError(), 0xDEADU);
  EXPECT_EQ(packed, nullptr);
}

TEST(SimulatedWindows, LetsOneWaiterThroughAnEventThatResetsItself) {
  const SimulatedWindows windows;
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::thread setter([&] { SetEvent(event); });
  EXPECT_EQ(WaitForSingleObject(event, INFINITE), DWORD{WAIT_OBJECT_0});
  setter.join();
  EXPECT_EQ(WaitForSingleObject(event, 1), DWORD{WAIT_TIMEOUT});
  CloseHandle(event);
}

class Deliveries : public PlatformTest, public ::testing::WithParamInterface<Delivery> {
 protected:
  Deliveries() { windows.http.delivery = GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(SimulatedHttp, Deliveries,
                         ::testing::Values(Delivery::Inside, Delivery::OtherThread, Delivery::OtherThreadEarly));

TEST_P(Deliveries, CarriesAnExchangeOut) {
  windows.http.respond(407).respond({.status = 204});
  Client client;
  EXPECT_EQ(client.exchange(), 0U);
  EXPECT_EQ(client.status(), 407U);
  EXPECT_EQ(client.calledElsewhere(), GetParam() != Delivery::Inside);
  DWORD supported = 0, first = 0, target = 0;
  EXPECT_TRUE(WinHttpQueryAuthSchemes(client.request(), &supported, &first, &target));
  EXPECT_EQ(supported, DWORD{WINHTTP_AUTH_SCHEME_BASIC});
  EXPECT_EQ(target, DWORD{WINHTTP_AUTH_TARGET_PROXY});
  EXPECT_EQ(client.exchange(), 0U);
  EXPECT_EQ(client.status(), 204U);
  EXPECT_EQ(client.exchange(), 0U);
  EXPECT_EQ(client.status(), 200U);
}

TEST_P(Deliveries, TellsErrorsEitherWay) {
  windows.http.failSend(12029).failReceive(12002).resend();
  windows.http.failSend(12007, ErrorBy::ReturnValue).failReceive(12030, ErrorBy::ReturnValue);
  Client client;
  for (const DWORD expected : {12029U, 12002U, 12032U, 12007U, 12030U, 0U}) EXPECT_EQ(client.exchange(), expected);
}

TEST_P(Deliveries, CancelsWhatIsUnderWayWhenTheRequestIsClosed) {
  Client client;
  client.startOnly();
  client.close();
  EXPECT_TRUE(windows.requests().at(0).closed);
}

TEST_F(PlatformTest, RecordsWhatEachRequestWasGiven) {
  Client client;
  WINHTTP_PROXY_INFO proxy{};
  std::wstring list = L"http://p:1", bypass;
  proxy.dwAccessType = WINHTTP_ACCESS_TYPE_NAMED_PROXY;
  proxy.lpszProxy = list.data();
  proxy.lpszProxyBypass = bypass.data();
  DWORD flags = 0x3300;
  EXPECT_TRUE(WinHttpSetOption(client.request(), WINHTTP_OPTION_PROXY, &proxy, sizeof proxy));
  EXPECT_TRUE(WinHttpSetOption(client.request(), WINHTTP_OPTION_SECURITY_FLAGS, &flags, sizeof flags));
  EXPECT_TRUE(WinHttpSetCredentials(client.request(), 1, 2, L"u", L"secret", nullptr));
  client.exchange();
  client.close();
  const RequestRecord record = windows.requests().at(0);
  EXPECT_EQ(record.verb, L"HEAD");
  EXPECT_EQ(record.host, L"host");
  EXPECT_EQ(record.proxy->list, L"http://p:1");
  EXPECT_EQ(record.proxy->bypass, L"");
  EXPECT_EQ(record.securityFlags, 0x3300U);
  EXPECT_EQ(record.credentials.at(0).password, L"secret");
  EXPECT_EQ(record.sends, 1U);
  EXPECT_TRUE(record.closed);
  EXPECT_EQ(windows.arguments("WinHttpSetCredentials"),
            L"request=request 1, target=1, scheme=0x2, user=u, password=****, parameters=null");
}

TEST_F(PlatformTest, AnswersForTheRawHeadersAfterASizeQuery) {
  windows.http.respond({.headers = L"H\r\n\r\n"});
  Client client;
  client.exchange();
  DWORD size = 0;
  EXPECT_FALSE(WinHttpQueryHeaders(client.request(), WINHTTP_QUERY_RAW_HEADERS_CRLF, nullptr, nullptr, &size, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(size, 6 * sizeof(wchar_t));
  std::wstring headers(size / sizeof(wchar_t), L'\0');
  EXPECT_TRUE(
      WinHttpQueryHeaders(client.request(), WINHTTP_QUERY_RAW_HEADERS_CRLF, nullptr, headers.data(), &size, nullptr));
  EXPECT_EQ(size, 5 * sizeof(wchar_t));
  EXPECT_STREQ(headers.c_str(), L"H\r\n\r\n");
}

TEST_F(PlatformTest, HasNoAnswerForAnAsynchronousSessionWithoutACallback) {
  for (const bool synchronous : {false, true}) {
    windows.http.synchronous = synchronous;
    Client client;
    WinHttpSetStatusCallback(client.request(), nullptr, 0, 0);
    EXPECT_TRUE(WinHttpSendRequest(client.request(), nullptr, 0, nullptr, 0, 0, 0));
    EXPECT_TRUE(WinHttpReceiveResponse(client.request(), nullptr));
    EXPECT_EQ(client.status(), synchronous ? 200U : 0U);
    EXPECT_EQ(GetLastError(), synchronous ? 0xDEADU : 12019U);
  }
}

TEST_F(PlatformTest, DeliversTheReportOfAClosedHandleLateAndLast) {
  windows.http.closeDelay = std::chrono::milliseconds(20);
  Client client;
  client.exchange();
  client.close();
  EXPECT_TRUE(client.calledElsewhere());
}

TEST_F(PlatformTest, ServesManyThreadsAtOnce) {
  windows.http.decide = [](const RequestRecord& request) {
    return Exchange{.status = request.sends == 1 ? 401U : 200U};
  };
  std::vector<std::thread> threads;
  for (int index = 0; index < 8; ++index) {
    threads.emplace_back([] {
      Client client;
      EXPECT_EQ(client.exchange(), 0U);
      EXPECT_EQ(client.status(), 401U);
      EXPECT_EQ(client.exchange(), 0U);
      EXPECT_EQ(client.status(), 200U);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(windows.requests().size(), 8U);
}

}  // namespace
}  // namespace kiv::test
