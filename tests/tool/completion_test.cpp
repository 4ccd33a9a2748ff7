// The options that a command line lists for completion.
#include <gtest/gtest.h>

#include <array>

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

}  // namespace
}  // namespace kiv::tool
