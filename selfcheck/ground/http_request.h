// A request as a server of the ground reads it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ground/stream.h"

namespace selfcheck {

struct HttpRequest {
  std::string method;
  std::string target;  // as it stands in the request line
  std::vector<std::pair<std::string, std::string>> headers;

  // The value of the first header with this name, in any case; empty without.
  std::string_view header(std::string_view name) const;
  // The target's path, also where it is a whole URL.
  std::string_view path() const;
};

struct Credentials {
  std::string_view scheme;
  std::string_view token;
};

// Of the value of an Authorization or Proxy-Authorization header.
Credentials credentialsIn(std::string_view header);

class HttpReader {
 public:
  explicit HttpReader(Stream& stream) : stream_(stream) {}

  // The next request, its body left out; nothing if the client sends no more, or what is no request.
  std::optional<HttpRequest> next();
  // Whether the client begins with TLS: waits for its first byte.
  bool beginsWithTls();
  // The bytes that were read and belong to no request yet.
  std::string& rest() { return rest_; }

 private:
  bool more();

  Stream& stream_;
  std::string rest_;
};

}  // namespace selfcheck
