// Slim locks and condition variables. They are not recorded: there are too many of these calls.
#include <algorithm>
#include <atomic>
#include <list>
#include <shared_mutex>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

// What the system's object points to. In deterministic virtual time `holders` decides, otherwise the real lock, which
// ThreadSanitizer knows; one lock synchronises nobody but its holders.
struct Lock {
  std::shared_mutex real;
  int holders = 0;  // -1: exclusively
};

struct Waiter {
  bool woken = false;
};

struct Condition {
  std::condition_variable_any real;
  std::list<Waiter*> waiters;
};

struct Held {
  Lock* lock = nullptr;
  bool exclusive = false;
};

thread_local std::vector<Held> held;

// Windows has no function that destroys these objects, so what belongs to them stays to the end of the process.
template <class Object>
void keep(std::unique_ptr<Object> object) {
  static auto* const mutex = new std::mutex;
  static auto* const all = new std::list<std::unique_ptr<Object>>;
  const std::lock_guard lock(*mutex);
  all->push_back(std::move(object));
}

template <class Object>
Object& objectOf(PVOID& pointer) {
  const std::atomic_ref<PVOID> slot(pointer);
  PVOID known = slot.load();
  if (known) return *static_cast<Object*>(known);
  auto fresh = std::make_unique<Object>();
  Object& object = *fresh;
  if (!slot.compare_exchange_strong(known, &object)) return *static_cast<Object*>(known);
  keep(std::move(fresh));
  return object;
}

VirtualTime* deterministicTime() {
  const SimulatedWindows* windows = activeWindows();
  VirtualTime* time = windows ? windows->state().time.load() : nullptr;
  return time && time->isDeterministic() ? time : nullptr;
}

void complain(const std::string& complaint) {
  const SimulatedWindows* windows = activeWindows();
  if (!windows) return;
  const std::lock_guard lock(windows->state().mutex);
  windows->state().complaints.push_back(complaint);
}

void acquire(Lock& lock, bool exclusive) {
  if (VirtualTime* time = deterministicTime()) {
    std::unique_lock guard(activeWindows()->state().mutex);
    const auto isFree = [&] { return exclusive ? lock.holders == 0 : lock.holders >= 0; };
    time->wait(guard, "an SRW lock", isFree, std::nullopt, VirtualTime::Abandon::Never);
    lock.holders = exclusive ? -1 : lock.holders + 1;
  } else if (exclusive) {
    lock.real.lock();
  } else {
    lock.real.lock_shared();
  }
  held.push_back({&lock, exclusive});
}

// Strikes the lock off what the thread holds.
bool forget(const Lock& lock, bool exclusive) {
  const auto isIt = [&](const Held& one) { return one.lock == &lock && one.exclusive == exclusive; };
  const auto found = std::ranges::find_if(held, isIt);
  if (found == held.end()) return false;
  held.erase(found);
  return true;
}

void release(Lock& lock, bool exclusive) {
  if (!forget(lock, exclusive)) return complain("an SRW lock was released by a thread that does not hold it");
  if (deterministicTime()) {
    State& state = activeWindows()->state();
    const std::lock_guard guard(state.mutex);
    lock.holders = exclusive ? 0 : lock.holders - 1;
    state.wake();
  } else if (exclusive) {
    lock.real.unlock();
  } else {
    lock.real.unlock_shared();
  }
}

std::optional<std::chrono::milliseconds> limitOf(DWORD milliseconds) {
  if (milliseconds == INFINITE) return std::nullopt;
  return std::chrono::milliseconds(milliseconds);
}

bool sleepInTurn(VirtualTime& time, Condition& condition, Lock& lock, bool exclusive, DWORD milliseconds) {
  State& state = activeWindows()->state();
  Waiter waiter;
  {
    const std::lock_guard guard(state.mutex);
    condition.waiters.push_back(&waiter);
  }
  release(lock, exclusive);
  std::unique_lock guard(state.mutex);
  const auto isWoken = [&] { return waiter.woken; };
  const Waited outcome = time.wait(guard, "a condition variable", isWoken, limitOf(milliseconds));
  condition.waiters.remove(&waiter);
  guard.unlock();
  acquire(lock, exclusive);
  return outcome == Waited::Met;
}

// In free mode time-outs are in microseconds too.
bool sleepAtOnce(Condition& condition, Lock& lock, bool exclusive, DWORD milliseconds) {
  const bool isFree = activeWindows() && activeWindows()->state().time.load();
  const auto limit = isFree ? std::chrono::microseconds(milliseconds) : std::chrono::milliseconds(milliseconds);
  const auto until = std::chrono::system_clock::now() + (milliseconds == INFINITE ? std::chrono::hours(1) : limit);
  const auto sleep = [&](auto guard) {
    const bool woken = condition.real.wait_until(guard, until) == std::cv_status::no_timeout;
    guard.release();
    return woken;
  };
  if (exclusive) return sleep(std::unique_lock(lock.real, std::adopt_lock));
  return sleep(std::shared_lock(lock.real, std::adopt_lock));
}

void wakeUp(PCONDITION_VARIABLE variable, bool all) {
  const MemoryWatch::Pause pause;
  auto& condition = objectOf<Condition>(variable->Ptr);
  if (!deterministicTime()) return all ? condition.real.notify_all() : condition.real.notify_one();
  State& state = activeWindows()->state();
  const std::lock_guard guard(state.mutex);
  while (!condition.waiters.empty()) {
    condition.waiters.front()->woken = true;
    condition.waiters.pop_front();
    if (!all) break;
  }
  state.wake();
}

void acquire(PSRWLOCK lock, bool exclusive) {
  const MemoryWatch::Pause pause;
  acquire(objectOf<Lock>(lock->Ptr), exclusive);
}

void release(PSRWLOCK lock, bool exclusive) {
  const MemoryWatch::Pause pause;
  release(objectOf<Lock>(lock->Ptr), exclusive);
}

}  // namespace

std::size_t locksHeld() { return held.size(); }

}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

void WINAPI AcquireSRWLockExclusive(PSRWLOCK lock) { acquire(lock, true); }

void WINAPI AcquireSRWLockShared(PSRWLOCK lock) { acquire(lock, false); }

void WINAPI ReleaseSRWLockExclusive(PSRWLOCK lock) { release(lock, true); }

void WINAPI ReleaseSRWLockShared(PSRWLOCK lock) { release(lock, false); }

BOOL WINAPI SleepConditionVariableSRW(PCONDITION_VARIABLE variable, PSRWLOCK srw, DWORD milliseconds, ULONG flags) {
  const MemoryWatch::Pause pause;
  auto& condition = objectOf<Condition>(variable->Ptr);
  auto& lock = objectOf<Lock>(srw->Ptr);
  const bool exclusive = (flags & CONDITION_VARIABLE_LOCKMODE_SHARED) == 0;
  const auto isIt = [&](const Held& one) { return one.lock == &lock && one.exclusive == exclusive; };
  bool woken = false;
  if (std::ranges::none_of(held, isIt)) {
    complain("a condition variable was waited for without its SRW lock");
  } else if (VirtualTime* time = deterministicTime()) {
    woken = sleepInTurn(*time, condition, lock, exclusive, milliseconds);
  } else {
    woken = sleepAtOnce(condition, lock, exclusive, milliseconds);
  }
  lastError() = woken ? kClobbered : DWORD{ERROR_TIMEOUT};
  return woken ? TRUE : FALSE;
}

void WINAPI WakeConditionVariable(PCONDITION_VARIABLE variable) { wakeUp(variable, false); }

void WINAPI WakeAllConditionVariable(PCONDITION_VARIABLE variable) { wakeUp(variable, true); }
