// How programs are found, and what they are given; some are run.
#include "environment/program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shellapi.h>

#include <filesystem>
#include <fstream>

#include "environment/environment_block.h"

namespace kiv::tool {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using namespace std::string_literals;

constexpr const wchar_t* kCmd = L"C:\\w\\cmd.exe";

CommandText commandOf(const wchar_t* program, const std::vector<const wchar_t*>& arguments) {
  return commandTextOf(program, arguments, kCmd);
}

TEST(CommandTextOf, IsReadBackAsItWasWritten) {
  const std::vector<const wchar_t*> arguments = {L"",           L"a",
                                                 L"a b",        L"a\tb",
                                                 L"\"",         L"\\\"",
                                                 L"a\\",        L"a b\\",
                                                 L"a b\\\\",    L"\\\\server\\x",
                                                 L"say \"hi\"", L"%PATH%&|",
                                                 L"^!'`$",      L"\x65E5\x672C",
                                                 L"--",         L"a\"\\\\\"b\\\\"};
  const CommandText command = commandOf(L"C:\\with blank\\p.exe", arguments);
  int count = 0;
  wchar_t** const read = CommandLineToArgvW(command.line.c_str(), &count);
  ASSERT_EQ(static_cast<std::size_t>(count), arguments.size() + 1);
  EXPECT_STREQ(read[0], L"C:\\with blank\\p.exe");
  for (std::size_t at = 0; at < arguments.size(); ++at) EXPECT_STREQ(read[at + 1], arguments[at]);
  LocalFree(read);
  EXPECT_EQ(command.application, L"C:\\with blank\\p.exe");
}

TEST(CommandTextOf, GivesBatchFilesToCmd) {
  const CommandText command = commandOf(L"C:\\a b\\x.CMD", {L"plain", L"a b", L"a=b,c", L"", L"dir\\", L"b c\\"});
  EXPECT_EQ(command.application, kCmd);
  EXPECT_EQ(
      command.line,
      L"\"C:\\w\\cmd.exe\" /d /v:off /s /c \"\"C:\\a b\\x.CMD\" plain \"a b\" \"a=b,c\" \"\" dir\\ \"b c\\\\\"\"");
}

TEST(CommandTextOf, RefusesArgumentsThatCmdCouldRead) {
  for (const wchar_t* const argument :
       {L"a\"b", L"%PATH%", L"!x!", L"a&calc", L"a|b", L"<a", L">a", L"a^b", L"a\nb", L"a\rb", L"\x1A"}) {
    const CommandText command = commandOf(L"C:\\x.bat", {L"fine", argument});
    EXPECT_NE(command.problem, L"") << argument;
    EXPECT_EQ(command.line, L"") << argument;
    EXPECT_EQ(commandOf(L"C:\\x.exe", {argument}).problem, L"") << argument;
  }
  EXPECT_NE(commandOf(L"C:\\a%b\\x.bat", {}).problem, L"");
}

TEST(IsBatchFile, SeesThroughCaseAndWhatWindowsDrops) {
  for (const wchar_t* const path : {L"a.bat", L"C:\\x\\A.CMD", L"a.bat.", L"a.cmd .. "}) EXPECT_TRUE(isBatchFile(path));
  for (const wchar_t* const path : {L"a.exe", L"bat", L"a.bat.exe", L""}) EXPECT_FALSE(isBatchFile(path));
}

TEST(FindProgram, FindsWhatWindowsFinds) {
  EXPECT_THAT(findProgram(L"cmd"), EndsWith(L"\\cmd.exe"));
  EXPECT_THAT(findProgram(L"cmd.exe"), EndsWith(L"\\cmd.exe"));
  EXPECT_EQ(findProgram(pathOfCommandProcessor()), pathOfCommandProcessor());
  for (const wchar_t* const name :
       {L"", L"no-such-program", L"C:\\no-such-program.exe", L"C:\\windows", L".\\cmd.exe"}) {
    EXPECT_EQ(findProgram(name), L"") << name;
  }
}

ProgramEnd runInCmd(const wchar_t* command) {
  const std::vector<const wchar_t*> arguments = {L"/d", L"/c", command};
  return runProgram(commandTextOf(pathOfCommandProcessor(), arguments, pathOfCommandProcessor()), ownEnvironment());
}

TEST(RunProgram, ReturnsTheExitCodeInFull) {
  EXPECT_EQ(runInCmd(L"exit 0").exitCode, 0u);
  EXPECT_EQ(runInCmd(L"exit 305419896").exitCode, 305419896u);
  EXPECT_EQ(runInCmd(L"exit -1073741819").exitCode, 0xC0000005u);
}

TEST(RunProgram, GivesTheProgramItsEnvironment) {
  const std::wstring inherited = L"HTTP_PROXY=old\0PATH=x\0"s;
  std::vector<Variable> variables;
  variables.push_back({kHttpProxy, Wiped<wchar_t>{L'n', L'e', L'w'}});
  const std::vector<const wchar_t*> arguments = {L"/d", L"/c", L"if %HTTP_PROXY%==new exit 7"};
  const auto command = commandTextOf(pathOfCommandProcessor(), arguments, pathOfCommandProcessor());
  EXPECT_EQ(runProgram(command, mergedBlock(inherited, variables)).exitCode, 7u);
}

// A batch file in the folder of temporary files, which is removed at the end.
class BatchFile {
 public:
  explicit BatchFile(const std::string& text) {
    path_.resize(MAX_PATH);
    path_.resize(GetTempPathW(MAX_PATH, path_.data()));
    path_ += L"kiv (test) " + std::to_wstring(GetCurrentProcessId()) + L".cmd";
    std::ofstream(std::filesystem::path(path_)) << text;
  }
  BatchFile(const BatchFile&) = delete;
  BatchFile& operator=(const BatchFile&) = delete;
  ~BatchFile() { DeleteFileW(path_.c_str()); }
  const std::wstring& path() const { return path_; }

 private:
  std::wstring path_;
};

TEST(RunProgram, RunsBatchFilesWithTheirArguments) {
  const BatchFile file("@if \"%~1\"==\"a b\" if \"%~2\"==\"c=d,e\" if \"%~3\"==\"\" exit 9\r\n");
  EXPECT_EQ(findProgram(file.path()), file.path());
  const std::vector<const wchar_t*> arguments = {L"a b", L"c=d,e", L""};
  const auto command = commandTextOf(file.path(), arguments, pathOfCommandProcessor());
  EXPECT_EQ(runProgram(command, ownEnvironment()).exitCode, 9u);
}

TEST(RunProgram, SaysWhyAProgramCannotBeStarted) {
  const ProgramEnd end = runProgram({.application = L"C:\\no-such-program.exe", .line = L"x"}, ownEnvironment());
  EXPECT_EQ(end.error, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
  EXPECT_THAT(startProblem(end.error), HasSubstr(L"ERROR_FILE_NOT_FOUND (2)"));
  EXPECT_EQ(startProblem(4711), L"error 4711");
}

}  // namespace
}  // namespace kiv::tool
