// Asking the application's filter which candidates may be used.
#include "core/filtering.h"

#include <utility>

#include "core/resolution.h"
#include "support/border.h"
#include "support/foreign_exceptions.h"

namespace kiv::session {

Filtering::Filtering(EventLoop& loop, Resolution& resolution, std::vector<std::wstring> proxyUrls)
    : loop_(&loop), resolution_(&resolution), proxyUrls_(std::move(proxyUrls)), allowed_(proxyUrls_.size()) {}

// The direct connection, which has no URL, is the policy's affair. A filter that throws says no.
void Filtering::ask(KivFilterFunction function, void* context) noexcept {
  for (std::size_t i = 0; i < proxyUrls_.size(); ++i) {
    allowed_[i] = proxyUrls_[i].empty() || support::guarded(false, [&] {
                    return support::callApplication(function, context, proxyUrls_[i].c_str()) != 0;
                  });
  }
  loop_->post(*this);
}

void Filtering::abandon() noexcept { resolution_ = nullptr; }

void Filtering::run() noexcept {
  if (resolution_) std::exchange(resolution_, nullptr)->filtered(*this);
}

}  // namespace kiv::session
