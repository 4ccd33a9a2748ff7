// Time and threads of the simulated Windows: who holds the baton, and what is due when.
#include "platform/virtual_time.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

// A test that waits while something happens again and again is not to turn the clock for ever.
constexpr std::chrono::hours kHorizon{48};

constexpr std::chrono::hours kLongest{24 * 365 * 100};

// Waits that fail may be tried again by whoever waits; no test gets beyond this number.
constexpr std::size_t kMostDeadlocks = 1000;

// In free mode a wait without an end that takes this long is in vain.
constexpr std::chrono::seconds kInVain{30};

// In free mode callbacks that take longer are not waited for.
constexpr std::chrono::seconds kQuietWithin{1};

[[noreturn]] void giveUp(const std::string& reason) {
  std::fprintf(stderr, "%s\n", reason.c_str());
  std::abort();
}

}  // namespace

struct VirtualTime::Participant {
  std::string name;
  std::thread thread;
  std::condition_variable resumed;
  std::function<void()> job;
  bool isWorker = false;
  bool finished = false;

  // While it waits:
  const std::function<bool()>* condition = nullptr;
  std::string subject;
  std::size_t waits = 0;  // counts them, so that a time-out does not end a later one
  bool timedOut = false;
  bool abandoned = false;
  bool canBeAbandoned = false;
};

namespace {

thread_local VirtualTime::Participant* current = nullptr;

}  // namespace

VirtualTime::VirtualTime(SimulatedWindows& windows, Mode mode, Milliseconds start)
    : windows_(windows), mode_(mode), now_(start) {
  const MemoryWatch::Pause pause;
  test_ = running_ = &addThread("the test");
  outer_ = std::exchange(current, test_);
  test_->finished = true;
  if (!isDeterministic()) timekeeper_ = std::thread([this] { keepTime(); });
  windows_.state().time = this;
}

VirtualTime::~VirtualTime() {
  const MemoryWatch::Pause pause;
  finish();
  for (Participant& participant : participants_) {
    if (participant.thread.joinable()) participant.thread.join();
  }
  if (timekeeper_.joinable()) timekeeper_.join();
  windows_.state().time = nullptr;
  current = outer_;
}

// Lets everything run to its end, then the threads themselves.
void VirtualTime::finish() {
  State& state = windows_.state();
  {
    const std::lock_guard lock(timerMutex_);
    timersStopped_ = true;
  }
  timerAdded_.notify_all();
  Lock lock(state.mutex);
  ending_ = true;
  state.letGoOfRequests();
  if (isDeterministic()) {
    for (Participant* participant : std::deque<Participant*>(waiting_)) {
      if (participant->canBeAbandoned) makeReady(*participant);
    }
    advancingTo_ = now_.load();
    handOver(lock, *test_);
    if (!waiting_.empty()) giveUp(describeWaits());
  } else {
    state.changed.notify_all();
    const auto isDone = [&](const Participant& participant) { return participant.isWorker || participant.finished; };
    state.changed.wait(
        lock, [&] { return ready_.empty() && idleWorkers_ == workers_ && std::ranges::all_of(participants_, isDone); });
  }
  stopping_ = true;
  state.changed.notify_all();
  for (Participant& participant : participants_) participant.resumed.notify_all();
}

VirtualTime::Milliseconds VirtualTime::now() const {
  if (isDeterministic()) return now_;
  const auto passed = std::chrono::system_clock::now() - began_;
  return now_.load() + Milliseconds(std::chrono::duration_cast<std::chrono::microseconds>(passed).count());
}

void VirtualTime::advance(Milliseconds duration) {
  const MemoryWatch::Pause pause;
  State& state = windows_.state();
  Lock lock(state.mutex);
  if (!isDeterministic()) {
    wait(
        lock, "time to pass", [] { return false; }, duration);
    state.changed.wait_until(lock, std::chrono::system_clock::now() + kQuietWithin,
                             [&] { return ready_.empty() && idleWorkers_ == workers_; });
    return;
  }
  if (&self() != test_) giveUp("only the test's own thread can advance the time");
  advancingTo_ = now_.load() + duration;
  handOver(lock, *test_);
}

VirtualTime::Thread VirtualTime::startThread(std::function<void()> body) {
  const MemoryWatch::Pause pause;
  const Lock lock(windows_.state().mutex);
  Participant& participant = addThread("thread " + std::to_string(++threads_));
  participant.job = std::move(body);
  if (isDeterministic()) ready_.push_back({&participant, nullptr});
  participant.thread = std::thread([this, &participant] { runParticipant(participant); });
  return {*this, participant};
}

void VirtualTime::Thread::join() {
  const MemoryWatch::Pause pause;
  Lock lock(time_->windows_.state().mutex);
  time_->wait(
      lock, "the end of " + participant_->name, [&] { return participant_->finished; }, std::nullopt, Abandon::Never);
}

VirtualTime::Participant& VirtualTime::self() {
  if (!current) giveUp("a thread that the virtual time does not know called a simulated function that can block");
  return *current;
}

VirtualTime::Participant& VirtualTime::addThread(std::string name) {
  Participant& participant = participants_.emplace_back();
  participant.name = std::move(name);
  return participant;
}

Waited VirtualTime::wait(Lock& lock, const std::string& subject, const std::function<bool()>& condition,
                         std::optional<Milliseconds> limit, Abandon abandon) {
  const MemoryWatch::Pause pause;
  if (condition()) return Waited::Met;
  if (limit && limit->count() == 0) return Waited::TimedOut;
  if (!isDeterministic()) return waitFreely(lock, subject, condition, limit, abandon);
  const bool canBeAbandoned = abandon == Abandon::AtTheEnd;
  if (canBeAbandoned && ending_) {
    if (++deadlocks_ > kMostDeadlocks) giveUp("after the end of its time a thread still waits for " + subject);
    return Waited::InVain;
  }
  Participant& participant = self();
  participant.timedOut = participant.abandoned = false;
  participant.canBeAbandoned = canBeAbandoned;
  participant.subject = subject;
  const std::size_t serial = ++participant.waits;
  if (limit) {
    at(*limit, [this, &participant, serial] {
      if (participant.waits != serial || participant.timedOut) return;
      participant.timedOut = true;
      if (participant.condition) makeReady(participant);
    });
  }
  Waited outcome = Waited::Met;
  for (;;) {
    participant.condition = &condition;
    waiting_.push_back(&participant);
    handOver(lock, participant);
    if (condition()) break;
    outcome = participant.timedOut ? Waited::TimedOut : Waited::InVain;
    if (participant.timedOut || participant.abandoned || (canBeAbandoned && ending_)) break;
    outcome = Waited::Met;
  }
  ++participant.waits;
  return outcome;
}

Waited VirtualTime::waitFreely(Lock& lock, const std::string& subject, const std::function<bool()>& condition,
                               std::optional<Milliseconds> limit, Abandon abandon) {
  State& state = windows_.state();
  const bool canBeAbandoned = abandon == Abandon::AtTheEnd;
  // The system's clock, because ThreadSanitizer does not see through waits on the steady one.
  const auto until = std::chrono::system_clock::now() +
                     (limit ? std::chrono::microseconds(limit->count()) : std::chrono::microseconds(kInVain));
  state.changed.wait_until(lock, until, [&] { return condition() || (canBeAbandoned && ending_); });
  if (condition()) return Waited::Met;
  if (limit && !(canBeAbandoned && ending_)) return Waited::TimedOut;
  if (!ending_) state.complaints.push_back("a thread waited for " + subject + " in vain");
  if (!canBeAbandoned) giveUp("a thread waits for ever for " + subject);
  return Waited::InVain;
}

void VirtualTime::changed() {
  for (Participant* participant : std::deque<Participant*>(waiting_)) {
    if ((*participant->condition)()) makeReady(*participant);
  }
}

void VirtualTime::makeReady(Participant& participant) {
  std::erase(waiting_, &participant);
  participant.condition = nullptr;
  ready_.push_back({&participant, nullptr});
}

void VirtualTime::submit(std::function<void()> job) {
  const MemoryWatch::Pause pause;
  ready_.push_back({nullptr, std::move(job)});
  if (isDeterministic()) return;
  if (idleWorkers_ < ready_.size()) startFreeWorker();
  windows_.state().changed.notify_all();
}

void VirtualTime::at(Milliseconds delay, std::function<void()> action) {
  const MemoryWatch::Pause pause;
  delay = std::min<Milliseconds>(delay, kLongest);
  const auto real = std::chrono::system_clock::now() + std::chrono::microseconds(delay.count());
  {
    const std::lock_guard lock(timerMutex_);
    if (timersStopped_) return;
    const Milliseconds due = now() + delay;
    timers_.insert({due, {due, real, std::move(action)}});
  }
  timerAdded_.notify_all();
}

std::optional<VirtualTime::Milliseconds> VirtualTime::nextDue() {
  const std::lock_guard lock(timerMutex_);
  if (timersStopped_ || timers_.empty()) return std::nullopt;
  return timers_.begin()->first;
}

// Turns the clock to the next thing that is due, and does it.
void VirtualTime::runTimer() {
  Timer timer;
  {
    const std::lock_guard lock(timerMutex_);
    timer = std::move(timers_.begin()->second);
    timers_.erase(timers_.begin());
  }
  now_ = std::max(now_.load(), timer.due);
  timer.action();
}

void VirtualTime::handOver(Lock& lock, Participant& participant) {
  if (&participant == test_) horizon_ = now_.load() + kHorizon;
  passOn();
  participant.resumed.wait(lock, [&] { return running_ == &participant; });
}

void VirtualTime::passOn() {
  running_ = nullptr;
  while (ready_.empty()) {
    const auto due = nextDue();
    if (advancingTo_ && (!due || *due > *advancingTo_)) {
      now_ = *advancingTo_;
      advancingTo_.reset();
      ready_.push_back({test_, nullptr});
    } else if (!due || (!advancingTo_ && *due > horizon_)) {
      reportDeadlock();
    } else {
      runTimer();
    }
  }
  Runnable next = std::move(ready_.front());
  ready_.pop_front();
  if (!next.participant && idle_.empty()) {
    Participant& worker = addThread("worker " + std::to_string(++workers_));
    worker.isWorker = true;
    worker.thread = std::thread([this, &worker] { runParticipant(worker); });
    idle_.push_back(&worker);
  }
  if (!next.participant) {
    next.participant = idle_.back();
    next.participant->job = std::move(next.job);
    idle_.pop_back();
  }
  running_ = next.participant;
  running_->resumed.notify_all();
}

std::string VirtualTime::describeWaits() const {
  std::string report = "nothing can run any more:";
  for (const Participant* participant : waiting_) {
    report.append(participant == waiting_.front() ? " " : ", ").append(participant->name);
    report.append(" waits for ").append(participant->subject);
  }
  return report;
}

// Makes those waits fail that can.
void VirtualTime::reportDeadlock() {
  const std::string report = describeWaits();
  windows_.state().complaints.push_back(report);
  if (++deadlocks_ > kMostDeadlocks) giveUp(report);
  std::vector<Participant*> abandoned;
  std::ranges::copy_if(waiting_, std::back_inserter(abandoned), &Participant::canBeAbandoned);
  if (abandoned.empty()) giveUp(report);
  // The others may go on once the test does.
  if (std::ranges::find(abandoned, test_) != abandoned.end()) abandoned = {test_};
  for (Participant* participant : abandoned) {
    participant->abandoned = true;
    makeReady(*participant);
  }
}

void VirtualTime::runParticipant(Participant& participant) {
  const MemoryWatch::Pause pause;
  current = &participant;
  Lock lock(windows_.state().mutex);
  const auto isOn = [&] { return !isDeterministic() || running_ == &participant; };
  participant.resumed.wait(lock, isOn);
  do {
    const auto job = std::exchange(participant.job, nullptr);
    lock.unlock();
    if (participant.isWorker) {
      job();
    } else {
      const MemoryWatch::Resume resume;
      job();
    }
    lock.lock();
    if (participant.isWorker) {
      idle_.push_back(&participant);
    } else {
      participant.finished = true;
    }
    if (!isDeterministic()) return windows_.state().changed.notify_all();
    changed();
    passOn();
    if (!participant.isWorker) return;
    participant.resumed.wait(lock, [&] { return running_ == &participant || stopping_; });
  } while (running_ == &participant);
}

void VirtualTime::startFreeWorker() {
  Participant& worker = addThread("worker " + std::to_string(++workers_));
  worker.isWorker = true;
  ++idleWorkers_;
  worker.thread = std::thread([this, &worker] {
    const MemoryWatch::Pause pause;
    current = &worker;
    runFreely();
  });
}

void VirtualTime::runFreely() {
  State& state = windows_.state();
  Lock lock(state.mutex);
  for (;;) {
    state.changed.wait(lock, [&] { return stopping_ || !ready_.empty(); });
    if (ready_.empty()) return;
    const auto job = std::move(ready_.front().job);
    ready_.pop_front();
    --idleWorkers_;
    lock.unlock();
    job();
    lock.lock();
    ++idleWorkers_;
    state.changed.notify_all();
  }
}

// In free mode: the thread that does what is due.
void VirtualTime::keepTime() {
  const MemoryWatch::Pause pause;
  Lock lock(timerMutex_);
  for (;;) {
    timerAdded_.wait(lock, [&] { return timersStopped_ || !timers_.empty(); });
    if (timersStopped_) return;
    const auto due = timers_.begin()->second.realDue;
    if (std::chrono::system_clock::now() < due) {
      timerAdded_.wait_until(lock, due);
      continue;
    }
    const Timer timer = std::move(timers_.begin()->second);
    timers_.erase(timers_.begin());
    lock.unlock();
    {
      const Lock guard(windows_.state().mutex);
      timer.action();
    }
    lock.lock();
  }
}

}  // namespace kiv::test
