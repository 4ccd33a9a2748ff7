// What a server of the ground does with one connection.
#include "ground/conversation.h"

#include "ground/gates.h"
#include "ground/http_request.h"
#include "ground/tls_stream.h"

namespace selfcheck {
namespace {

constexpr const char* kTunnelOpened = "HTTP/1.1 200 Connection established\r\n\r\n";

// The bytes of a connection whose first were read already.
class ContinuedStream : public Stream {
 public:
  ContinuedStream(std::string first, Stream& below) : first_(std::move(first)), below_(below) {}

  std::size_t read(std::span<char> buffer) override {
    if (first_.empty()) return below_.read(buffer);
    const std::size_t size = first_.copy(buffer.data(), buffer.size());
    first_.erase(0, size);
    return size;
  }
  bool write(std::string_view bytes) override { return below_.write(bytes); }

 private:
  std::string first_;
  Stream& below_;
};

// Of a host behind a proxy.
Certificate certificateOf(std::string_view host) {
  if (host.starts_with("expired.")) return Certificate::Expired;
  return host.starts_with("other-name.") ? Certificate::OtherName : Certificate::Untrusted;
}

class Conversation {
 public:
  Conversation(Server server, Supplies& supplies) : server_(server), supplies_(supplies) {}

  void asSite(Stream& stream, HttpReader& reader) {
    while (const auto request = reader.next()) {
      if (!send(stream, *request, "Authorization", siteAnswer(*request, supplies_.scripts))) return;
    }
  }

  void asSecureSite(Stream& stream, Certificate certificate) {
    const auto secure = openTls(stream, certificate);
    if (!secure) return;
    HttpReader reader(*secure);
    asSite(*secure, reader);
  }

  void asProxy(SocketStream& stream) {
    const auto gate = gateOf(server_);
    HttpReader reader(stream);
    while (const auto request = reader.next()) {
      if (const auto refusal = gate->refusal(*request)) {
        if (!send(stream, *request, kCredentials, refusal->answer)) return;
        if (refusal->closes) return stream.close();
      } else if (request->method == "CONNECT") {
        note(*request, kCredentials, 200);
        if (stream.write(kTunnelOpened)) behindTunnel(stream, reader, certificateOf(request->target));
        return;
      } else if (!send(stream, *request, kCredentials, siteAnswer(*request, supplies_.scripts))) {
        return;
      }
    }
  }

  // Reads a request, and waits until the client goes.
  void silent(Stream& stream) {
    HttpReader reader(stream);
    while (const auto request = reader.next()) note(*request, kCredentials, 0);
  }

  void resetting(SocketStream& stream) {
    HttpReader reader(stream);
    if (const auto request = reader.next()) note(*request, kCredentials, 0);
    stream.makeResetting();
  }

 private:
  static constexpr const char* kCredentials = "Proxy-Authorization";

  void behindTunnel(Stream& stream, HttpReader& reader, Certificate certificate) {
    if (!reader.beginsWithTls()) return asSite(stream, reader);
    ContinuedStream whole(reader.rest(), stream);
    asSecureSite(whole, certificate);
  }

  void note(const HttpRequest& request, const char* credentials, int status) {
    supplies_.journal.add(server_, {request.method, request.target,
                                    std::string(credentialsIn(request.header(credentials)).scheme), status});
  }

  bool send(Stream& stream, const HttpRequest& request, const char* credentials, const Answer& answer) {
    note(request, credentials, answer.status);
    return answer.status == 0 || stream.write(answer.written(request.method));
  }

  Server server_;
  Supplies& supplies_;
};

}  // namespace

void converse(Server server, SocketStream& connection, Supplies& supplies) {
  Conversation conversation(server, supplies);
  switch (server) {
    case Server::Site: {
      HttpReader reader(connection);
      return conversation.asSite(connection, reader);
    }
    case Server::ExpiredSite:
      return conversation.asSecureSite(connection, Certificate::Expired);
    case Server::OtherNameSite:
      return conversation.asSecureSite(connection, Certificate::OtherName);
    case Server::UntrustedSite:
      return conversation.asSecureSite(connection, Certificate::Untrusted);
    case Server::SilentProxy:
      return conversation.silent(connection);
    case Server::ResettingProxy:
      return conversation.resetting(connection);
    default:
      return conversation.asProxy(connection);
  }
}

}  // namespace selfcheck
