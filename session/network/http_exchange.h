// One test request: a HEAD of the origin's root, without redirects and cookies, directly or through one HTTP proxy.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "config/cred.h"
#include "loop/event_loop.h"
#include "routes/origin.h"
#include "routes/route.h"

namespace kiv::session {

enum class AutoLogon : std::uint8_t { System, Never, Proxies };

struct HttpPlan {
  std::wstring userAgent;
  Origin target;
  Route route;                     // Direct or Http
  std::optional<impl::Cred> cred;  // for the proxy
  std::uint32_t credScheme = 0;    // a KIV_SCHEME_ value: how the credentials are sent
  AutoLogon autoLogon = AutoLogon::System;
  std::uint32_t connectTimeOut = 0;  // ms
  std::uint32_t answerTimeOut = 0;   // ms
};

struct HttpAnswer {
  DWORD error = 0;  // 0: there is a status
  DWORD status = 0;
  bool connected = false;           // a connection, to the proxy if there is one, was made
  bool secure = false;              // over TLS, so that the status is the target's
  bool redirectsElsewhere = false;  // to another host
  std::uint32_t schemes = 0;        // a sum of KIV_SCHEME_ values that a 407 offers
  std::wstring realm;               // of the strongest of them
};

class HttpExchange;

class HttpListener {
 public:
  // In the loop. At most once, before the end.
  virtual void exchangeConnected(HttpExchange& exchange) noexcept = 0;
  // In the loop, last and once. Not after stop().
  virtual void exchangeEnded(HttpExchange& exchange, const HttpAnswer& answer) noexcept = 0;

 protected:
  ~HttpListener() = default;
};

// All under the loop's lock. Belongs to itself until WinHTTP has reported that the request handle closed, which can be
// long after stop().
class HttpExchange : public Task {
 public:
  // Throws std::bad_alloc and SystemError; the listener then hears nothing. It hears nothing before this has returned.
  static Ref<HttpExchange> start(EventLoop& loop, HttpPlan plan, HttpListener& listener);
  // Closes the request; the listener hears nothing any more. Any number of times.
  virtual void stop() noexcept = 0;
};

}  // namespace kiv::session
