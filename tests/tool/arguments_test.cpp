// Which arguments CLI11 sees, and which it gets placeholders for.
#include "common/arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kiv::tool {
namespace {

using testing::ElementsAreArray;

bool takesValue(std::string_view option) { return option == "--cred"; }

struct Case {
  std::vector<const wchar_t*> given;
  std::vector<std::string> forParser;
  std::vector<std::wstring_view> values;
};

TEST(Arguments, GivesTheParserNoValue) {
  const std::vector<Case> cases = {
      {{}, {}, {}},
      {{L"url"}, {"0"}, {L"url"}},
      {{L"--cred", L"bob:secret", L"url"}, {"--cred", "0", "1"}, {L"bob:secret", L"url"}},
      {{L"--cred=bob:sec=ret"}, {"--cred=0"}, {L"bob:sec=ret"}},
      {{L"--cred="}, {"--cred=0"}, {L""}},
      {{L"--cred", L"-bob:secret", L"--flag"}, {"--cred", "0", "--flag"}, {L"-bob:secret"}},
      {{L"--cred", L"--flag", L"--flag"}, {"--cred", "0", "--flag"}, {L"--flag"}},
      {{L"--cred=a", L"--flag"}, {"--cred=0", "--flag"}, {L"a"}},
      {{L"--crde=secret", L"--crde", L"secret"}, {"--crde=0", "--crde", "1"}, {L"secret", L"secret"}},
      {{L"-", L""}, {"0", "1"}, {L"-", L""}},
      {{L"--", L"--flag"}, {"--", "0"}, {L"--flag"}},
      {{L"--cred", L"--", L"--flag"}, {"--cred", "0", "--flag"}, {L"--"}},
      {{L"0", L"1"}, {"0", "1"}, {L"0", L"1"}},
  };
  for (const Case& expected : cases) {
    const Arguments arguments(expected.given, takesValue);
    EXPECT_THAT(arguments.forParser(), ElementsAreArray(expected.forParser));
    for (std::size_t i = 0; i < expected.values.size(); ++i) {
      EXPECT_EQ(arguments.valueOf(std::to_string(i)), expected.values[i]);
    }
  }
}

TEST(Arguments, CopiesNoValue) {
  const std::vector<const wchar_t*> given = {L"--cred", L"bob:secret", L"--cred=bob:secret"};
  const Arguments arguments(given, takesValue);
  EXPECT_EQ(arguments.valueOf("0").data(), given[1]);
  EXPECT_EQ(arguments.valueOf("1").data(), given[2] + 7);
}

}  // namespace
}  // namespace kiv::tool
