// Ports of characters that the C library classifies as digits, not all of which it also reads as numbers.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "unit/support/each_locale.h"

namespace kiv::test {

struct OddPort {
  const wchar_t* text;
  bool isOfDigits;           // the grammar takes it for a port
  std::optional<int> value;  // what it is read as

  // A port by the grammar, but not a number.
  constexpr bool isUnreadable() const { return isOfDigits && !value; }
};

// On Windows every locale takes the digits of other scripts and superscripts for digits, but does not read
// superscripts; elsewhere only those of ASCII are digits, in the "C" locale and in "C.UTF-8".
#ifdef _WIN32
inline constexpr OddPort kOddPorts[] = {{L"\x00B2", true, std::nullopt},
                                        {L"\x00B2"
                                         L"1",
                                         true, std::nullopt},
                                        {L"1\x00B2", true, 1},
                                        {L"80\x00B9", true, 80},
                                        {L"\xFF18\xFF10", true, 80},
                                        {L"\x0668\x0660", true, 80}};
#else
inline constexpr OddPort kOddPorts[] = {{L"\x00B2", false, std::nullopt},
                                        {L"\x00B2"
                                         L"1",
                                         false, std::nullopt},
                                        {L"1\x00B2", false, std::nullopt},
                                        {L"80\x00B9", false, std::nullopt},
                                        {L"\xFF18\xFF10", false, std::nullopt},
                                        {L"\x0668\x0660", false, std::nullopt}};
#endif

// Calls `check` with each of them, in each locale.
template <class Check>
void forEachOddPort(Check check) {
  for (const char* const name : kLocales) {
    const GlobalLocale locale(name);
    for (const OddPort& port : kOddPorts) {
      SCOPED_TRACE(::testing::PrintToString(std::wstring(port.text)) + " in " + name);
      check(port);
    }
  }
}

}  // namespace kiv::test
