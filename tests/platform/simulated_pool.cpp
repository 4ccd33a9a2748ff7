// The thread pool: work, timers and waits, whose callbacks run in virtual time; and the clock.
#include <algorithm>

#include "platform/simulated_state.h"

struct _TP_CALLBACK_INSTANCE {
  bool runsLong = false;
};

namespace kiv::test {
namespace {

using Milliseconds = std::chrono::milliseconds;
using Noise = Entry::Noise;

// What the thread runs.
struct Running {
  void* object = nullptr;
  PTP_CALLBACK_INSTANCE instance = nullptr;
};

thread_local Running running;

// Complains about what a callback must not leave behind on its thread, and clears the token away.
void checkThread(State& state, const std::string& callback) {
  if (state.users.erase(std::this_thread::get_id()) != 0) {
    state.complaints.push_back("the callback of " + callback + " returned while it impersonated");
  }
  if (locksHeld() != 0) state.complaints.push_back("the callback of " + callback + " returned with an SRW lock");
}

// Runs library code as a callback of the pool; expects no lock.
void runOnPool(State& state, void* object, const std::string& name,
               const std::function<void(PTP_CALLBACK_INSTANCE)>& callback) {
  _TP_CALLBACK_INSTANCE instance;
  running = {object, &instance};
  {
    const MemoryWatch::Resume resume;
    callback(&instance);
  }
  running = {};
  const std::lock_guard lock(state.mutex);
  checkThread(state, name);
}

template <class Object>
Object* create(Entry& call, Kind kind, const char* name,
               std::function<void(Object*, PTP_CALLBACK_INSTANCE, DWORD)> callback) {
  if (call.fault()) return call.fail(*call.fault(), static_cast<Object*>(nullptr));
  State& state = call.state();
  state.needTime(call.name());
  auto* object = static_cast<Object*>(state.newHandle(kind, name));
  state.poolObjects[object].callback = [object, callback = std::move(callback)](PTP_CALLBACK_INSTANCE instance,
                                                                                DWORD result) {
    callback(object, instance, result);
  };
  return call.succeed(object);
}

void disarm(State& state, void* object) {
  PoolObject& poolObject = state.poolObjects.at(object);
  poolObject.armed = false;
  poolObject.event = nullptr;
  ++poolObject.arming;
  std::erase(state.armedWaits, object);
}

// An object that is closed must not start another callback: nothing tells when the last one has run.
void close(Entry& call, void* object, Kind kind) {
  call.handle(L"object", object);
  State& state = call.state();
  if (!state.release(object, kind, call.name())) return;
  if (state.poolObjects.at(object).armed) {
    state.complaints.push_back(state.resources.at(object).name + " was closed while it was set");
  }
  disarm(state, object);
}

void waitForCallbacks(Entry& call, void* object, Kind kind, BOOL cancel) {
  call.handle(L"object", object).number(L"cancel", cancel ? 1 : 0);
  State& state = call.state();
  if (!state.check(object, kind, call.name())) return;
  const std::string& name = state.resources.at(object).name;
  if (running.object == object) {
    state.complaints.push_back(call.name() + " was called by a callback of " + name + ", which would wait for itself");
    return;
  }
  PoolObject& poolObject = state.poolObjects.at(object);
  if (cancel) {
    ++poolObject.cancelled;
    poolObject.queued = 0;
  }
  state.needTime(call.name())
      .wait(
          call.lock(), "the callbacks of " + name, [&] { return poolObject.queued == 0 && poolObject.running == 0; },
          std::nullopt, VirtualTime::Abandon::Never);
}

// A duration from now, rounded up; negative times are relative.
Milliseconds durationOf(Entry& call, const FILETIME& time) {
  const std::uint64_t bits = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
  const auto ticks = static_cast<std::int64_t>(bits);
  if (ticks > 0) call.state().complaints.push_back(call.name() + " was given a time of day, which is not simulated");
  return Milliseconds(ticks < 0 ? (9999 - ticks) / 10000 : 0);
}

void startTimer(State& state, void* object, Milliseconds delay) {
  state.needTime("SetThreadpoolTimer").at(delay, [&state, object, arming = state.poolObjects.at(object).arming] {
    PoolObject& timer = state.poolObjects.at(object);
    if (timer.arming != arming) return;
    timer.armed = timer.period != 0;
    state.queueCallback(object, 0);
    if (timer.armed) startTimer(state, object, Milliseconds(timer.period));
  });
}

void endWait(State& state, void* object, DWORD result) {
  disarm(state, object);
  state.queueCallback(object, result);
}

}  // namespace

void State::queueCallback(void* object, DWORD result) {
  PoolObject& poolObject = poolObjects.at(object);
  ++poolObject.queued;
  needTime("queueCallback").submit([this, object, cancelled = poolObject.cancelled, result] {
    runCallback(object, cancelled, result);
  });
}

void State::runCallback(void* object, std::size_t cancelled, DWORD result) {
  std::unique_lock lock(mutex);
  PoolObject& poolObject = poolObjects.at(object);
  if (poolObject.cancelled != cancelled) return;
  --poolObject.queued;
  ++poolObject.running;
  const std::string name = resources.at(object).name;
  lock.unlock();
  runOnPool(*this, object, name, [&](PTP_CALLBACK_INSTANCE instance) { poolObject.callback(instance, result); });
  lock.lock();
  --poolObject.running;
  wake();
}

void State::signal(HANDLE event) {
  if (resources.at(event).released) return;
  Event& signalled = events.at(event);
  signalled.signaled = true;
  for (void* wait : std::deque<void*>(armedWaits)) {
    if (poolObjects.at(wait).event != event || !signalled.signaled) continue;
    if (!signalled.manualReset) signalled.signaled = false;
    endWait(*this, wait, WAIT_OBJECT_0);
  }
  wake();
}

}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

ULONGLONG WINAPI GetTickCount64() {
  const SimulatedWindows* windows = activeWindows();
  const VirtualTime* time = windows ? windows->state().time.load() : nullptr;
  const auto real = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<ULONGLONG>((time ? time->now() : std::chrono::duration_cast<Milliseconds>(real)).count());
}

BOOL WINAPI TrySubmitThreadpoolCallback(PTP_SIMPLE_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON) {
  Entry call("TrySubmitThreadpoolCallback");
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  State& state = call.state();
  state.needTime(call.name()).submit([&state, callback, context] {
    runOnPool(state, nullptr, "TrySubmitThreadpoolCallback",
              [&](PTP_CALLBACK_INSTANCE instance) { callback(instance, context); });
  });
  return call.succeed(TRUE);
}

BOOL WINAPI CallbackMayRunLong(PTP_CALLBACK_INSTANCE instance) {
  Entry call("CallbackMayRunLong", Noise::Quiet);
  if (instance != running.instance || std::exchange(instance->runsLong, true)) {
    call.state().complaints.push_back("CallbackMayRunLong was called twice, or not by the callback");
    return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  return call.fault() ? call.fail(*call.fault(), FALSE) : call.succeed(TRUE);
}

PTP_WORK WINAPI CreateThreadpoolWork(PTP_WORK_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON) {
  Entry call("CreateThreadpoolWork");
  return create<TP_WORK>(call, Kind::Work, "work", [=](PTP_WORK work, PTP_CALLBACK_INSTANCE instance, DWORD) {
    callback(instance, context, work);
  });
}

void WINAPI SubmitThreadpoolWork(PTP_WORK work) {
  Entry call("SubmitThreadpoolWork", Noise::Quiet);
  call.handle(L"object", work);
  if (call.state().check(work, Kind::Work, call.name())) call.state().queueCallback(work, 0);
}

void WINAPI WaitForThreadpoolWorkCallbacks(PTP_WORK work, BOOL cancel) {
  Entry call("WaitForThreadpoolWorkCallbacks", Noise::Quiet);
  waitForCallbacks(call, work, Kind::Work, cancel);
}

void WINAPI CloseThreadpoolWork(PTP_WORK work) {
  Entry call("CloseThreadpoolWork", Noise::Quiet);
  close(call, work, Kind::Work);
}

PTP_TIMER WINAPI CreateThreadpoolTimer(PTP_TIMER_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON) {
  Entry call("CreateThreadpoolTimer");
  return create<TP_TIMER>(call, Kind::Timer, "timer", [=](PTP_TIMER timer, PTP_CALLBACK_INSTANCE instance, DWORD) {
    callback(instance, context, timer);
  });
}

void WINAPI SetThreadpoolTimer(PTP_TIMER timer, PFILETIME due, DWORD period, DWORD window) {
  Entry call("SetThreadpoolTimer", Noise::Quiet);
  call.handle(L"object", timer);
  if (due) call.number(L"due", static_cast<std::uint64_t>(durationOf(call, *due).count()));
  call.number(L"period", period).number(L"window", window);
  State& state = call.state();
  if (!state.check(timer, Kind::Timer, call.name())) return;
  disarm(state, timer);
  if (!due) return;
  PoolObject& object = state.poolObjects.at(timer);
  object.armed = true;
  object.period = period;
  startTimer(state, timer, durationOf(call, *due));
}

void WINAPI WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, BOOL cancel) {
  Entry call("WaitForThreadpoolTimerCallbacks", Noise::Quiet);
  waitForCallbacks(call, timer, Kind::Timer, cancel);
}

void WINAPI CloseThreadpoolTimer(PTP_TIMER timer) {
  Entry call("CloseThreadpoolTimer", Noise::Quiet);
  close(call, timer, Kind::Timer);
}

PTP_WAIT WINAPI CreateThreadpoolWait(PTP_WAIT_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON) {
  Entry call("CreateThreadpoolWait");
  return create<TP_WAIT>(call, Kind::Wait, "wait", [=](PTP_WAIT wait, PTP_CALLBACK_INSTANCE instance, DWORD result) {
    callback(instance, context, wait, result);
  });
}

void WINAPI SetThreadpoolWait(PTP_WAIT wait, HANDLE event, PFILETIME limit) {
  Entry call("SetThreadpoolWait", Noise::Quiet);
  call.handle(L"object", wait).handle(L"event", event);
  if (limit) call.number(L"limit", static_cast<std::uint64_t>(durationOf(call, *limit).count()));
  State& state = call.state();
  if (!state.check(wait, Kind::Wait, call.name())) return;
  disarm(state, wait);
  if (!event || !state.check(event, Kind::Event, call.name())) return;
  PoolObject& object = state.poolObjects.at(wait);
  object.armed = true;
  object.event = event;
  state.armedWaits.push_back(wait);
  if (state.events.at(event).signaled) return state.signal(event);
  if (!limit) return;
  state.needTime(call.name()).at(durationOf(call, *limit), [&state, wait, arming = object.arming] {
    if (state.poolObjects.at(wait).arming == arming) endWait(state, wait, WAIT_TIMEOUT);
  });
}

void WINAPI WaitForThreadpoolWaitCallbacks(PTP_WAIT wait, BOOL cancel) {
  Entry call("WaitForThreadpoolWaitCallbacks", Noise::Quiet);
  waitForCallbacks(call, wait, Kind::Wait, cancel);
}

void WINAPI CloseThreadpoolWait(PTP_WAIT wait) {
  Entry call("CloseThreadpoolWait", Noise::Quiet);
  close(call, wait, Kind::Wait);
}
