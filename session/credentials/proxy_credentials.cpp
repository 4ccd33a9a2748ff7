// The credentials of each proxy, and what became of them.
#include "credentials/proxy_credentials.h"

#include <algorithm>
#include <utility>

#include "support/border.h"

namespace kiv::session {
namespace {

// `unknown` if the passwords cannot be compared: what may not be sent must not be, whichever way that is.
bool areSame(const impl::Cred& one, const impl::Cred& other, bool unknown) {
  if (one.username() != other.username()) return false;
  const impl::SecureString password = one.password();
  const impl::SecureString otherPassword = other.password();
  if (!password.c_str() || !otherPassword.c_str()) return unknown;
  return password.view() == otherPassword.view();
}

bool mayBeSame(const impl::Cred& one, const impl::Cred& other) { return areSame(one, other, true); }

}  // namespace

bool ProxyCredentials::Record::refuses(const impl::Cred& cred) const {
  return everythingIsRefused ||
         std::ranges::any_of(refused, [&](const impl::Cred& other) { return mayBeSame(cred, other); });
}

const ProxyCredentials::Record* ProxyCredentials::find(const Route& proxy) const noexcept {
  const auto found = records_.find(proxy);
  return found == records_.end() ? nullptr : &found->second;
}

ProxyCredentials::Record* ProxyCredentials::make(const Route& proxy) noexcept {
  if (closed_) return nullptr;
  if (const auto found = records_.find(proxy); found != records_.end()) return &found->second;
  if (!isFull_) {
    auto* const made = support::guarded<Record*>(nullptr, [&] { return &records_[proxy]; });
    isFull_ = !made || records_.size() == kMostProxies;
    return made;
  }
  return nullptr;
}

void ProxyCredentials::give(const Route& proxy, impl::Cred cred) {
  const LockGuard guard(lock_);
  Record* const record = make(proxy);
  if (!record) return;
  record->givenIsRefused = record->refuses(cred);
  record->given = std::move(cred);
}

std::optional<impl::Cred> ProxyCredentials::usable(const Route& proxy) const {
  const LockGuard guard(lock_);
  const Record* const record = find(proxy);
  if (!record) return std::nullopt;
  if (record->answer) return record->answer;
  return record->givenIsRefused ? std::nullopt : record->given;
}

bool ProxyCredentials::isUsable(const Route& proxy, const impl::Cred& cred) const {
  const std::optional<impl::Cred> now = usable(proxy);
  return now && areSame(*now, cred, false);
}

ProxyCredentials::Question ProxyCredentials::question(const Route& proxy) const noexcept {
  const LockGuard guard(lock_);
  const Record* const record = find(proxy);
  if (closed_ || (record ? record->declined : isFull_)) return Question::Declined;
  return record && record->questions >= kMostQuestions ? Question::AskedEnough : Question::MayBeAsked;
}

std::uint32_t ProxyCredentials::nextAttempt(const Route& proxy) const noexcept {
  const LockGuard guard(lock_);
  const Record* const record = find(proxy);
  return record && record->questions > 0 ? 2 : 1;
}

bool ProxyCredentials::answered(const Route& proxy, impl::Cred cred) {
  const LockGuard guard(lock_);
  Record* const record = make(proxy);
  if (!record) return false;
  const bool isRefused = record->refuses(cred);
  record->questions = std::min(record->questions + 1, kMostQuestions);
  if (isRefused) return false;
  record->answer = std::move(cred);
  return true;
}

void ProxyCredentials::declined(const Route& proxy) noexcept {
  const LockGuard guard(lock_);
  if (Record* const record = make(proxy)) record->declined = true;
}

void ProxyCredentials::refused(const Route& proxy, const impl::Cred& cred) noexcept {
  const LockGuard guard(lock_);
  Record* const record = make(proxy);
  if (!record) return;
  // Without memory to remember or to compare, everything that is known or comes counts as refused.
  const bool remembered = support::guarded(false, [&] {
    if (record->refuses(cred)) return true;
    if (record->refused.size() == kMostRefused) return false;
    record->refused.push_back(cred);
    if (record->answer && mayBeSame(*record->answer, cred)) record->answer.reset();
    record->givenIsRefused = record->givenIsRefused || (record->given && mayBeSame(*record->given, cred));
    return true;
  });
  if (remembered) return;
  record->everythingIsRefused = true;
  record->answer.reset();
  record->givenIsRefused = true;
}

void ProxyCredentials::forget() noexcept {
  const LockGuard guard(lock_);
  std::erase_if(records_, [](const auto& entry) { return !entry.second.given; });
  for (auto& [proxy, record] : records_) {
    std::optional<impl::Cred> given = impl::take(record.given);
    record = Record();
    record.given = std::move(given);
  }
  isFull_ = records_.size() >= kMostProxies;
}

void ProxyCredentials::close() noexcept {
  const LockGuard guard(lock_);
  closed_ = true;
  records_.clear();
}

bool ProxyCredentials::isClosed() const noexcept {
  const LockGuard guard(lock_);
  return closed_;
}

}  // namespace kiv::session
