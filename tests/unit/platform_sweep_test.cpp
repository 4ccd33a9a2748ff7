// Every call of the platform fails once, with each of several codes, in each scenario of the library.
//
// A sweep runs its scenario undisturbed, and then once more for each call that it saw and that can fail. What the
// failure of a function must lead to stands in a table; a function that is not in the table fails the sweep.
#include <gmock/gmock.h>

#include <array>
#include <map>

#include "platform/platform_test.h"
#include "unit/support/http_scenario.h"
#include "unit/support/resolution_scenarios.h"

namespace kiv::test {
namespace {

using testing::ElementsAreArray;

using Lines = std::vector<std::wstring>;

constexpr std::array<DWORD, 11> kCodes = {2, 5, 8, 87, 12002, 12006, 12007, 12015, 12029, 12032, 12180};

struct Outcome {
  std::wstring result;
  Lines lines;
};

struct Fault {
  std::string name;
  std::wstring arguments;
  std::size_t nth = 1;  // among the calls of that name
  DWORD code = 0;

  bool has(std::wstring_view argument) const { return arguments.find(argument) != std::wstring::npos; }
};

// What a scenario works on. It can be run any number of times; but for a fault, each run has the same outcome.
class Subject {
 public:
  Subject() = default;
  Subject(const Subject&) = delete;
  Subject& operator=(const Subject&) = delete;
  virtual ~Subject() = default;
  virtual Outcome run(SimulatedWindows& windows) = 0;
};

// Gives the whole outcome of a run in which the fault occurred, made from the normal one.
using Consequence = std::function<Outcome(const Fault& fault, const Outcome& normal)>;
using Consequences = std::map<std::string, Consequence>;

struct Scenario {
  std::string name;
  std::function<void(SimulatedWindows&)> setUp;
  std::function<std::unique_ptr<Subject>()> make;
  Consequences consequences;
};

// Everything in a sweep is done without the memory's watch, but for what is done in here.
template <class Body>
auto inLibrary(Body body) {
  const MemoryWatch::Resume resume;
  return body();
}

std::wstring replaced(std::wstring text, std::wstring_view from, std::wstring_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::wstring::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

Outcome replaced(Outcome outcome, std::wstring_view from, std::wstring_view to) {
  outcome.result = replaced(outcome.result, from, to);
  for (std::wstring& line : outcome.lines) line = replaced(line, from, to);
  return outcome;
}

Outcome asBefore(const Fault& /*fault*/, const Outcome& normal) { return normal; }

Consequence resultIs(std::wstring result) {
  return [result](const Fault&, const Outcome& normal) { return Outcome{result, normal.lines}; };
}

// Resolutions.

class Resolution : public Subject {
 public:
  explicit Resolution(const ResolutionScenario& scenario) : scenario_(scenario) {
    application_.forbid(kSharedSecret);
    fallback_.reset(inLibrary([] { return KivProxyConfig_Http(L"fallback", 9, nullptr); }));
  }

  Outcome run(SimulatedWindows&) override {
    application_.forget();
    application_.statuses.clear();
    scenario_.script(application_);
    const UniqueProxyConfig result = application_.resolve(nullptr, fallback_.get());
    std::wstring text = L"null";
    if (result) {
      text = KivProxyConfig_Scheme(result.get()) + std::wstring(L" ") + KivProxyConfig_Host(result.get());
      if (KivProxyConfig_HasCred(result.get())) text += L" with credentials";
    }
    return {text, application_.lines()};
  }

 private:
  const ResolutionScenario scenario_;
  ScriptedApplication application_;
  UniqueProxyConfig fallback_;
};

// The end of a resolution whose first candidate wins at once.
void appendWinner(Lines& lines, const std::wstring& winner, bool demands) {
  lines.push_back(L"I: No. 0: Proxy " + winner);
  lines.emplace_back(L"I: No. 0: Test connection to http://target/.");
  if (demands) {
    lines.emplace_back(L"D: No. 0: Proxy authentication required.");
    lines.emplace_back(L"I: No. 0: Retry test connection to http://target/.");
    lines.emplace_back(L"D: No. 0: Server authentication required.");
    lines.emplace_back(L"I: No. 0: Retry test connection to http://target/.");
  }
  lines.emplace_back(L"D: No. 0: Test connection succeeded.");
  lines.push_back(L"I: Proxy " + winner + L" found.");
}

// What a resolution comes to with a source; without one, it could not read the settings.
Outcome outcomeOf(const std::optional<Source>& source, bool bypassed, bool demands) {
  Lines lines = {L"I: BEGIN: ProxyResolver"};
  if (!source) lines.emplace_back(L"W: lorvResolveProxy() returned error status.");
  Lines candidates = source ? source->candidates : Lines();
  candidates.emplace_back(L"http://fallback:9");
  if (source && !source->bypass.empty()) lines.push_back(L"D: Proxy bypass list: " + source->bypass);
  const std::wstring end = L"I: END: ProxyResolver";
  if (bypassed) {
    lines.push_back(L"I: http://target/ is matched to the bypass list (" + source->bypass +
                    L"). Use direct connection.");
    lines.push_back(end);
    return {L"direct ", lines};
  }
  lines.push_back(L"I: " + std::to_wstring(candidates.size()) + L" candidates found.");
  std::wstring list;
  for (const std::wstring& candidate : candidates) list += (list.empty() ? L"" : L", ") + candidate;
  lines.push_back(L"D: Candidates: " + list);
  appendWinner(lines, candidates.front(), demands);
  lines.push_back(end);
  const std::size_t schemeEnd = candidates.front().find(L"://");
  std::wstring result = candidates.front().substr(0, schemeEnd) + L" " + candidates.front().substr(schemeEnd + 3);
  result = result.substr(0, result.rfind(L':'));
  return {result + (demands ? L" with credentials" : L""), lines};
}

bool isTolerable(DWORD code) { return code == 87 || code == 12002 || code == 12180 || code == 12006 || code == 12015; }

Consequences resolutionConsequences(const ResolutionScenario& scenario) {
  const bool demands = scenario.name == std::string("both demands");
  const auto with = [=](const std::optional<Source>& source) { return outcomeOf(source, false, demands); };
  const Consequence unreadable = [=](const Fault&, const Outcome&) { return with(std::nullopt); };
  const Consequence noScript = [=](const Fault&, const Outcome&) { return with(scenario.withoutAutomatic.at(0)); };
  return {
      {"WinHttpOpen", unreadable},
      {"WinHttpCrackUrl", unreadable},
      {"WinHttpGetIEProxyConfigForCurrentUser",
       [=](const Fault& fault, const Outcome&) {
         return with(fault.code == ERROR_FILE_NOT_FOUND ? std::optional(scenario.withoutSettings) : std::nullopt);
       }},
      {"WinHttpGetProxyForUrl",
       [=](const Fault& fault, const Outcome& normal) {
         // A login failure is followed by a retry; a scheme that is not known, by the local script, if there is one.
         const bool repeats = fault.code == 12015;
         const bool runsScript = fault.code == 12006 && fault.has(L"configUrl=file://");
         if (repeats || runsScript) return normal;
         return with(isTolerable(fault.code) ? std::optional(scenario.withoutAutomatic.at(fault.nth - 1))
                                             : std::nullopt);
       }},
      {"WideCharToMultiByte", noScript},
      {"LoadLibraryW", noScript},
      {"GetProcAddress", noScript},
      {"InternetInitializeAutoProxyDll", noScript},
      {"InternetGetProxyInfo", noScript},
      // An answer that cannot be converted is an empty one.
      {"MultiByteToWideChar", [=](const Fault&, const Outcome&) { return with(Source()); }},
      // A target without an ASCII form matches no rule that names hosts.
      {"IdnToAscii", [=](const Fault&, const Outcome&) { return with(scenario.normal); }},
      // The application's own doing: without protection, it has no credentials to give.
      {"CryptProtectMemory",
       [](const Fault& fault, const Outcome& normal) {
         return fault.nth == 1 ? replaced(normal, L" with credentials", L"") : normal;
       }},
      {"CryptUnprotectMemory", asBefore},
  };
}

// The client, with both authentication passes.

class Client : public Subject {
 public:
  explicit Client(const wchar_t* url) {
    client_ = inLibrary([&] { return createClientWithProxy(url, true); });
  }

  Outcome run(SimulatedWindows& windows) override {
    log_.clear();
    const int status = inLibrary([&] { return KivHttpClient_Head(client_.get(), log_.logger()); });
    std::wstring text = std::to_wstring(status);
    if (status != -1) text += used(windows.requests().back());
    return {text, log_.lines()};
  }

 private:
  // The peers and the last credentials for each that a request used.
  static std::wstring used(const RequestRecord& request) {
    std::wstring text =
        L" from " + request.host + L" through " + request.proxy.value_or(ProxyOption()).list.value_or(L"");
    std::map<DWORD, std::wstring> last;
    for (const Credentials& given : request.credentials) last[given.target] = given.user + L":" + given.password;
    for (const auto& [target, credentials] : last) text += L" as " + credentials;
    return text;
  }

  UniqueHttpClient client_;
  RecordedLog log_{kSharedSecret};
};

void setUpClient(SimulatedWindows& windows) {
  windows.environment[L"PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME"] = L"1";
  windows.http.synchronous = true;
  windows.http.delay = windows.http.closeDelay = std::chrono::microseconds(0);
  // Each demand is made of every request, until it is met.
  windows.http.decide = [](const RequestRecord& request) {
    bool proxy = false, server = false;
    for (const Credentials& given : request.credentials) {
      (given.target == WINHTTP_AUTH_TARGET_PROXY ? proxy : server) = true;
    }
    return Exchange{.status = !proxy ? 407U : !server ? 401U : 200U};
  };
}

// The answer to the pass before the given one, from 1.
int statusBefore(std::size_t pass) { return pass == 2 ? 407 : 401; }

Outcome clientFailed(const Outcome& normal, const wchar_t* level, const std::wstring& call, DWORD code) {
  return {L"-1", {normal.lines.front(), level + call + L" failed. ErrorCode = " + std::to_wstring(code)}};
}

Consequence logsError(const std::wstring& call) {
  return [call](const Fault& fault, const Outcome& normal) { return clientFailed(normal, L"E: ", call, fault.code); };
}

Outcome afterFailedSend(const Fault& fault, const Outcome& normal) {
  if (fault.code == ERROR_WINHTTP_RESEND_REQUEST) return normal;
  Outcome expected = clientFailed(normal, L"W: ", L"WinHttpSendRequest()", fault.code);
  // The answer of the pass before can still be read.
  if (fault.nth > 1) expected.lines.push_back(headersLine(statusBefore(fault.nth)));
  return expected;
}

Outcome afterFailedReceipt(const Fault& fault, const Outcome& normal) {
  if (fault.code == ERROR_WINHTTP_RESEND_REQUEST) return normal;
  return clientFailed(normal, L"W: ", L"WinHttpReceiveResponse()", fault.code);
}

Outcome afterFailedCredentials(const Fault& fault, const Outcome& normal) {
  const bool forProxy = fault.has(L"target=1");
  const std::wstring call = forProxy ? L"WinHttpSetCredentials(WINHTTP_AUTH_TARGET_PROXY)"
                                     : L"WinHttpSetCredentials(WINHTTP_AUTH_TARGET_SERVER)";
  Outcome expected = clientFailed(normal, L"E: ", call, fault.code);
  if (fault.code == ERROR_WINHTTP_RESEND_REQUEST) {
    // Taken for the failure of the send, it is followed by another.
    return {normal.result, {normal.lines[0], expected.lines[1], normal.lines[1]}};
  }
  expected.lines.push_back(L"W: WinHttpSendRequest() failed. ErrorCode = " + std::to_wstring(fault.code));
  expected.lines.push_back(headersLine(statusBefore(fault.nth == 1 ? 2 : 3)));
  return expected;
}

Outcome afterFailedHeaders(const Fault& fault, const Outcome& normal) {
  if (fault.has(L"level=0x20000013")) {
    Outcome expected = clientFailed(normal, L"E: ", L"WinHttpQueryHeaders(WINHTTP_QUERY_STATUS_CODE)", fault.code);
    const std::array<int, 3> statuses = {407, 401, 200};
    expected.lines.push_back(headersLine(statuses.at(fault.nth - 1)));
    return expected;
  }
  // The query for the size is there to fail; without a size there is nothing to show.
  if (fault.has(L"buffer=null")) return {normal.result, {normal.lines.front()}};
  return {normal.result,
          clientFailed(normal, L"E: ", L"WinHttpQueryHeaders(WINHTTP_QUERY_RAW_HEADERS_CRLF)", fault.code).lines};
}

// Without a password that can be protected there are no credentials, and their demand is not met.
Outcome afterFailedProtection(const Fault& fault, const Outcome& normal) {
  const bool server = fault.nth == 1;
  const int status = server ? 401 : 407;
  const std::wstring mine = server ? L", \"Credentials\": {\"username\": \"sam\", \"password\": \"****\"}"
                                   : L", \"Credentials\": {\"username\": \"pam\", password: \"*****\"}";
  const std::wstring proxyUsed = server ? std::wstring(L" as pam:") + kProxyPassword : L"";
  return {std::to_wstring(status) + L" from example.com through http://proxy.test:3128" + proxyUsed,
          {replaced(normal.lines.front(), mine, L""), headersLine(status)}};
}

// A password that cannot be decrypted is sent empty.
Outcome afterFailedDecryption(const Fault& fault, const Outcome& normal) {
  if (fault.nth == 1) return normal;  // the next pass sends it again
  return replaced(normal, fault.nth == 2 ? kProxyPassword : kServerPassword, L"");
}

Consequences clientConsequences(bool https) {
  // A client without a connection fails when it opens its request.
  const Consequence unconnected = [](const Fault&, const Outcome& normal) {
    return clientFailed(normal, L"E: ", L"WinHttpOpenRequest()", ERROR_INVALID_HANDLE);
  };
  return {
      {"IdnToAscii",
       [](const Fault& fault, const Outcome& normal) {
         return replaced(normal, fault.nth == 1 ? L"example.com" : L"proxy.test", L"");
       }},
      {"CryptProtectMemory", afterFailedProtection},
      {"CryptUnprotectMemory", afterFailedDecryption},
      {"WinHttpOpen", unconnected},
      {"WinHttpConnect", unconnected},
      {"WinHttpOpenRequest", logsError(L"WinHttpOpenRequest()")},
      // Without a callback the calls are taken as synchronous, which they are here.
      {"CreateEventW", asBefore},
      {"WinHttpSetStatusCallback", asBefore},
      {"WinHttpQueryOption", logsError(L"WinHttpQueryOption(WINHTTP_OPTION_SECURITY_FLAGS)")},
      {"WinHttpSetOption",
       [](const Fault& fault, const Outcome& normal) {
         if (fault.has(L"option=45")) return normal;  // the context: as without a callback
         return logsError(fault.has(L"option=31") ? L"WinHttpSetOption(WINHTTP_OPTION_SECURITY_FLAGS)"
                                                  : L"WinHttpSetOption(WINHTTP_OPTION_PROXY)")(fault, normal);
       }},
      {"WinHttpSendRequest", afterFailedSend},
      {"WinHttpReceiveResponse", afterFailedReceipt},
      {"WinHttpQueryHeaders", afterFailedHeaders},
      {"WinHttpQueryAuthSchemes",
       [](const Fault& fault, const Outcome& normal) {
         return logsError(fault.nth == 1 ? L"WinHttpQueryAuthSchemes(proxy)" : L"WinHttpQueryAuthSchemes(server)")(
             fault, normal);
       }},
      {"WinHttpSetCredentials", afterFailedCredentials},
      {"GetEnvironmentVariableW",
       [https](const Fault&, const Outcome& normal) {
         if (https) return normal;
         return Outcome{L"-1",
                        {normal.lines.front(),
                         L"E: No supported schemes for the server authentication. "
                         L"(http://example.com/check?x=1)"}};
       }},
  };
}

// Values: whatever is made by one call and told by a text.

class Value : public Subject {
 public:
  explicit Value(std::function<std::wstring()> body) : body_(std::move(body)) {}
  Outcome run(SimulatedWindows&) override { return {body_(), {}}; }

 private:
  std::function<std::wstring()> body_;
};

Scenario dialogScenario(const char* name, KivCred* (*show)(const wchar_t*, const wchar_t*, void*)) {
  return {name,
          [](SimulatedWindows& windows) {
            windows.prompt.user = L"pam";
            windows.prompt.password = kProxyPassword;
          },
          [show] {
            return std::make_unique<Value>([show] {
              return textOf(inLibrary([&] { return UniqueCred(show(L"target", L"detail", nullptr)); }).get());
            });
          },
          {
              {"CredUIPromptForWindowsCredentialsW", resultIs(L"none")},
              {"CredUnPackAuthenticationBufferW", resultIs(L"none")},
              {"CryptProtectMemory", resultIs(L"none")},
              {"CryptUnprotectMemory", resultIs(L"pam:(null)")},
          }};
}

Scenario credentialScenario() {
  return {"credential",
          [](SimulatedWindows&) {},
          [] {
            return std::make_unique<Value>([] {
              const auto moved = inLibrary([] {
                const UniqueCred cred(KivCred_Create(L"pam", kProxyPassword));
                const UniqueCred copied(KivCred_CopyConstruct(cred.get()));
                KivCred_Copy(copied.get(), cred.get());
                return UniqueCred(KivCred_MoveConstruct(cred.get()));
              });
              return textOf(moved.get());
            });
          },
          {
              {"CryptProtectMemory", resultIs(L"none")},
              {"CryptUnprotectMemory", resultIs(L"pam:(null)")},
          }};
}

Scenario addressScenario() {
  return {"address",
          [](SimulatedWindows&) {},
          [] {
            return std::make_unique<Value>([] {
              const auto copied = inLibrary([] {
                const UniqueProxyConfig config(KivProxyConfig_Parse(kProxyText, nullptr));
                return UniqueProxyConfig(KivProxyConfig_CopyConstruct(config.get()));
              });
              return textOf(copied);
            });
          },
          {
              {"IdnToAscii", [](const Fault&, const Outcome& normal) { return replaced(normal, L"proxy.test", L""); }},
              {"CryptProtectMemory", resultIs(L"http://proxy.test:3128")},
              {"CryptUnprotectMemory", resultIs(L"http://pam:@proxy.test:3128")},
          }};
}

// These need nothing of the platform; a call that they begin to make is not in their table.
Scenario plainValuesScenario() {
  return {"values that need no platform",
          [](SimulatedWindows&) {},
          [] {
            return std::make_unique<Value>([] {
              const auto kept = inLibrary([] {
                const UniqueCred none(KivCred_None());
                const UniqueSecStr password(KivCred_Password(none.get()));
                const UniqueSecStr movedPassword(KivSecStr_MoveConstruct(password.get()));
                const UniqueProxyConfig direct(KivProxyConfig_Direct());
                const UniqueProxyConfig socks(KivProxyConfig_Create(L"socks", L"h", 1, none.get()));
                KivProxyConfig_Copy(socks.get(), direct.get());
                const UniqueLog line(KivLog_CreateWarn(L"a line that is long enough to need a block"));
                const UniqueLog copiedLine(KivLog_CopyConstruct(line.get()));
                const UniqueLogger logger(KivLogger_Construct(nullptr, [](void*, const KivLog*) {}));
                KivLogger_Info(logger.get(), KivLog_Message(copiedLine.get()));
                return UniqueProxyConfig(KivProxyConfig_MoveConstruct(direct.get()));
              });
              return textOf(kept);
            });
          },
          {}};
}

// The sweep.

class PlatformSweepTest : public testing::TestWithParam<std::size_t> {
 public:
  static std::vector<Scenario> all() {
    std::vector<Scenario> scenarios;
    for (const ResolutionScenario& resolution : resolutionScenarios()) {
      scenarios.push_back({resolution.name, resolution.setUp,
                           [resolution] { return std::make_unique<Resolution>(resolution); },
                           resolutionConsequences(resolution)});
    }
    scenarios.push_back({"client over http", setUpClient, [] { return std::make_unique<Client>(kHttpUrl); },
                         clientConsequences(false)});
    scenarios.push_back({"client over https", setUpClient, [] { return std::make_unique<Client>(kHttpsUrl); },
                         clientConsequences(true)});
    scenarios.push_back(dialogScenario("server dialog", KivDialogAuthUi_ServerAuthUi));
    scenarios.push_back(dialogScenario("proxy dialog", KivDialogAuthUi_ProxyAuthUi));
    scenarios.push_back(credentialScenario());
    scenarios.push_back(addressScenario());
    scenarios.push_back(plainValuesScenario());
    return scenarios;
  }
};

// What one run of a scenario showed: both outcomes, the first one's calls, and how many of them made the subject.
struct Observation {
  Outcome first, again;
  std::vector<Call> calls;
  std::size_t callsOfMaking = 0;
};

// Runs the scenario twice on one subject. Nothing may be left behind, and no password.
template <class Arm>
Observation observe(const Scenario& scenario, Arm arm) {
  Observation seen;
  SimulatedWindows windows;
  scenario.setUp(windows);
  arm(windows);
  const ExpectSecretWiped wiped(kSharedSecret);
  const MemoryWatch::Scope scope;
  {
    const std::unique_ptr<Subject> subject = scenario.make();
    seen.callsOfMaking = windows.calls().size();
    seen.first = subject->run(windows);
    seen.calls = windows.calls();
    seen.again = subject->run(windows);
  }
  EXPECT_EQ(scope.liveBlocks(), 0U) << "blocks were leaked";
  expectNoComplaints(windows);
  for (const ReleasedBlock& block : windows.releasedBlocks()) {
    EXPECT_TRUE(block.releasedBy != "CoTaskMemFree" || block.isZero()) << block.name << " was not wiped";
  }
  return seen;
}

void expectOutcome(const Outcome& actual, const Outcome& expected, const char* which) {
  EXPECT_EQ(actual.result, expected.result) << which;
  EXPECT_THAT(actual.lines, ElementsAreArray(expected.lines)) << which;
}

// Numbers the calls of one name.
std::size_t nthOf(const std::vector<Call>& calls, std::size_t index) {
  std::size_t nth = 0;
  for (std::size_t i = 0; i <= index; ++i) nth += calls[i].name == calls[index].name ? 1 : 0;
  return nth;
}

TEST_P(PlatformSweepTest, HasTheDocumentedConsequenceForEachCallThatFails) {
  const MemoryWatch::Pause pause;
  const Scenario scenario = all().at(GetParam());
  const Observation normal = observe(scenario, [](SimulatedWindows&) {});
  expectOutcome(normal.again, normal.first, "the second undisturbed run");
  std::size_t swept = 0;
  for (std::size_t index = 0; index < normal.calls.size(); ++index) {
    const Call& call = normal.calls[index];
    if (!SimulatedWindows::canFail(call.name)) continue;
    const auto consequence = scenario.consequences.find(call.name);
    if (consequence == scenario.consequences.end()) {
      ADD_FAILURE() << scenario.name << " calls " << call.name
                    << ", and no table says what the failure of that must lead to";
      continue;
    }
    ++swept;
    for (const DWORD code : kCodes) {
      const Fault fault{call.name, call.arguments, nthOf(normal.calls, index), code};
      SCOPED_TRACE(call.name + testing::PrintToString(call.arguments) + " fails with " + std::to_string(code));
      const Observation disturbed =
          observe(scenario, [&](SimulatedWindows& windows) { windows.failCall(index, code); });
      const Outcome expected = consequence->second(fault, normal.first);
      expectOutcome(disturbed.first, expected, "the disturbed run");
      // What went wrong while the subject was made stays so; any other fault is over with its run.
      const bool lasting = index < normal.callsOfMaking;
      expectOutcome(disturbed.again, lasting ? expected : normal.first, "the run after it");
      if (HasFailure()) return;
    }
  }
  EXPECT_EQ(swept == 0, scenario.consequences.empty());
}

std::string nameOf(const testing::TestParamInfo<std::size_t>& info) {
  std::string name = PlatformSweepTest::all().at(info.param).name;
  std::ranges::replace(name, ' ', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Scenarios, PlatformSweepTest, testing::Range(std::size_t{0}, PlatformSweepTest::all().size()),
                         nameOf);

// The undisturbed outcomes, which the sweep's expectations are made from.
TEST(PlatformSweepScenariosTest, EndAsTheyShould) {
  const MemoryWatch::Pause pause;
  for (const ResolutionScenario& resolution : resolutionScenarios()) {
    SCOPED_TRACE(resolution.name);
    const Scenario scenario = {
        resolution.name, resolution.setUp, [&] { return std::make_unique<Resolution>(resolution); }, {}};
    expectOutcome(observe(scenario, [](SimulatedWindows&) {}).first,
                  outcomeOf(resolution.normal, resolution.bypassed, resolution.name == std::string("both demands")),
                  "undisturbed");
  }
  std::map<std::string, Outcome> outcomes;
  for (const Scenario& scenario : PlatformSweepTest::all()) {
    outcomes[scenario.name] = observe(scenario, [](SimulatedWindows&) {}).first;
  }
  const std::wstring client =
      L"200 from example.com through http://proxy.test:3128 as sam:server-sesame-which-opens-the-server as "
      L"pam:proxy-sesame-which-opens-the-proxy";
  expectOutcome(outcomes["client over http"], {client, {kHttpDescription, headersLine(200)}}, "http");
  expectOutcome(outcomes["client over https"], {client, {kHttpsDescription, headersLine(200)}}, "https");
  expectOutcome(outcomes["server dialog"], {L"pam:proxy-sesame-which-opens-the-proxy", {}}, "server dialog");
  expectOutcome(outcomes["proxy dialog"], {L"pam:proxy-sesame-which-opens-the-proxy", {}}, "proxy dialog");
  expectOutcome(outcomes["credential"], {L"pam:proxy-sesame-which-opens-the-proxy", {}}, "credential");
  expectOutcome(outcomes["address"], {kProxyText, {}}, "address");
  expectOutcome(outcomes["values that need no platform"], {L"socks5://h:1", {}}, "plain values");
}

// Waiting is no call that a transcript shows; a wait that fails counts as the failure of what was waited for.
TEST(PlatformSweepWaitsTest, FailsTheCallWhoseEndCannotBeAwaited) {
  const MemoryWatch::Pause pause;
  const Scenario scenario = {"client",
                             [](SimulatedWindows& windows) {
                               setUpClient(windows);
                               // Nothing is under way when a wait begins, so that its failure endangers nothing.
                               windows.http.delivery = Delivery::Inside;
                             },
                             [] { return std::make_unique<Client>(kHttpsUrl); },
                             {}};
  const Observation normal = observe(scenario, [](SimulatedWindows&) {});
  for (std::size_t nth = 1; nth <= 7; ++nth) {
    for (const DWORD code : {5U, 6U, 12029U}) {
      SCOPED_TRACE("wait " + std::to_string(nth) + " fails with " + std::to_string(code));
      const Observation disturbed =
          observe(scenario, [&](SimulatedWindows& windows) { windows.failNth("WaitForSingleObject", nth, code); });
      const std::wstring call = nth % 2 ? L"WinHttpSendRequest()" : L"WinHttpReceiveResponse()";
      Outcome expected = clientFailed(normal.first, L"W: ", call, code);
      // The answer is there all the same when it was only its receipt that could not be awaited.
      if (nth % 2 == 0) expected.lines.push_back(headersLine(std::array{407, 401, 200}.at(nth / 2 - 1)));
      // The seventh wait is for the end of the handle, when the outcome is known.
      expectOutcome(disturbed.first, nth == 7 ? normal.first : expected, "the disturbed run");
      expectOutcome(disturbed.again, normal.first, "the run after it");
    }
  }
}

}  // namespace
}  // namespace kiv::test
