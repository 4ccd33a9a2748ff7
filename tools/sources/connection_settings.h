// The two binary forms in which Windows stores proxy settings. Anybody can write them: nothing in them is trusted.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>

#include "sources/place.h"

namespace kiv::tool {

// Of a user's connection: DWORDs 0x46, a counter, flags (2 manual list, 4 script, 8 detection), then manual list,
// bypass list and script URL, each a DWORD with its length and that many characters of 8 bits. What follows is not
// used.
struct ConnectionSettings {
  std::uint32_t flags = 0;
  std::wstring manualList{};
  std::wstring bypassList{};
  std::wstring scriptUrl{};

  // What the flags switch on.
  Naming naming() const;
};

// Or what is wrong with the value.
std::variant<ConnectionSettings, std::wstring> readConnectionSettings(std::span<const std::uint8_t> data);

// Of WinHTTP for the whole machine: DWORDs 0x18 or 0x28, 0, flags (2 manual list), then manual list and bypass list as
// above.
std::variant<ConnectionSettings, std::wstring> readWinHttpSettings(std::span<const std::uint8_t> data);

}  // namespace kiv::tool
