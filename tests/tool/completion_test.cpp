// The options that a command line lists for completion, and those that it refuses.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "common/command_line.h"

namespace kiv::tool {
namespace {

struct Written {
  Value url;
  Value method;
  bool all = false;
};
constexpr ValueOption<Written> kValues[] = {
    {"URL", &Written::url, "", anything, "The URL"},
    {"--method", &Written::method, "head|get", anything, "The method"},
};
constexpr Flag<Written> kFlags[] = {{"--all", &Written::all, "Everything"}};

TEST(CommandLine, ListsItsOptionsForCompletion) {
  Written written;
  CommandLine commandLine("test", "Tests.");
  commandLine.add(kValues, written);
  commandLine.add(kFlags, written);
  const std::array<const wchar_t*, 1> arguments = {kListOptions.data()};
  const auto exit = commandLine.parse(arguments);
  ASSERT_TRUE(exit);
  EXPECT_EQ(exit->code, 0);
  EXPECT_EQ(exit->text,
            "--help\t\tPrint this help message and exit\n--method\thead|get\tThe method\n--all\t\tEverything\n");
}

TEST(CommandLine, SaysWhyItRefusesAnOptionAndDoesNotListIt) {
  constexpr Refused kRefused[] = {{"--trace", "nothing is logged"}};
  struct Case {
    std::vector<const wchar_t*> arguments;
    const char* text;
  } const cases[] = {
      {{L"u", L"--trace", L"file"}, "test: --trace: nothing is logged (see --help)\n"},
      {{L"--trace=file", L"u"}, "test: --trace: nothing is logged (see --help)\n"},
      {{L"u", L"--tracer"}, "test: unknown option --tracer (see --help)\n"},
      // Not an option, but the value of one, and what follows the end of the options.
      {{L"--method", L"--trace", L"u"}, nullptr},
      {{L"--", L"--trace"}, nullptr},
  };
  for (const auto& [arguments, text] : cases) {
    Written written;
    CommandLine commandLine("test", "Tests.");
    commandLine.add(kValues, written);
    commandLine.refuse(kRefused);
    const auto exit = commandLine.parse(arguments);
    EXPECT_EQ(exit ? exit->text : "", text ? text : "");
    const std::array<const wchar_t*, 1> list = {kListOptions.data()};
    EXPECT_EQ(commandLine.parse(list)->text.find("--trace"), std::string::npos);
  }
}

}  // namespace
}  // namespace kiv::tool
