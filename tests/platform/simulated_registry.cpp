// The registry, as far as one can watch it: keys that exist or not, and notifications of their changes.
#include <algorithm>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

std::wstring toLower(std::wstring_view path) {
  std::wstring lower(path);
  for (wchar_t& c : lower) {
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c + 32);
  }
  return lower;
}

bool isWithin(std::wstring_view path, std::wstring_view key) {
  return path.starts_with(key) && (path.size() == key.size() || path[key.size()] == L'\\');
}

LONG newKey(Entry& call, std::wstring path, REGSAM access, PHKEY result) {
  for (const std::wstring& missing : call.windows().registry.missing) {
    if (isWithin(path, toLower(missing))) return call.failWith<LONG>(ERROR_FILE_NOT_FOUND);
  }
  void* handle = call.state().newHandle(Kind::RegistryKey, "registry key");
  call.state().registry.keys[handle] = {std::move(path), access};
  *result = static_cast<HKEY>(handle);
  return call.succeed(LONG{ERROR_SUCCESS});
}

// The path of a key that is open, or always there; empty if it is neither.
std::wstring pathOf(Entry& call, HKEY key) {
  if (key == HKEY_CURRENT_USER) return L"hkcu";
  if (key == HKEY_LOCAL_MACHINE) return L"hklm";
  if (!call.state().check(key, Kind::RegistryKey, call.name())) return {};
  return call.state().registry.keys.at(key).path;
}

std::wstring describe(Entry& call, HKEY key) {
  if (key == HKEY_CURRENT_USER) return L"HKEY_CURRENT_USER";
  if (key == HKEY_LOCAL_MACHINE) return L"HKEY_LOCAL_MACHINE";
  return call.state().nameOf(key);
}

// Fires, and so ends, the watches that the condition selects.
template <class Condition>
void fire(State& state, Condition isMet) {
  std::erase_if(state.registry.watches, [&](const Watch& watch) {
    if (!isMet(watch)) return false;
    state.signal(watch.event);
    return true;
  });
}

void fireFor(State& state, std::wstring_view path, DWORD change) {
  fire(state, [&](const Watch& watch) {
    const std::wstring& key = state.registry.keys.at(watch.key).path;
    return (watch.filter & change) && (watch.subtree ? isWithin(path, key) : path == key);
  });
}

}  // namespace

void SimulatedWindows::changeRegistry(std::wstring_view path) {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  fireFor(*state_, toLower(path), REG_NOTIFY_CHANGE_LAST_SET);
}

void SimulatedWindows::createRegistryKey(std::wstring_view path) {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  const std::wstring created = toLower(path);
  std::erase_if(registry.missing, [&](const std::wstring& missing) { return toLower(missing) == created; });
  // It is the key above that changes.
  fireFor(*state_, std::wstring_view(created).substr(0, created.rfind(L'\\')), REG_NOTIFY_CHANGE_NAME);
}

}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

LONG WINAPI RegOpenCurrentUser(REGSAM access, PHKEY result) {
  Entry call("RegOpenCurrentUser");
  call.flags(L"access", access);
  if (call.fault()) return call.failWith<LONG>(*call.fault());
  if (!result) return call.failWith<LONG>(ERROR_INVALID_PARAMETER);
  return newKey(call, L"hkcu", access, result);
}

LONG WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result) {
  Entry call("RegOpenKeyExW");
  call.text(L"key", std::wstring_view(describe(call, key))).text(L"subKey", subKey).number(L"options", options);
  call.flags(L"access", access);
  if (call.fault()) return call.failWith<LONG>(*call.fault());
  std::wstring path = pathOf(call, key);
  if (path.empty()) return call.failWith<LONG>(ERROR_INVALID_HANDLE);
  if (!result) return call.failWith<LONG>(ERROR_INVALID_PARAMETER);
  if (subKey && *subKey) path.append(L"\\").append(toLower(subKey));
  return newKey(call, std::move(path), access, result);
}

LONG WINAPI RegNotifyChangeKeyValue(HKEY key, BOOL watchSubtree, DWORD filter, HANDLE event, BOOL asynchronous) {
  Entry call("RegNotifyChangeKeyValue");
  call.text(L"key", std::wstring_view(describe(call, key))).number(L"subtree", watchSubtree ? 1 : 0);
  call.flags(L"filter", filter).handle(L"event", event).number(L"asynchronous", asynchronous ? 1 : 0);
  State& state = call.state();
  if (!state.check(key, Kind::RegistryKey, call.name())) return call.failWith<LONG>(ERROR_INVALID_HANDLE);
  const bool agnostic = (filter & REG_NOTIFY_THREAD_AGNOSTIC) != 0;
  if (call.fault()) {
    state.registry.keys.at(key).refusedAgnostic |= agnostic;
    return call.failWith<LONG>(*call.fault());
  }
  if (!asynchronous || !state.check(event, Kind::Event, call.name()))
    return call.failWith<LONG>(ERROR_INVALID_PARAMETER);
  if (!(state.registry.keys.at(key).access & KEY_NOTIFY)) return call.failWith<LONG>(ERROR_ACCESS_DENIED);
  if (!agnostic && !state.registry.keys.at(key).refusedAgnostic) {
    state.complaints.push_back(state.resources.at(key).name + " is watched only until the calling thread ends");
  }
  state.registry.watches.push_back({key, watchSubtree != FALSE, filter, event});
  return call.succeed(LONG{ERROR_SUCCESS});
}

LONG WINAPI RegCloseKey(HKEY key) {
  Entry call("RegCloseKey");
  call.text(L"key", std::wstring_view(describe(call, key)));
  if (key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE) return call.succeed(LONG{ERROR_SUCCESS});
  State& state = call.state();
  if (!state.release(key, Kind::RegistryKey, call.name())) return call.failWith<LONG>(ERROR_INVALID_HANDLE);
  fire(state, [&](const Watch& watch) { return watch.key == key; });
  return call.succeed(LONG{ERROR_SUCCESS});
}
