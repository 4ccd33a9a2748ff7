// Printf-style formatting into a text of just the needed size.
#pragma once

#include <array>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

#include "support/platform.h"

namespace kiv::support {

// What is written in place of one conversion. Its type says how, so that a conversion cannot misread it.
class FormatArgument {
 public:
  // NOLINTBEGIN(google-explicit-constructor): arguments are written as they are
  FormatArgument(const wchar_t* text) : text_(text) {}
  FormatArgument(int number);
  FormatArgument(unsigned long number);
  // NOLINTEND(google-explicit-constructor)

  std::wstring_view view() const { return text_ ? text_ : std::wstring_view(digits_.data(), length_); }

 private:
  template <class Number>
  void write(Number number);

  const wchar_t* text_ = nullptr;
  std::array<wchar_t, 20> digits_;  // as many as the largest number has where a long has 64 bits
  std::size_t length_ = 0;
};

std::wstring format(std::wstring_view text, std::initializer_list<FormatArgument> arguments);

// The library's messages use "%d" (int), "%lu" (unsigned long) and "%ls" (const wchar_t*), each of which stands for the
// next argument, and "%%". Any other "%" is written as it stands.
//
// No C library is asked: to Windows' one, U+FFFF is also WEOF, the value that means failure, and the texts of others
// may hold that character.
template <class... Arguments>
std::wstring format(std::wstring_view text, const Arguments&... arguments) {
  return format(text, std::initializer_list<FormatArgument>{arguments...});
}

// The line of a failed system call: "<call> failed. ErrorCode = <error>".
std::wstring failureOf(const wchar_t* call, DWORD error);

}  // namespace kiv::support
