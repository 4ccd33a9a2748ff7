// The versions of files that take part.
#include "resolve/module_version.h"

#include <windows.h>

#include <array>
#include <cstddef>
#include <vector>

namespace kiv::tool {

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

}  // namespace kiv::tool
