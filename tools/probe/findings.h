// What probes found: of each route, and of the PAC script.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kiv::tool {

using std::chrono::microseconds;

// The parts of a request that WinHTTP separates.
enum class PhaseKind : std::uint8_t { Name, Connection, Tunnel, Tls, Sending, FirstByte };

struct Phase {
  PhaseKind kind = PhaseKind::Name;
  microseconds began{};  // since the probe's request began
  microseconds duration{};
  bool completed = true;
  std::wstring address{};  // of a connection
};

// The addresses of the route's first host: the proxy, or without one the server.
struct Addresses {
  std::wstring host;
  std::vector<std::wstring> ipv4;
  std::vector<std::wstring> ipv6;
  unsigned error = 0;  // of the look-up
};

// Where the chain of a certificate ends on this machine.
enum class Root : std::uint8_t {
  Public,     // a root that Windows distributes
  Installed,  // a root that somebody trusts on this machine
  Untrusted,  // a certificate that this machine does not trust
  Missing,    // the chain is not complete
};

struct Certificate {
  std::wstring host;  // that presented it
  std::wstring subject{};
  std::wstring issuer{};
  std::chrono::system_clock::time_point notBefore{};
  std::chrono::system_clock::time_point notAfter{};
  std::wstring sha256{};
  std::wstring rootName{};
  Root root = Root::Missing;
  unsigned problems = 0;  // what Windows finds wrong with it: WINHTTP_CALLBACK_STATUS_FLAG_ values
  bool refused = false;   // so it was read with a request that was closed before anything was sent
};

// A 407 or a 401, and what the probe answered.
struct Challenge {
  bool byProxy = false;
  unsigned offered = 0;  // WINHTTP_AUTH_SCHEME_ values
  std::optional<unsigned> used{};
  bool asLoggedOnUser = false;  // Windows answered by itself
  bool accepted = false;
};

struct RouteFindings {
  std::optional<std::size_t> candidate{};  // its number; nothing for a direct connection that needed no test
  std::wstring route;                      // without credentials
  std::wstring notProbed{};                // why, if it was not
  Addresses addresses{};
  std::vector<Phase> phases{};
  microseconds duration{};
  int status = -1;  // negative if there was no response
  unsigned error = 0;
  std::wstring host{};                    // of the URL
  std::wstring finalHost{};               // of the URL that answered
  std::vector<std::wstring> redirects{};  // the URLs that followed the first
  std::vector<Challenge> challenges{};
  std::optional<Certificate> certificate{};

  // After a redirect: often the page of a guest network.
  bool isAnsweredElsewhere() const { return !finalHost.empty() && finalHost != host; }
};

// The PAC script, as the tool fetched it once more.
struct ScriptFindings {
  std::wstring url;
  bool fromDetection = false;  // WPAD named the URL
  int status = -1;             // negative without a response, as for a file
  unsigned error = 0;
  std::wstring type{};
  std::size_t bytes = 0;
  std::wstring sha256{};
};

struct ProbeFindings {
  std::vector<RouteFindings> routes;
  std::optional<ScriptFindings> script;
  bool inspectionLikely = false;
};

}  // namespace kiv::tool
