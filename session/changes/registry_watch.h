// Waiting for changes of a registry key and of all below it.
#pragma once

#include <optional>

#include "changes/change_source.h"
#include "loop/event_wait.h"
#include "support/owners.h"

namespace kiv::session {

enum class RegistryRoot : std::uint8_t { User, Machine };  // the user that the thread impersonates, if it does

struct RegistryPlace {
  RegistryRoot root;
  const wchar_t* key;
  const wchar_t* parent;  // watched while the key is missing; null for none
};

// All under the loop's lock.
class RegistryWatch final : public Task {
 public:
  // Null if the system has no event or wait for it. Throws std::bad_alloc.
  static Ref<RegistryWatch> create(EventLoop& loop, const RegistryPlace& place, ChangeSink& sink);
  RegistryWatch(EventLoop& loop, const RegistryPlace& place, support::UniqueEvent event, ChangeSink& sink);

  // In the loop, as the session's user: begins to watch. A key that cannot be watched is not.
  void start() noexcept;
  // The sink hears nothing any more. Waits for a callback that is running.
  void stop() noexcept;

 private:
  struct CloseKey {
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
  };
  using UniqueKey = support::Unique<HKEY, CloseKey>;

  ~RegistryWatch() override = default;
  void run() noexcept override;
  bool notifyOf(HKEY key) const noexcept;
  bool open(const wchar_t* path) noexcept;

  EventLoop& loop_;
  RegistryPlace place_;
  ChangeSink* sink_;
  support::UniqueEvent event_;  // closed after the key and the wait
  UniqueKey key_;
  bool onParent_ = false;
  std::optional<EventWait> wait_;
};

}  // namespace kiv::session
