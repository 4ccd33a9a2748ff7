// As whom the session works.
#include "loop/identity.h"

#include <exception>
#include <utility>

#include "loop/system_error.h"

namespace kiv::session {

// The token is opened as the process, since the user may not be allowed to open it.
Identity Identity::ofThisThread() {
  Identity identity;
  if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY | TOKEN_IMPERSONATE, TRUE, identity.token_.put())) {
    const DWORD error = GetLastError();
    if (error != ERROR_NO_TOKEN) throw SystemError{error};
  }
  return identity;
}

Identity::Scope::Scope(const Identity& identity) noexcept
    : impersonates_(static_cast<bool>(identity.token_)),
      succeeded_(!impersonates_ || SetThreadToken(nullptr, identity.token_.get())) {}

// "You should shut down the process if RevertToSelf fails", says its documentation: the thread belongs to the pool, and
// would do others' work as this user.
Identity::Scope::~Scope() {
  if (impersonates_ && succeeded_ && !RevertToSelf()) std::terminate();
}

// Without a token a thread is the process's user again, as after RevertToSelf ("SetThreadToken function").
Identity::Visit::Visit(const Identity& identity)
    : former_(std::move(ofThisThread().token_)), succeeded_(SetThreadToken(nullptr, identity.token_.get()) != FALSE) {}

Identity::Visit::~Visit() {
  if (succeeded_ && !SetThreadToken(nullptr, former_.get())) std::terminate();
}

}  // namespace kiv::session
