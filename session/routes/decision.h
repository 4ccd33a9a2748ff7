// The result of a resolution.
#pragma once

#include <cstdint>
#include <string>

#include "credentials/proxy_credentials.h"
#include "kiv/session.h"
#include "loop/event_loop.h"
#include "routes/origin.h"
#include "routes/route.h"
#include "support/border.h"

namespace kiv::session {

enum class DecisionKind : std::uint8_t { None = KIV_KIND_NONE, Direct = KIV_KIND_DIRECT, Proxy = KIV_KIND_PROXY };

// Never changes once it was made. Holds no password: it asks the session's credentials.
class Decision final : public RefCounted {
 public:
  // `route` is what a decision of kind None leaves empty; `authScheme` a KIV_SCHEME_ value, or 0. Throws
  // std::bad_alloc.
  Decision(const Origin& origin, DecisionKind kind, Route route, std::uint32_t authScheme, std::uint32_t reason,
           Time madeAt, Ref<ProxyCredentials> credentials);

  DecisionKind kind() const noexcept { return kind_; }
  const Route& route() const noexcept { return route_; }
  const wchar_t* proxyUrl() const noexcept { return proxyUrl_.c_str(); }
  std::uint32_t authScheme() const noexcept { return authScheme_; }
  std::uint32_t reason() const noexcept { return reason_; }
  Time madeAt() const noexcept { return madeAt_; }
  ProxyCredentials& credentials() const noexcept { return *credentials_; }
  bool isFor(const Origin& origin) const noexcept;
  // For ReportFailure: the origin that it was made for.
  Origin origin() const noexcept;

 private:
  ~Decision() override = default;

  DecisionKind kind_;
  Route route_;
  std::wstring proxyUrl_;
  // The origin, in fewer bytes than an Origin has.
  std::string originHost_;
  OriginScheme originScheme_;
  std::uint16_t originPort_;
  std::uint32_t authScheme_;
  std::uint32_t reason_;
  Time madeAt_;
  Ref<ProxyCredentials> credentials_;
};

}  // namespace kiv::session

template <>
struct kiv::support::ObjectOf<KivDecision> {
  using Type = kiv::session::Decision;
};
