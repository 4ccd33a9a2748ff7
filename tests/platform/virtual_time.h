// Time and threads of the simulated Windows: a clock that jumps, and threads of which one runs at a time, in a fixed
// order.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace kiv::test {

class SimulatedWindows;

// How a wait ended.
enum class Waited { Met, TimedOut, InVain };

// Be one on the stack, inside the life of a SimulatedWindows, and that one's clock and thread pool work.
//
// Deterministic: the test's thread, the threads that it starts here and the pool's are real threads, but only the one
// that holds the baton runs. A simulated function that blocks passes the baton on, to the thread or callback that has
// been able to run for the longest time. If there is none, the clock jumps to the next thing that is due. If nothing
// is, the test's wait fails, with a complaint that lists who waits for what.
//
// Free: all threads run at once, for ThreadSanitizer, and a virtual millisecond takes a microsecond.
//
// Its end makes every wait fail that is still going on, lets all threads run to their ends, and drops what is due
// later.
class VirtualTime {
 public:
  enum class Mode { Deterministic, Free };
  using Milliseconds = std::chrono::milliseconds;
  using Lock = std::unique_lock<std::mutex>;

  explicit VirtualTime(SimulatedWindows& windows, Mode mode = Mode::Deterministic,
                       Milliseconds start = std::chrono::hours(1));
  ~VirtualTime();
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;

  Milliseconds now() const;
  // Lets the time pass, and everything happen that happens until then and then. For the test's own thread.
  void advance(Milliseconds duration);
  // Runs until nothing is left to run now. For the test's own thread.
  void settle() { advance(Milliseconds(0)); }

  struct Participant;
  // A thread of the test. Whoever joins it passes the baton on meanwhile; the end of the time joins all others.
  class Thread {
   public:
    void join();

   private:
    friend class VirtualTime;
    Thread(VirtualTime& time, Participant& participant) : time_(&time), participant_(&participant) {}
    VirtualTime* time_;
    Participant* participant_;
  };
  Thread startThread(std::function<void()> body);

  // The rest is for the simulated functions. These expect the mutex of the simulated Windows to be held.
  enum class Abandon { Never, AtTheEnd };
  Waited wait(Lock& lock, const std::string& subject, const std::function<bool()>& condition,
              std::optional<Milliseconds> limit, Abandon abandon = Abandon::AtTheEnd);
  // Finds the waiting threads whose condition has come to hold.
  void changed();
  // Runs the job on a thread of the pool, without the mutex.
  void submit(std::function<void()> job);

  // May be called with or without the mutex. Runs the action at that time, with the mutex; it must not block.
  void at(Milliseconds delay, std::function<void()> action);
  bool isDeterministic() const { return mode_ == Mode::Deterministic; }

 private:
  struct Timer {
    Milliseconds due{};
    std::chrono::system_clock::time_point realDue;
    std::function<void()> action;
  };

  Participant& self();
  Participant& addThread(std::string name);
  std::optional<Milliseconds> nextDue();
  void runTimer();
  void makeReady(Participant& participant);
  void handOver(Lock& lock, Participant& participant);
  void passOn();
  std::string describeWaits() const;
  void reportDeadlock();
  Waited waitFreely(Lock& lock, const std::string& subject, const std::function<bool()>& condition,
                    std::optional<Milliseconds> limit, Abandon abandon);
  void runParticipant(Participant& participant);
  void runFreely();
  void keepTime();
  void startFreeWorker();
  void finish();

  SimulatedWindows& windows_;
  Mode mode_;
  std::atomic<Milliseconds> now_;
  std::chrono::system_clock::time_point began_ = std::chrono::system_clock::now();

  std::list<Participant> participants_;
  std::deque<Participant*> waiting_;  // in the order in which they began to wait
  struct Runnable {
    Participant* participant = nullptr;  // or else a job
    std::function<void()> job;
  };
  std::deque<Runnable> ready_;
  std::vector<Participant*> idle_;  // workers
  Participant* test_ = nullptr;
  Participant* outer_ = nullptr;  // what the test's thread is in the virtual time around this one
  Participant* running_ = nullptr;
  std::optional<Milliseconds> advancingTo_;  // by the test's thread, which waits for that
  Milliseconds horizon_{};                   // until then the test's thread waits for something to happen
  std::size_t workers_ = 0;
  std::size_t threads_ = 0;
  std::size_t idleWorkers_ = 0;  // in free mode
  std::size_t deadlocks_ = 0;
  bool ending_ = false;
  bool stopping_ = false;

  std::mutex timerMutex_;  // so that time can be ordered with and without the other mutex; nothing is locked under it
  std::condition_variable timerAdded_;
  std::multimap<Milliseconds, Timer> timers_;  // those due at the same time in the order in which they were added
  bool timersStopped_ = false;
  std::thread timekeeper_;
};

}  // namespace kiv::test
