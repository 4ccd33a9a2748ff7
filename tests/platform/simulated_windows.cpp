// The core of the simulated Windows: the active instance, its record, its faults, its ledger, its callback thread.
#include "platform/simulated_windows.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/sanitizers.h"
#include "platform/simulated_state.h"

#ifdef KIV_TEST_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace kiv::test {
namespace {

constexpr int kReleasedByte = 0xDD;

// A test that waits for what never comes says so, instead of hanging.
constexpr std::chrono::seconds kForever{30};

std::atomic<SimulatedWindows*> active{nullptr};

SimulatedWindows& needWindows(const char* caller) {
  SimulatedWindows* windows = active.load();
  if (windows) return *windows;
  std::fprintf(stderr, "%s was called while no SimulatedWindows existed\n", caller);
  std::abort();
}

const char* kindName(Kind kind) {
  switch (kind) {
    case Kind::Internet:
      return "internet handle";
    case Kind::GlobalBlock:
      return "global block";
    case Kind::TaskBlock:
      return "task block";
    case Kind::Module:
      return "module";
    case Kind::Event:
      return "event";
    case Kind::Winsock:
      return "use of Winsock";
    case Kind::Socket:
      return "socket";
    case Kind::AddressList:
      return "address list";
    case Kind::RegistryKey:
      return "registry key";
    case Kind::Registration:
      return "registration";
    case Kind::AddressTable:
      return "address table";
    case Kind::Credentials:
      return "credentials handle";
    case Kind::Context:
      return "security context";
    case Kind::ContextBuffer:
      return "context buffer";
    case Kind::Token:
      return "token";
    case Kind::Work:
      return "work";
    case Kind::Timer:
      return "timer";
    case Kind::Wait:
      return "wait";
  }
  return "";
}

// Makes a read or write of a released block visible: at once to AddressSanitizer, a write at the end to everybody.
void spoil(const Resource& block) {
  std::memset(block.memory.get(), kReleasedByte, block.size);
#ifdef KIV_TEST_ADDRESS_SANITIZER
  ASAN_POISON_MEMORY_REGION(block.memory.get(), block.size);
#endif
}

void unspoil(const Resource& block) {
#ifdef KIV_TEST_ADDRESS_SANITIZER
  ASAN_UNPOISON_MEMORY_REGION(block.memory.get(), block.size);
#else
  static_cast<void>(block);
#endif
}

bool isSpoilt(const Resource& block) {
#ifdef KIV_TEST_ADDRESS_SANITIZER
  static_cast<void>(block);
  return true;
#else
  return std::all_of(block.memory.get(), block.memory.get() + block.size,
                     [](std::byte byte) { return byte == static_cast<std::byte>(kReleasedByte); });
#endif
}

}  // namespace

SimulatedWindows* activeWindows() { return active.load(); }

DWORD& lastError() {
  thread_local DWORD code = kClobbered;
  return code;
}

HttpScript& HttpScript::respond(DWORD status) { return respond(Exchange{.status = status}); }

HttpScript& HttpScript::respond(Exchange exchange) {
  script.push_back(std::move(exchange));
  return *this;
}

HttpScript& HttpScript::failSend(DWORD code, std::optional<ErrorBy> by) {
  return respond(Exchange{.sendError = code, .errorBy = by});
}

HttpScript& HttpScript::failReceive(DWORD code, std::optional<ErrorBy> by) {
  return respond(Exchange{.receiveError = code, .errorBy = by});
}

HttpScript& HttpScript::resend(std::size_t times) {
  while (times-- > 0) failReceive(ERROR_WINHTTP_RESEND_REQUEST);
  return *this;
}

bool ReleasedBlock::isZero() const { return std::ranges::count(contents, std::byte{0}) == std::ssize(contents); }

bool ReleasedBlock::contains(std::wstring_view text) const {
  const auto* first = reinterpret_cast<const std::byte*>(text.data());
  const auto* last = reinterpret_cast<const std::byte*>(text.data() + text.size());
  return std::search(contents.begin(), contents.end(), first, last) != contents.end();
}

SimulatedWindows::SimulatedWindows() : state_(std::make_unique<State>()), outer_(active.load()) {
  lastError() = kClobbered;
  active.store(this);
}

SimulatedWindows::~SimulatedWindows() {
  settle();
  {
    const std::lock_guard lock(state_->mutex);
    state_->ending = true;
  }
  state_->changed.notify_all();
  if (state_->dispatcher.joinable()) state_->dispatcher.join();
  for (const auto& [address, resource] : state_->resources) {
    if (resource.memory) unspoil(resource);
  }
  active.store(outer_);
}

void SimulatedWindows::failAlways(std::string_view name, DWORD code) {
  const std::lock_guard lock(state_->mutex);
  state_->faults.push_back({.name = std::string(name), .always = true, .index = std::nullopt, .code = code});
}

void SimulatedWindows::failOnce(std::string_view name, DWORD code) { failNth(name, 1, code); }

void SimulatedWindows::failNth(std::string_view name, std::size_t nth, DWORD code) {
  const std::lock_guard lock(state_->mutex);
  state_->faults.push_back({.name = std::string(name), .remaining = nth, .index = std::nullopt, .code = code});
}

void SimulatedWindows::failCall(std::size_t index, DWORD code) {
  const std::lock_guard lock(state_->mutex);
  state_->faults.push_back({.name = {}, .index = index, .code = code});
}

bool SimulatedWindows::canFail(std::string_view name) {
  constexpr std::array<std::string_view, 18> never = {"GetLastError",
                                                      "SetLastError",
                                                      "SetEvent",
                                                      "ResetEvent",
                                                      "CloseHandle",
                                                      "GlobalFree",
                                                      "CoTaskMemFree",
                                                      "FreeLibrary",
                                                      "WinHttpCloseHandle",
                                                      "SubmitThreadpoolWork",
                                                      "SetThreadpoolTimer",
                                                      "SetThreadpoolWait",
                                                      "WaitForThreadpoolWorkCallbacks",
                                                      "WaitForThreadpoolTimerCallbacks",
                                                      "WaitForThreadpoolWaitCallbacks",
                                                      "CloseThreadpoolWork",
                                                      "CloseThreadpoolTimer",
                                                      "CloseThreadpoolWait"};
  constexpr auto neverEither = std::to_array<std::string_view>(
      {"WSAGetLastError", "WSACleanup", "closesocket", "FreeAddrInfoW", "RegCloseKey", "FreeMibTable",
       "CancelMibChangeNotify2", "WinHttpUnregisterProxyChangeNotification", "PowerUnregisterSuspendResumeNotification",
       "RtlDllShutdownInProgress", "FreeCredentialsHandle", "DeleteSecurityContext", "FreeContextBuffer"});
  return std::ranges::find(never, name) == never.end() && std::ranges::find(neverEither, name) == neverEither.end();
}

std::vector<Call> SimulatedWindows::calls(Transcript extent) const {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  std::vector<Call> selected;
  for (const Call& call : state_->calls) {
    if (!call.quiet || extent == Transcript::Everything) selected.push_back(call);
  }
  return selected;
}

std::vector<std::string> SimulatedWindows::callNames(Transcript extent) const {
  const MemoryWatch::Pause pause;
  std::vector<std::string> names;
  for (Call& call : calls(extent)) names.push_back(std::move(call.name));
  return names;
}

std::size_t SimulatedWindows::count(std::string_view name) const {
  const std::lock_guard lock(state_->mutex);
  return static_cast<std::size_t>(std::ranges::count(state_->calls, name, &Call::name));
}

std::wstring SimulatedWindows::arguments(std::string_view name, std::size_t nth) const {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  for (const Call& call : state_->calls) {
    if (call.name == name && --nth == 0) return call.arguments;
  }
  return {};
}

std::vector<RequestRecord> SimulatedWindows::requests() const {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  return state_->requests;
}

std::vector<Credentials> SimulatedWindows::credentials() const {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  return state_->credentials;
}

std::vector<Protection> SimulatedWindows::protections() const {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  return state_->protections;
}

std::vector<ReleasedBlock> SimulatedWindows::releasedBlocks() const {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  return state_->releasedBlocks;
}

void SimulatedWindows::impersonate(const std::wstring& name) {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  if (name.empty()) {
    state_->users.erase(std::this_thread::get_id());
  } else {
    state_->users[std::this_thread::get_id()] = name;
  }
}

void SimulatedWindows::change(const std::function<void()>& edit) {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  edit();
}

void SimulatedWindows::settle() {
  if (VirtualTime* time = state_->time) return time->settle();
  std::unique_lock lock(state_->mutex);
  state_->changed.wait(lock, [&] { return state_->jobs.empty() && !state_->running; });
}

std::vector<std::string> SimulatedWindows::outstanding() const {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  std::map<std::size_t, std::string> names;
  for (const auto& [address, resource] : state_->resources) {
    if (!resource.released) names[resource.serial] = resource.name;
  }
  std::vector<std::string> ordered;
  for (auto& [serial, name] : names) ordered.push_back(std::move(name));
  return ordered;
}

std::vector<std::string> SimulatedWindows::complaints() {
  const MemoryWatch::Pause pause;
  settle();
  std::vector<std::string> all;
  {
    const std::lock_guard lock(state_->mutex);
    all = state_->complaints;
    for (const auto& [address, resource] : state_->resources) {
      if (resource.memory && resource.released && !isSpoilt(resource)) {
        all.push_back(resource.name + " was written after its release");
      }
    }
  }
  for (const std::string& name : outstanding()) all.push_back(name + " was never released");
  return all;
}

void* SimulatedWindows::State::newHandle(Kind kind, const std::string& name) {
  // Handles are never dereferenced and never handed out twice.
  void* handle = reinterpret_cast<void*>(nextHandle);
  nextHandle += 16;
  resources[handle] = Resource{kind, name + " " + std::to_string(++named[name]), false, nullptr, 0, resources.size()};
  return handle;
}

void* SimulatedWindows::State::newBlock(Kind kind, const void* contents, std::size_t size) {
  Resource block{kind, kindName(kind), false, std::make_unique<std::byte[]>(size), size, resources.size()};
  block.name.append(1, ' ').append(std::to_string(++named[kindName(kind)]));
  std::memcpy(block.memory.get(), contents, size);
  void* address = block.memory.get();
  resources[address] = std::move(block);
  return address;
}

wchar_t* SimulatedWindows::State::newText(const std::optional<std::wstring>& text) {
  if (!text) return nullptr;
  return static_cast<wchar_t*>(newBlock(Kind::GlobalBlock, text->c_str(), (text->size() + 1) * sizeof(wchar_t)));
}

std::wstring SimulatedWindows::State::nameOf(const void* handle) const {
  if (!handle) return L"null";
  const auto found = resources.find(const_cast<void*>(handle));
  return found == resources.end() ? L"unknown" : toWide(found->second.name);
}

bool SimulatedWindows::State::check(void* handle, Kind kind, const std::string& user) {
  if (!handle) return false;
  const auto found = resources.find(handle);
  if (found == resources.end()) {
    complaints.push_back(user + " was given a value that is no " + kindName(kind));
  } else if (found->second.kind != kind) {
    complaints.push_back(user + " was given " + found->second.name + ", which is no " + kindName(kind));
  } else if (found->second.released) {
    complaints.push_back(found->second.name + " was used after its release, by " + user);
  } else {
    return true;
  }
  return false;
}

bool SimulatedWindows::State::release(void* handle, Kind kind, const std::string& function) {
  if (!handle) return false;
  const auto found = resources.find(handle);
  if (found == resources.end()) {
    complaints.push_back(function + " was given a value that was never handed out");
    return false;
  }
  Resource& resource = found->second;
  if (resource.kind != kind) {
    complaints.push_back(resource.name + " was released with the wrong function, " + function);
    return false;
  }
  if (resource.released) {
    complaints.push_back(resource.name + " was released twice");
    return false;
  }
  resource.released = true;
  if (resource.memory) {
    const std::byte* memory = resource.memory.get();
    releasedBlocks.push_back({resource.name, function, std::vector<std::byte>(memory, memory + resource.size)});
    spoil(resource);
  }
  return true;
}

void SimulatedWindows::State::wake() {
  changed.notify_all();
  if (VirtualTime* virtualTime = time) virtualTime->changed();
}

Waited SimulatedWindows::State::await(std::unique_lock<std::mutex>& lock, const std::string& subject,
                                      const std::function<bool()>& condition,
                                      std::optional<std::chrono::milliseconds> limit) {
  if (VirtualTime* virtualTime = time) return virtualTime->wait(lock, subject, condition, limit);
  // The system's clock, because ThreadSanitizer does not see through waits on the steady one.
  const auto until = std::chrono::system_clock::now() + limit.value_or(kForever);
  if (changed.wait_until(lock, until, condition)) return Waited::Met;
  if (limit) return Waited::TimedOut;
  complaints.push_back(subject + " was waited for in vain");
  return Waited::InVain;
}

void SimulatedWindows::State::sleepFor(std::chrono::milliseconds duration) {
  VirtualTime* virtualTime = time;
  if (!virtualTime) return;
  const MemoryWatch::Pause pause;
  std::unique_lock lock(mutex);
  virtualTime->wait(
      lock, "time to pass", [] { return false; }, duration);
}

void SimulatedWindows::State::later(std::chrono::milliseconds delay, std::function<void()> job) {
  VirtualTime& virtualTime = needTime("State::later");
  const MemoryWatch::Pause pause;
  virtualTime.at(delay, [&virtualTime, job = std::move(job)] { virtualTime.submit(job); });
}

VirtualTime& SimulatedWindows::State::needTime(const std::string& function) const {
  if (VirtualTime* virtualTime = time) return *virtualTime;
  std::fprintf(stderr, "%s was called while no VirtualTime existed\n", function.c_str());
  std::abort();
}

std::shared_ptr<Job> SimulatedWindows::State::post(const Notification& notification, std::chrono::microseconds delay) {
  auto job = std::make_shared<Job>(Job{notification, std::chrono::system_clock::now() + delay, false});
  jobs.push_back(job);
  if (!dispatcher.joinable()) dispatcher = std::thread([this] { dispatch(); });
  changed.notify_all();
  return job;
}

bool SimulatedWindows::State::isBusy(HINTERNET handle) const {
  return (running && running->notification.handle == handle) ||
         std::ranges::any_of(jobs, [&](const auto& job) { return job->notification.handle == handle; });
}

void SimulatedWindows::State::dispatch() {
  const MemoryWatch::Pause pause;
  std::unique_lock lock(mutex);
  for (;;) {
    changed.wait(lock, [&] { return ending || !jobs.empty(); });
    if (jobs.empty()) return;
    if (const auto due = jobs.front()->due; std::chrono::system_clock::now() < due) {
      changed.wait_until(lock, due);
      continue;
    }
    running = jobs.front();
    jobs.pop_front();
    const Notification notification = running->notification;
    lock.unlock();
    notify(notification);
    lock.lock();
    running->done = true;
    running.reset();
    changed.notify_all();
  }
}

static SimulatedWindows& aboutToCall(const char* name) {
  SimulatedWindows& windows = needWindows(name);
  if (!windows.beforeCall) return windows;
  const DWORD error = lastError();
  windows.beforeCall(name);
  lastError() = error;
  return windows;
}

Entry::Entry(const char* name, Noise noise)
    : name_(name),
      windows_(aboutToCall(name)),
      state_(windows_.state()),
      lock_(state_.mutex),
      index_(state_.calls.size()),
      quiet_(noise == Noise::Quiet) {
  state_.calls.push_back({.name = name_, .arguments = {}, .error = 0, .failed = false, .quiet = quiet_});
  if (const auto found = state_.users.find(std::this_thread::get_id()); found != state_.users.end()) {
    state_.calls.back().user = found->second;
  }
  if (windows_.onCall) windows_.onCall(name_);
  fault_ = takeFault();
  if (!quiet_) ++state_.significantCalls;
}

std::optional<DWORD> Entry::takeFault() {
  std::optional<DWORD> code;
  if (!SimulatedWindows::canFail(name_)) return code;
  for (Fault& fault : state_.faults) {
    bool fires = fault.always && fault.name == name_;
    if (fault.index) fires = !quiet_ && *fault.index == state_.significantCalls;
    if (!fault.index && fault.name == name_ && fault.remaining > 0) fires = --fault.remaining == 0;
    if (fires && !code) code = fault.code;
  }
  return code;
}

Entry& Entry::text(const wchar_t* label, std::wstring_view value) {
  std::wstring& arguments = state_.calls[index_].arguments;
  if (!arguments.empty()) arguments += L", ";
  arguments.append(label).append(L"=").append(value);
  return *this;
}

Entry& Entry::text(const wchar_t* label, const wchar_t* value) {
  return text(label, value ? std::wstring_view(value) : std::wstring_view(L"null"));
}

Entry& Entry::number(const wchar_t* label, std::uint64_t value) {
  return text(label, std::wstring_view(std::to_wstring(value)));
}

Entry& Entry::flags(const wchar_t* label, std::uint64_t value) {
  std::array<char, 24> digits{};
  std::snprintf(digits.data(), digits.size(), "0x%llX", static_cast<unsigned long long>(value));
  return text(label, std::wstring_view(toWide(digits.data())));
}

Entry& Entry::handle(const wchar_t* label, const void* value) {
  return text(label, std::wstring_view(state_.nameOf(value)));
}

bool Entry::spend(std::chrono::milliseconds duration) {
  VirtualTime* time = state_.time;
  if (duration.count() == 0 || !time) return true;
  const auto limit = duration < kNever ? std::optional(duration) : std::nullopt;
  return time->wait(
             lock_, name_ + " to return", [] { return false; }, limit) == Waited::TimedOut;
}

void Entry::recordFailure(DWORD code) {
  Call& call = state_.calls[index_];
  call.failed = true;
  call.error = code;
}

}  // namespace kiv::test
