// The certificate of a server: what it says, and what Windows finds of it.
#include "probe/certificates.h"

#include <algorithm>
#include <array>

#include "common/presentable.h"
#include "probe/sha256.h"

namespace kiv::tool {
namespace {

struct FreeChain {
  void operator()(PCCERT_CHAIN_CONTEXT chain) const noexcept { CertFreeCertificateChain(chain); }
};
using UniqueChain = support::Unique<PCCERT_CHAIN_CONTEXT, FreeChain>;

struct CloseStore {
  void operator()(HCERTSTORE store) const noexcept { CertCloseStore(store, 0); }
};
using UniqueStore = support::Unique<HCERTSTORE, CloseStore>;

struct Problem {
  DWORD trustErrors;
  unsigned flag;
};

constexpr Problem kProblems[] = {
    {CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_IS_PARTIAL_CHAIN | CERT_TRUST_IS_EXPLICIT_DISTRUST,
     WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA},
    {CERT_TRUST_IS_NOT_TIME_VALID, WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID},
    {CERT_TRUST_IS_REVOKED, WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED},
    {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, WINHTTP_CALLBACK_STATUS_FLAG_CERT_WRONG_USAGE},
    {CERT_TRUST_IS_NOT_SIGNATURE_VALID, WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CERT},
};

std::wstring nameText(CERT_NAME_BLOB name) {
  constexpr DWORD kForm = CERT_X500_NAME_STR | CERT_NAME_STR_REVERSE_FLAG;
  const DWORD size = CertNameToStrW(X509_ASN_ENCODING, &name, kForm, nullptr, 0);
  std::wstring text(size, L'\0');
  const DWORD written = CertNameToStrW(X509_ASN_ENCODING, &name, kForm, text.data(), size);
  text.resize(written > 0 ? written - 1 : 0);
  return presentable(text);
}

std::chrono::system_clock::time_point timeOf(FILETIME time) {
  constexpr long long kUnixEpoch = 116444736000000000;  // in units of 100 ns since 1601
  const long long ticks = (static_cast<long long>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
  using Ticks = std::chrono::duration<long long, std::ratio<1, 10000000>>;
  return std::chrono::system_clock::time_point(
      std::chrono::duration_cast<std::chrono::system_clock::duration>(Ticks(ticks - kUnixEpoch)));
}

UniqueChain chainOf(PCCERT_CONTEXT certificate) {
  std::array<char, 18> serverAuthentication = {szOID_PKIX_KP_SERVER_AUTH};
  std::array<LPSTR, 1> usages = {serverAuthentication.data()};
  CERT_CHAIN_PARA parameters{};
  parameters.cbSize = sizeof(parameters);
  parameters.RequestedUsage.dwType = USAGE_MATCH_TYPE_AND;
  parameters.RequestedUsage.Usage.cUsageIdentifier = static_cast<DWORD>(usages.size());
  parameters.RequestedUsage.Usage.rgpszUsageIdentifier = usages.data();
  UniqueChain chain;
  CertGetCertificateChain(nullptr, certificate, nullptr, certificate->hCertStore, &parameters,
                          CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL, nullptr, chain.put());
  return chain;
}

HRESULT verdictOf(PCCERT_CHAIN_CONTEXT chain, LPCSTR policy, void* extra) {
  CERT_CHAIN_POLICY_PARA parameters{};
  parameters.cbSize = sizeof(parameters);
  parameters.pvExtraPolicyPara = extra;
  CERT_CHAIN_POLICY_STATUS status{};
  status.cbSize = sizeof(status);
  if (!CertVerifyCertificateChainPolicy(policy, chain, &parameters, &status)) return E_FAIL;
  return static_cast<HRESULT>(status.dwError);
}

// What the chain's own status does not say, so all else is left out.
bool isForAnotherHost(PCCERT_CHAIN_CONTEXT chain, std::wstring host) {
  SSL_EXTRA_CERT_CHAIN_POLICY_PARA extra{};
  extra.cbSize = sizeof(extra);
  extra.dwAuthType = AUTHTYPE_SERVER;
  extra.fdwChecks =
      SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE;
  extra.pwszServerName = host.data();
  return verdictOf(chain, CERT_CHAIN_POLICY_SSL, &extra) == static_cast<HRESULT>(CERT_E_CN_NO_MATCH);
}

// Windows keeps the public roots that it distributes in this store, but for Microsoft's own.
bool isInAuthRoot(PCCERT_CONTEXT root) {
  const UniqueStore store(CertOpenStore(
      CERT_STORE_PROV_SYSTEM_W, 0, 0,
      CERT_SYSTEM_STORE_LOCAL_MACHINE | CERT_STORE_READONLY_FLAG | CERT_STORE_OPEN_EXISTING_FLAG, L"AuthRoot"));
  if (!store) return false;
  const UniqueCertificate found(
      CertFindCertificateInStore(store.get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, root, nullptr));
  return static_cast<bool>(found);
}

bool isMicrosofts(PCCERT_CHAIN_CONTEXT chain) {
  return verdictOf(chain, CERT_CHAIN_POLICY_MICROSOFT_ROOT, nullptr) == S_OK;
}

void describeChain(PCCERT_CHAIN_CONTEXT chain, Certificate& described) {
  const CERT_SIMPLE_CHAIN& first = *chain->rgpChain[0];
  const CERT_CHAIN_ELEMENT& last = *first.rgpElement[first.cElement - 1];
  const DWORD errors = chain->TrustStatus.dwErrorStatus;
  ChainEnd end;
  end.isComplete = (last.TrustStatus.dwInfoStatus & CERT_TRUST_IS_SELF_SIGNED) != 0;
  end.isTrusted = (errors & (CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_IS_EXPLICIT_DISTRUST)) == 0;
  end.isDistributed = end.isComplete && (isInAuthRoot(last.pCertContext) || isMicrosofts(chain));
  described.root = rootOf(end);
  if (end.isComplete) described.rootName = nameText(last.pCertContext->pCertInfo->Subject);
  described.problems = problemsOf(errors, isForAnotherHost(chain, described.host));
}

}  // namespace

UniqueCertificate certificateOf(HINTERNET request) {
  UniqueCertificate certificate;
  DWORD size = sizeof(PCCERT_CONTEXT);
  if (!WinHttpQueryOption(request, WINHTTP_OPTION_SERVER_CERT_CONTEXT, certificate.put(), &size)) return {};
  return certificate;
}

unsigned problemsOf(DWORD trustErrors, bool isForAnotherHost) {
  unsigned problems = isForAnotherHost ? WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID : 0;
  for (const Problem& problem : kProblems) {
    if (trustErrors & problem.trustErrors) problems |= problem.flag;
  }
  return problems;
}

Root rootOf(const ChainEnd& end) {
  if (!end.isComplete) return Root::Missing;
  if (!end.isTrusted) return Root::Untrusted;
  return end.isDistributed ? Root::Public : Root::Installed;
}

Certificate describe(PCCERT_CONTEXT certificate, const std::wstring& host) {
  const CERT_INFO& info = *certificate->pCertInfo;
  Certificate described{.host = host,
                        .subject = nameText(info.Subject),
                        .issuer = nameText(info.Issuer),
                        .notBefore = timeOf(info.NotBefore),
                        .notAfter = timeOf(info.NotAfter),
                        .sha256 = sha256Of({certificate->pbCertEncoded, certificate->cbCertEncoded}),
                        .rootName = {}};
  const UniqueChain chain = chainOf(certificate);
  if (chain && chain.get()->cChain > 0) describeChain(chain.get(), described);
  return described;
}

std::vector<std::wstring> inspectedHosts(const std::vector<Sighting>& sightings) {
  const auto seen = [&](const std::wstring& host, Root root) {
    return std::ranges::any_of(sightings,
                               [&](const Sighting& other) { return other.host == host && other.root == root; });
  };
  std::vector<std::wstring> hosts;
  for (const Sighting& sighting : sightings) {
    if (sighting.root != Root::Installed || !seen(sighting.host, Root::Public)) continue;
    if (std::ranges::count(hosts, sighting.host) == 0) hosts.push_back(sighting.host);
  }
  return hosts;
}

}  // namespace kiv::tool
