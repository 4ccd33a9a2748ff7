// The system's own words for its error codes.
#include "common/system_text.h"

#include <windows.h>

#include <array>
#include <string_view>

namespace kiv::tool {

std::wstring systemText(unsigned long error) {
  std::array<wchar_t, 512> text{};
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
                                      text.data(), static_cast<DWORD>(text.size()), nullptr);
  const std::wstring_view shown(text.data(), length);
  if (shown.empty()) return L"error " + std::to_wstring(error);
  return std::wstring(shown.substr(0, shown.find_last_not_of(L" .\r\n") + 1));
}

}  // namespace kiv::tool
