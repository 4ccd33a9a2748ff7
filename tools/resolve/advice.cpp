// What to try next: what a resolution shows, what it means and what to do. docs/guide/troubleshooting.md has the same
// rows.
#include "resolve/advice.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>
#include <initializer_list>
#include <ranges>

namespace kiv::tool {
namespace {

constexpr std::wstring_view kNoHost = L"http://:0";

bool logged(const Resolution& resolution, std::wstring_view beginning) {
  return std::ranges::any_of(resolution.log,
                             [&](const Record& record) { return record.message.starts_with(beginning); });
}

bool failed(const Resolution& resolution, std::wstring_view call, std::initializer_list<unsigned> errors) {
  return std::ranges::any_of(resolution.candidates, [&](const Candidate& candidate) {
    return std::ranges::any_of(candidate.requests, [&](const Request& request) {
      return request.failure.starts_with(call) && std::ranges::count(errors, request.error.value_or(0)) > 0;
    });
  });
}

bool sendFailed(const Resolution& resolution, std::initializer_list<unsigned> errors) {
  return failed(resolution, L"WinHttpSendRequest()", errors);
}

bool receiveFailed(const Resolution& resolution, std::initializer_list<unsigned> errors) {
  return failed(resolution, L"WinHttpReceiveResponse()", errors);
}

bool hasVerdict(const Resolution& resolution, Verdict verdict) {
  return std::ranges::count(resolution.candidates, verdict, &Candidate::verdict) > 0;
}

bool isWithoutPort(std::wstring_view candidate) { return candidate.ends_with(L":0") && candidate != kNoHost; }

bool names(const Resolution& resolution, bool (*test)(std::wstring_view)) {
  return std::ranges::any_of(resolution.candidates, test, &Candidate::text);
}

template <class Test>
bool anyRoute(const Resolution& resolution, Test test) {
  return resolution.probe && std::ranges::any_of(resolution.probe->routes, test);
}

bool answeredElsewhere(const Resolution& resolution) {
  return anyRoute(resolution, [](const RouteFindings& route) { return route.isAnsweredElsewhere(); });
}

bool certificateHas(const Resolution& resolution, unsigned problem) {
  return anyRoute(resolution, [&](const RouteFindings& route) {
    return route.certificate && (route.certificate->problems & problem) != 0;
  });
}

const ScriptFindings* scriptOf(const Resolution& resolution) {
  return resolution.probe && resolution.probe->script ? &*resolution.probe->script : nullptr;
}

bool scriptIsPage(const Resolution& resolution) {
  const ScriptFindings* const script = scriptOf(resolution);
  return script && script->type.starts_with(L"text/html");
}

bool scriptFails(const Resolution& resolution) {
  const ScriptFindings* const script = scriptOf(resolution);
  return script && (script->error != 0 || (script->status >= 0 && script->status != HTTP_STATUS_OK));
}

// In the order of the page.
constexpr Advice kAdvice[] = {
    {"discovery-failed", Topic::Discovery, L"`lorvResolveProxy() returned error status.`",
     L"The PAC script (proxy auto-config) could not be downloaded or run, and the error is one that stops discovery. "
     L"Or the settings could not be read.",
     L"Open the script's URL in a browser on this machine. Check the spelling of its host. Run the script through a "
     L"PAC checker.",
     [](const Resolution& r) { return r.discoveryFailed; }},
    {"bypassed", Topic::Discovery, L"`… is matched to the bypass list (…). Use direct connection.`",
     L"The user's exceptions match this host, so no proxy is used.",
     L"If the host needs a proxy, remove the entry. `*` also matches dots; `<local>` matches every name without a dot.",
     [](const Resolution& r) { return r.bypass.matches; }},
    {"no-candidates", Topic::Discovery, L"`No candidates found. Use direct connection.`", L"Nothing names a proxy.",
     L"If there should be one: is automatic detection (WPAD) on, and does the PAC script return more than `DIRECT` for "
     L"this URL? Try `kiv-resolve --show-settings URL`.",
     [](const Resolution& r) { return logged(r, L"No candidates found. Use direct connection."); }},
    {"all-filtered", Topic::Discovery, L"`0 candidates found.`", L"The program's own filter removed all candidates.",
     L"Ask the program's vendor; the network is not the cause.",
     [](const Resolution& r) { return logged(r, L"0 candidates found."); }},
    {"invalid-candidate", Topic::Discovery, L"`No. N: Invalid proxy`",
     L"The settings name an unknown kind of proxy, for example `ftp=…`.", L"Harmless if another candidate works.",
     [](const Resolution& r) { return hasVerdict(r, Verdict::Invalid); }},
    {"no-port", Topic::Discovery, L"`No. N: Proxy http://host:0`", L"The manual list has a proxy without a port.",
     L"Add the port.", [](const Resolution& r) { return names(r, isWithoutPort); }},
    {"direct-tested-as-proxy", Topic::Discovery, L"`No. N: Proxy http://:0`",
     L"`DIRECT` from a local PAC script is tested as it is and cannot work.",
     L"Give the program a direct connection as last candidate: `--fallback direct`.",
     [](const Resolution& r) { return names(r, [](std::wstring_view text) { return text == kNoHost; }); }},
    {"name-not-resolved", Topic::Requests,
     L"`WinHttpSendRequest() failed. ErrorCode = 12007` (`ERROR_WINHTTP_NAME_NOT_RESOLVED`)",
     L"DNS has no address for the proxy or, with a direct connection, the server.",
     L"Check DNS and the spelling in the settings.",
     [](const Resolution& r) { return sendFailed(r, {ERROR_WINHTTP_NAME_NOT_RESOLVED}); }},
    {"cannot-connect", Topic::Requests,
     L"`WinHttpSendRequest() failed. ErrorCode = 12029` (`ERROR_WINHTTP_CANNOT_CONNECT`)",
     L"Nothing listens at this address and port, or a firewall refuses.", L"Is the proxy up? Is the port right?",
     [](const Resolution& r) { return sendFailed(r, {ERROR_WINHTTP_CANNOT_CONNECT}); }},
    {"send-timeout", Topic::Requests, L"`WinHttpSendRequest() failed. ErrorCode = 12002` (`ERROR_WINHTTP_TIMEOUT`)",
     L"Nobody answered in time.", L"A firewall drops packets, or the address is unused.",
     [](const Resolution& r) { return sendFailed(r, {ERROR_WINHTTP_TIMEOUT}); }},
    {"tls-failed", Topic::Requests,
     L"`WinHttpSendRequest() failed. ErrorCode = 12175` (`ERROR_WINHTTP_SECURE_FAILURE`) or 12157 "
     L"(`ERROR_WINHTTP_SECURE_CHANNEL_ERROR`)",
     L"TLS failed: this machine does not trust the certificate, or the proxy refused the tunnel.",
     L"Is your organisation's certificate authority installed? `--ignore-cert-errors` shows whether that is all.",
     [](const Resolution& r) {
       return sendFailed(r, {ERROR_WINHTTP_SECURE_FAILURE, ERROR_WINHTTP_SECURE_CHANNEL_ERROR});
     }},
    {"receive-timeout", Topic::Requests,
     L"`WinHttpReceiveResponse() failed. ErrorCode = 12002` (`ERROR_WINHTTP_TIMEOUT`)",
     L"Connected, but no answer came.", L"The proxy hangs, or waits for the server behind it.",
     [](const Resolution& r) { return receiveFailed(r, {ERROR_WINHTTP_TIMEOUT}); }},
    {"connection-closed", Topic::Requests,
     L"`WinHttpReceiveResponse() failed. ErrorCode = 12030` (`ERROR_WINHTTP_CONNECTION_ERROR`)",
     L"The other side closed the connection.", L"Read the proxy's log.",
     [](const Resolution& r) { return receiveFailed(r, {ERROR_WINHTTP_CONNECTION_ERROR}); }},
    {"not-http", Topic::Requests,
     L"`WinHttpReceiveResponse() failed. ErrorCode = 12152` (`ERROR_WINHTTP_INVALID_SERVER_RESPONSE`)",
     L"The answer is not HTTP.", L"The port belongs to another service, such as SOCKS or TLS.",
     [](const Resolution& r) { return receiveFailed(r, {ERROR_WINHTTP_INVALID_SERVER_RESPONSE}); }},
    {"invalid-client", Topic::Requests, L"`Invalid client.`", L"The URL is not http or https, or cannot be parsed.",
     L"Correct it.", [](const Resolution& r) { return logged(r, L"Invalid client."); }},
    {"no-success", Topic::Requests, L"`Response Header: …` with status 3xx, 4xx or 5xx, then `Test connection failed.`",
     L"The proxy works; it or the server sent this status. Only 200 to 299 count.",
     L"Test another URL. 502, 503 and 504 usually come from the proxy, 403 from its rules.",
     [](const Resolution& r) { return hasVerdict(r, Verdict::NoSuccess); }},
    {"proxy-credentials", Topic::Authentication, L"`Proxy authentication required.`, then `failed`",
     L"The proxy asked for credentials and got none or wrong ones.",
     L"Try `--proxy-cred USER:PASS` or `--prompt`. Is the account locked?",
     [](const Resolution& r) { return hasVerdict(r, Verdict::ProxyWantsCredentials); }},
    {"server-credentials", Topic::Authentication, L"`Server authentication required.`, then `failed`",
     L"The same for the server.", L"Try `--server-cred USER:PASS` or `--prompt`.",
     [](const Resolution& r) { return hasVerdict(r, Verdict::ServerWantsCredentials); }},
    {"no-proxy-scheme", Topic::Authentication, L"`No supported schemes for the proxy authentication. (…)`",
     L"The 407 offers no scheme that Windows supports, or none at all.",
     L"Run without credentials and read `Proxy-Authenticate` in the line `Response Header`.",
     [](const Resolution& r) { return logged(r, L"No supported schemes for the proxy authentication."); }},
    {"no-server-scheme", Topic::Authentication, L"`No supported schemes for the server authentication. (…)`",
     L"The same for the server. Usually it offers only Basic over http, which would send the password in clear.",
     L"Use https. If you accept the risk, set the environment variable `PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME` to "
     L"`1`.",
     [](const Resolution& r) { return logged(r, L"No supported schemes for the server authentication."); }},
    {"never-completes", Topic::Authentication, L"`ERROR_WINHTTP_RESEND_REQUEST occured too many times.`",
     L"Authentication never completes.", L"Check the machine's clock and its domain membership (Kerberos).",
     [](const Resolution& r) { return logged(r, L"ERROR_WINHTTP_RESEND_REQUEST occured too many times."); }},
    {"other-host", Topic::Probe, L"a response such as `200, but from portal.example`",
     L"Another host answered, after a redirect: often the login page of a guest network or of a filter.",
     L"Open the URL in a browser on this machine and log in there. Otherwise ask who runs the other host.",
     [](const Resolution& r) { return answeredElsewhere(r); }},
    {"inspection", Topic::Probe, L"TLS inspection is likely",
     L"One route shows a certificate under a root that was installed on this machine, another one under a public root.",
     L"If your organisation inspects TLS, programs with certificate lists of their own must trust that root. If not, "
     L"ask your security team.",
     [](const Resolution& r) { return r.probe && r.probe->inspectionLikely; }},
    {"certificate-authority", Topic::Probe, L"a certificate problem: the authority is not trusted",
     L"The certificate's root is not trusted on this machine, or the server does not send the certificates between.",
     L"Compare the issuer with your organisation's. Install its root, or let the server send its whole chain.",
     [](const Resolution& r) { return certificateHas(r, WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA); }},
    {"certificate-date", Topic::Probe, L"a certificate problem: out of date",
     L"The certificate has expired or is not valid yet, by this machine's clock.",
     L"Check the clock first. Then the server needs a new certificate.",
     [](const Resolution& r) { return certificateHas(r, WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID); }},
    {"certificate-name", Topic::Probe, L"a certificate problem: for another host",
     L"The certificate does not name the host of the URL.",
     L"Use the name that the certificate has. A login page or a filter that answers for every host also does this.",
     [](const Resolution& r) { return certificateHas(r, WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID); }},
    {"script-is-html", Topic::Probe, L"a PAC script of type `text/html`",
     L"The PAC URL answers with a web page: a login page, or an error page.",
     L"Open the PAC URL in a browser on this machine. Correct it in the settings.",
     [](const Resolution& r) { return scriptIsPage(r); }},
    {"script-not-fetched", Topic::Probe, L"a PAC script whose response is not 200",
     L"The PAC script cannot be fetched from this machine without credentials.",
     L"Check the PAC URL, and that its server asks for no password: WinHTTP does not send one.",
     [](const Resolution& r) { return scriptFails(r); }},
};

}  // namespace

std::vector<const Advice*> adviceFor(const Resolution& resolution) {
  std::vector<const Advice*> found;
  for (const Advice& advice : kAdvice) {
    if (advice.applies(resolution)) found.push_back(&advice);
  }
  return found;
}

}  // namespace kiv::tool
