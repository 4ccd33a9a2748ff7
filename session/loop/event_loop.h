// The session's work: small tasks that run one after the other on the system's thread pool, under one lock.
//
// All state of a session is guarded by that lock. The pool's callbacks (a request's notification, a socket's event, the
// timer) only post a task; the task then runs under the lock, as the session's user, and starts what comes next. It
// never blocks. What must block (PAC scripts, name resolution) is a Job, which has a thread of the pool to itself and
// no lock. A call of the application takes the lock, changes state, and posts.
//
// Nothing here calls the application.
#pragma once

#include <atomic>
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
  // On a thread of the pool, as the session's user, without the lock. Left out if that user cannot be impersonated.
  virtual void work() noexcept = 0;

 private:
  friend class EventLoop;

  EventLoop* loop_ = nullptr;  // while it works
};

// A point in time at which something happens in the loop. Everything under the loop's lock, but that one that is not
// set may be destroyed anywhere.
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
  // The caller owns the loop, or somebody who does waits for the caller.
  void post(Task& task) noexcept;
  // The same, and takes over a reference to the task: an object whose last owner is not in the loop ends there.
  void postAndRelease(Task& task) noexcept;
  // Gives the job a thread. False if the pool has none: then it does not run at all.
  [[nodiscard]] bool start(Job& job) noexcept;
  // Under the lock: from now on no deadline passes. Tasks still run, so that what was abandoned can end.
  void stop() noexcept;
  const Identity& identity() const noexcept { return identity_; }
  // In a task: false if the session's user cannot be impersonated. Whatever would touch the system then fails with
  // ERROR_BAD_IMPERSONATION_LEVEL.
  bool worksAsItsUser() const noexcept { return worksAsItsUser_; }

 private:
  friend class Deadline;

  struct CloseWork {
    void operator()(PTP_WORK work) const noexcept { CloseThreadpoolWork(work); }
  };
  // The three steps after which, by the documentation of CloseThreadpoolTimer, no callback can come.
  struct EndTimer {
    void operator()(PTP_TIMER timer) const noexcept {
      SetThreadpoolTimer(timer, nullptr, 0, 0);
      WaitForThreadpoolTimerCallbacks(timer, TRUE);
      CloseThreadpoolTimer(timer);
    }
  };
  using UniqueWork = support::Unique<PTP_WORK, CloseWork>;
  using UniqueTimer = support::Unique<PTP_TIMER, EndTimer>;

  explicit EventLoop(Identity identity);
  ~EventLoop() override;

  static void CALLBACK onWork(PTP_CALLBACK_INSTANCE instance, PVOID loop, PTP_WORK work);
  static void CALLBACK onTimer(PTP_CALLBACK_INSTANCE instance, PVOID loop, PTP_TIMER timer);
  static void CALLBACK onJob(PTP_CALLBACK_INSTANCE instance, PVOID job);

  // The mailbox.
  void wakeUp() noexcept;
  void submit(bool mustSubmit) noexcept;
  Ref<Task> take() noexcept;
  bool mustGoOn() noexcept;

  void drain() noexcept;
  bool runNext(bool asUser) noexcept;
  bool passEarliest() noexcept;

  // The deadlines: a heap whose first element is the earliest.
  void reservePlace();
  void add(Deadline& deadline) noexcept;
  void remove(Deadline& deadline) noexcept;
  void moveUp(std::size_t place) noexcept;
  void moveDown(std::size_t place) noexcept;
  void place(Deadline& deadline, std::size_t place) noexcept;
  Time earliest() const noexcept { return heap_.empty() ? kNever : heap_.front()->when_; }
  void armTimer() noexcept;

  Lock lock_;  // guards all but the mailbox
  Identity identity_;
  bool worksAsItsUser_ = true;
  bool runsTask_ = false;  // the timer is armed when the task has run
  bool stopped_ = false;
  std::vector<Deadline*> heap_;
  std::atomic<std::size_t> deadlines_{0};  // that exist, and have a place reserved
  Time armedFor_ = kNever;

  // A lock of its own, under which nothing is called: tasks are posted by callbacks that run inside a system call which
  // is made under the other lock.
  Lock mailboxLock_;
  Task* first_ = nullptr;
  Task* last_ = nullptr;
  bool submitted_ = false;  // a callback drains the mailbox, or is about to
  bool woken_ = false;      // it has something to do, even if no task is there
  bool timerFired_ = false;

  UniqueWork work_;
  UniqueTimer timer_;  // ends before the work object, which its callback submits
};

}  // namespace kiv::session
