// The result of a resolution.
#include "routes/decision.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kiv::session {

Decision::Decision(const Origin& origin, DecisionKind kind, Route route, std::uint32_t authScheme, std::uint32_t reason,
                   Time madeAt, Ref<ProxyCredentials> credentials)
    : kind_(kind),
      route_(std::move(route)),
      proxyUrl_(route_.url()),
      originHost_(origin.host().begin(), origin.host().end()),
      originScheme_(origin.scheme()),
      originPort_(origin.port()),
      authScheme_(authScheme),
      reason_(reason),
      madeAt_(madeAt),
      credentials_(std::move(credentials)) {}

bool Decision::isFor(const Origin& origin) const noexcept {
  return originScheme_ == origin.scheme() && originPort_ == origin.port() &&
         std::ranges::equal(originHost_, origin.host(), {}, [](char c) { return static_cast<wchar_t>(c); });
}

Origin Decision::origin() const noexcept {
  std::array<wchar_t, kLongestHost> host;  // not filled
  std::ranges::copy(originHost_, host.begin());
  return {originScheme_, {host.data(), originHost_.size()}, originPort_};
}

}  // namespace kiv::session
