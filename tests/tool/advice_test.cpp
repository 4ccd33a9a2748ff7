// Which advice belongs to which resolution.
#include "resolve/advice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <winhttp.h>

namespace kiv::tool {
namespace {

using testing::IsEmpty;

std::vector<std::string> idsFor(const Resolution& resolution) {
  std::vector<std::string> ids;
  for (const Advice* advice : adviceFor(resolution)) ids.emplace_back(advice->id);
  return ids;
}

Resolution withRecord(std::wstring message) {
  Resolution resolution;
  resolution.log.push_back({{}, LogLevel::Info, std::move(message)});
  return resolution;
}

Resolution withCandidate(Candidate candidate) {
  Resolution resolution;
  resolution.candidates.push_back(std::move(candidate));
  return resolution;
}

Resolution failing(const wchar_t* call, unsigned error) {
  return withCandidate(
      {.text = L"http://a:1",
       .requests = {
           {.error = error, .failure = std::wstring(call) + L" failed. ErrorCode = " + std::to_wstring(error)}}});
}

Resolution answering(int status) { return withCandidate({.text = L"http://a:1", .requests = {{.status = status}}}); }

Resolution withRoute(RouteFindings route) {
  Resolution resolution;
  resolution.probe.emplace().routes.push_back(std::move(route));
  return resolution;
}

Resolution withProblem(unsigned problem) {
  return withRoute({.route = L"DIRECT", .certificate = Certificate{.host = L"a", .problems = problem}});
}

Resolution withScript(ScriptFindings script) {
  Resolution resolution;
  resolution.probe.emplace().script = std::move(script);
  return resolution;
}

Resolution inspected() {
  Resolution resolution;
  resolution.probe.emplace().inspectionLikely = true;
  return resolution;
}

Resolution bypassed() {
  Resolution resolution;
  resolution.bypass.matches = true;
  return resolution;
}

Resolution undiscovered() {
  Resolution resolution;
  resolution.discoveryFailed = true;
  return resolution;
}

struct Case {
  const char* id;
  Resolution resolution;
};

TEST(AdviceFor, EachRowAppliesToWhatItIsAbout) {
  constexpr const wchar_t* kSend = L"WinHttpSendRequest()";
  constexpr const wchar_t* kReceive = L"WinHttpReceiveResponse()";
  const Case cases[] = {
      {"discovery-failed", undiscovered()},
      {"bypassed", bypassed()},
      {"no-candidates", withRecord(L"No candidates found. Use direct connection.")},
      {"all-filtered", withRecord(L"0 candidates found.")},
      {"invalid-candidate", withCandidate({.text = L"NONE", .invalid = true})},
      {"no-port", withCandidate({.text = L"http://a:0"})},
      {"direct-tested-as-proxy", withCandidate({.text = L"http://:0"})},
      {"name-not-resolved", failing(kSend, 12007)},
      {"cannot-connect", failing(kSend, 12029)},
      {"send-timeout", failing(kSend, 12002)},
      {"tls-failed", failing(kSend, 12175)},
      {"tls-failed", failing(kSend, 12157)},
      {"receive-timeout", failing(kReceive, 12002)},
      {"connection-closed", failing(kReceive, 12030)},
      {"not-http", failing(kReceive, 12152)},
      {"invalid-client", withRecord(L"Invalid client.")},
      {"no-success", answering(502)},
      {"proxy-credentials", answering(407)},
      {"server-credentials", answering(401)},
      {"no-proxy-scheme", withRecord(L"No supported schemes for the proxy authentication. (http://a:1)")},
      {"no-server-scheme", withRecord(L"No supported schemes for the server authentication. (http://a/)")},
      {"never-completes", withRecord(L"ERROR_WINHTTP_RESEND_REQUEST occured too many times.")},
      {"other-host", withRoute({.route = L"DIRECT", .host = L"a", .finalHost = L"portal.example"})},
      {"inspection", inspected()},
      {"certificate-authority", withProblem(WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA)},
      {"certificate-date", withProblem(WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID)},
      {"certificate-name", withProblem(WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID)},
      {"script-is-html", withScript({.url = L"http://a/", .status = 200, .type = L"text/html; charset=utf-8"})},
      {"script-not-fetched", withScript({.url = L"http://a/", .error = 12007})},
      {"script-not-fetched", withScript({.url = L"http://a/", .status = 401})},
  };
  for (const Case& each : cases) EXPECT_THAT(idsFor(each.resolution), testing::ElementsAre(each.id));
}

TEST(AdviceFor, ARouteThatWorksNeedsNone) {
  Resolution resolution = answering(200);
  resolution.log.push_back({{}, LogLevel::Info, L"10 candidates found."});
  resolution.probe.emplace().routes.push_back({.route = L"DIRECT", .host = L"a", .finalHost = L"a"});
  resolution.probe->script = ScriptFindings{.url = L"http://a/", .status = 200, .type = L"text/plain"};
  EXPECT_THAT(idsFor(resolution), IsEmpty());
}

TEST(AdviceFor, SeveralRowsKeepTheirOrder) {
  Resolution resolution = answering(407);
  resolution.bypass.matches = true;
  EXPECT_THAT(idsFor(resolution), testing::ElementsAre("bypassed", "proxy-credentials"));
}

}  // namespace
}  // namespace kiv::tool
