// Printf-style formatting into a text of just the needed size.
#include "log/format.h"

#include <array>
#include <cstdarg>
#include <cwchar>

#ifndef _WIN32
#include <cstdio>
#include <cstdlib>
#endif

namespace kiv::impl {
namespace {

// Most lines fit, and are so written in one pass. Both C libraries answer with a negative number for one that does not.
constexpr std::size_t kShort = 256;

// Windows measures with a pass of its own. The other C library measures only by writing to a stream.
#ifdef _WIN32
int measure(const wchar_t* text, va_list arguments) { return _vscwprintf(text, arguments); }
int write(wchar_t* buffer, std::size_t size, const wchar_t* text, va_list arguments) {
  return _vsnwprintf(buffer, size, text, arguments);
}
#else
int measure(const wchar_t* text, va_list arguments) {
  wchar_t* written = nullptr;
  std::size_t length = 0;
  FILE* stream = open_wmemstream(&written, &length);
  if (!stream) return -1;
  const int count = std::vfwprintf(stream, text, arguments);  // NOLINT(clang-analyzer-valist.Uninitialized)
  (void)std::fclose(stream);
  std::free(written);
  return count;
}
int write(wchar_t* buffer, std::size_t size, const wchar_t* text, va_list arguments) {
  return std::vswprintf(buffer, size, text, arguments);
}
#endif

}  // namespace

std::wstring format(const wchar_t* text, ...) {  // NOLINT(cert-dcl50-cpp): only such an argument list can be passed on
  std::array<wchar_t, kShort> buffer;
  va_list arguments;
  va_start(arguments, text);
  const int written = write(buffer.data(), buffer.size(), text, arguments);
  va_end(arguments);
  if (written >= 0) return {buffer.data(), static_cast<std::size_t>(written)};
  va_start(arguments, text);
  const int length = measure(text, arguments);
  va_end(arguments);
  if (length <= 0) return {};
  std::wstring result(static_cast<std::size_t>(length), L'\0');
  va_start(arguments, text);
  write(result.data(), result.size() + 1, text, arguments);
  va_end(arguments);
  return result;
}

std::wstring failureOf(const wchar_t* call, DWORD error) {
  return format(L"%ls failed. ErrorCode = %lu", call, static_cast<unsigned long>(error));
}

}  // namespace kiv::impl
