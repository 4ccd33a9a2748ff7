// The decisions that are remembered, by origin.
#include "routes/kept_decisions.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace kiv::session {

struct KeptDecisions::Entry {
  Entry(std::size_t hashOfOrigin, Ref<Decision> kept, Time fresh, Time end) noexcept
      : hash(hashOfOrigin), decision(std::move(kept)), freshUntil(fresh), keptUntil(end) {}

  const std::size_t hash;
  // Changed under both locks.
  Entry* next = nullptr;  // in its chain
  Ref<Decision> decision;
  Time freshUntil;
  Time keptUntil;
  // Under the lock of all.
  std::size_t place = 0;
  // Whether it was found since the hand last came by. By anybody.
  std::atomic<bool> used = false;
};

KeptDecisions::KeptDecisions(std::size_t capacity)
    : capacity_(capacity), chains_(std::bit_ceil(std::max(capacity, kParts))) {}

KeptDecisions::~KeptDecisions() = default;

KeptDecisions::Found KeptDecisions::find(const Origin& origin, Time now) noexcept {
  const SharedLockGuard reading(lockOf(origin.hash()));
  Entry* const entry = entryOf(origin);
  if (!entry || now >= entry->keptUntil) return {};
  // Written only if it changes, so that readers of one origin share its line.
  if (!entry->used.load(std::memory_order_relaxed)) entry->used.store(true, std::memory_order_relaxed);
  return {entry->decision, now < entry->freshUntil};
}

void KeptDecisions::keep(const Origin& origin, Ref<Decision> decision, Time freshUntil, Time keptUntil) {
  const LockGuard changing(changes_);
  if (Entry* const entry = entryOf(origin)) {
    const LockGuard writing(lockOf(origin.hash()));
    std::swap(entry->decision, decision);
    entry->freshUntil = freshUntil;
    entry->keptUntil = keptUntil;
    return;
  }
  auto entry = std::make_unique<Entry>(origin.hash(), std::move(decision), freshUntil, keptUntil);
  if (entries_.size() < capacity_) {
    entry->place = entries_.size();
    entries_.emplace_back();
  } else {
    entry->place = makeRoom();
  }
  link(*entry);
  entries_[entry->place] = std::move(entry);
}

void KeptDecisions::drop(const Origin& origin) noexcept {
  const LockGuard changing(changes_);
  if (const Entry* const entry = entryOf(origin)) remove(entry->place);
}

void KeptDecisions::dropAll() noexcept {
  dropIf([](const Decision&) { return true; });
}

void KeptDecisions::dropEach(bool (*isStale)(const Decision&, void*), void* predicate) noexcept {
  const LockGuard changing(changes_);
  for (std::size_t place = entries_.size(); place-- > 0;) {
    if (isStale(*entries_[place]->decision, predicate)) remove(place);
  }
}

std::size_t KeptDecisions::size() const noexcept {
  const LockGuard changing(changes_);
  return entries_.size();
}

// Under either lock: whoever changes a chain holds both.
KeptDecisions::Entry* KeptDecisions::entryOf(const Origin& origin) noexcept {
  Entry* entry = chainOf(origin.hash());
  while (entry && (entry->hash != origin.hash() || !entry->decision->isFor(origin))) entry = entry->next;
  return entry;
}

void KeptDecisions::link(Entry& entry) noexcept {
  const LockGuard writing(lockOf(entry.hash));
  entry.next = std::exchange(chainOf(entry.hash), &entry);
}

void KeptDecisions::unlink(Entry& entry) noexcept {
  const LockGuard writing(lockOf(entry.hash));
  Entry** link = &chainOf(entry.hash);
  while (*link != &entry) link = &(*link)->next;
  *link = entry.next;
}

// The last entry moves into the place that becomes free.
void KeptDecisions::remove(std::size_t place) noexcept {
  unlink(*entries_[place]);
  entries_.back()->place = place;
  std::swap(entries_[place], entries_.back());
  entries_.pop_back();
}

// Takes the next entry that was not found since the hand last came by out of its chain. Gives its place, which the hand
// then reaches last.
std::size_t KeptDecisions::makeRoom() noexcept {
  hand_ %= entries_.size();
  while (entries_[hand_]->used.exchange(false, std::memory_order_relaxed)) hand_ = (hand_ + 1) % entries_.size();
  unlink(*entries_[hand_]);
  return hand_++;
}

}  // namespace kiv::session
