// The options of every command that resolves: which URLs, with which candidates, credentials and requests.
#include "resolve/request_options.h"

#include "common/console.h"

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

std::string mustBeUserAndPassword(std::wstring_view text) {
  return text.find(L':') == std::wstring_view::npos ? "must be USER:PASS" : std::string();
}

std::string mustBeMethod(std::wstring_view text) {
  return text == L"head" || text == L"get" ? std::string() : "must be head or get";
}

constexpr ValueOption<WrittenRequest> kValues[] = {
    {"--user-agent", &WrittenRequest::userAgent, "TEXT", anything, "User-Agent of the requests"},
    {"--bypass", &WrittenRequest::bypass, "LIST", anything, "Replace the user's bypass list; empty: no list"},
    {"--prefer", &WrittenRequest::preferred, "PROXY", mustBeCandidate, "Test this candidate first: a proxy, or direct"},
    {"--fallback", &WrittenRequest::fallback, "PROXY", mustBeCandidate, "Test this candidate last: a proxy, or direct"},
    {"--proxy-cred", &WrittenRequest::proxyCred, "USER:PASS", mustBeUserAndPassword,
     "Credentials if a proxy asks (407)"},
    {"--server-cred", &WrittenRequest::serverCred, "USER:PASS", mustBeUserAndPassword,
     "Credentials if the server asks (401)"},
    {"--method", &WrittenRequest::method, "head|get", mustBeMethod, "Test with HEAD or GET requests (default: head)"},
};
constexpr Flag<WrittenRequest> kFlags[] = {
    {"--ignore-cert-errors", &WrittenRequest::ignoreCertErrors, "Accept any certificate of the server"},
    {"--prompt", &WrittenRequest::prompt, "Ask for missing credentials in a dialog"},
};

}  // namespace

std::string mustBeUrl(std::wstring_view text) { return problemOfUrl(text); }

std::string mustBeUrlOrInput(std::wstring_view text) { return text == kFromInput ? std::string() : mustBeUrl(text); }

void addRequestOptions(CommandLine& commandLine, WrittenRequest& written) {
  commandLine.add(kValues, written);
  commandLine.add(kFlags, written);
}

RequestOptions readRequestOptions(const WrittenRequest& written) {
  return {
      .userAgent = std::wstring(written.userAgent.value_or(L"kiv-resolve/" KIV_VERSION)),
      .bypass = written.bypass ? std::optional<std::wstring>(*written.bypass) : std::nullopt,
      .preferred = readCandidate(written.preferred),
      .fallback = readCandidate(written.fallback),
      .proxyCred = readCred(written.proxyCred.value_or(L"")),
      .serverCred = readCred(written.serverCred.value_or(L"")),
      .method = written.method == L"get" ? Method::Get : Method::Head,
      .ignoreCertErrors = written.ignoreCertErrors,
      .prompt = written.prompt,
  };
}

std::variant<std::vector<Target>, std::string> readTargets(std::wstring_view url) {
  if (url == kFromInput) return readTargetList(viewOf(readInput()));
  std::vector<Target> targets;
  targets.push_back(readTarget(url));
  return targets;
}

}  // namespace kiv::tool
