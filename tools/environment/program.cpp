// A program to be started: where it is, its command line, and its run.
#include "environment/program.h"

#include <algorithm>
#include <array>

#include "common/ascii.h"
#include "support/owners.h"

namespace kiv::tool {
namespace {

using std::wstring_view;
using support::CloseKernelHandle;
using support::Unique;

// ERROR_ELEVATION_REQUIRED, which MinGW-w64's headers lack.
constexpr DWORD kElevationRequired = 740;

struct KnownProblem {
  DWORD error;
  wstring_view text;
};

constexpr KnownProblem kProblems[] = {
    {ERROR_FILE_NOT_FOUND, L"it was not found: ERROR_FILE_NOT_FOUND"},
    {ERROR_ACCESS_DENIED, L"access is denied: ERROR_ACCESS_DENIED"},
    {ERROR_BAD_EXE_FORMAT, L"it is not a program for this machine: ERROR_BAD_EXE_FORMAT"},
    {ERROR_FILENAME_EXCED_RANGE, L"the command line is too long: ERROR_FILENAME_EXCED_RANGE"},
    {kElevationRequired, L"it must be run as administrator: ERROR_ELEVATION_REQUIRED"},
};

constexpr std::array kExtensions = {L".exe", L".com", L".cmd", L".bat"};

// Calls a function of Windows that fills a buffer: it returns the length, or the size that it needs.
template <class Fill>
std::wstring filled(Fill fill) {
  std::wstring text(MAX_PATH, L'\0');
  while (true) {
    const auto length = static_cast<std::size_t>(fill(static_cast<DWORD>(text.size()), text.data()));
    const bool complete = length < text.size();
    text.resize(length);
    if (complete) return text;
  }
}

std::wstring search(const std::wstring& name, const wchar_t* extension) {
  return filled([&](DWORD size, wchar_t* buffer) {
    return SearchPathW(nullptr, name.c_str(), extension, size, buffer, nullptr);
  });
}

std::wstring existing(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return {};
  return filled([&](DWORD size, wchar_t* buffer) { return GetFullPathNameW(path.c_str(), size, buffer, nullptr); });
}

bool hasFolder(wstring_view name) { return name.find_first_of(L"\\/:") != wstring_view::npos; }

bool hasExtension(wstring_view name) {
  const std::size_t dot = name.find_last_of(L".\\/:");
  return dot != wstring_view::npos && name[dot] == L'.';
}

bool endsWith(wstring_view text, wstring_view lowerCase) {
  return text.size() >= lowerCase.size() &&
         std::ranges::equal(text.substr(text.size() - lowerCase.size()), lowerCase, {}, asciiLower<wchar_t>);
}

// What cmd reads within quotes too, and what a batch file that drops the quotes would let it read.
bool isUnsafeForCmd(wstring_view text) {
  return text.find_first_of(L"\"%!&|<>^") != wstring_view::npos ||
         std::ranges::any_of(text, [](wchar_t c) { return c < 0x20; });
}

std::wstring inQuotes(wstring_view argument) {
  std::wstring text = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : argument) {
    // Backslashes count only in front of a quote: there each stands for half a one.
    if (c == L'"') text.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    text += c;
  }
  return text.append(backslashes, L'\\') + L'"';
}

// For cmd, "," ";" and "=" separate arguments too.
std::wstring quotedForBatchFile(wstring_view argument) {
  constexpr wstring_view kSeparators = L" \t,;=()'`+@[]{}~";
  return argument.empty() || argument.find_first_of(kSeparators) != wstring_view::npos ? inQuotes(argument)
                                                                                       : std::wstring(argument);
}

CommandText batchCommandOf(const std::wstring& program, ArgumentList arguments, const std::wstring& commandProcessor) {
  if (isUnsafeForCmd(program)) return {.problem = L"the batch file's path has a character that cmd would read"};
  // /d: without AutoRun. /v:off: "!" is plain. /s: the outer quotes go, and those within stay.
  std::wstring line = L"\"" + commandProcessor + L"\" /d /v:off /s /c \"\"" + program + L"\"";
  for (const wstring_view argument : arguments) {
    if (isUnsafeForCmd(argument)) {
      return {.problem =
                  L"an argument has one of \" % ! & | < > ^ or a control character, which cmd could read as a "
                  L"part of the command"};
    }
    line += L" " + quotedForBatchFile(argument);
  }
  return {.application = commandProcessor, .line = line + L"\""};
}

// Programs of one console get Ctrl-C all at once. Without a handler it would end this one, and nobody would wait for
// the program. To ignore it in the other manner, without a function, would be inherited.
BOOL WINAPI leaveToProgram(DWORD event) { return event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT; }

class CtrlCForProgram {
 public:
  CtrlCForProgram() { SetConsoleCtrlHandler(leaveToProgram, TRUE); }
  CtrlCForProgram(const CtrlCForProgram&) = delete;
  CtrlCForProgram& operator=(const CtrlCForProgram&) = delete;
  ~CtrlCForProgram() { SetConsoleCtrlHandler(leaveToProgram, FALSE); }
};

}  // namespace

std::wstring findProgram(wstring_view name) {
  SetSearchPathMode(BASE_SEARCH_PATH_ENABLE_SAFE_SEARCHMODE);
  const std::wstring text(name);
  const auto found = [&](const wchar_t* extension) {
    return hasFolder(name) ? existing(text + extension) : existing(search(text + extension, nullptr));
  };
  if (name.empty()) return {};
  // Beside npm.cmd there may be a file npm for other systems, so a name without an extension is tried last as it is.
  if (hasExtension(name)) {
    if (std::wstring path = found(L""); !path.empty()) return path;
  }
  for (const wchar_t* const extension : kExtensions) {
    if (std::wstring path = found(extension); !path.empty()) return path;
  }
  return hasExtension(name) ? std::wstring() : found(L"");
}

bool isBatchFile(wstring_view path) {
  // Windows drops these at the end of a name.
  const wstring_view name = path.substr(0, path.find_last_not_of(L" .") + 1);
  return endsWith(name, L".cmd") || endsWith(name, L".bat");
}

std::wstring quotedArgument(wstring_view argument) {
  const bool plain = !argument.empty() && argument.find_first_of(L" \t\n\v\"") == wstring_view::npos;
  return plain ? std::wstring(argument) : inQuotes(argument);
}

CommandText commandTextOf(const std::wstring& program, ArgumentList arguments, const std::wstring& commandProcessor) {
  if (isBatchFile(program)) return batchCommandOf(program, arguments, commandProcessor);
  // The program's name is read by other rules: up to the next quote.
  std::wstring line = L"\"" + program + L"\"";
  for (const wstring_view argument : arguments) line += L" " + quotedArgument(argument);
  return {.application = program, .line = std::move(line)};
}

ProgramEnd runProgram(const CommandText& command, Wiped<wchar_t> environmentBlock) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  std::wstring line = command.line;  // CreateProcessW may change it
  const CtrlCForProgram ctrlC;
  PROCESS_INFORMATION created{};
  if (!CreateProcessW(command.application.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT,
                      environmentBlock.data(), nullptr, &startup, &created)) {
    return {.error = GetLastError()};
  }
  const Unique<HANDLE, CloseKernelHandle> process(created.hProcess);
  const Unique<HANDLE, CloseKernelHandle> thread(created.hThread);
  // The program has a copy of its own; this one may have a password.
  environmentBlock = {};
  WaitForSingleObject(process.get(), INFINITE);
  DWORD exitCode = 0;
  if (!GetExitCodeProcess(process.get(), &exitCode)) return {.error = GetLastError()};
  return {.exitCode = exitCode};
}

std::wstring startProblem(std::uint32_t error) {
  const auto* const known = std::ranges::find(kProblems, error, &KnownProblem::error);
  const std::wstring number = std::to_wstring(error);
  return known == std::ranges::end(kProblems) ? L"error " + number : std::wstring(known->text) + L" (" + number + L")";
}

std::wstring pathOfCommandProcessor() {
  return filled([](DWORD size, wchar_t* buffer) { return GetSystemDirectoryW(buffer, size); }) + L"\\cmd.exe";
}

}  // namespace kiv::tool
