// Tests of the small operations on text.
#include "support/text.h"

#include <gtest/gtest.h>

#include <cwctype>
#include <limits>
#include <string>
#include <string_view>

#include "unit/support/each_locale.h"

namespace kiv::test {
namespace {

using support::Decimal;
using support::toLower;
using support::trim;

TEST(TextTest, LowersTheCaseOfLettersAndOfNothingElse) {
  EXPECT_EQ(toLower(L"HtTpS://A.B-C_1@[`{"), L"https://a.b-c_1@[`{");
  EXPECT_EQ(toLower(L""), L"");
}

TEST(TextTest, TrimsEveryKindOfBlankAtBothEnds) {
  EXPECT_EQ(trim(L" \t\r\n\v\fa \t b\f\v\n\r\t "), L"a \t b");
  EXPECT_EQ(trim(L"a"), L"a");
  EXPECT_EQ(trim(L" \t"), L"");
  EXPECT_EQ(trim(L""), L"");
}

TEST(TextTest, TrimsToAPartOfTheTextItself) {
  constexpr std::wstring_view text = L"  ab ";
  EXPECT_EQ(trim(text).data(), text.data() + 2);
  EXPECT_EQ(trim(text).size(), 2U);
}

TEST(TextTest, EndsATextAtItsFirstNul) {
  using support::upToNul;
  constexpr std::wstring_view text(L"ab\0c\0", 5);
  EXPECT_EQ(upToNul(text), L"ab");
  EXPECT_EQ(upToNul(text).data(), text.data());
  EXPECT_EQ(upToNul(text.substr(0, 2)), L"ab") << "without one, it is the whole text";
  EXPECT_EQ(upToNul(text.substr(2)), L"");
  EXPECT_EQ(upToNul(std::wstring_view()), L"");
  EXPECT_EQ(upToNul(std::string_view("ab\0c", 4)), "ab");
}

TEST(TextTest, WritesPlainDecimalDigits) {
  EXPECT_EQ(Decimal(0).view(), L"0");
  EXPECT_EQ(Decimal(65535).view(), L"65535");
  EXPECT_EQ(Decimal(-1).view(), L"-1");
  EXPECT_EQ(Decimal(std::numeric_limits<int>::max()).view(), L"2147483647");
  EXPECT_EQ(Decimal(std::numeric_limits<int>::min()).view(), L"-2147483648");
}

class TextInALocaleTest : public EachLocaleTest {};

TEST_P(TextInALocaleTest, ClassifiesEveryCharacterAsTheCLibraryDoes) {
  for (wchar_t c = 1; c < 0xFFFF; ++c) {
    const std::wstring text(1, c);
    ASSERT_EQ(trim(text).empty(), std::iswspace(static_cast<wint_t>(c)) != 0) << static_cast<int>(c);
    ASSERT_EQ(toLower(text)[0], static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)))) << static_cast<int>(c);
  }
}

KIV_EACH_LOCALE(TextInALocaleTest);

}  // namespace
}  // namespace kiv::test
