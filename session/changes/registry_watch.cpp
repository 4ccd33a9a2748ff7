// Waiting for changes of a registry key and of all below it.
#include "changes/registry_watch.h"

#include <utility>

#include "loop/system_error.h"

namespace kiv::session {

Ref<RegistryWatch> RegistryWatch::create(EventLoop& loop, const RegistryPlace& place, ChangeSink& sink) {
  support::UniqueEvent event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  if (!event) return {};
  try {
    return makeRef<RegistryWatch>(loop, place, std::move(event), sink);
  } catch (const SystemError&) {
    return {};
  }
}

RegistryWatch::RegistryWatch(EventLoop& loop, const RegistryPlace& place, support::UniqueEvent event, ChangeSink& sink)
    : loop_(loop), place_(place), sink_(&sink), event_(std::move(event)), wait_(std::in_place, loop) {}

void RegistryWatch::start() noexcept {
  if (!key_) {
    if (!open(place_.key)) onParent_ = place_.parent && open(place_.parent);
    if (!key_) return;
  }
  // Once the parent is watched, nothing that happens to it is missed; the key may have come before.
  if (onParent_ && open(place_.key)) onParent_ = false;
  wait_->arm(event_.get(), *this);
}

void RegistryWatch::stop() noexcept {
  sink_ = nullptr;
  wait_.reset();
  key_ = UniqueKey();
}

void RegistryWatch::run() noexcept {
  if (!sink_) return;
  // A notification tells of one change, so the next is asked for before anything is read. A key that was deleted gives
  // none; it may be back already.
  if (!notifyOf(key_.get())) {
    key_ = UniqueKey();
    onParent_ = false;
  }
  start();
  sink_->heardOf(ChangeSource::Settings);
}

// The pool's threads come and go, and without REG_NOTIFY_THREAD_AGNOSTIC a registration ends, with a signal, when its
// thread does. The flag "is only supported in Windows 8 and later" ("RegNotifyChangeKeyValue function"): before, such a
// signal costs one reading.
bool RegistryWatch::notifyOf(HKEY key) const noexcept {
  constexpr DWORD kChanges = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET;
  return RegNotifyChangeKeyValue(key, TRUE, kChanges | REG_NOTIFY_THREAD_AGNOSTIC, event_.get(), TRUE) ==
             ERROR_SUCCESS ||
         RegNotifyChangeKeyValue(key, TRUE, kChanges, event_.get(), TRUE) == ERROR_SUCCESS;
}

// Replaces the key only if the other one can be watched. Closing the former signals the event once more, which costs
// one reading.
bool RegistryWatch::open(const wchar_t* path) noexcept {
  UniqueKey user;
  if (place_.root == RegistryRoot::User) {
    if (!loop_.worksAsItsUser() || RegOpenCurrentUser(KEY_READ, user.put()) != ERROR_SUCCESS) return false;
  }
  UniqueKey key;
  HKEY root = user.get();
  if (!root) root = HKEY_LOCAL_MACHINE;  // NOLINT(performance-no-int-to-ptr): the system's own constant
  if (RegOpenKeyExW(root, path, 0, KEY_NOTIFY, key.put()) != ERROR_SUCCESS || !notifyOf(key.get())) return false;
  key_ = std::move(key);
  return true;
}

}  // namespace kiv::session
