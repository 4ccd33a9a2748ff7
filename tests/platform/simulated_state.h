// What the simulated functions share: the ledger, the record of calls, the faults, and the thread that calls back.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <thread>

#include "platform/memory_watch.h"
#include "platform/simulated_network_state.h"
#include "platform/simulated_windows.h"
#include "platform/virtual_time.h"

namespace kiv::test {

enum class Kind {
  Internet,
  GlobalBlock,
  TaskBlock,
  Module,
  Event,
  Winsock,
  Socket,
  AddressList,
  RegistryKey,
  Registration,
  AddressTable,
  Credentials,
  Context,
  ContextBuffer,
  Token,
  Work,
  Timer,
  Wait
};

struct Resource {
  Kind kind = Kind::Internet;
  std::string name;
  bool released = false;
  std::unique_ptr<std::byte[]> memory;  // of a block: kept to the end, so that its address is not handed out again
  std::size_t size = 0;
  std::size_t serial = 0;  // in order of handing out
};

struct Notification {
  HINTERNET handle = nullptr;
  DWORD status = 0;
  DWORD api = 0;
  DWORD error = 0;
  bool asItIs = false;  // not turned into a cancellation because the handle was closed
};

// A session, a connection or a request.
struct Internet {
  enum class Level { Session, Connection, Request };
  enum class Stage { Opened, Sending, Sent, Receiving, Answered };

  Level level = Level::Session;
  bool asynchronous = false;
  bool closed = false;
  bool silent = false;  // reported that it closed: no callback may follow
  WINHTTP_STATUS_CALLBACK callback = nullptr;
  DWORD notifications = 0;
  DWORD_PTR context = 0;
  std::wstring agent;
  std::wstring host;
  DWORD port = 0;
  std::optional<ProxyOption> proxy;
  std::map<DWORD, DWORD> options;

  Stage stage = Stage::Opened;
  std::size_t record = 0;  // of a request: its place in State::requests
  Exchange exchange;

  // While there is a virtual time:
  std::size_t operation = 0;             // counts them; what was due for an earlier one is void
  std::optional<Notification> underWay;  // how the operation will end
  std::chrono::milliseconds answered{};  // when the server will have answered
  std::deque<Notification> inbox;        // one after the other
  bool delivering = false;
};

struct Event {
  bool manualReset = false;
  bool signaled = false;
};

struct Fault {
  std::string name;           // empty: any
  std::size_t remaining = 0;  // fires when it gets to 0 by counting calls of that name; unused for an index
  bool always = false;
  std::optional<std::size_t> index;
  DWORD code = 0;
};

// A work, timer or wait object of the thread pool.
struct PoolObject {
  std::function<void(PTP_CALLBACK_INSTANCE instance, DWORD result)> callback;
  std::size_t queued = 0;
  std::size_t running = 0;
  std::size_t cancelled = 0;  // times that the queued callbacks were cancelled
  bool armed = false;         // a timer that is set, a wait
  std::size_t arming = 0;     // counts them; what was due for an earlier one is void
  HANDLE event = nullptr;     // that a wait waits for
  DWORD period = 0;           // of a timer
};

// Of a thread.
struct Token {
  std::wstring user;
  DWORD access = 0;
};

// A notification that waits for the other thread.
struct Job {
  Notification notification;
  std::chrono::system_clock::time_point due;
  bool done = false;
};

struct SimulatedWindows::State {
  std::mutex mutex;
  std::condition_variable changed;  // an event was set, a job was added or done, the end has come

  std::vector<Call> calls;
  std::size_t significantCalls = 0;
  std::list<Fault> faults;
  std::vector<std::string> complaints;

  std::map<void*, Resource> resources;
  std::map<std::string, std::size_t> named;        // how many of each kind were handed out
  std::uintptr_t nextHandle = 0x4B49560000000000;  // no address of memory: reading through it would crash
  std::vector<ReleasedBlock> releasedBlocks;

  std::map<void*, Internet> internets;
  std::vector<RequestRecord> requests;
  std::vector<Credentials> credentials;
  std::map<void*, Event> events;
  std::map<void*, PoolObject> poolObjects;
  std::deque<void*> armedWaits;  // in the order in which they were armed
  std::map<void*, Token> tokens;
  std::map<std::thread::id, std::wstring> users;  // that threads impersonate
  std::vector<Protection> protections;
  std::size_t detections = 0;
  std::size_t configurations = 0;

  std::list<std::shared_ptr<Job>> jobs;  // in order of delivery
  std::shared_ptr<Job> running;
  bool ending = false;
  std::thread dispatcher;
  std::atomic<VirtualTime*> time = nullptr;

  SocketState network;
  RegistryState registry;
  ChangeState changes;
  SecurityState security;

  // These expect the mutex to be held.
  void* newHandle(Kind kind, const std::string& name);
  void* newBlock(Kind kind, const void* contents, std::size_t size);
  wchar_t* newText(const std::optional<std::wstring>& text);
  std::wstring nameOf(const void* handle) const;
  // Tells whether the handle is alive and of that kind; complains if it is not, unless it is null.
  bool check(void* handle, Kind kind, const std::string& user);
  bool release(void* handle, Kind kind, const std::string& function);
  std::shared_ptr<Job> post(const Notification& notification, std::chrono::microseconds delay);
  bool isBusy(HINTERNET handle) const;
  // Does what SetEvent does.
  void signal(HANDLE event);
  // Lets the waiting threads look whether their wait is over.
  void wake();
  // Blocks the calling thread until the condition holds or the limit is over. The subject is what it waits for.
  Waited await(std::unique_lock<std::mutex>& lock, const std::string& subject, const std::function<bool()>& condition,
               std::optional<std::chrono::milliseconds> limit);
  // Delivers on a thread of the pool, after what was queued for the same handle before.
  void queue(const Notification& notification);
  // Lets requests report that they closed, although their servers never answered.
  void letGoOfRequests();
  void queueCallback(void* object, DWORD result);

  // Complains if something would still signal the event.
  void checkUnwatched(HANDLE event);

  // These take the mutex.
  void notify(const Notification& notification);
  void dispatch();
  void deliverQueued(HINTERNET handle);
  void runCallback(void* object, std::size_t cancelled, DWORD result);
  // Blocks the calling thread in virtual time; without one it returns at once.
  void sleepFor(std::chrono::milliseconds duration);

  // With or without the mutex: runs the job at that virtual time, on a thread of the pool, without the mutex. It calls
  // the library, if it does, under a MemoryWatch::Resume.
  void later(std::chrono::milliseconds delay, std::function<void()> job);
  // Gives the virtual time, which the named function cannot do without.
  VirtualTime& needTime(const std::string& function) const;
};

using State = SimulatedWindows::State;

// The calling thread's last error.
DWORD& lastError();

// The simulated Windows that counts, if there is one.
SimulatedWindows* activeWindows();

// How many SRW locks the calling thread holds.
std::size_t locksHeld();

// What GetLastError gives after a call that succeeded: a trap for code that reads it late.
inline constexpr DWORD kClobbered = 0xDEAD;

// One simulated call, from its start to its end: holds the lock, records name, arguments and outcome, finds its fault.
class Entry {
 public:
  enum class Noise { Significant, Quiet };
  explicit Entry(const char* name, Noise noise = Noise::Significant);

  SimulatedWindows& windows() { return windows_; }
  State& state() { return state_; }
  const std::string& name() const { return name_; }

  Entry& text(const wchar_t* label, const wchar_t* value);
  Entry& text(const wchar_t* label, std::wstring_view value);
  Entry& number(const wchar_t* label, std::uint64_t value);
  Entry& flags(const wchar_t* label, std::uint64_t value);
  Entry& handle(const wchar_t* label, const void* value);

  // The code with which the call has to fail, if it has to.
  const std::optional<DWORD>& fault() const { return fault_; }

  template <class Result>
  Result fail(DWORD code, Result result) {
    recordFailure(code);
    lastError() = code;
    return result;
  }
  // Where the result is the error; the last error says nothing.
  template <class Result>
  Result failWith(DWORD code) {
    recordFailure(code);
    lastError() = kClobbered;
    return static_cast<Result>(code);
  }
  template <class Result>
  Result succeed(Result result) {
    lastError() = kClobbered;
    return result;
  }

  std::unique_lock<std::mutex>& lock() { return lock_; }
  const std::wstring& user() const { return state_.calls[index_].user; }

  // Blocks in virtual time, for ever if the duration is kNever; tells whether it came to the end of it.
  bool spend(std::chrono::milliseconds duration);

 private:
  void recordFailure(DWORD code);
  std::optional<DWORD> takeFault();

  MemoryWatch::Pause pause_;
  std::string name_;
  SimulatedWindows& windows_;
  State& state_;
  std::unique_lock<std::mutex> lock_;
  std::size_t index_ = 0;
  bool quiet_;
  std::optional<DWORD> fault_;
};

// By way of the one function type that casts to every other without a warning.
template <class Function>
FARPROC toProcedure(Function* function) {
  return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

// GetProcAddress for a module of Modules.
FARPROC findSystemProcedure(Entry& call, HMODULE module, std::string_view name);

// Wide text to the code page of the simulated system, UTF-8, and back. What is not valid becomes U+FFFD.
std::string toNarrow(std::wstring_view wide);
std::wstring toWide(std::string_view narrow);

}  // namespace kiv::test
