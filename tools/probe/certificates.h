// The certificate of a server: what it says, and what Windows finds of it.
#pragma once

#include <windows.h>

#include <wincrypt.h>
#include <winhttp.h>

#include <string>
#include <vector>

#include "probe/findings.h"
#include "support/owners.h"

namespace kiv::tool {

struct FreeCertificate {
  void operator()(PCCERT_CONTEXT certificate) const noexcept { CertFreeCertificateContext(certificate); }
};
using UniqueCertificate = support::Unique<PCCERT_CONTEXT, FreeCertificate>;

// Null before TLS is established.
UniqueCertificate certificateOf(HINTERNET request);

// `host` presented it. Asks nobody in the network.
Certificate describe(PCCERT_CONTEXT certificate, const std::wstring& host);

// A chain's errors (CERT_TRUST_ values) as WINHTTP_CALLBACK_STATUS_FLAG_ values.
unsigned problemsOf(DWORD trustErrors, bool isForAnotherHost);

struct ChainEnd {
  bool isComplete = false;
  bool isTrusted = false;
  bool isDistributed = false;  // by Windows
};

Root rootOf(const ChainEnd& end);

// What one host presented on one route.
struct Sighting {
  std::wstring host;
  Root root = Root::Missing;
};

// The hosts that have an installed root on one route and a public one on another. Issuers that differ prove nothing: a
// host may have several certificates.
std::vector<std::wstring> inspectedHosts(const std::vector<Sighting>& sightings);

}  // namespace kiv::tool
