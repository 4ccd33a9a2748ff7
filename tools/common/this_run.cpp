// Who asks, and where: the account, its rights, the session and the version of Windows.
#include "common/this_run.h"

#include <windows.h>

#include <sddl.h>

#include <array>
#include <cstddef>

#include "support/owners.h"

namespace kiv::tool {
namespace {

using UniqueToken = support::Unique<HANDLE, support::CloseKernelHandle>;

struct FreeLocalBlock {
  void operator()(wchar_t* block) const noexcept { LocalFree(block); }
};
using UniqueLocalText = support::Unique<wchar_t*, FreeLocalBlock>;

std::wstring computerName() {
  std::array<wchar_t, 256> name{};
  auto size = static_cast<DWORD>(name.size());
  return GetComputerNameExW(ComputerNameDnsFullyQualified, name.data(), &size) ? std::wstring(name.data(), size) : L"";
}

std::wstring accountOf(PSID sid) {
  std::array<wchar_t, 256> name{};
  std::array<wchar_t, 256> domain{};
  auto nameSize = static_cast<DWORD>(name.size());
  auto domainSize = static_cast<DWORD>(domain.size());
  SID_NAME_USE use{};
  if (!LookupAccountSidW(nullptr, sid, name.data(), &nameSize, domain.data(), &domainSize, &use)) return {};
  return std::wstring(domain.data(), domainSize) + L'\\' + std::wstring(name.data(), nameSize);
}

void readAccount(HANDLE token, ThisRun& run) {
  alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> block{};
  DWORD size = 0;
  if (!GetTokenInformation(token, TokenUser, block.data(), static_cast<DWORD>(block.size()), &size)) return;
  const PSID sid = reinterpret_cast<const TOKEN_USER*>(block.data())->User.Sid;
  run.account = accountOf(sid);
  UniqueLocalText text;
  if (ConvertSidToStringSidW(sid, text.put())) run.sid = text.get();
}

std::optional<bool> elevationOf(HANDLE token) {
  TOKEN_ELEVATION elevation{};
  DWORD size = 0;
  if (!GetTokenInformation(token, TokenElevation, &elevation, sizeof(elevation), &size)) return std::nullopt;
  return elevation.TokenIsElevated != 0;
}

std::optional<unsigned> currentSession() {
  DWORD session = 0;
  if (!ProcessIdToSessionId(GetCurrentProcessId(), &session)) return std::nullopt;
  return session;
}

// GetVersionEx tells a program the version that its manifest names; this function tells the system's.
std::wstring windowsVersion() {
  using GetVersion = LONG(WINAPI*)(OSVERSIONINFOW*);
  const auto address = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion");
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof(version);
  if (!address || reinterpret_cast<GetVersion>(reinterpret_cast<void*>(address))(&version) != 0) return {};
  return std::to_wstring(version.dwMajorVersion) + L'.' + std::to_wstring(version.dwMinorVersion) + L'.' +
         std::to_wstring(version.dwBuildNumber);
}

}  // namespace

ThisRun readThisRun() {
  ThisRun run = {.computer = computerName(), .session = currentSession(), .windows = windowsVersion()};
  UniqueToken token;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put())) return run;
  readAccount(token.get(), run);
  run.elevated = elevationOf(token.get());
  return run;
}

void learnNames(const ThisRun& run, Redaction& redaction) {
  redaction.learn(run.computer, L"this-computer");
  redaction.learn(run.computer.substr(0, run.computer.find(L'.')), L"this-computer");
  const std::size_t domain = run.account.find(L'\\');
  if (domain != std::wstring::npos) redaction.learn(run.account.substr(0, domain), L"this-domain");
  redaction.learn(run.account.substr(domain + 1), L"this-user");
}

void redact(ThisRun& run, Redaction& redaction) {
  learnNames(run, redaction);
  run.computer = redaction(run.computer);
  run.account = redaction(run.account);
  // It names the domain and the user.
  run.sid.clear();
}

}  // namespace kiv::tool
