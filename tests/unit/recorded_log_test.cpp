// Proves that the log of the tests records what it is given, and notices passwords.
#include "unit/support/recorded_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

namespace kiv::test {
namespace {

using ::testing::ElementsAre;

TEST(RecordedLogTest, KeepsLinesWithTheLetterOfTheirLevel) {
  const RecordedLog log;
  KivLogger_Error(log.logger(), L"one");
  KivLogger_Warn(log.logger(), L"two");
  KivLogger_Info(log.logger(), L"");
  KivLogger_Debug(log.logger(), L"four");
  EXPECT_THAT(log.lines(), ElementsAre(L"E: one", L"W: two", L"I: ", L"D: four"));
  EXPECT_EQ(log.count(L"W: two"), 1U);
}

TEST(RecordedLogTest, AddsAFailureForALineThatHoldsAPassword) {
  const auto logged = [](std::wstring_view password) {
    RecordedLog log;
    KivLogger_Info(log.logger(), L"open sesame!");
    log.forbid(password);
  };
  EXPECT_NONFATAL_FAILURE(logged(L"sesame"), "a password was logged in: I: open sesame!");
  logged(L"Sesame");
  logged(L"");
}

TEST(RecordedLogTest, ChecksTheLinesThatItForgets) {
  const auto cleared = [] {
    RecordedLog log({L"sesame"});
    KivLogger_Debug(log.logger(), L"sesame");
    log.clear();
    EXPECT_TRUE(log.lines().empty());
  };
  EXPECT_NONFATAL_FAILURE(cleared(), "a password was logged in: D: sesame");
}

}  // namespace
}  // namespace kiv::test
