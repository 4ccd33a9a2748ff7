// The session's work: small tasks that run one after the other on the system's thread pool, under one lock.
//
// All state of a session is guarded by that lock. The pool's callbacks (a request's notification, a socket's event, the
// timer) only post a task; the task then runs under the lock, as the session's user, and starts what comes next. It
// never blocks. What must block (PAC scripts, name resolution) is a Job, which has a thread of the pool to itself and
// no lock. A call of the application takes the lock, changes state, and posts.
//
// Nothing here calls the application.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "loop/identity.h"
#include "loop/lock.h"
#include "loop/ref.h"
#include "support/owners.h"

namespace kiv::session {

class EventLoop;

// Milliseconds of GetTickCount64, which "includes time the system spends in sleep or hibernation" and cannot be set.
using Time = std::uint64_t;
inline constexpr Time kNever = std::numeric_limits<Time>::max();

// Something that runs in the loop. Posting it again before it has begun to run changes nothing.
class Task : public RefCounted {
 protected:
  // Under the loop's lock, on a thread of the pool, as the session's user. Must not block.
  virtual void run() noexcept = 0;

 private:
  friend class EventLoop;

  Task* next_ = nullptr;
  bool posted_ = false;
};

// Something that blocks. When work() has returned, the job is posted as a task.
class Job : public Task {
 protected:
  // On a thread of the pool, as the session's user, without the lock.
  virtual void work() noexcept = 0;

 private:
  friend class EventLoop;
};

// A point in time at which something happens in the loop. Everything under the loop's lock.
class Deadline {
 public:
  // Throws std::bad_alloc; nothing else of it can fail.
  explicit Deadline(EventLoop& loop);
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  // Replaces the time set before. kNever clears it.
  void set(Time when) noexcept;
  void clear() noexcept;
  bool isSet() const noexcept { return when_ != kNever; }
  Time when() const noexcept { return when_; }

 protected:
  virtual ~Deadline();
  // Runs in the loop, once for each time set; cleared before.
  virtual void passed() noexcept = 0;

 private:
  friend class EventLoop;

  EventLoop& loop_;
  Time when_ = kNever;
  std::size_t place_ = 0;  // in the loop's heap
};

// A deadline that calls a member function of the object that it is a member of. The owner keeps itself alive meanwhile.
template <class Owner, void (Owner::*kPassed)() noexcept>
class DeadlineOf final : public Deadline {
 public:
  DeadlineOf(EventLoop& loop, Owner& owner) : Deadline(loop), owner_(owner) {}

 private:
  void passed() noexcept override { (owner_.*kPassed)(); }

  Owner& owner_;
};

class EventLoop final : public RefCounted {
 public:
  // Works as the user that the calling thread impersonates. Throws SystemError and std::bad_alloc.
  static Ref<EventLoop> create();

  Lock& lock() noexcept { return lock_; }
  static Time now() noexcept { return GetTickCount64(); }

  // From any thread, with or without the lock, also inside a callback of the system. Cannot fail.
  void post(Task& task) noexcept;
  // Gives the job a thread. False if the pool has none: then it does not run at all.
  [[nodiscard]] bool start(Job& job) noexcept;
  // Under the lock: from now on no deadline passes. Tasks still run, so that what was abandoned can end.
  void stop() noexcept;

 private:
  friend class Deadline;

  explicit EventLoop(Identity identity);
  ~EventLoop() override;

  static void CALLBACK onWork(PTP_CALLBACK_INSTANCE instance, PVOID loop, PTP_WORK work);
  static void CALLBACK onTimer(PTP_CALLBACK_INSTANCE instance, PVOID loop, PTP_TIMER timer);

  // The rest is the implementation's to design.
  Lock lock_;
  Identity identity_;
  std::vector<Deadline*> heap_;
};

}  // namespace kiv::session
