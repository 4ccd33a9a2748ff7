// What the session tells the application, on its way: the queue of events, and the callbacks.
//
// Callbacks run on the thread pool, one at a time, without a lock. Has a lock of its own, which is never held while
// anything else is called.
#pragma once

#include <atomic>
#include <cstdint>

#include "core/event.h"
#include "kiv/session.h"
#include "loop/lock.h"

namespace kiv::session {

template <class Function>
struct Callback {
  Function function = nullptr;
  void* context = nullptr;

  explicit operator bool() const noexcept { return function != nullptr; }
};

struct Callbacks {
  Callback<KivWakeFunction> wake;
  Callback<KivFilterFunction> filter;
  Callback<KivCredentialFunction> credentials;
  Callback<KivLogFunction> log;
  Callback<KivChangedFunction> changed;
};

class Outbox {
 public:
  static constexpr std::uint32_t kMostLogLines = 1'024;

  // `owner` has this as a member: it stays while a callback is to come. Throws SystemError.
  explicit Outbox(RefCounted& owner);
  Outbox(const Outbox&) = delete;
  Outbox& operator=(const Outbox&) = delete;
  ~Outbox();

  // Before the first event.
  void setCallbacks(const Callbacks& callbacks) noexcept;
  // Whether the application can hear a question: it has a callback for it, a wake function, or has called next().
  bool isHeard() const noexcept;
  bool hasFilter() const noexcept;

  // From any thread. Log lines beyond what may wait are lost, and counted.
  void send(Ref<Event> event) noexcept;
  void countLostLogLine() noexcept { lostLogLines_.fetch_add(1, std::memory_order_relaxed); }
  std::uint64_t lostLogLines() const noexcept { return lostLogLines_.load(std::memory_order_relaxed); }
  // Requests whose end was not told yet.
  std::atomic<std::uint32_t>& untold() noexcept { return untold_; }

  // Somebody reads events. True for the first time, if nobody could hear a question before.
  bool noteReader() noexcept;
  // As KivSession_Next, but inside a callback. Throws std::bad_alloc.
  KivStatus next(std::uint32_t timeout, Ref<Event>& event);
  // Whether the calling thread is inside one of this session's callbacks.
  bool isInCallback() const noexcept { return callbackThread_.load() == GetCurrentThreadId(); }

  // Ends all callbacks: waits for one that is running on another thread, then runs the `done` functions that are owed.
  void close() noexcept;
  // Drops what nobody has read.
  void clear() noexcept;

 private:
  static void CALLBACK onWork(PTP_CALLBACK_INSTANCE instance, PVOID self, PTP_WORK work);

  bool isForCallback(const EventContents& event) const noexcept;
  void schedule() noexcept;
  void runCallbacks() noexcept;
  void call(const Event& event) const noexcept;
  void callWake() const noexcept;
  Ref<Event> takeCallback() noexcept;
  void taken(const EventContents& event) noexcept;

  RefCounted& owner_;
  PTP_WORK work_ = nullptr;
  mutable Lock lock_;
  Condition arrived_;
  Condition idle_;
  Callbacks callbacks_;
  EventList events_;
  EventList forCallbacks_;
  std::uint32_t waitingLogLines_ = 0;
  bool changeWaits_ = false;  // one event tells of several
  bool wakeOwed_ = false;
  bool scheduled_ = false;
  bool running_ = false;
  bool closed_ = false;
  bool hasReader_ = false;
  std::atomic<DWORD> callbackThread_{0};
  std::atomic<std::uint32_t> untold_{0};
  std::atomic<std::uint64_t> lostLogLines_{0};
};

}  // namespace kiv::session
