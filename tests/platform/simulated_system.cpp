// The kernel's small services: last errors, memory, the environment, events.
#include <algorithm>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

using Noise = Entry::Noise;

// Ends a wait: an event that resets itself lets one waiter through.
DWORD take(Entry& call, Event& event) {
  if (!event.manualReset) event.signaled = false;
  return call.succeed(DWORD{WAIT_OBJECT_0});
}

DWORD waitFor(Entry& call, HANDLE handle, DWORD milliseconds) {
  auto& state = call.state();
  const auto limit = milliseconds == INFINITE ? std::nullopt : std::optional(std::chrono::milliseconds(milliseconds));
  const auto isOver = [&] { return state.events.at(handle).signaled || state.resources.at(handle).released; };
  const Waited outcome = state.await(call.lock(), state.resources.at(handle).name, isOver, limit);
  if (state.resources.at(handle).released) {
    state.complaints.push_back(state.resources.at(handle).name + " was released while a thread waited for it");
    return call.fail(ERROR_INVALID_HANDLE, DWORD{WAIT_FAILED});
  }
  if (outcome == Waited::Met) return take(call, state.events.at(handle));
  if (outcome == Waited::TimedOut) return call.succeed(DWORD{WAIT_TIMEOUT});
  return call.fail(ERROR_GEN_FAILURE, DWORD{WAIT_FAILED});
}

BOOL setSignaled(Entry& call, HANDLE handle, bool signaled) {
  call.handle(L"event", handle);
  auto& state = call.state();
  if (!state.check(handle, Kind::Event, call.name())) return call.fail(ERROR_INVALID_HANDLE, FALSE);
  if (signaled) {
    state.signal(handle);
  } else {
    state.events.at(handle).signaled = false;
  }
  return call.succeed(TRUE);
}

}  // namespace
}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

DWORD WINAPI GetLastError() {
  const Entry call("GetLastError", Noise::Quiet);
  return lastError();
}

void WINAPI SetLastError(DWORD code) {
  const Entry call("SetLastError", Noise::Quiet);
  lastError() = code;
}

HGLOBAL WINAPI GlobalFree(HGLOBAL block) {
  Entry call("GlobalFree");
  call.handle(L"block", block);
  if (block && !call.state().release(block, Kind::GlobalBlock, call.name())) {
    return call.fail(ERROR_INVALID_HANDLE, block);
  }
  return call.succeed(HGLOBAL{});
}

void WINAPI CoTaskMemFree(LPVOID block) {
  Entry call("CoTaskMemFree");
  call.handle(L"block", block);
  if (block) call.state().release(block, Kind::TaskBlock, call.name());
  lastError() = kClobbered;
}

DWORD WINAPI GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size) {
  Entry call("GetEnvironmentVariableW");
  call.text(L"name", name).number(L"size", size);
  if (call.fault()) return call.fail(*call.fault(), DWORD{0});
  auto& environment = call.windows().environment;
  const auto found = environment.find(name ? name : L"");
  if (found == environment.end()) return call.fail(ERROR_ENVVAR_NOT_FOUND, DWORD{0});
  const std::wstring value = found->second;
  const auto& afterwards = call.windows().environmentAfterwards;
  if (const auto other = afterwards.find(found->first); other != afterwards.end()) found->second = other->second;
  const auto length = static_cast<DWORD>(value.size());
  if (!buffer || size <= length) return call.succeed(length + 1);
  std::ranges::copy(value, buffer);
  buffer[length] = L'\0';
  // Success with nothing to tell leaves the last error alone, so that callers can tell it from a failure.
  return length ? call.succeed(length) : 0;
}

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState, LPCWSTR name) {
  Entry call("CreateEventW");
  call.text(L"attributes", attributes ? L"set" : L"null").number(L"manual", manualReset ? 1 : 0);
  call.number(L"initial", initialState ? 1 : 0).text(L"name", name);
  if (call.fault()) return call.fail(*call.fault(), HANDLE{});
  HANDLE handle = call.state().newHandle(Kind::Event, "event");
  call.state().events[handle] = {.manualReset = manualReset != FALSE, .signaled = initialState != FALSE};
  return call.succeed(handle);
}

BOOL WINAPI SetEvent(HANDLE event) {
  Entry call("SetEvent", Noise::Quiet);
  return setSignaled(call, event, true);
}

BOOL WINAPI ResetEvent(HANDLE event) {
  Entry call("ResetEvent", Noise::Quiet);
  return setSignaled(call, event, false);
}

DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  Entry call("WaitForSingleObject", Noise::Quiet);
  call.handle(L"event", handle).number(L"milliseconds", milliseconds);
  if (call.fault()) return call.fail(*call.fault(), DWORD{WAIT_FAILED});
  if (!call.state().check(handle, Kind::Event, call.name())) return call.fail(ERROR_INVALID_HANDLE, DWORD{WAIT_FAILED});
  return waitFor(call, handle, milliseconds);
}

BOOL WINAPI CloseHandle(HANDLE handle) {
  Entry call("CloseHandle", Noise::Quiet);
  call.handle(L"event", handle);
  auto& state = call.state();
  const bool isToken = state.tokens.contains(handle);
  if (!state.release(handle, isToken ? Kind::Token : Kind::Event, call.name())) {
    return call.fail(ERROR_INVALID_HANDLE, FALSE);
  }
  for (void* wait : state.armedWaits) {
    if (state.poolObjects.at(wait).event != handle) continue;
    state.complaints.push_back(state.resources.at(handle).name + " was released while " +
                               state.resources.at(wait).name + " waited for it");
  }
  state.checkUnwatched(handle);
  state.wake();
  return call.succeed(TRUE);
}
