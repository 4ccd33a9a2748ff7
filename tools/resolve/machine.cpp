// Where a report was made: the account, the computer and the versions of what took part.
#include "resolve/machine.h"

#include <windows.h>

#include <array>
#include <vector>

#include "common/presentable.h"
#include "support/owners.h"

namespace kiv::tool {
namespace {

using Token = support::Unique<HANDLE, support::CloseKernelHandle>;

Token ownToken() {
  Token token;
  OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put());
  return token;
}

std::wstring accountOf(HANDLE token) {
  std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user{};
  std::array<wchar_t, 256> name{};
  std::array<wchar_t, 256> domain{};
  DWORD size = 0;
  auto nameLength = static_cast<DWORD>(name.size());
  auto domainLength = static_cast<DWORD>(domain.size());
  SID_NAME_USE use{};
  if (!GetTokenInformation(token, TokenUser, user.data(), static_cast<DWORD>(user.size()), &size) ||
      !LookupAccountSidW(nullptr, reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, name.data(), &nameLength,
                         domain.data(), &domainLength, &use)) {
    return {};
  }
  return std::wstring(domain.data()) + L'\\' + name.data();
}

bool isElevated(HANDLE token) {
  TOKEN_ELEVATION elevation{};
  DWORD size = 0;
  return GetTokenInformation(token, TokenElevation, &elevation, sizeof(elevation), &size) && elevation.TokenIsElevated;
}

std::wstring computerName() {
  std::array<wchar_t, 256> name{};
  auto length = static_cast<DWORD>(name.size());
  return GetComputerNameExW(ComputerNameDnsFullyQualified, name.data(), &length) ? name.data() : std::wstring();
}

// The manifest says that the tool knows Windows 10, so that Windows does not pretend to be an older version.
std::wstring windowsVersion() {
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof(version);
  if (!GetVersionExW(&version)) return {};
  return std::to_wstring(version.dwMajorVersion) + L'.' + std::to_wstring(version.dwMinorVersion) + L'.' +
         std::to_wstring(version.dwBuildNumber);
}

std::wstring versionOf(const wchar_t* module) {
  const HMODULE loaded = GetModuleHandleW(module);
  std::array<wchar_t, 1024> path{};
  if (!loaded || GetModuleFileNameW(loaded, path.data(), static_cast<DWORD>(path.size())) == 0) return {};
  std::vector<std::byte> block(GetFileVersionInfoSizeW(path.data(), nullptr));
  VS_FIXEDFILEINFO* info = nullptr;
  UINT size = 0;
  if (block.empty() || !GetFileVersionInfoW(path.data(), 0, static_cast<DWORD>(block.size()), block.data()) ||
      !VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &size)) {
    return {};
  }
  return std::to_wstring(HIWORD(info->dwFileVersionMS)) + L'.' + std::to_wstring(LOWORD(info->dwFileVersionMS)) + L'.' +
         std::to_wstring(HIWORD(info->dwFileVersionLS)) + L'.' + std::to_wstring(LOWORD(info->dwFileVersionLS));
}

}  // namespace

void learnNames(const std::wstring& account, const std::wstring& computer, Redaction& redaction) {
  redaction.learn(computer, L"this-computer");
  redaction.learn(computer.substr(0, computer.find(L'.')), L"this-computer");
  const std::size_t domain = account.find(L'\\');
  if (domain != std::wstring::npos) redaction.learn(account.substr(0, domain), L"this-domain");
  redaction.learn(account.substr(domain + 1), L"this-user");
}

Machine thisMachine(Redaction* redaction) {
  const Token token = ownToken();
  Machine machine{.user = presentable(accountOf(token.get())),
                  .elevated = isElevated(token.get()),
                  .computer = presentable(computerName()),
                  .windows = windowsVersion(),
                  .winHttp = versionOf(L"winhttp.dll"),
                  .kiv = versionOf(L"kiv.dll")};
  if (!redaction) return machine;
  learnNames(machine.user, machine.computer, *redaction);
  machine.user = (*redaction)(machine.user);
  machine.computer = (*redaction)(machine.computer);
  return machine;
}

}  // namespace kiv::tool
