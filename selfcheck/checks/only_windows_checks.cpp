// What Wine cannot show: what kiv relies on and only Windows does.
#include <kiv/kiv.hpp>

#include <algorithm>
#include <array>

#include "checks/address_changes.h"
#include "checks/checks.h"
#include "checks/closed_request.h"
#include "checks/secure_request.h"
#include "ground/ground.h"

namespace selfcheck {
namespace {

constexpr const wchar_t* kSecureTarget = L"https://target.test/";
constexpr DWORD kAnyProblem =
    SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID | SECURITY_FLAG_IGNORE_CERT_CN_INVALID;

// The status of a request of kiv.dll's client through a proxy of the ground; certificates are not looked at.
int statusThrough(const Ground& ground, Server proxy, const wchar_t* url, const kiv::Credential& credential = {}) {
  kiv::HttpClient client(url, kAgent, true);
  client.set_proxy(kiv::ProxyConfig::parse(L"http://" + ground.address(proxy), credential));
  return client.head();
}

std::size_t countOf(const Ground& ground, Server server, const char* method, const char* scheme) {
  const std::vector<Asked> asked = ground.asked(server);
  return static_cast<std::size_t>(
      std::ranges::count_if(asked, [&](const Asked& each) { return each.method == method && each.scheme == scheme; }));
}

// What a proxy saw of a request that should have had the answer 200.
Finding judged(const Ground& ground, Server proxy, int status, const char* success) {
  if (ground.asked(proxy).empty()) return {Verdict::Fail, "The proxy did not receive the request."};
  if (status == 200) return {Verdict::Pass, success};
  return {Verdict::Fail, "The proxy received the request, but it did not succeed."};
}

Finding obeysProxy(Ground& ground) {
  return judged(ground, Server::OpenProxy, statusThrough(ground, Server::OpenProxy, kTarget),
                "The proxy received the request and answered it.");
}

Finding answersBasic(Ground& ground) {
  const int status = statusThrough(ground, Server::BasicProxy, kTarget, {kUser, kPassword});
  return judged(ground, Server::BasicProxy, status, "After its 407 the proxy received the credentials.");
}

Finding sendsNoCredentialsUnasked(Ground& ground) {
  statusThrough(ground, Server::BasicProxy, kTarget, {kUser, kPassword});
  if (ground.asked(Server::BasicProxy).empty()) return {Verdict::Fail, "The proxy did not receive the request."};
  if (ground.asked(Server::BasicProxy).front().scheme.empty()) {
    return {Verdict::Pass, "The first request to the proxy had no credentials."};
  }
  return {Verdict::Fail, "The first request to the proxy had credentials."};
}

Finding opensTunnel(Ground& ground) {
  if (const std::string missing = ground.missing(Server::UntrustedSite); !missing.empty()) {
    return {Verdict::Skipped, missing + "."};
  }
  const int status = statusThrough(ground, Server::OpenProxy, kSecureTarget);
  return judged(ground, Server::OpenProxy, status, "The proxy received CONNECT, and the target answered through it.");
}

Finding answersBasicToConnect(Ground& ground) {
  if (const std::string missing = ground.missing(Server::UntrustedSite); !missing.empty()) {
    return {Verdict::Skipped, missing + "."};
  }
  const int status = statusThrough(ground, Server::BasicProxy, kSecureTarget, {kUser, kPassword});
  if (status == 200 && countOf(ground, Server::BasicProxy, "CONNECT", "Basic") == 0) {
    return {Verdict::Fail, "The target answered, but CONNECT had no credentials."};
  }
  return judged(ground, Server::BasicProxy, status, "After its 407 the proxy received CONNECT with the credentials.");
}

// Nobody has the account, so that the system refuses it; what counts is that all of the exchange happened.
Finding speaksNtlm(Ground& ground) {
  if (const std::string missing = ground.missing(Server::NtlmProxy); !missing.empty()) {
    return {Verdict::Skipped, missing + "."};
  }
  const int status = statusThrough(ground, Server::NtlmProxy, kTarget, {kUser, kPassword});
  if (ground.asked(Server::NtlmProxy).empty()) return {Verdict::Fail, "The proxy did not receive the request."};
  const std::size_t tokens = countOf(ground, Server::NtlmProxy, "HEAD", "NTLM");
  if (status == 407 && tokens >= 2) {
    return {Verdict::Pass, "Both messages of NTLM came, and the system refused the made-up account."};
  }
  if (status == 200) return {Verdict::Fail, "The system accepted a made-up account."};
  return {Verdict::Fail, "The exchange of NTLM was not completed."};
}

Finding closingAborts(Ground& ground) {
  switch (closeWaitingRequest(ground)) {
    case Closing::Aborted:
      return {Verdict::Pass, "The handle reported that it closed while the server was still silent."};
    case Closing::Late:
      return {Verdict::Fail, "The handle reported that it closed only after the request's time-out."};
    case Closing::Unending:
      return {Verdict::Fail, "The handle never reported that it closed."};
    default:
      return {Verdict::Fail, "The request did not reach the server."};
  }
}

Finding protectsMemory(Ground& /*ground*/) {
  constexpr std::string_view kSecret = "a password that must not be seen";
  static_assert(kSecret.size() % CRYPTPROTECTMEMORY_BLOCK_SIZE == 0);
  std::string memory(kSecret);
  const auto size = static_cast<DWORD>(memory.size());
  if (!CryptProtectMemory(memory.data(), size, CRYPTPROTECTMEMORY_SAME_PROCESS)) {
    return {Verdict::Fail, "CryptProtectMemory failed."};
  }
  const bool changed = memory != kSecret;
  if (!CryptUnprotectMemory(memory.data(), size, CRYPTPROTECTMEMORY_SAME_PROCESS) || memory != kSecret) {
    return {Verdict::Fail, "CryptUnprotectMemory did not give the bytes back."};
  }
  return changed ? Finding{Verdict::Pass, "The bytes changed, and came back."}
                 : Finding{Verdict::Fail, "CryptProtectMemory left the bytes as they were."};
}

// What is wrong with a certificate, and how to overlook all else.
struct Problem {
  Server site;
  const wchar_t* urlBehindProxy;
  DWORD flag;
  DWORD ignored;
};
constexpr Problem kExpired = {Server::ExpiredSite, L"https://expired.test/",
                              WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID,
                              kAnyProblem & ~SECURITY_FLAG_IGNORE_CERT_DATE_INVALID};
constexpr Problem kOtherName = {Server::OtherNameSite, L"https://other-name.test/",
                                WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID,
                                kAnyProblem & ~SECURITY_FLAG_IGNORE_CERT_CN_INVALID};
constexpr Problem kUntrusted = {Server::UntrustedSite, L"https://untrusted.test/",
                                WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA,
                                kAnyProblem & ~SECURITY_FLAG_IGNORE_UNKNOWN_CA};

Finding refusesFor(const Problem& problem, const SecureRequest& request) {
  const SecureAnswer answer = send(request);
  if (answer.status != 0) return {Verdict::Fail, "The certificate was accepted."};
  if (!answer.saidProblems) {
    return {Verdict::Fail, "The request failed with " + std::to_string(answer.error) + ", without a flag."};
  }
  if (answer.error != ERROR_WINHTTP_SECURE_FAILURE || answer.certificateProblems != problem.flag) {
    return {Verdict::Fail, "The request failed with " + std::to_string(answer.error) + " and the flags " +
                               std::to_string(answer.certificateProblems) + "."};
  }
  return {Verdict::Pass, "The request failed with ERROR_WINHTTP_SECURE_FAILURE (12175) and the flag of this problem."};
}

template <const Problem& problem>
Finding refusesDirectly(Ground& ground) {
  const std::string missing = ground.missing(problem.site);
  if (!missing.empty()) return {Verdict::Skipped, missing + "."};
  return refusesFor(problem, {ground.url("/", problem.site), {}, problem.ignored});
}

template <const Problem& problem>
Finding refusesBehindProxy(Ground& ground) {
  const std::string missing = ground.missing(problem.site);
  if (!missing.empty()) return {Verdict::Skipped, missing + "."};
  const Finding finding =
      refusesFor(problem, {problem.urlBehindProxy, ground.address(Server::OpenProxy), problem.ignored});
  if (ground.asked(Server::OpenProxy).empty()) return {Verdict::Fail, "The proxy did not receive the request."};
  return finding;
}

Finding canIgnoreProblems(Ground& ground) {
  for (const Problem* problem : {&kExpired, &kOtherName, &kUntrusted}) {
    if (const std::string missing = ground.missing(problem->site); !missing.empty()) {
      return {Verdict::Skipped, missing + "."};
    }
    if (kiv::HttpClient(ground.url("/", problem->site), kAgent, true).head() != 200) {
      return {Verdict::Fail, "A request that ignores certificate errors failed."};
    }
    if (kiv::HttpClient(ground.url("/", problem->site), kAgent).head() != -1) {
      return {Verdict::Fail, "A request that ignores no certificate errors did not fail."};
    }
  }
  return {Verdict::Pass, "All three certificates are refused, unless certificate errors are ignored."};
}

Finding reportsAddressChanges(Ground& /*ground*/) {
  switch (registerForAddressChanges()) {
    case Registration::Reported:
      return {Verdict::Pass, "The registration reported itself, and was cancelled."};
    case Registration::Silent:
      return {Verdict::Fail, "The registration succeeded, but did not report itself."};
    default:
      return {Verdict::Fail, "The registration failed."};
  }
}

constexpr Check kChecks[] = {
    {"proxy-of-a-request", "Is a proxy that is set on a request obeyed?", obeysProxy},
    {"407-with-basic", "Is a proxy's 407 answered with the credentials given?", answersBasic},
    {"no-credentials-unasked", "Does a proxy get no credentials before it asks?", sendsNoCredentialsUnasked},
    {"connect", "Does a request for https open a tunnel through the proxy?", opensTunnel},
    {"407-to-connect-with-basic", "Is a 407 to CONNECT answered with the credentials given?", answersBasicToConnect},
    {"407-with-ntlm", "Does an exchange of NTLM with a proxy run to its end?", speaksNtlm},
    {"closed-request", "Is a request aborted when its handle is closed?", closingAborts},
    {"protected-memory", "Does protected memory hold other bytes than the password?", protectsMemory},
    {"expired-certificate", "Is an expired certificate refused for its date?", refusesDirectly<kExpired>},
    {"other-name-certificate", "Is a certificate refused for the name of another host?", refusesDirectly<kOtherName>},
    {"untrusted-certificate", "Is a certificate refused for a root that nobody trusts?", refusesDirectly<kUntrusted>},
    {"expired-certificate-behind-proxy", "Is an expired certificate refused behind a proxy too?",
     refusesBehindProxy<kExpired>},
    {"other-name-certificate-behind-proxy", "Is another host's certificate refused behind a proxy too?",
     refusesBehindProxy<kOtherName>},
    {"untrusted-certificate-behind-proxy", "Is an untrusted root refused behind a proxy too?",
     refusesBehindProxy<kUntrusted>},
    {"ignored-certificate-errors", "Are certificate errors ignored if that is requested, and only then?",
     canIgnoreProblems},
    {"address-changes", "Can a program be notified when the machine's addresses change?", reportsAddressChanges},
};

}  // namespace

Group onlyWindowsChecks() { return {"What only Windows shows", kChecks}; }

}  // namespace selfcheck
