// Runs a program on this program's console. Prints its exit code, whether the console's mode was another one meanwhile,
// and whether it is the former one afterwards.
//
//   console_parent [--interrupt | --interrupt-when FILE | --type LINE] PROGRAM [ARGUMENT...]
//
// Ends with 7, so that a program that runs it can be told from one that has ended itself.
//
// --interrupt sends Ctrl-C as soon as the mode has changed, --interrupt-when as soon as the file exists. --type types a
// line, and Ctrl-Z on a line of its own.
#include <windows.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace {

DWORD consoleMode() {
  DWORD mode = 0;
  GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode);
  return mode;
}

// Programs on the same console get the same event. This one continues.
BOOL WINAPI ignore(DWORD /*event*/) { return TRUE; }

// The console keeps the keys until a program reads them.
void type(std::wstring_view text) {
  for (const wchar_t character : text) {
    INPUT_RECORD key{};
    key.EventType = KEY_EVENT;
    key.Event.KeyEvent.bKeyDown = TRUE;
    key.Event.KeyEvent.wRepeatCount = 1;
    key.Event.KeyEvent.wVirtualKeyCode = character == L'\r' ? VK_RETURN : 0;
    key.Event.KeyEvent.uChar.UnicodeChar = character;
    DWORD written = 0;
    WriteConsoleInputW(GetStdHandle(STD_INPUT_HANDLE), &key, 1, &written);
  }
}

bool exists(const wchar_t* file) { return GetFileAttributesW(file) != INVALID_FILE_ATTRIBUTES; }

std::wstring commandLineOf(wchar_t** arguments) {
  std::wstring line;
  for (; *arguments; ++arguments) line.append(L"\"").append(*arguments).append(L"\" ");
  return line;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  const bool interrupt = count > 2 && std::wstring_view(arguments[1]) == L"--interrupt";
  const bool waits = count > 3 && std::wstring_view(arguments[1]) == L"--interrupt-when";
  const bool types = count > 3 && std::wstring_view(arguments[1]) == L"--type";
  if (types) type(std::wstring(arguments[2]) + L"\r\x1A\r");
  std::wstring line = commandLineOf(arguments + (types || waits ? 3 : interrupt ? 2 : 1));
  SetConsoleCtrlHandler(ignore, TRUE);
  const DWORD before = consoleMode();
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) return 1;
  bool changed = false;
  bool awaited = waits;
  while (WaitForSingleObject(process.hProcess, 20) == WAIT_TIMEOUT) {
    if (awaited && exists(arguments[2])) {
      awaited = false;
      GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
    }
    if (changed || consoleMode() == before) continue;
    changed = true;
    if (interrupt) GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
  }
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  // Without blanks, which Wine writes as moves of the cursor.
  std::printf("exit=%lx,mode=%s,then=%s\n", code, changed ? "changed" : "unchanged",
              consoleMode() == before ? "restored" : "different");
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return 7;
}
