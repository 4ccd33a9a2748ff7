// What a site answers, by the path of the request.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ground/http_request.h"
#include "loop/lock.h"

namespace selfcheck {

struct Answer {
  int status = 200;  // 0: none, as long as the client waits
  std::vector<std::pair<std::string, std::string>> headers{};
  std::string body{};

  // As it is sent in answer to a request with this method.
  std::string written(std::string_view method) const;
};

// Whether the value of an Authorization or Proxy-Authorization header has kUser and kPassword.
bool isBasicOfGround(std::string_view header);

// Served below /pac/.
class Scripts {
 public:
  // Returns the script's path.
  std::string add(std::string script);
  // Nothing if there is none.
  std::string at(std::string_view path) const;

 private:
  mutable kiv::session::Lock lock_;
  std::vector<std::string> scripts_;
};

Answer siteAnswer(const HttpRequest& request, const Scripts& scripts);

}  // namespace selfcheck
