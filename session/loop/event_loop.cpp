// The session's work: small tasks that run one after the other on the system's thread pool, under one lock.
#include "loop/event_loop.h"

#include <algorithm>
#include <utility>

#include "loop/system_error.h"
#include "support/module.h"

namespace kiv::session {
namespace {

// A later deadline gets its turn when the timer is armed again.
constexpr Time kLongestWait = 86'400'000;  // a day

// Relative times are negative, in units of 100 ns.
FILETIME fromNow(Time milliseconds) noexcept {
  const auto due = static_cast<std::uint64_t>(-static_cast<std::int64_t>(milliseconds * 10'000));
  return {static_cast<DWORD>(due), static_cast<DWORD>(due >> 32)};
}

}  // namespace

Deadline::Deadline(EventLoop& loop) : loop_(loop) { loop_.reservePlace(); }

Deadline::~Deadline() {
  if (isSet()) clear();
  --loop_.deadlines_;
}

void Deadline::set(Time when) noexcept {
  if (isSet()) loop_.remove(*this);
  when_ = loop_.stopped_ ? kNever : when;
  if (isSet()) loop_.add(*this);
  if (!loop_.runsTask_) loop_.armTimer();
}

void Deadline::clear() noexcept { set(kNever); }

Ref<EventLoop> EventLoop::create() {
  // The pool's callbacks, and calls of the system that were abandoned, can outlive every session.
  support::keepLoaded();
  Ref<EventLoop> loop = Ref<EventLoop>::adopt(new EventLoop(Identity::ofThisThread()));
  loop->work_ = UniqueWork(CreateThreadpoolWork(onWork, loop.get(), nullptr));
  if (!loop->work_) throwLastError();
  loop->timer_ = UniqueTimer(CreateThreadpoolTimer(onTimer, loop.get(), nullptr));
  if (!loop->timer_) throwLastError();
  return loop;
}

EventLoop::EventLoop(Identity identity) : identity_(std::move(identity)) {}

EventLoop::~EventLoop() = default;

void EventLoop::post(Task& task) noexcept {
  task.retain();
  postAndRelease(task);
}

void EventLoop::postAndRelease(Task& task) noexcept {
  bool mustSubmit = false;
  {
    const LockGuard guard(mailboxLock_);
    if (task.posted_) {
      task.release();  // not for the last time: the mailbox owns it too
      return;
    }
    task.posted_ = true;
    task.next_ = nullptr;
    (last_ ? last_->next_ : first_) = &task;
    last_ = &task;
    mustSubmit = !std::exchange(submitted_, true);
  }
  submit(mustSubmit);
}

void EventLoop::wakeUp() noexcept {
  bool mustSubmit = false;
  {
    const LockGuard guard(mailboxLock_);
    woken_ = true;
    mustSubmit = !std::exchange(submitted_, true);
  }
  submit(mustSubmit);
}

// The callback owns the loop.
void EventLoop::submit(bool mustSubmit) noexcept {
  if (!mustSubmit) return;
  retain();
  SubmitThreadpoolWork(work_.get());
}

Ref<Task> EventLoop::take() noexcept {
  const LockGuard guard(mailboxLock_);
  Task* const task = first_;
  if (!task) return {};
  first_ = task->next_;
  if (!first_) last_ = nullptr;
  task->posted_ = false;
  return Ref<Task>::adopt(task);
}

bool EventLoop::mustGoOn() noexcept {
  const LockGuard guard(mailboxLock_);
  if (std::exchange(woken_, false) || first_) return true;
  submitted_ = false;
  return false;
}

void CALLBACK EventLoop::onWork(PTP_CALLBACK_INSTANCE /*instance*/, PVOID loop, PTP_WORK /*work*/) {
  const auto self = Ref<EventLoop>::adopt(static_cast<EventLoop*>(loop));
  self->drain();
}

void EventLoop::drain() noexcept {
  const Identity::Scope user(identity_);
  do {
    while (runNext(user.succeeded())) {
    }
  } while (mustGoOn());
}

// The lock is given up after each task, so that a caller who waits for it gets in. A task that is released here for the
// last time goes under the lock, as the deadlines in it must.
bool EventLoop::runNext(bool asUser) noexcept {
  UniqueTimer ended;  // after the lock was given up
  const LockGuard guard(lock_);
  worksAsItsUser_ = asUser;
  runsTask_ = true;
  bool ran = passEarliest();
  if (const Ref<Task> task = take()) {
    task->run();
    ran = true;
  }
  runsTask_ = false;
  worksAsItsUser_ = true;
  armTimer();
  if (stopped_) ended.swap(timer_);
  return ran;
}

bool EventLoop::passEarliest() noexcept {
  if (heap_.empty() || earliest() > now()) return false;
  Deadline& deadline = *heap_.front();
  deadline.clear();
  deadline.passed();
  return true;
}

bool EventLoop::start(Job& job) noexcept {
  retain();
  job.retain();
  job.loop_ = this;
  if (TrySubmitThreadpoolCallback(onJob, &job, nullptr)) return true;
  job.release();
  release();
  return false;
}

void CALLBACK EventLoop::onJob(PTP_CALLBACK_INSTANCE instance, PVOID job) {
  CallbackMayRunLong(instance);
  Job& self = *static_cast<Job*>(job);
  const auto loop = Ref<EventLoop>::adopt(self.loop_);
  if (const Identity::Scope user(loop->identity_); user.succeeded()) self.work();
  loop->postAndRelease(self);
}

void EventLoop::stop() noexcept {
  stopped_ = true;
  for (Deadline* const deadline : heap_) deadline->when_ = kNever;
  heap_.clear();
  wakeUp();
}

void EventLoop::reservePlace() {
  if (deadlines_ >= heap_.capacity()) heap_.reserve(std::max<std::size_t>(16, 2 * deadlines_));
  ++deadlines_;
}

void EventLoop::add(Deadline& deadline) noexcept {
  heap_.push_back(&deadline);
  moveUp(heap_.size() - 1);
}

void EventLoop::remove(Deadline& deadline) noexcept {
  const std::size_t gap = deadline.place_;
  Deadline* const last = heap_.back();
  heap_.pop_back();
  if (last == &deadline) return;
  place(*last, gap);
  moveUp(gap);
  moveDown(last->place_);
}

void EventLoop::place(Deadline& deadline, std::size_t place) noexcept {
  heap_[place] = &deadline;
  deadline.place_ = place;
}

void EventLoop::moveUp(std::size_t place) noexcept {
  Deadline& deadline = *heap_[place];
  while (place > 0) {
    const std::size_t parent = (place - 1) / 2;
    if (heap_[parent]->when_ <= deadline.when_) break;
    this->place(*heap_[parent], place);
    place = parent;
  }
  this->place(deadline, place);
}

void EventLoop::moveDown(std::size_t place) noexcept {
  Deadline& deadline = *heap_[place];
  for (std::size_t child = 2 * place + 1; child < heap_.size(); child = 2 * place + 1) {
    if (child + 1 < heap_.size() && heap_[child + 1]->when_ < heap_[child]->when_) ++child;
    if (deadline.when_ <= heap_[child]->when_) break;
    this->place(*heap_[child], place);
    place = child;
  }
  this->place(deadline, place);
}

// For the earliest deadline, unless it is armed for that already. Without a deadline there is no timer.
void EventLoop::armTimer() noexcept {
  if (!timer_ || stopped_) return;
  {
    const LockGuard guard(mailboxLock_);
    if (std::exchange(timerFired_, false)) armedFor_ = kNever;
  }
  const Time when = earliest();
  if (when == armedFor_) return;
  armedFor_ = when;
  if (when == kNever) {
    SetThreadpoolTimer(timer_.get(), nullptr, 0, 0);
    return;
  }
  const Time current = now();
  FILETIME due = fromNow(std::min(when > current ? when - current : 0, kLongestWait));
  SetThreadpoolTimer(timer_.get(), &due, 0, 0);
}

void CALLBACK EventLoop::onTimer(PTP_CALLBACK_INSTANCE /*instance*/, PVOID loop, PTP_TIMER /*timer*/) {
  auto& self = *static_cast<EventLoop*>(loop);
  {
    const LockGuard guard(self.mailboxLock_);
    self.timerFired_ = true;
  }
  self.wakeUp();
}

}  // namespace kiv::session
