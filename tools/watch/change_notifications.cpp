// Notifications of changed settings and of a changed network, from kiv-session.dll.
#include "watch/change_notifications.h"

#include <array>
#include <string_view>

#include "common/system_text.h"

namespace kiv::tool {
namespace {

std::wstring besideThisProgram(const wchar_t* name) {
  std::array<wchar_t, 32768> path{};
  const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
  const std::wstring_view program(path.data(), length);
  return std::wstring(program.substr(0, program.rfind(L'\\') + 1)) + name;
}

template <class Function>
Function lookUp(const support::UniqueModule& module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module.get(), name)));
}

void onChange(void* event) { SetEvent(event); }

}  // namespace

ChangeNotifications::ChangeNotifications()
    : changed_(CreateEventW(nullptr, FALSE, FALSE, nullptr)), problem_(begin()) {}

ChangeNotifications::~ChangeNotifications() {
  if (session_) destruct_(session_);
}

std::wstring ChangeNotifications::begin() {
  const std::wstring path = besideThisProgram(L"kiv-session.dll");
  *library_.put() = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (!library_) return L"cannot load " + path + L": " + systemText(GetLastError());
  const auto create = lookUp<decltype(&KivSession_Create)>(library_, "KivSession_Create");
  const auto setChanged = lookUp<decltype(&KivSession_SetChanged)>(library_, "KivSession_SetChanged");
  const auto setText = lookUp<decltype(&KivSession_SetText)>(library_, "KivSession_SetText");
  const auto resolve = lookUp<decltype(&KivSession_Resolve)>(library_, "KivSession_Resolve");
  destruct_ = lookUp<decltype(&KivSession_Destruct)>(library_, "KivSession_Destruct");
  if (!create || !setChanged || !setText || !resolve || !destruct_) return path + L" is not a kiv-session.dll";

  KivStatus status = changed_ ? create(L"kiv-resolve", &session_) : KIV_STATUS_OUT_OF_MEMORY;
  if (status == KIV_STATUS_OK) status = setChanged(session_, onChange, changed_.get());
  // A session begins to watch with its first resolution. This one is answered by its bypass list: it reads no settings
  // and connects to nothing.
  if (status == KIV_STATUS_OK) status = setText(session_, KIV_OPTION_BYPASS_LIST, L"*");
  KivDecision* decision = nullptr;
  if (status == KIV_STATUS_OK) status = resolve(session_, L"http://localhost/", KIV_NO_TIME_OUT, &decision);
  if (const auto release = lookUp<decltype(&KivDecision_Release)>(library_, "KivDecision_Release")) release(decision);
  return status == KIV_STATUS_OK ? std::wstring() : path + L": status " + std::to_wstring(status);
}

}  // namespace kiv::tool
