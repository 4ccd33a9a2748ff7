// The system's slim locks, with their owners. They cannot fail and need no destruction.
#pragma once

#include <cstdint>

#include "support/platform.h"

namespace kiv::session {

class Lock {
 public:
  Lock() = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  friend class LockGuard;
  friend class SharedLockGuard;
  friend class Condition;

  SRWLOCK lock_ = SRWLOCK_INIT;
};

class LockGuard {
 public:
  explicit LockGuard(Lock& lock) noexcept : lock_(lock) { AcquireSRWLockExclusive(&lock_.lock_); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;
  ~LockGuard() { ReleaseSRWLockExclusive(&lock_.lock_); }

 private:
  Lock& lock_;
};

// Together with others of its kind, and with no LockGuard.
class SharedLockGuard {
 public:
  explicit SharedLockGuard(Lock& lock) noexcept : lock_(lock) { AcquireSRWLockShared(&lock_.lock_); }
  SharedLockGuard(const SharedLockGuard&) = delete;
  SharedLockGuard& operator=(const SharedLockGuard&) = delete;
  ~SharedLockGuard() { ReleaseSRWLockShared(&lock_.lock_); }

 private:
  Lock& lock_;
};

class Condition {
 public:
  // Waits with the lock given up, which a LockGuard holds. False if `milliseconds` passed first; may return early.
  bool wait(Lock& lock, std::uint32_t milliseconds) noexcept {
    return SleepConditionVariableSRW(&condition_, &lock.lock_, milliseconds, 0) != FALSE;
  }
  void wakeOne() noexcept { WakeConditionVariable(&condition_); }
  void wakeAll() noexcept { WakeAllConditionVariable(&condition_); }

 private:
  CONDITION_VARIABLE condition_ = CONDITION_VARIABLE_INIT;
};

}  // namespace kiv::session
