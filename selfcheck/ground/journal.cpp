// What the servers of the ground were asked, for whoever wants to know or to wait for it.
#include "ground/journal.h"

#include "ground/patience.h"

namespace selfcheck {

using kiv::session::LockGuard;

void Journal::add(Server server, Asked asked) {
  const LockGuard guard(lock_);
  entries_.emplace_back(server, std::move(asked));
  grown_.wakeAll();
}

std::vector<Asked> Journal::of(Server server) const {
  const LockGuard guard(lock_);
  return selected(server);
}

bool Journal::waitFor(Server server, std::size_t times) const {
  const Patience patience;
  const LockGuard guard(lock_);
  while (selected(server).size() < times) {
    if (!patience.left()) return false;
    grown_.wait(lock_, patience.left());
  }
  return true;
}

void Journal::clear() {
  const LockGuard guard(lock_);
  entries_.clear();
}

std::vector<Asked> Journal::selected(Server server) const {
  std::vector<Asked> selected;
  for (const auto& [asker, asked] : entries_) {
    if (asker == server) selected.push_back(asked);
  }
  return selected;
}

}  // namespace selfcheck
