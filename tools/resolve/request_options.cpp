// The options of every command that resolves: which URLs, with which candidates, credentials and requests.
#include "resolve/request_options.h"

#include <algorithm>
#include <charconv>
#include <variant>

#include "common/console.h"
#include "common/exits.h"
#include "common/this_run.h"
#include "resolve/credential_sources.h"

namespace kiv::tool {
namespace {

ProxyConfig readCandidate(Value text) {
  if (!text || text->empty()) return {};
  return *text == L"direct" ? ProxyConfig::direct() : ProxyConfig::parse(*text);
}

std::string mustBeCandidate(std::wstring_view text) {
  if (!readCandidate(text).is_none()) return {};
  return "must be direct or [scheme://][user:password@]host[:port], with scheme http, https, socks4 or socks5";
}

std::string mustNameAUser(std::wstring_view text) {
  return text.empty() || text.starts_with(L':') ? "must be USER or USER:PASS" : std::string();
}

// Seconds, with a fraction if they have a point; at most eleven days, so that milliseconds fit anywhere.
std::optional<std::chrono::milliseconds> readSeconds(std::wstring_view text) {
  constexpr double kMost = 1e6;
  const std::string digits = toUtf8(text);
  double seconds = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), seconds, std::chars_format::fixed);
  if (error != std::errc() || end != digits.data() + digits.size() || !(seconds >= 0.001 && seconds <= kMost)) {
    return std::nullopt;
  }
  return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

std::string mustBeMethod(std::wstring_view text) {
  return text == L"head" || text == L"get" ? std::string() : "must be head or get";
}

constexpr ValueOption<WrittenRequest> kValues[] = {
    {"--user-agent", &WrittenRequest::userAgent, "TEXT", anything, "User-Agent of the requests"},
    {"--bypass", &WrittenRequest::bypass, "LIST", anything, "Replace the user's bypass list; empty: no list"},
    {"--prefer", &WrittenRequest::preferred, "PROXY", mustBeCandidate, "Test this candidate first: a proxy, or direct"},
    {"--fallback", &WrittenRequest::fallback, "PROXY", mustBeCandidate, "Test this candidate last: a proxy, or direct"},
    {"--proxy-cred", &WrittenRequest::proxyCred, "USER[:PASS]", mustNameAUser, "Credentials if a proxy asks (407)"},
    {"--proxy-cred-from", &WrittenRequest::proxyCredFrom, "PLACE", problemOfPlace,
     "The same, from env:NAME, file:PATH or credman:TARGET"},
    {"--server-cred", &WrittenRequest::serverCred, "USER[:PASS]", mustNameAUser,
     "Credentials if the server asks (401)"},
    {"--server-cred-from", &WrittenRequest::serverCredFrom, "PLACE", problemOfPlace,
     "The same, from env:NAME, file:PATH or credman:TARGET"},
    {"--method", &WrittenRequest::method, "head|get", mustBeMethod, "Test with HEAD or GET requests (default: head)"},
    {"--max-time", &WrittenRequest::maxTime, "SECONDS", mustBeSeconds, "Stop after that time, for each URL"},
    {"--attempt-time", &WrittenRequest::attemptTime, "SECONDS", mustBeSeconds, "Give up a request after that time"},
};
constexpr Flag<WrittenRequest> kFlags[] = {
    {"--ignore-cert-errors", &WrittenRequest::ignoreCertErrors, "Accept any certificate of the server"},
    {"--prompt", &WrittenRequest::prompt, "Ask for missing credentials in a dialog"},
};
constexpr Flag<WrittenRequest> kRedaction[] = {
    {"--redact", &WrittenRequest::redact, "Show host-1, user-1, address-1 instead of names; no queries and cookies"},
};

// Reads one credential, of which there may be two forms. Returns what is wrong.
std::string readCredential(const std::string& option, Value written, Value place, Credential& into) {
  if (written && place) return option + " excludes " + option + "-from";
  if (!written && !place) return {};
  auto found = written ? credentialOf(*written) : credentialAt(*place);
  if (const auto* const problem = std::get_if<std::string>(&found)) {
    return option + (written ? ": " : "-from: ") + *problem;
  }
  into = std::get<Credential>(std::move(found));
  return {};
}

}  // namespace

std::chrono::milliseconds timeLeft(const RequestOptions& options, std::chrono::milliseconds spent,
                                   std::chrono::milliseconds most) {
  const auto limit = std::min(most, options.attemptTime.value_or(most));
  return options.maxTime ? std::clamp(*options.maxTime - spent, std::chrono::milliseconds::zero(), limit) : limit;
}

std::string mustBeUrl(std::wstring_view text) { return problemOfUrl(text); }

std::string mustBeUrlOrInput(std::wstring_view text) { return text == kFromInput ? std::string() : mustBeUrl(text); }

std::string mustBeSeconds(std::wstring_view text) {
  return readSeconds(text) ? std::string() : "must be seconds, from 0.001 to 1000000";
}

void addRequestOptions(CommandLine& commandLine, WrittenRequest& written) {
  commandLine.add(kValues, written);
  commandLine.add(kFlags, written);
}

void addRedaction(CommandLine& commandLine, WrittenRequest& written) { commandLine.add(kRedaction, written); }

std::optional<RequestOptions> readRequestOptions(const CommandLine& commandLine, const WrittenRequest& written) {
  RequestOptions options{
      .userAgent = std::wstring(written.userAgent.value_or(L"kiv-resolve/" KIV_VERSION)),
      .bypass = written.bypass ? std::optional<std::wstring>(*written.bypass) : std::nullopt,
      .preferred = readCandidate(written.preferred),
      .fallback = readCandidate(written.fallback),
      .method = written.method == L"get" ? Method::Get : Method::Head,
      .ignoreCertErrors = written.ignoreCertErrors,
      .prompt = written.prompt,
      .maxTime = readSeconds(written.maxTime.value_or(L"")),
      .attemptTime = readSeconds(written.attemptTime.value_or(L"")),
      .redaction = written.redact ? std::make_shared<Redaction>() : nullptr,
  };
  // The names of account and computer are known from the first line on.
  if (options.redaction) learnNames(readThisRun(), *options.redaction);
  std::string problem = readCredential("--proxy-cred", written.proxyCred, written.proxyCredFrom, options.proxyCred);
  if (problem.empty()) {
    problem = readCredential("--server-cred", written.serverCred, written.serverCredFrom, options.serverCred);
  }
  if (problem.empty()) return options;
  leave(commandLine.badUsage(problem));
  return std::nullopt;
}

std::optional<std::vector<Target>> readTargets(const CommandLine& commandLine, std::wstring_view url) {
  if (url != kFromInput) {
    std::vector<Target> targets;
    targets.push_back(readTarget(url));
    return targets;
  }
  auto targets = readTargetList(viewOf(readInput()));
  if (const auto* const problem = std::get_if<std::string>(&targets)) {
    leave(commandLine.badUsage(*problem));
    return std::nullopt;
  }
  return std::get<std::vector<Target>>(std::move(targets));
}

}  // namespace kiv::tool
