// The servers that checks talk to, all of this process and on loopback only.
#include "ground/ground.h"

#include <array>

#include "common/console.h"
#include "ground/conversation.h"
#include "ground/listeners.h"
#include "ground/ntlm_login.h"
#include "ground/tls_stream.h"

namespace selfcheck {
namespace {

std::size_t numberOf(Server server) { return static_cast<std::size_t>(server); }

bool wantsTls(Server server) { return server >= Server::ExpiredSite; }

struct Ports {
  std::uint16_t v4 = 0;
  std::uint16_t v6 = 0;
};

}  // namespace

class Ground::Implementation {
 public:
  Implementation()
      : listeners_([this](std::size_t server, SOCKET socket, HANDLE stop) { serve(server, socket, stop); }) {
    for (std::size_t server = 0; server < kServerCount; ++server) {
      const bool dead = server == numberOf(Server::DeadProxy);
      ports_[server].v4 = listeners_.add(server, AF_INET, dead);
      if (!ports_[server].v4) throw kiv::session::SystemError{static_cast<DWORD>(WSAGetLastError())};
      ports_[server].v6 = listeners_.add(server, AF_INET6, dead);
    }
    listeners_.start();
  }

  const Ports& ports(Server server) const { return ports_[numberOf(server)]; }
  Supplies& supplies() { return supplies_; }
  Listeners& listeners() { return listeners_; }

 private:
  void serve(std::size_t server, SOCKET socket, HANDLE stop) {
    SocketStream connection(socket, stop);
    converse(static_cast<Server>(server), connection, supplies_);
  }

  kiv::session::Winsock winsock_;
  Supplies supplies_;
  std::array<Ports, kServerCount> ports_{};
  Listeners listeners_;  // its threads end first
};

Ground::Ground() : implementation_(std::make_unique<Implementation>()) {}

Ground::~Ground() = default;

std::string Ground::missing(Server server) const {
  if (wantsTls(server)) return hasTls() ? "" : "the servers of this build have no TLS";
  return server == Server::NtlmProxy ? ntlmMissing() : "";
}

std::uint16_t Ground::port(Server server) const { return implementation_->ports(server).v4; }

std::wstring Ground::address(Server server) const { return L"127.0.0.1:" + std::to_wstring(port(server)); }

std::wstring Ground::address6(Server server) const {
  const std::uint16_t port = implementation_->ports(server).v6;
  return port ? L"[::1]:" + std::to_wstring(port) : std::wstring();
}

std::wstring Ground::url(std::string_view path, Server site) const {
  return (wantsTls(site) ? L"https://" : L"http://") + address(site) + kiv::tool::toWide(path);
}

std::wstring Ground::scriptUrl(std::string script) {
  return url(implementation_->supplies().scripts.add(std::move(script)));
}

std::vector<Asked> Ground::asked(Server server) const { return implementation_->supplies().journal.of(server); }

bool Ground::waitUntilAsked(Server server, std::size_t times) const {
  return implementation_->supplies().journal.waitFor(server, times);
}

bool Ground::waitUntilIdle() const { return implementation_->listeners().waitUntilIdle(); }

void Ground::forget() { implementation_->supplies().journal.clear(); }

}  // namespace selfcheck
