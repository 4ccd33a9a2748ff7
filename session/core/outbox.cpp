// What the session tells the application, on its way: the queue of events, and the callbacks.
#include "core/outbox.h"

#include <algorithm>
#include <utility>

#include "core/filtering.h"
#include "loop/event_loop.h"
#include "loop/process.h"
#include "loop/system_error.h"
#include "support/border.h"
#include "support/foreign_exceptions.h"

namespace kiv::session {
namespace {

// Whatever the application's function throws ends here: it has no caller who could be told.
template <class Function, class... Arguments>
void callGuarded(Function function, Arguments... arguments) noexcept {
  support::guarded([&] { support::callApplication(function, arguments...); });
}

}  // namespace

Outbox::Outbox(RefCounted& owner) : owner_(owner), work_(CreateThreadpoolWork(onWork, this, nullptr)) {
  if (!work_) throwLastError();
}

Outbox::~Outbox() { CloseThreadpoolWork(work_); }

void Outbox::setCallbacks(const Callbacks& callbacks) noexcept {
  const LockGuard guard(lock_);
  callbacks_ = callbacks;
}

bool Outbox::isHeard() const noexcept {
  const LockGuard guard(lock_);
  return hasReader_ || callbacks_.wake || callbacks_.credentials;
}

bool Outbox::hasFilter() const noexcept {
  const LockGuard guard(lock_);
  return static_cast<bool>(callbacks_.filter);
}

bool Outbox::isForCallback(const EventContents& event) const noexcept {
  switch (event.kind) {
    case KIV_EVENT_COMPLETED:
      return event.done != nullptr;
    case KIV_EVENT_CHALLENGE:
    case KIV_EVENT_WITHDRAWN:
      return static_cast<bool>(callbacks_.credentials);
    case KIV_EVENT_CHANGED:
      return static_cast<bool>(callbacks_.changed);
    case KIV_EVENT_LOG:
      return static_cast<bool>(callbacks_.log);
    case kFilterEvent:
      return true;
    default:
      return false;
  }
}

void Outbox::send(Ref<Event> event) noexcept {
  const EventContents& contents = event->contents();
  // Declared first, so that an event that is dropped is destroyed without the lock.
  Ref<Event> dropped;
  const LockGuard guard(lock_);
  if (closed_ && contents.kind != KIV_EVENT_COMPLETED) {
    dropped = std::move(event);
    return;
  }
  if (contents.kind == KIV_EVENT_LOG && waitingLogLines_ >= kMostLogLines) {
    countLostLogLine();
    dropped = std::move(event);
    return;
  }
  if (contents.kind == KIV_EVENT_LOG) ++waitingLogLines_;
  if (contents.kind == KIV_EVENT_CHANGED && std::exchange(changeWaits_, true)) {
    dropped = std::move(event);
    return;
  }
  if (isForCallback(contents)) {
    forCallbacks_.append(std::move(event));
    schedule();
    return;
  }
  if (events_.empty() && callbacks_.wake && !closed_) {
    wakeOwed_ = true;
    schedule();
  }
  events_.append(std::move(event));
  arrived_.wakeOne();
}

// A submission cannot fail, and gives exactly one callback, which has a reference to the owner.
void Outbox::schedule() noexcept {
  if (scheduled_ || closed_) return;
  scheduled_ = true;
  owner_.retain();
  SubmitThreadpoolWork(work_);
}

void CALLBACK Outbox::onWork(PTP_CALLBACK_INSTANCE instance, PVOID self, PTP_WORK /*work*/) {
  auto* const outbox = static_cast<Outbox*>(self);
  // The application may take its time. If the pool has no other thread for its other work, it has to wait.
  CallbackMayRunLong(instance);
  outbox->runCallbacks();
  outbox->owner_.release();
}

void Outbox::runCallbacks() noexcept {
  {
    const LockGuard guard(lock_);
    if (closed_) return;
    running_ = true;
    callbackThread_ = GetCurrentThreadId();
  }
  for (;;) {
    bool wakes = false;
    Ref<Event> event;
    {
      const LockGuard guard(lock_);
      wakes = std::exchange(wakeOwed_, false) && !closed_;
      if (!wakes) event = takeCallback();
      if (!wakes && !event) {
        running_ = false;
        scheduled_ = false;
        callbackThread_ = 0;
        idle_.wakeAll();
        return;
      }
    }
    if (wakes) {
      callWake();
    } else {
      call(*event);
    }
  }
}

// It does not wait any more.
void Outbox::taken(const EventContents& event) noexcept {
  if (event.kind == KIV_EVENT_COMPLETED) untold_.fetch_sub(1, std::memory_order_relaxed);
  if (event.kind == KIV_EVENT_LOG) --waitingLogLines_;
  if (event.kind == KIV_EVENT_CHANGED) changeWaits_ = false;
}

Ref<Event> Outbox::takeCallback() noexcept {
  Ref<Event> event = forCallbacks_.takeFirst();
  if (event) taken(event->contents());
  return event;
}

void Outbox::callWake() const noexcept { callGuarded(callbacks_.wake.function, callbacks_.wake.context); }

void Outbox::call(const Event& event) const noexcept {
  const EventContents& contents = event.contents();
  switch (contents.kind) {
    case KIV_EVENT_COMPLETED:
      callGuarded(contents.done, contents.tag, contents.status,
                  support::toHandle<KivDecision>(Ref<Decision>(contents.decision).detach()));
      break;
    case KIV_EVENT_CHALLENGE:
    case KIV_EVENT_WITHDRAWN:
      callGuarded(callbacks_.credentials.function, callbacks_.credentials.context,
                  support::toHandle<KivChallenge>(ChallengeHandle(contents.challenge).detach()));
      break;
    case KIV_EVENT_CHANGED:
      callGuarded(callbacks_.changed.function, callbacks_.changed.context);
      break;
    case KIV_EVENT_LOG:
      callGuarded(callbacks_.log.function, callbacks_.log.context, contents.status, contents.text.c_str());
      break;
    case kFilterEvent:
      contents.filtering->ask(callbacks_.filter.function, callbacks_.filter.context);
      break;
    default:
      break;
  }
}

bool Outbox::noteReader() noexcept {
  const LockGuard guard(lock_);
  const bool wasHeard = hasReader_ || callbacks_.wake || callbacks_.credentials;
  hasReader_ = true;
  return !wasHeard;
}

KivStatus Outbox::next(std::uint32_t timeout, Ref<Event>& event) {
  // Made beforehand, since nothing may fail once an event was taken.
  Ref<Event> closed = makeRef<Event>(EventContents{.kind = KIV_EVENT_CLOSED});
  const Time begun = EventLoop::now();
  const LockGuard guard(lock_);
  while (events_.empty()) {
    if (closed_) {
      event = std::move(closed);
      return KIV_STATUS_CLOSED;
    }
    const Time passed = EventLoop::now() - begun;
    if (timeout != KIV_NO_TIME_OUT && passed >= timeout) return KIV_STATUS_NOT_YET;
    arrived_.wait(lock_, timeout == KIV_NO_TIME_OUT ? INFINITE : static_cast<std::uint32_t>(timeout - passed));
  }
  event = events_.takeFirst();
  taken(event->contents());
  return KIV_STATUS_OK;
}

void Outbox::close() noexcept {
  const bool nested = isInCallback();
  EventList dropped;
  EventList owed;
  {
    const LockGuard guard(lock_);
    closed_ = true;
    while (Ref<Event> event = takeCallback()) {
      (event->contents().kind == KIV_EVENT_COMPLETED ? owed : dropped).append(std::move(event));
    }
    arrived_.wakeAll();
    while (running_ && !nested && !processEnds()) idle_.wait(lock_, INFINITE);
    // Another thread that closes the session waits for what follows, too.
    running_ = true;
    callbackThread_ = GetCurrentThreadId();
  }
  while (const Ref<Event> event = owed.takeFirst()) call(*event);
  if (nested) return;
  const LockGuard guard(lock_);
  running_ = false;
  callbackThread_ = 0;
  idle_.wakeAll();
}

void Outbox::clear() noexcept {
  EventList dropped;
  const LockGuard guard(lock_);
  while (Ref<Event> event = events_.takeFirst()) dropped.append(std::move(event));
}

}  // namespace kiv::session
