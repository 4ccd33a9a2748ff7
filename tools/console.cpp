// Text in and out of the process: UTF-8 in files and pipes, the console's own text on a console.
#include "console.h"

#include <windows.h>

#include <array>

namespace kiv::tool {
namespace {

HANDLE handleOf(Stream stream) { return GetStdHandle(stream == Stream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE); }

bool isConsole(HANDLE handle) {
  DWORD mode = 0;
  return GetConsoleMode(handle, &mode) != FALSE;
}

}  // namespace

std::string toUtf8(std::wstring_view text) {
  const int length = static_cast<int>(text.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), size, nullptr, nullptr);
  return utf8;
}

std::wstring toWide(std::string_view utf8) {
  const int length = static_cast<int>(utf8.size());
  const int size = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
  std::wstring text(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, text.data(), size);
  return text;
}

bool showsColours(Stream stream) {
  const HANDLE handle = handleOf(stream);
  DWORD mode = 0;
  return GetConsoleMode(handle, &mode) && SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

std::size_t consoleWidth(Stream stream) {
  constexpr std::size_t kUsual = 80;
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!GetConsoleScreenBufferInfo(handleOf(stream), &info) || info.dwSize.X <= 0) return kUsual;
  return static_cast<std::size_t>(info.dwSize.X);
}

void print(Stream stream, std::wstring_view text) {
  const HANDLE handle = handleOf(stream);
  DWORD written = 0;
  if (isConsole(handle)) {
    WriteConsoleW(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    return;
  }
  const std::string utf8 = toUtf8(text);
  for (std::string_view rest = utf8; !rest.empty(); rest.remove_prefix(written)) {
    if (!WriteFile(handle, rest.data(), static_cast<DWORD>(rest.size()), &written, nullptr) || written == 0) return;
  }
}

std::string readInput() {
  std::string text;
  std::array<char, 4096> part{};
  DWORD read = 0;
  while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), part.data(), static_cast<DWORD>(part.size()), &read, nullptr) &&
         read > 0) {
    text.append(part.data(), read);
  }
  SecureZeroMemory(part.data(), part.size());
  return text;
}

}  // namespace kiv::tool
