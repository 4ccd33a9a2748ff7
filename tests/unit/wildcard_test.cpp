// Tests of the patterns of bypass rules.
#include "discovery/wildcard.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "oracle/random_text.h"
#include "oracle/wildcard_oracle.h"
#include "unit/support/each_locale.h"

namespace kiv::test {
namespace {

using impl::WildcardToRegex;

struct Case {
  const wchar_t* pattern;
  const wchar_t* text;
};

TEST(WildcardTest, CoversTheWholeText) {
  const std::vector<Case> cases = {
      {L"", L""},
      {L"example.com", L"example.com"},
      {L"*", L""},
      {L"*", L"anything at all"},
      {L"**", L""},
      {L"*example.com", L"example.com"},
      {L"*example.com", L"www.example.com"},
      {L"*.corp.example", L"a.corp.example"},
      {L"10.*", L"10.1.2.3"},
      {L"10.*", L"10.example"},
      {L"10.*", L"10."},
      {L"a*b*c", L"abc"},
      {L"a*b*c", L"a-b-b-c-c"},
      {L"*a*a*", L"aa"},
      {L"*aab", L"aaaab"},
      {L"*ab*ab", L"abab"},
  };
  for (const Case& c : cases) EXPECT_TRUE(WildcardToRegex(c.pattern).matches(c.text)) << c.pattern << " " << c.text;
}

TEST(WildcardTest, DoesNotCoverATextOfWhichAnythingIsLeft) {
  const std::vector<Case> cases = {
      {L"", L"a"},
      {L"example.com", L"www.example.com"},
      {L"example.com", L"example.com."},
      {L"example.com", L"example"},
      {L"*.corp.example", L"corp.example"},
      {L"10.*", L"110.1"},
      {L"10.*", L"10"},
      {L"a*b*c", L"acb"},
      {L"*a*a*", L"a"},
      {L"*aab", L"aabb"},
      {L"*ab*ab", L"ab"},
      {L"a b", L"ab"},
  };
  for (const Case& c : cases) EXPECT_FALSE(WildcardToRegex(c.pattern).matches(c.text)) << c.pattern << " " << c.text;
}

TEST(WildcardTest, IgnoresCase) {
  EXPECT_TRUE(WildcardToRegex(L"*.corp.example").matches(L"A.CORP.EXAMPLE"));
  EXPECT_TRUE(WildcardToRegex(L"*.CORP.Example").matches(L"a.corp.eXAMPLE"));
}

TEST(WildcardTest, TakesEveryCharacterButTheStarLiterally) {
  constexpr std::wstring_view others = L"\\+.?{}()[]^$|-/,_ !\"#%&'<=>@`~:;";
  for (const wchar_t c : others) {
    const std::wstring text = std::wstring(L"a") + c + L"b";
    const impl::WildcardPattern pattern = WildcardToRegex(text);
    EXPECT_TRUE(pattern.matches(text)) << static_cast<int>(c);
    EXPECT_FALSE(pattern.matches(L"b")) << static_cast<int>(c);
    EXPECT_FALSE(pattern.matches(L"ab")) << static_cast<int>(c);
    EXPECT_FALSE(pattern.matches(L"axb")) << static_cast<int>(c);
    EXPECT_FALSE(pattern.matches(L"aab")) << static_cast<int>(c);
  }
  EXPECT_FALSE(WildcardToRegex(L"[ab]").matches(L"a"));
  EXPECT_FALSE(WildcardToRegex(L"a{2}").matches(L"aa"));
  EXPECT_FALSE(WildcardToRegex(L"\\d").matches(L"1"));
  EXPECT_TRUE(WildcardToRegex(L"\\*").matches(L"\\x"));
}

TEST(WildcardTest, DoesNotLetAStarCoverALineEnd) {
  EXPECT_FALSE(WildcardToRegex(L"a*b").matches(L"a\nb"));
  EXPECT_FALSE(WildcardToRegex(L"a*b").matches(L"a\rb"));
  EXPECT_FALSE(WildcardToRegex(L"a*").matches(L"a\x2028"));
  EXPECT_FALSE(WildcardToRegex(L"a*").matches(L"a\x2029"));
  EXPECT_TRUE(WildcardToRegex(L"a\x2028*").matches(L"a\x2028x"));
  EXPECT_TRUE(WildcardToRegex(L"a\n*b").matches(L"a\nxb"));
  EXPECT_TRUE(WildcardToRegex(L"a*\n*b").matches(L"ax\nxb"));
  EXPECT_FALSE(WildcardToRegex(L"*\n*b").matches(L"\n\nb"));
  EXPECT_TRUE(WildcardToRegex(L"a*b").matches(L"a\t\vb"));
}

TEST(WildcardTest, GivesUpSoonOnAPatternThatIsAllStars) {
  std::wstring pattern;
  for (int i = 0; i < 10'000; ++i) pattern += L"*a";
  const std::wstring text(254, L'a');
  EXPECT_FALSE(WildcardToRegex(pattern + L"b").matches(text));
  EXPECT_TRUE(WildcardToRegex(std::wstring(1 << 20, L'*')).matches(text));
}

TEST(WildcardOracleTest, TranslatesPatternsToRegularExpressions) {
  const WildcardOracle oracle;
  EXPECT_EQ(oracle.translate(L"*.example.com"), L".*\\.example\\.com");
  EXPECT_EQ(oracle.translate(L"10.0.*"), L"10\\.0\\..*");
  EXPECT_EQ(oracle.translate(L"\\+.?{}()[]^$|-/,_"), L"\\\\\\+\\.\\?\\{\\}\\(\\)\\[\\]\\^\\$\\|-/,_");
}

class WildcardAgainstItsExpressionTest : public EachLocaleTest {
 protected:
  // Whether the pattern covers the text. Fails the test if matcher and expression differ.
  bool compare(const std::wstring& pattern, const std::wstring& text) {
    const bool expected = oracle_.matches(pattern, text);
    EXPECT_EQ(WildcardToRegex(pattern).matches(text), expected)
        << ::testing::PrintToString(pattern) << " as " << ::testing::PrintToString(oracle_.translate(pattern)) << " on "
        << ::testing::PrintToString(text);
    return expected;
  }

 private:
  WildcardOracle oracle_;
};

TEST_P(WildcardAgainstItsExpressionTest, EqualsItOnEveryShortPatternAndText) {
  const auto all = [](std::wstring_view alphabet, std::size_t longest) {
    std::vector<std::wstring> texts = {L""};
    for (std::size_t i = 0; i < texts.size(); ++i) {
      if (texts[i].size() == longest) break;
      for (const wchar_t c : alphabet) texts.push_back(texts[i] + c);
    }
    return texts;
  };
  const std::vector<std::wstring> texts = all(L"ab\n", 4);
  for (const std::wstring& pattern : all(L"*Ab\n", 5)) {
    for (const std::wstring& text : texts) {
      compare(pattern, text);
      if (HasFailure()) return;
    }
  }
}

TEST_P(WildcardAgainstItsExpressionTest, EqualsItOnRandomTexts) {
  constexpr int kTextsEach = 10;
  RandomText random(20'261);
  int covered = 0;
  for (int i = 0; i < kTextsPerLocale / kTextsEach && !HasFailure(); ++i) {
    const std::wstring pattern = random.pattern();
    for (int j = 0; j < kTextsEach && !HasFailure(); ++j) {
      covered += compare(pattern, random.coveredBy(pattern)) ? 1 : 0;
    }
  }
  EXPECT_GT(covered, kTextsPerLocale / 4);
  EXPECT_LT(covered, kTextsPerLocale / 4 * 3);
}

KIV_EACH_LOCALE(WildcardAgainstItsExpressionTest);

}  // namespace
}  // namespace kiv::test
