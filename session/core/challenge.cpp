// A proxy's question, as the application holds it.
#include "core/challenge.h"

#include <new>
#include <optional>

#include "core/proxy_login.h"
#include "core/session.h"
#include "loop/system_error.h"

namespace kiv::session {

Challenge::Challenge(Ref<ProxyLogin> login, std::uint32_t scheme, std::wstring realm, std::uint32_t attempt)
    : login_(std::move(login)),
      proxy_(login_->proxy().url()),
      scheme_(scheme),
      realm_(std::move(realm)),
      attempt_(attempt) {}

Challenge::~Challenge() = default;

KivStatus Challenge::answer(const wchar_t* user, const wchar_t* password) {
  if (login_->session().isClosed()) return KIV_STATUS_CLOSED;
  std::optional<impl::Cred> cred = impl::Cred::create(user, password ? password : L"");
  if (!cred) throwLastError();
  if (!close(State::Answered)) return KIV_STATUS_TOO_LATE;
  KivStatus status = KIV_STATUS_OK;
  try {
    login_->session().proxyCredentials().answered(login_->proxy(), std::move(*cred));
  } catch (const std::bad_alloc&) {
    support::keepLoaded();
    status = KIV_STATUS_OUT_OF_MEMORY;
  }
  // Even if the answer could not be kept, the question is over.
  login_->answered();
  return status;
}

KivStatus Challenge::decline() noexcept {
  if (login_->session().isClosed()) return KIV_STATUS_CLOSED;
  if (!close(State::Declined)) return KIV_STATUS_TOO_LATE;
  login_->session().proxyCredentials().declined(login_->proxy());
  login_->answered();
  return KIV_STATUS_OK;
}

}  // namespace kiv::session
