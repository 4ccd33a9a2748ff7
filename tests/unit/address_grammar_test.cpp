// Tests of the grammar of an address.
#include "config/address_grammar.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "oracle/address_oracle.h"
#include "oracle/random_text.h"
#include "unit/support/each_locale.h"

namespace kiv::test {
namespace {

using impl::AddressParts;
using impl::splitAddress;
using Groups = AddressOracle::Groups;

Groups groupsOf(const AddressParts& parts) {
  return {parts.scheme, parts.user, parts.password, parts.host, parts.port, parts.path, parts.query};
}

std::optional<Groups> split(std::wstring_view text) {
  const std::optional<AddressParts> parts = splitAddress(text);
  return parts ? std::optional(groupsOf(*parts)) : std::nullopt;
}

TEST(AddressGrammarTest, SplitsAnAddressIntoItsParts) {
  struct Case {
    const wchar_t* text;
    Groups groups;  // scheme, user, password, host, port, path, query
  };
  const std::vector<Case> cases = {
      {L"h", {L"", L"", L"", L"h", L"", L"", L""}},
      {L"s://u:p@h:1/a/b?q", {L"s", L"u", L"p", L"h", L"1", L"a/b", L"q"}},
      {L"s://h", {L"s", L"", L"", L"h", L"", L"", L""}},
      {L"u:p@h", {L"", L"u", L"p", L"h", L"", L"", L""}},
      {L"h:1", {L"", L"", L"", L"h", L"1", L"", L""}},
      {L"h:0", {L"", L"", L"", L"h", L"0", L"", L""}},
      {L"h:1/", {L"", L"", L"", L"h", L"1", L"", L""}},
      {L"h/", {L"", L"", L"", L"h", L"", L"", L""}},
      {L"h/?q", {L"", L"", L"", L"h", L"", L"", L"q"}},
      {L"h/p?q=1&r", {L"", L"", L"", L"h", L"", L"p", L"q=1&r"}},
      {L"h//p//", {L"", L"", L"", L"h", L"", L"/p//", L""}},
      {L"1:2@3:4", {L"", L"1", L"2", L"3", L"4", L"", L""}},
      {L"*://*.a-b_c:80", {L"*", L"", L"", L"*.a-b_c", L"80", L"", L""}},
  };
  for (const Case& c : cases) EXPECT_EQ(split(c.text), c.groups) << c.text;
}

TEST(AddressGrammarTest, RefusesATextThatIsNoAddress) {
  const std::vector<const wchar_t*> texts = {
      L"",        L"/",     L":",     L"@",      L"?",         L"://",      L"s://",      L"h:",      L":1",
      L"h:x",     L"h:1x",  L"h:1:2", L"h:1 2",  L"h?q",       L"h:1?q",    L"h/p?",      L"h/p?q?r", L"h/p?q/r",
      L"h/p:1",   L"h/p@x", L"@h",    L"u@h",    L"u:@h",      L":p@h",     L"u:p:q@h",   L"u:p@",    L"u:p@@h",
      L"u/v:p@h", L"s:/h",  L"s:h",   L"s:///h", L"s://t://h", L"[::1]:80", L"[fe80::1]", L"s:// :p", L"//h",
  };
  for (const wchar_t* text : texts) EXPECT_FALSE(splitAddress(text)) << text;
}

TEST(AddressGrammarTest, DropsBlanksInFrontOfTheTextAndBehindAPort) {
  const Groups expected = {L"", L"", L"", L"h", L"1", L"", L""};
  EXPECT_EQ(split(L" \t\r\n\v\fh:1 \t\r\n\v\f"), expected);
}

TEST(AddressGrammarTest, LeavesBlanksElsewhereInThePartThatTheyAreIn) {
  struct Case {
    const wchar_t* text;
    Groups groups;
  };
  const std::vector<Case> cases = {
      {L" h ", {L"", L"", L"", L"h ", L"", L"", L""}},
      {L"a b", {L"", L"", L"", L"a b", L"", L"", L""}},
      {L" s :// u : p @ h :1", {L"s ", L" u ", L" p ", L" h ", L"1", L"", L""}},
      {L"h:1/ p ? q ", {L"", L"", L"", L"h", L"1", L" p ", L" q "}},
      {L"h:1/ ", {L"", L"", L"", L"h", L"1", L" ", L""}},
      {L"a\nb", {L"", L"", L"", L"a\nb", L"", L"", L""}},
  };
  for (const Case& c : cases) EXPECT_EQ(split(c.text), c.groups) << c.text;
}

TEST(AddressGrammarTest, KeepsTheLastBlankWhenAPartWouldBeEmptyWithoutIt) {
  struct Case {
    const wchar_t* text;
    Groups groups;
  };
  const std::vector<Case> cases = {
      {L"\t ", {L"", L"", L"", L" ", L"", L"", L""}},       {L"\t ://h", {L" ", L"", L"", L"h", L"", L"", L""}},
      {L"\t :p@h", {L"", L" ", L"p", L"h", L"", L"", L""}}, {L"\t :1", {L"", L"", L"", L" ", L"1", L"", L""}},
      {L"\t /p", {L"", L"", L"", L" ", L"", L"p", L""}},
  };
  for (const Case& c : cases) EXPECT_EQ(split(c.text), c.groups) << c.text;
}

TEST(AddressGrammarTest, TreatsAZeroAsAnOrdinaryCharacter) {
  constexpr std::wstring_view text(L"a\0b:1", 5);
  const Groups expected = {L"", L"", L"", text.substr(0, 3), L"1", L"", L""};
  EXPECT_EQ(split(text), expected);
}

TEST(AddressGrammarTest, HandsOutPartsOfTheTextItself) {
  constexpr std::wstring_view text = L"s://u:p@h:1/a?q";
  const std::optional<AddressParts> parts = splitAddress(text);
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->scheme.data(), text.data());
  EXPECT_EQ(parts->user.data(), text.data() + 4);
  EXPECT_EQ(parts->password.data(), text.data() + 6);
  EXPECT_EQ(parts->host.data(), text.data() + 8);
  EXPECT_EQ(parts->port.data(), text.data() + 10);
  EXPECT_EQ(parts->path.data(), text.data() + 12);
  EXPECT_EQ(parts->query.data(), text.data() + 14);
}

TEST(AddressGrammarTest, SurvivesAMebibyteOfAnyOneCharacter) {
  constexpr std::size_t kLength = 1 << 20;
  for (const wchar_t c : std::wstring_view(L"h/:@?1 \n")) {
    const std::wstring text(kLength, c);
    EXPECT_EQ(splitAddress(text).has_value(), std::wstring_view(L"/:@?").find(c) == std::wstring_view::npos);
    EXPECT_EQ(splitAddress(L"h" + text).has_value(), std::wstring_view(L":@?").find(c) == std::wstring_view::npos);
  }
}

class AddressGrammarAgainstItsExpressionTest : public EachLocaleTest {
 protected:
  // Whether the text is an address. Fails the test if matcher and expression differ.
  bool compare(std::wstring_view text) {
    const std::optional<Groups> expected = oracle_.split(text);
    const std::optional<Groups> actual = split(text);
    EXPECT_TRUE(actual == expected) << ::testing::PrintToString(std::wstring(text)) << "\nmatcher gave "
                                    << ::testing::PrintToString(actual) << "\nexpression gave "
                                    << ::testing::PrintToString(expected);
    return expected.has_value();
  }

 private:
  AddressOracle oracle_;
};

TEST_P(AddressGrammarAgainstItsExpressionTest, EqualsItOnEveryShortText) {
  // One character of each kind that the expression tells apart.
  constexpr std::wstring_view alphabet = L"/:@? 1a";
  std::vector<std::wstring> texts = {L""};
  for (std::size_t i = 0; i < texts.size() && !HasFailure(); ++i) {
    compare(texts[i]);
    if (texts[i].size() == 5) continue;
    for (const wchar_t c : alphabet) texts.push_back(texts[i] + c);
  }
}

TEST_P(AddressGrammarAgainstItsExpressionTest, EqualsItOnRandomTexts) {
  RandomText random(20'260);
  int addresses = 0;
  for (int i = 0; i < kTextsPerLocale && !HasFailure(); ++i) addresses += compare(random.address()) ? 1 : 0;
  EXPECT_GT(addresses, kTextsPerLocale / 4);
  EXPECT_LT(addresses, kTextsPerLocale / 4 * 3);
}

KIV_EACH_LOCALE(AddressGrammarAgainstItsExpressionTest);

}  // namespace
}  // namespace kiv::test
