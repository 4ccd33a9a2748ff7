// Tests of reading numbers from text.
#include "support/number.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kiv::test {
namespace {

using support::toSigned32;
using support::toUnsigned32;

// The text of the exception that reading throws; "read" if it throws none.
template <class Failure, class Read>
std::string failureOf(Read read, std::wstring_view digits) {
  try {
    static_cast<void>(read(digits));
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "read";
}

TEST(NumberTest, ReadsDecimalDigitsAsASignedNumber) {
  struct Case {
    const wchar_t* digits;
    std::int32_t value;
  };
  const Case cases[] = {{L"0", 0},
                        {L"8080", 8080},
                        {L"65536", 65536},
                        {L"2147483647", 2147483647},
                        {L"0000000000000000000000000080", 80},
                        {L"010", 10},
                        {L"-1", -1},
                        {L"-2147483648", -2147483647 - 1}};
  for (const Case& c : cases) EXPECT_EQ(toSigned32(c.digits), c.value) << c.digits;
}

TEST(NumberTest, ReadsDecimalDigitsAsAnUnsignedNumber) {
  struct Case {
    const wchar_t* digits;
    std::uint32_t value;
  };
  const Case cases[] = {{L"0", 0},
                        {L"70000", 70000},
                        {L"2147483648", 2147483648},
                        {L"4294967295", 4294967295},
                        {L"0000000000000000000000000080", 80}};
  for (const Case& c : cases) EXPECT_EQ(toUnsigned32(c.digits), c.value) << c.digits;
}

TEST(NumberTest, StopsAtTheFirstCharacterThatIsNoDigit) {
  EXPECT_EQ(toSigned32(L"12x4"), 12);
  EXPECT_EQ(toUnsigned32(L"12 4"), 12U);
  EXPECT_EQ(toSigned32(std::wstring_view(L"1234").substr(0, 2)), 12);
}

TEST(NumberTest, RefusesANumberBeyondTheRange) {
  for (const wchar_t* digits : {L"2147483648", L"4294967296", L"9223372036854775808", L"99999999999999999999999",
                                L"-2147483649", L"-99999999999999999999999"}) {
    EXPECT_EQ(failureOf<std::out_of_range>(toSigned32, digits), "stoi argument out of range") << digits;
  }
  for (const wchar_t* digits : {L"4294967296", L"18446744073709551616", L"99999999999999999999999"}) {
    EXPECT_EQ(failureOf<std::out_of_range>(toUnsigned32, digits), "stoul argument out of range") << digits;
  }
}

TEST(NumberTest, RefusesATextThatIsNoNumber) {
  for (const wchar_t* digits : {L"", L"x", L"x1", L":1", L"-", L"+"}) {
    EXPECT_EQ(failureOf<std::invalid_argument>(toSigned32, digits), "invalid stoi argument") << digits;
    EXPECT_EQ(failureOf<std::invalid_argument>(toUnsigned32, digits), "invalid stoul argument") << digits;
  }
}

TEST(NumberTest, IsNotMisledByAnEarlierError) {
  errno = ERANGE;
  EXPECT_EQ(toSigned32(L"80"), 80);
  errno = ERANGE;
  EXPECT_EQ(toUnsigned32(L"80"), 80U);
}

}  // namespace
}  // namespace kiv::test
