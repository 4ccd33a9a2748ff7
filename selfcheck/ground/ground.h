// The servers that checks talk to, all of this process and on loopback only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace selfcheck {

enum class Server {
  Site,            // answers what is asked of it directly
  OpenProxy,       // lets everybody pass
  BasicProxy,      // asks for kUser and kPassword
  NtlmProxy,       // asks for NTLM, which the system checks; nobody passes but accounts of this machine
  OfferingProxy,   // offers Negotiate and NTLM; closes at the first token, looks at none, and lets nobody pass
  DeadProxy,       // nobody listens: connecting is refused
  SilentProxy,     // reads, and never answers
  ResettingProxy,  // reads, and resets the connection
  ExpiredSite,     // TLS, with a certificate for localhost and 127.0.0.1 that was valid once
  OtherNameSite,   // TLS, with a certificate for another name
  UntrustedSite,   // TLS, with a certificate for localhost and 127.0.0.1 of a root that nobody trusts
};
constexpr std::size_t kServerCount = 11;

constexpr const wchar_t* kUser = L"selfcheck";
constexpr const wchar_t* kPassword = L"only for loopback";

// Of all requests of the checks.
constexpr const wchar_t* kAgent = L"kiv-selfcheck";

// A made-up name that only a proxy can answer, because programs may ask no proxy about loopback. Any other name that
// ends with .test will do. Behind CONNECT the proxies speak TLS to whoever begins with it, with the certificate that
// the first label names: expired.test, other-name.test; all else has the untrusted one, for *.test.
constexpr const wchar_t* kTarget = L"http://target.test/";

// What a server read: one request of a client.
struct Asked {
  std::string method;
  std::string target;  // as it stood in the request line
  std::string scheme;  // of the credentials that it came with: "Basic", "NTLM"; empty without
  int answer = 0;      // the status that it got; 0 for none
};

/// Sites, and proxies for the names that they invent, answer by the path:
///   /            200
///   /status/NNN  NNN, without a challenge
///   /401         401 with a Basic challenge; 200 for kUser and kPassword
///   /big         200 with 2 MB
///   /big401      401 with 2 MB and a Basic challenge; 200 for kUser and kPassword
///   /redirect    302 to /
///   /silent      nothing, as long as the client waits
///   /pac/N       a PAC script (see scriptUrl)
class Ground {
 public:
  // Throws kiv::session::SystemError.
  Ground();
  Ground(const Ground&) = delete;
  Ground& operator=(const Ground&) = delete;
  ~Ground();

  // Why a server cannot do what it is for, such as "the servers of this build have no TLS"; empty if it can. Asked
  // first by a check, which then reports that it was skipped.
  std::string missing(Server server) const;

  std::uint16_t port(Server server) const;
  // "127.0.0.1:PORT"
  std::wstring address(Server server) const;
  // "[::1]:PORT"; empty where the machine has no IPv6.
  std::wstring address6(Server server) const;
  // "http://127.0.0.1:PORT/path" of the site, or https of a site with TLS.
  std::wstring url(std::string_view path, Server site = Server::Site) const;

  // The URL of a PAC script, which the site serves from now on. Each has a path of its own: WinHTTP keeps scripts by
  // URL.
  std::wstring scriptUrl(std::string script);

  // What the server was asked since the last forget(), in the order in which requests were complete. Inside a tunnel
  // requests are the proxy's too, with their targets as they stood in the request line.
  std::vector<Asked> asked(Server server) const;
  // Waits until it was asked so often; false if that takes too long to be expected.
  bool waitUntilAsked(Server server, std::size_t times) const;
  // Waits until no client is connected and the threads that served them have ended; false if that takes too long.
  bool waitUntilIdle() const;
  // Called before each check.
  void forget();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace selfcheck
