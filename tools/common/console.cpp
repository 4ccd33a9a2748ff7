// Text in and out of the process: UTF-8 in files and pipes, the console's own text on a console.
#include "common/console.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>

namespace kiv::tool {
namespace {

// What is printed, and the console's mode, belong to one thread at a time: Windows calls onEnd on a thread of its own.
std::timed_mutex outputMutex;
bool ending = false;
std::optional<DWORD> formerMode;

HANDLE handleOf(Stream stream) { return GetStdHandle(stream == Stream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE); }

// GetConsoleMode fails for pipes and files.
bool isConsole(HANDLE handle) {
  DWORD mode = 0;
  return GetConsoleMode(handle, &mode) != FALSE;
}

// In parts: the documentation of WriteConsole limits what one call can write.
void writeConsole(HANDLE console, std::wstring_view text) {
  constexpr std::size_t kMost = 8192;
  DWORD written = 0;
  for (; !text.empty(); text.remove_prefix(written)) {
    const auto count = static_cast<DWORD>(std::min(text.size(), kMost));
    if (!WriteConsoleW(console, text.data(), count, &written, nullptr) || written == 0) return;
  }
}

void restoreMode() {
  if (formerMode) SetConsoleMode(handleOf(Stream::Error), *formerMode);
  formerMode.reset();
}

// Called for Ctrl-C, Ctrl-Break and a closed window. After FALSE Windows calls the next handler, which ends the
// process. Until then the other threads continue: nothing that they print may follow the restored mode.
BOOL WINAPI onEnd(DWORD /*event*/) {
  // A thread that writes to a pipe which nobody reads keeps the lock for ever; the process must end nevertheless.
  const std::unique_lock lock(outputMutex, std::chrono::seconds(1));
  if (!lock) return FALSE;
  ending = true;
  // The live line, if there is one: all else ends with a new line.
  if (formerMode) writeConsole(handleOf(Stream::Error), L"\r\x1b[K");
  restoreMode();
  return FALSE;
}

// See no-color.org: the variable counts if it is there and not empty. The size includes the terminator.
bool userWantsColours() { return GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) <= 1; }

// ReadFile would give the characters in the console's code page, and zeros for some if that is UTF-8.
Wiped<wchar_t> readConsole(HANDLE console) {
  constexpr wchar_t kCtrlZ = L'\x1A';
  Wiped<wchar_t> text;
  Wiped<wchar_t> part(4096);
  bool lineBegins = true;
  while (true) {
    DWORD read = 0;
    SetLastError(ERROR_SUCCESS);
    if (!ReadConsoleW(console, part.data(), static_cast<DWORD>(part.size()), &read, nullptr)) return text;
    // After Ctrl-C the call succeeds without characters, and perhaps before the process is ended. What was typed must
    // not be used then.
    if (read == 0 && GetLastError() == ERROR_OPERATION_ABORTED) return {};
    if (read == 0 || (lineBegins && part.front() == kCtrlZ)) return text;
    text.insert(text.end(), part.begin(), part.begin() + read);
    lineBegins = text.back() == L'\n';
  }
}

Wiped<wchar_t> readUtf8(HANDLE handle) {
  Wiped<char> utf8;
  Wiped<char> part(4096);
  DWORD read = 0;
  while (ReadFile(handle, part.data(), static_cast<DWORD>(part.size()), &read, nullptr) && read > 0) {
    utf8.insert(utf8.end(), part.begin(), part.begin() + read);
  }
  const int length = static_cast<int>(utf8.size());
  const int size = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
  Wiped<wchar_t> text(static_cast<std::size_t>(size));
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, text.data(), size);
  return text;
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

StyledConsole::StyledConsole() : styled_(false), coloursWanted_(userWantsColours()) {
  const HANDLE console = handleOf(Stream::Error);
  DWORD mode = 0;
  if (!GetConsoleMode(console, &mode)) return;
  SetConsoleCtrlHandler(onEnd, TRUE);
  const std::lock_guard lock(outputMutex);
  styled_ = SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
  if (styled_) formerMode = mode;
}

StyledConsole::~StyledConsole() {
  {
    const std::lock_guard lock(outputMutex);
    restoreMode();
  }
  SetConsoleCtrlHandler(onEnd, FALSE);
}

std::size_t consoleWidth(Stream stream) {
  constexpr std::size_t kUsual = 80;
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!GetConsoleScreenBufferInfo(handleOf(stream), &info) || info.dwSize.X <= 0) return kUsual;
  return static_cast<std::size_t>(info.dwSize.X);
}

bool print(Stream stream, std::wstring_view text) {
  const std::lock_guard lock(outputMutex);
  if (ending) return false;
  const HANDLE handle = handleOf(stream);
  if (isConsole(handle)) {
    writeConsole(handle, text);
    return true;
  }
  const std::string utf8 = toUtf8(text);
  DWORD written = 0;
  for (std::string_view rest = utf8; !rest.empty(); rest.remove_prefix(written)) {
    if (!WriteFile(handle, rest.data(), static_cast<DWORD>(rest.size()), &written, nullptr) || written == 0)
      return false;
  }
  return true;
}

Wiped<wchar_t> readInput() {
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  return isConsole(input) ? readConsole(input) : readUtf8(input);
}

void* windowOfConsole() {
  // In Windows Terminal the console's own window is never shown. Its root owner is the terminal's window.
  const HWND window = GetAncestor(GetConsoleWindow(), GA_ROOTOWNER);
  return IsWindowVisible(window) ? window : nullptr;
}

}  // namespace kiv::tool
