// The simulated Windows that unit tests link in place of the system's import libraries: scripted, recorded, checked.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/simulated_changes.h"
#include "platform/simulated_network.h"
#include "platform/simulated_security.h"
#include "support/platform.h"

namespace kiv::test {

// One call of a simulated function, as "name" and "label=value, label=value". Passwords read "****".
struct Call {
  std::string name;
  std::wstring arguments;
  DWORD error = 0;  // what GetLastError (or the result) said, if the call failed
  bool failed = false;
  bool quiet = false;      // of no interest in a transcript: errors read, events set and awaited
  std::wstring user = {};  // whom the thread impersonated; empty: it ran as the process
};

enum class Transcript { Significant, Everything };

// A duration in virtual time that stands for one without an end.
inline constexpr std::chrono::milliseconds kNever = std::chrono::hours(24);

// What the user's Internet settings say. An absent text is handed out as a null pointer.
struct UserSettings {
  bool autoDetect = false;
  std::optional<std::wstring> autoConfigUrl = std::nullopt;
  std::optional<std::wstring> proxy = std::nullopt;
  std::optional<std::wstring> bypass = std::nullopt;
  DWORD error = 0;  // texts are handed out even then, if they are set
};

// One answer of WinHttpGetProxyForUrl. Texts are handed out even with an error, if they are set.
struct AutoProxyAnswer {
  DWORD error = 0;
  std::optional<std::wstring> proxy = std::nullopt;
  std::optional<std::wstring> bypass = std::nullopt;
  bool failsWithoutCode = false;       // the call fails, but GetLastError then gives 0
  std::chrono::milliseconds takes{0};  // in virtual time; kNever: until that ends, then the call fails
};

// The engine for local scripts in "jsproxy.dll".
struct ScriptEngine {
  bool present = true;
  bool hasInitialize = true;
  bool hasGetInfo = true;
  BOOL initializeResult = TRUE;
  BOOL getInfoResult = TRUE;
  std::optional<std::string> answer = std::nullopt;  // the bytes handed out, a terminator is added behind them
  std::optional<DWORD> reportedLength = std::nullopt;
  bool reportsLength = true;           // if not, the length stays what the caller set it to
  std::chrono::milliseconds takes{0};  // as above, for each answer
};

struct AuthSchemes {
  DWORD supported = 0;
  DWORD first = 0;
  DWORD target = 0;
};

// Where a completion callback runs.
enum class Delivery {
  Inside,           // on the caller's thread, before the call returns
  OtherThread,      // on another thread, a little after the call returned
  OtherThreadEarly  // on another thread, before the call returns
};

// How an asynchronous call says that it failed.
enum class ErrorBy { Notification, ReturnValue };

// What becomes of one WinHttpSendRequest and the WinHttpReceiveResponse that follows it.
struct Exchange {
  DWORD status = 200;
  bool beforeTls = false;  // of an https request: the proxy's own answer
  DWORD sendError = 0;
  DWORD receiveError = 0;
  std::optional<AuthSchemes> schemes = std::nullopt;  // absent: Basic for 401 and 407, an error for any other status
  std::optional<std::wstring> headers = std::nullopt;
  std::optional<Delivery> delivery = std::nullopt;
  std::optional<ErrorBy> errorBy = std::nullopt;
  // In virtual time. The time for the answer begins when the request was sent.
  std::chrono::milliseconds connecting{0};
  std::chrono::milliseconds answering{0};
  std::vector<std::pair<std::wstring, std::wstring>> fields = {};  // of the header, apart from `headers`
};

struct ProxyOption {
  DWORD access = 0;
  std::optional<std::wstring> list = std::nullopt;
  std::optional<std::wstring> bypass = std::nullopt;
};

struct Credentials {
  DWORD target = 0;
  DWORD scheme = 0;
  std::wstring user = {};
  std::wstring password = {};
};

// All that is known about one request handle; kept after it was closed.
struct RequestRecord {
  std::wstring agent;
  std::wstring host;
  DWORD port = 0;
  std::wstring verb;
  std::wstring objectName;
  DWORD flags = 0;
  DWORD securityFlags = 0;
  std::optional<ProxyOption> proxy;
  std::vector<Credentials> credentials;
  std::map<DWORD, DWORD> options = {};  // time-outs, features, policies: option to value, the session's ones included
  std::size_t sends = 0;
  bool closed = false;
};

// The servers and the network behind WinHTTP.
struct HttpScript {
  // Each of these appends one exchange to the script.
  HttpScript& respond(DWORD status);
  HttpScript& respond(Exchange exchange);
  HttpScript& failSend(DWORD code, std::optional<ErrorBy> errorBy = std::nullopt);
  HttpScript& failReceive(DWORD code, std::optional<ErrorBy> errorBy = std::nullopt);
  HttpScript& resend(std::size_t times = 1);  // the receipt fails with "send the request again"

  std::deque<Exchange> script = {};  // consumed from the front
  Exchange otherwise = {};           // what happens when the script is at its end
  // If set, decides in place of the script. Runs under the simulator's lock: it must not call the library.
  std::function<Exchange(const RequestRecord&)> decide = {};

  Delivery delivery = Delivery::OtherThread;
  ErrorBy errorBy = ErrorBy::Notification;
  std::chrono::microseconds delay{200};  // between an asynchronous call and its callback on the other thread
  std::optional<Delivery> closeDelivery = std::nullopt;  // of the report that a handle has closed
  std::chrono::microseconds closeDelay{200};
  // Lets calls on a session that is asynchronous, but has no callback, complete before they return.
  bool synchronous = false;

  // In virtual time: a request that is closed says so only when the server would have answered, as in Wine.
  bool closingWaits = false;

  DWORD securityFlags = 0;                                 // what a new request answers
  bool headerSizeQuerySucceeds = false;                    // the query for the size of the raw headers
  std::optional<DWORD> reportedHeaderSize = std::nullopt;  // in bytes, what that query answers
};

// The system's credential prompt.
struct CredentialPrompt {
  DWORD result = 0;  // ERROR_CANCELLED when the user gave up
  std::wstring user = L"user";
  std::wstring password = L"password";
  std::size_t packedSize = 0;                          // in bytes; 0 is what user and password need
  DWORD unpackQueryError = ERROR_INSUFFICIENT_BUFFER;  // of the query for sizes; 0 makes it succeed
  DWORD unpackError = 0;                               // of the real unpacking
};

struct Protection {
  DWORD size = 0;
  DWORD flags = 0;
};

// A block of memory that the library gave back, as it was at that moment.
struct ReleasedBlock {
  std::string name;        // "task block 1"
  std::string releasedBy;  // the function
  std::vector<std::byte> contents;

  bool isZero() const;
  bool contains(std::wstring_view text) const;
};

// Be one on the stack and the simulated functions work on it; the innermost one counts. Members are set before the
// library is called; the functions below may be used at any time, from any thread.
class SimulatedWindows {
 public:
  SimulatedWindows();
  ~SimulatedWindows();
  SimulatedWindows(const SimulatedWindows&) = delete;
  SimulatedWindows& operator=(const SimulatedWindows&) = delete;

  UserSettings user;
  std::map<std::wstring, UserSettings> otherUsers = {};          // of threads that impersonate them
  std::vector<AutoProxyAnswer> autoDetection{{.error = 12180}};  // one per call, the last one repeats
  std::vector<AutoProxyAnswer> autoConfig{{.error = 12167}};
  // If set, answers in place of autoConfig. Runs under the simulator's lock: it must not call the library.
  std::function<AutoProxyAnswer(const std::wstring& url)> decideConfig = {};
  std::optional<DWORD> crackedHostLength = std::nullopt;  // what WinHttpCrackUrl reports in place of the truth
  ScriptEngine scriptEngine;
  HttpScript http;
  CredentialPrompt prompt;
  std::map<std::wstring, std::wstring> environment;
  std::map<std::wstring, std::wstring> environmentAfterwards;  // what a variable changes to once it was asked for
  Network network;
  Registry registry;
  Modules modules;
  SecurityPackages security;
  bool processEnds = false;  // what RtlDllShutdownInProgress says
  // If set, runs before each call, on its thread and without a lock of the simulator: it may call the library.
  std::function<void(const std::string& name)> beforeCall = {};
  // If set, runs at the start of each call, under the simulator's lock: it must not call the library.
  std::function<void(const std::string& name)> onCall = {};

  // Lets the calling thread impersonate that user; an empty name ends it.
  void impersonate(const std::wstring& name);
  // Changes members while other threads call.
  void change(const std::function<void()>& edit);

  // Faults. A call that is made to fail does nothing else. Where several apply, the first one set wins.
  void failAlways(std::string_view name, DWORD code);
  void failOnce(std::string_view name, DWORD code);
  void failNth(std::string_view name, std::size_t nth, DWORD code);  // counted from 1, and from now
  void failCall(std::size_t index, DWORD code);                      // an index in calls()
  static bool canFail(std::string_view name);

  // What changes under the library. The registry tells at once; the others on
  // threads of the pool, and need a VirtualTime.
  void changeRegistry(std::wstring_view path);     // a value of "HKCU\\Software\\X"
  void createRegistryKey(std::wstring_view path);  // one of those that were missing
  void changeAddresses(std::vector<UnicastAddress> addresses);
  void changeWinHttpProxy();
  void resumeFromSleep();

  // The record.
  std::vector<Call> calls(Transcript extent = Transcript::Significant) const;
  std::vector<std::string> callNames(Transcript extent = Transcript::Significant) const;
  std::size_t count(std::string_view name) const;
  // The arguments of the nth call of that name, from 1; empty if there was none.
  std::wstring arguments(std::string_view name, std::size_t nth = 1) const;
  std::vector<RequestRecord> requests() const;
  std::vector<Credentials> credentials() const;  // of all requests, in order
  std::vector<Protection> protections() const;   // one per CryptProtectMemory
  std::vector<ReleasedBlock> releasedBlocks() const;

  std::vector<ConnectionRecord> connections() const;
  std::size_t openConnections() const;  // sockets that began to connect and were not closed
  std::size_t mostConnections() const;  // the most of them at one time
  std::vector<IdentityRecord> identities() const;
  std::vector<HandshakeRecord> handshakes() const;

  // Waits until every callback that is under way has run.
  void settle();
  // What was leaked, released twice or wrongly, or used after its release, until now; settles first.
  std::vector<std::string> complaints();
  // Names the resources that were handed out and not released.
  std::vector<std::string> outstanding() const;

  struct State;
  State& state() const { return *state_; }

 private:
  std::unique_ptr<State> state_;
  SimulatedWindows* outer_;
};

}  // namespace kiv::test
