// Tests of bypass lists.
#include "discovery/bypass_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "oracle/bypass_oracle.h"
#include "oracle/plain_host_oracle.h"
#include "oracle/random_text.h"
#include "platform/platform_test.h"
#include "unit/support/each_locale.h"

namespace kiv::test {
namespace {

using impl::AddressScheme;
using impl::BuildBypassRules;
using impl::BypassInvalidRule;
using impl::BypassLocalRule;
using impl::BypassPatternRule;
using impl::BypassRule;
using impl::IsPlainHostName;
using impl::MakeBypassRule;
using impl::MatchesBypassPattern;
using impl::ParsedAddress;
using impl::SplitBypassList;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

bool matchesRule(const BypassRule& rule, const ParsedAddress& target) { return impl::anyRuleMatches({rule}, target); }

ParsedAddress hostOnly(std::wstring_view host) {
  ParsedAddress target;
  target.host = host;
  target.kind = AddressScheme::Http;
  return target;
}

class BypassRulesTest : public PlatformTest {
 protected:
  // Whether a list sends a target direct.
  static bool bypasses(const std::wstring& list, const std::wstring& target) {
    const std::optional<ParsedAddress> address = impl::parseAddress(target, false);
    if (!address) ADD_FAILURE() << target << " is no address";
    return impl::anyRuleMatches(BuildBypassRules(list), *address);
  }
};

TEST_F(BypassRulesTest, MakesNoRulesOfNothing) {
  for (const wchar_t* list : {L"", L";", L" ; ;", L";;;", L" ", L"\t\n;"}) {
    EXPECT_THAT(BuildBypassRules(list), IsEmpty()) << list;
  }
}

TEST_F(BypassRulesTest, DividesAListAtSemicolonsOnly) {
  EXPECT_THAT(SplitBypassList(L"a;b"), ElementsAre(L"a", L"b"));
  EXPECT_THAT(SplitBypassList(L"a b,c"), ElementsAre(L"a b,c"));
  EXPECT_THAT(SplitBypassList(L" \ta \n; b\r"), ElementsAre(L"a", L"b"));
  EXPECT_THAT(SplitBypassList(L"a"), ElementsAre(L"a"));
}

TEST_F(BypassRulesTest, MakesEntriesOfBlankStretchesButNotOfEmptyOnes) {
  EXPECT_THAT(SplitBypassList(L""), IsEmpty());
  EXPECT_THAT(SplitBypassList(L";a;;b;"), ElementsAre(L"a", L"b"));
  EXPECT_THAT(SplitBypassList(L" ;a; "), ElementsAre(L"", L"a", L""));
  EXPECT_THAT(SplitBypassList(L" "), ElementsAre(L""));
}

TEST_F(BypassRulesTest, HandsOutEntriesThatPointIntoTheList) {
  constexpr std::wstring_view list = L"a; b ";
  const std::vector<std::wstring_view> entries = SplitBypassList(list);
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].data(), list.data());
  EXPECT_EQ(entries[1].data(), list.data() + 3);
}

TEST_F(BypassRulesTest, OrdersTheAlternativesOfARule) {
  EXPECT_EQ(MakeBypassRule(L"h").index(), 0U);
  EXPECT_EQ(MakeBypassRule(L"<local>").index(), 1U);
  EXPECT_EQ(MakeBypassRule(L"").index(), 2U);
}

TEST_F(BypassRulesTest, TreatsOnlyTheExactTextLocalAsTheLocalRule) {
  EXPECT_TRUE(std::holds_alternative<BypassLocalRule>(MakeBypassRule(L"<local>")));
  for (const wchar_t* entry : {L"<LOCAL>", L"<Local>", L"<local", L"local", L"<local>:80", L" <local>"}) {
    EXPECT_TRUE(std::holds_alternative<BypassPatternRule>(MakeBypassRule(entry))) << entry;
  }
  EXPECT_TRUE(std::holds_alternative<BypassLocalRule>(BuildBypassRules(L" <local> ").at(0)));
}

TEST_F(BypassRulesTest, SendsHostsWithoutADotDirectByTheLocalRule) {
  EXPECT_TRUE(bypasses(L"<local>", L"http://intranet/"));
  EXPECT_FALSE(bypasses(L"<local>", L"http://intranet.corp/"));
}

TEST_F(BypassRulesTest, TreatsOnlyAHostWithoutADotAsLocal) {
  for (const wchar_t* host :
       {L"intranet", L"localhost", L"LOCALHOST", L"a-b_c", L" intranet ", L"\tintranet\n", L"*", L"[1]"}) {
    EXPECT_TRUE(IsPlainHostName(hostOnly(host))) << host;
  }
  for (const wchar_t* host : {L"", L" ", L"127.0.0.1", L"[::1]", L"::1", L"a.b", L"a.", L".", L"a b", L"a/b", L"a:1",
                              L"u@h", L"a?b", L"localhost.localdomain"}) {
    EXPECT_FALSE(IsPlainHostName(hostOnly(host))) << host;
  }
}

TEST_F(BypassRulesTest, MatchesHostsByAPatternWithoutRegardToCase) {
  EXPECT_TRUE(bypasses(L"*.corp.example", L"a.corp.example"));
  EXPECT_TRUE(bypasses(L"*.corp.example", L"A.CORP.EXAMPLE"));
  EXPECT_FALSE(bypasses(L"*.corp.example", L"corp.example"));
}

TEST_F(BypassRulesTest, DoesNotRestrictAStarToDigits) {
  EXPECT_TRUE(bypasses(L"10.*", L"10.1.2.3"));
  EXPECT_TRUE(bypasses(L"10.*", L"10.example"));
}

TEST_F(BypassRulesTest, MatchesTheWholeHost) {
  EXPECT_FALSE(bypasses(L"example.com", L"www.example.com"));
  EXPECT_TRUE(bypasses(L"*example.com", L"www.example.com"));
  EXPECT_TRUE(bypasses(L"*example.com", L"example.com"));
}

TEST_F(BypassRulesTest, ComparesAPortWithTheTargetsExplicitOrDefaultPort) {
  EXPECT_TRUE(bypasses(L"intranet:8080", L"http://intranet:8080/"));
  EXPECT_FALSE(bypasses(L"intranet:8080", L"http://intranet/"));
  EXPECT_TRUE(bypasses(L"intranet:80", L"http://intranet/"));
  EXPECT_TRUE(bypasses(L"intranet:80", L"intranet"));
  EXPECT_TRUE(bypasses(L"intranet:443", L"https://intranet/"));
  EXPECT_FALSE(bypasses(L"intranet:443", L"https://intranet:80/"));
  for (const wchar_t* scheme : {L"socks", L"socks4", L"socks5"}) {
    EXPECT_TRUE(bypasses(L"intranet:1080", std::wstring(scheme) + L"://intranet")) << scheme;
  }
  EXPECT_TRUE(bypasses(L"intranet", L"http://intranet:8080/"));
}

TEST_F(BypassRulesTest, DoesNotMatchARuleWithAPortIfTheTargetHasNeitherPortNorKnownScheme) {
  for (const wchar_t* rule : {L"intranet:80", L"intranet:0", L"intranet:21"}) {
    EXPECT_FALSE(bypasses(rule, L"ftp://intranet/")) << rule;
    EXPECT_FALSE(bypasses(rule, L"proxy://intranet/")) << rule;
  }
  EXPECT_TRUE(bypasses(L"intranet:21", L"ftp://intranet:21/"));
  EXPECT_TRUE(bypasses(L"intranet", L"ftp://intranet/"));
}

TEST_F(BypassRulesTest, TreatsZeroAsTheDefaultPortOfAnyOtherKind) {
  ParsedAddress target = hostOnly(L"h");
  target.kind = static_cast<AddressScheme>(3);
  EXPECT_TRUE(MatchesBypassPattern(BypassPatternRule(*impl::splitAddress(L"h:0")), target));
  EXPECT_FALSE(MatchesBypassPattern(BypassPatternRule(*impl::splitAddress(L"h:80")), target));
}

TEST_F(BypassRulesTest, ComparesASchemeWithTheTargets) {
  EXPECT_FALSE(bypasses(L"https://intranet", L"http://intranet/"));
  EXPECT_TRUE(bypasses(L"https://intranet", L"https://intranet/"));
  EXPECT_TRUE(bypasses(L"HTTPS://intranet", L"hTTps://intranet/"));
  EXPECT_TRUE(bypasses(L"*://intranet", L"http://intranet/"));
  EXPECT_TRUE(bypasses(L"*://intranet", L"https://intranet/"));
  EXPECT_TRUE(bypasses(L"http*://intranet", L"https://intranet/"));
  EXPECT_FALSE(bypasses(L"socks://intranet", L"socks5://intranet/"));
  EXPECT_TRUE(bypasses(L"ftp://intranet", L"ftp://intranet/"));
}

TEST_F(BypassRulesTest, TreatsATargetWithoutASchemeAsHttp) {
  EXPECT_TRUE(bypasses(L"intranet", L"intranet"));
  EXPECT_TRUE(bypasses(L"http://intranet", L"intranet"));
  EXPECT_FALSE(bypasses(L"https://intranet", L"intranet"));
}

TEST_F(BypassRulesTest, MatchesATargetWhoseHostHasNoAsciiFormByStarsAlone) {
  for (const wchar_t* rule : {L"*", L"**", L"http://*", L"*:80", L"h*://*:80"}) {
    EXPECT_TRUE(bypasses(rule, L"http://bad..host/")) << rule;
  }
  for (const wchar_t* rule : {L"<local>", L"bad..host", L"bad*", L"*.host", L"*a*", L"https://*", L"*:81"}) {
    EXPECT_FALSE(bypasses(rule, L"http://bad..host/")) << rule;
  }
}

TEST_F(BypassRulesTest, ComparesTheAsciiFormOfTheTargetWithRulesAsTheyAreWritten) {
  const std::wstring target = L"http://www.b\x00FC\x0063her.example/";
  for (const wchar_t* rule :
       {L"www.b\x00FC\x0063her.example", L"*.b\x00FC\x0063her.example", L"*\x00FC*", L"www.bucher.example"}) {
    EXPECT_FALSE(bypasses(rule, target)) << rule;
  }
  for (const wchar_t* rule : {L"www.xn--bcher-kva.example", L"*.XN--BCHER-KVA.example", L"www.*.example"}) {
    EXPECT_TRUE(bypasses(rule, target)) << rule;
  }
}

TEST_F(BypassRulesTest, TreatsABlankAsAPartOfTheEntry) {
  ASSERT_EQ(BuildBypassRules(L"a.b c.d").size(), 1U);
  EXPECT_TRUE(bypasses(L"a.b c.d", L"a.b c.d"));
  EXPECT_FALSE(bypasses(L"a.b c.d", L"a.b"));
  EXPECT_FALSE(bypasses(L"a.b c.d", L"c.d"));
}

TEST_F(BypassRulesTest, KeepsAPortModulo65536) {
  struct Case {
    const wchar_t* entry;
    std::uint16_t port;
  };
  for (const Case& c : {Case{L"h:70000", 4464}, Case{L"h:0", 0}, Case{L"h:65536", 0}, Case{L"h:4294967295", 65535}}) {
    EXPECT_EQ(std::get<BypassPatternRule>(MakeBypassRule(c.entry)).port, c.port) << c.entry;
  }
  EXPECT_EQ(std::get<BypassPatternRule>(MakeBypassRule(L"h")).port, std::nullopt);
}

TEST_F(BypassRulesTest, ThrowsForAPortBeyondTheUnsigned32BitRange) {
  for (const wchar_t* list : {L"h:4294967296", L"a;b:99999999999999999999999;c"}) {
    try {
      static_cast<void>(BuildBypassRules(list));
      ADD_FAILURE() << list << " was read";
    } catch (const std::out_of_range& failure) {
      EXPECT_STREQ(failure.what(), "stoul argument out of range");
    }
  }
}

TEST_F(BypassRulesTest, HasASchemePatternOnlyIfTheEntryNamesAScheme) {
  const std::wstring_view scheme = L"line\nend";  // which no pattern of stars covers
  EXPECT_TRUE(std::get<BypassPatternRule>(MakeBypassRule(L"h:1")).scheme.matches(scheme));
  EXPECT_FALSE(std::get<BypassPatternRule>(MakeBypassRule(L"*://h:1")).scheme.matches(scheme));
}

TEST_F(BypassRulesTest, IgnoresUserPasswordPathAndQueryOfAnEntry) {
  EXPECT_TRUE(bypasses(L"http://u:p@h:80/path?query", L"h"));
  EXPECT_TRUE(bypasses(L"h/", L"http://h/other"));
}

TEST_F(BypassRulesTest, DropsEntriesThatAreNoAddress) {
  for (const wchar_t* list : {L"[fe80::1]", L"h:", L"h:x", L"/", L"http://", L"u@h", L"h?q", L"fe80::1"}) {
    EXPECT_THAT(BuildBypassRules(list), IsEmpty()) << list;
  }
}

TEST_F(BypassRulesTest, KeepsTheOrderOfTheOtherRules) {
  const std::vector<BypassRule> rules = BuildBypassRules(L"a;[::1];<local>;;b:1; ;c");
  ASSERT_EQ(rules.size(), 4U);
  EXPECT_TRUE(matchesRule(rules[0], hostOnly(L"a")));
  EXPECT_TRUE(std::holds_alternative<BypassLocalRule>(rules[1]));
  EXPECT_EQ(std::get<BypassPatternRule>(rules[2]).port, 1);
  EXPECT_TRUE(matchesRule(rules[3], hostOnly(L"c")));
}

class BypassRulesAgainstTheirExpressionsTest : public EachLocaleTest {};

TEST_P(BypassRulesAgainstTheirExpressionsTest, TellPlainHostNamesLikeTheExpression) {
  RandomText random(20'262);
  const PlainHostOracle oracle;
  int plain = 0;
  for (int i = 0; i < kTextsPerLocale && !HasFailure(); ++i) {
    std::wstring host = random.blanks(2) + random.plain(4) + random.blanks(2);
    if (random.oneIn(3)) random.mutate(host);
    const bool expected = oracle.matches(host);
    EXPECT_EQ(IsPlainHostName(hostOnly(host)), expected) << ::testing::PrintToString(host);
    plain += expected ? 1 : 0;
  }
  EXPECT_GT(plain, kTextsPerLocale / 4);
  EXPECT_LT(plain, kTextsPerLocale / 4 * 3);
}

struct Target {
  ParsedAddress address;
  BypassTarget facts;
};

Target randomTarget(RandomText& random, std::wstring_view hostPattern) {
  struct Word {
    const wchar_t* word;
    std::optional<AddressScheme> kind;
    int port;
  };
  static const std::vector<Word> words = {{L"", AddressScheme::Http, 80},
                                          {L"http", AddressScheme::Http, 80},
                                          {L"https", AddressScheme::Https, 443},
                                          {L"socks5", AddressScheme::Socks, 1080},
                                          {L"ftp", std::nullopt, -1}};
  const Word& word = words[random.below(words.size())];
  Target target;
  target.address.scheme = word.word;
  target.address.kind = word.kind;
  target.address.host = random.coveredBy(hostPattern);
  target.facts = {*word.word ? word.word : L"http", target.address.host, word.port};
  if (random.oneIn(2)) {
    static const std::vector<std::uint16_t> ports = {0, 1, 80, 443};
    target.address.port = ports[random.below(ports.size())];
    target.facts.port = *target.address.port;
  }
  return target;
}

// An entry for a host pattern, whose other parts a target of randomTarget meets every now and then.
std::wstring randomEntry(RandomText& random, std::wstring_view hostPattern) {
  static const std::vector<const wchar_t*> schemes = {L"*://",     L"http://", L"HTTP*://",
                                                      L"https://", L"s*5://",  L"ftp://"};
  static const std::vector<const wchar_t*> ports = {L":0", L":1", L":65537", L":80", L":65616", L":443", L":1080"};
  if (random.oneIn(12)) return L"<local>";
  if (random.oneIn(12)) return random.address();
  std::wstring entry = random.blanks(1);
  if (random.oneIn(3)) entry += schemes[random.below(schemes.size())];
  entry += hostPattern;
  if (random.oneIn(3)) entry += ports[random.below(ports.size())];
  if (random.oneIn(4)) entry += L"/path?query";
  entry += random.blanks(1);
  if (random.oneIn(6)) random.mutate(entry);
  return entry;
}

// What the library makes of a list and a target: the rules' verdicts, or the kind of exception.
struct Outcome {
  std::vector<bool> verdicts;
  std::string failure;
  bool operator==(const Outcome&) const = default;
};

template <class Verdicts>
Outcome outcomeOf(Verdicts verdicts) {
  try {
    return {verdicts(), ""};
  } catch (const std::out_of_range&) {
    return {{}, "out of range"};
  } catch (const std::invalid_argument&) {
    return {{}, "invalid"};
  }
}

TEST_P(BypassRulesAgainstTheirExpressionsTest, GiveTheSameVerdictsOnRandomLists) {
  constexpr int kLists = kTextsPerLocale / 20;
  RandomText random(20'263);
  BypassOracle oracle;
  std::size_t rules = 0;
  std::size_t matches = 0;
  for (int i = 0; i < kLists && !HasFailure(); ++i) {
    const std::wstring hostPattern = random.oneIn(2) ? random.plain(3) : L"*" + random.plain(2);
    std::wstring list = randomEntry(random, hostPattern);
    for (std::size_t more = random.below(4); more > 0; --more) list += L";" + randomEntry(random, hostPattern);
    const Target target = randomTarget(random, hostPattern);
    const Outcome expected = outcomeOf([&] { return oracle.verdicts(list, target.facts); });
    const Outcome actual = outcomeOf([&] {
      std::vector<bool> verdicts;
      for (const BypassRule& rule : BuildBypassRules(list)) verdicts.push_back(matchesRule(rule, target.address));
      return verdicts;
    });
    EXPECT_TRUE(actual == expected) << ::testing::PrintToString(list) << " with "
                                    << ::testing::PrintToString(target.facts.host) << ": "
                                    << ::testing::PrintToString(actual.verdicts) << actual.failure << ", expected "
                                    << ::testing::PrintToString(expected.verdicts) << expected.failure;
    rules += expected.verdicts.size();
    matches += static_cast<std::size_t>(std::ranges::count(expected.verdicts, true));
  }
  EXPECT_GT(rules, kLists);
  EXPECT_GT(matches, rules / 8);
  EXPECT_LT(matches, rules / 8 * 7);
}

KIV_EACH_LOCALE(BypassRulesAgainstTheirExpressionsTest);

}  // namespace
}  // namespace kiv::test
