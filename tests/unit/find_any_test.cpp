// Tests of looking for one of a few characters.
#include "support/find_any.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace kiv::test {
namespace {

using support::findAny;

TEST(FindAnyTest, FindsACharacterWhereverInTextsOfEachLengthItIs) {
  for (std::size_t length = 0; length <= 40; ++length) {
    const std::wstring without(length, L'a');
    ASSERT_EQ((findAny<L'/', L':'>(without)), length);
    for (std::size_t at = 0; at < length; ++at) {
      std::wstring text = without;
      text[at] = L':';
      ASSERT_EQ((findAny<L'/', L':'>(text)), at) << length;
      ASSERT_EQ((findAny<L';'>(text)), length);
      text.back() = L'/';
      ASSERT_EQ((findAny<L'/', L':'>(text)), at) << length;
    }
  }
}

TEST(FindAnyTest, LooksAtNothingOutsideOfTheText) {
  for (std::size_t length = 0; length <= 20; ++length) {
    const std::wstring text = L":::" + std::wstring(length, L'a') + L":::";
    EXPECT_EQ(findAny<L':'>(std::wstring_view(text).substr(3, length)), length);
  }
}

TEST(FindAnyTest, DoesNotMistakeACharacterForOneThatSharesItsLowBits) {
  EXPECT_EQ(findAny<L':'>(std::wstring(20, static_cast<wchar_t>(0x013A))), 20U);
  EXPECT_EQ(findAny<L':'>(std::wstring(20, static_cast<wchar_t>(0x3A00))), 20U);
  EXPECT_EQ(findAny<L':'>(std::wstring(20, static_cast<wchar_t>(0xFF1A))), 20U);
}

}  // namespace
}  // namespace kiv::test
