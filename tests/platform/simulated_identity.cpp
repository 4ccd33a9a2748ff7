// Threads and whom they run as. A token names a user; no more is known about it.
#include <atomic>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

BOOL revert(Entry& call) {
  call.state().users.erase(std::this_thread::get_id());
  return call.succeed(TRUE);
}

HANDLE thisThread() { return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-2)); }

}  // namespace
}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

DWORD WINAPI GetCurrentThreadId() {
  static std::atomic<DWORD> last{0};
  thread_local const DWORD id = last += 4;
  return id;
}

HANDLE WINAPI GetCurrentThread() { return thisThread(); }

BOOL WINAPI OpenThreadToken(HANDLE thread, DWORD access, BOOL openAsSelf, PHANDLE token) {
  Entry call("OpenThreadToken");
  call.flags(L"access", access).number(L"openAsSelf", openAsSelf ? 1 : 0);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  if (thread != thisThread() || !token) return call.fail(ERROR_INVALID_HANDLE, FALSE);
  State& state = call.state();
  const auto found = state.users.find(std::this_thread::get_id());
  if (found == state.users.end()) return call.fail(ERROR_NO_TOKEN, FALSE);
  *token = state.newHandle(Kind::Token, "token");
  state.tokens[*token] = {.user = found->second, .access = access};
  return call.succeed(TRUE);
}

BOOL WINAPI SetThreadToken(PHANDLE thread, HANDLE token) {
  Entry call("SetThreadToken", Entry::Noise::Quiet);
  call.handle(L"token", token);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  if (thread) return call.fail(ERROR_NOT_SUPPORTED, FALSE);
  if (!token) return revert(call);
  State& state = call.state();
  if (!state.check(token, Kind::Token, call.name())) return call.fail(ERROR_INVALID_HANDLE, FALSE);
  const Token& known = state.tokens.at(token);
  if (!(known.access & TOKEN_IMPERSONATE)) return call.fail(ERROR_ACCESS_DENIED, FALSE);
  state.users[std::this_thread::get_id()] = known.user;
  return call.succeed(TRUE);
}

BOOL WINAPI RevertToSelf() {
  Entry call("RevertToSelf", Entry::Noise::Quiet);
  return call.fault() ? call.fail(*call.fault(), FALSE) : revert(call);
}
