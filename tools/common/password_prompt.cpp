// Asks for a password at the console.
#include "common/password_prompt.h"

#include <windows.h>

#include <atomic>

#include "support/owners.h"

namespace kiv::tool {
namespace {

using UniqueHandle = support::Unique<HANDLE, support::CloseKernelHandle>;

// The console itself, wherever the standard handles lead. CreateFile documents these names.
UniqueHandle openConsole(const wchar_t* name) {
  HANDLE const console = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     OPEN_EXISTING, 0, nullptr);
  return UniqueHandle(console == INVALID_HANDLE_VALUE ? nullptr : console);
}

// Input that is not shown while this object lives. A console keeps its mode when a program ends, so it is restored on
// Ctrl-C too. There is one such object at a time.
class HiddenInput {
 public:
  explicit HiddenInput(HANDLE input) {
    DWORD mode = 0;
    if (!GetConsoleMode(input, &mode)) return;
    formerMode = mode;
    hidden = input;
    SetConsoleCtrlHandler(onEnd, TRUE);
    SetConsoleMode(input, (mode | ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT) & ~DWORD{ENABLE_ECHO_INPUT});
  }
  HiddenInput(const HiddenInput&) = delete;
  HiddenInput& operator=(const HiddenInput&) = delete;
  ~HiddenInput() {
    restore();
    SetConsoleCtrlHandler(onEnd, FALSE);
  }

 private:
  // Windows calls it on a thread of its own; whoever is first restores.
  static BOOL WINAPI onEnd(DWORD /*event*/) {
    restore();
    return FALSE;  // the next handler ends the process
  }
  static void restore() {
    if (HANDLE const input = hidden.exchange(nullptr)) SetConsoleMode(input, formerMode);
  }

  static inline std::atomic<HANDLE> hidden = nullptr;
  static inline DWORD formerMode = 0;
};

void write(HANDLE console, std::wstring_view text) {
  DWORD written = 0;
  WriteConsoleW(console, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

}  // namespace

std::optional<Wiped<wchar_t>> readPassword(std::wstring_view prompt) {
  const UniqueHandle input = openConsole(L"CONIN$");
  const UniqueHandle output = openConsole(L"CONOUT$");
  if (!input || !output) return std::nullopt;
  Wiped<wchar_t> line(1024);
  DWORD length = 0;
  write(output.get(), prompt);
  {
    const HiddenInput hidden(input.get());
    SetLastError(ERROR_SUCCESS);
    // After Ctrl-C the call succeeds without characters, and perhaps before the process is ended.
    if (!ReadConsoleW(input.get(), line.data(), static_cast<DWORD>(line.size()), &length, nullptr) ||
        (length == 0 && GetLastError() == ERROR_OPERATION_ABORTED)) {
      return std::nullopt;
    }
  }
  write(output.get(), L"\r\n");
  while (length > 0 && (line[length - 1] == L'\n' || line[length - 1] == L'\r')) --length;
  line.resize(length);
  return line;
}

}  // namespace kiv::tool
