// Tests of the readers of the two forms of proxy lists.
#include "discovery/proxy_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "unit/support/proxy_entries.h"

namespace kiv::test {
namespace {

using impl::ParsePacProxyList;
using impl::ParseWinHttpProxyList;
using impl::portNumber;
using impl::ProxyListEntry;
using impl::TokenizePacProxyList;
using impl::TokenizeWinHttpProxyList;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Entries = std::vector<ProxyListEntry>;

const ProxyListEntry kDirect = {L"", L"", 0};

struct Case {
  const wchar_t* text;
  Entries entries;
  bool whole = true;
};

void expectPac(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    Entries entries = {{L"old", L"old", 1}};
    EXPECT_EQ(ParsePacProxyList(c.text, entries), c.whole) << c.text;
    EXPECT_EQ(entries, c.entries) << c.text;
  }
}

void expectWinHttp(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    Entries entries = {{L"old", L"old", 1}};
    EXPECT_EQ(ParseWinHttpProxyList(c.text, entries), c.whole) << c.text;
    EXPECT_EQ(entries, c.entries) << c.text;
  }
}

TEST(PacProxyListTest, TakesBlanksApartAndKeepsThemOutOfTheTokens) {
  EXPECT_THAT(TokenizePacProxyList(L"PROXY a.b:80; DIRECT"),
              ElementsAre(L"PROXY", L"a.b", L":", L"80", L";", L"DIRECT"));
  EXPECT_THAT(TokenizePacProxyList(L" \t a\tb  c "), ElementsAre(L"a", L"b", L"c"));
  EXPECT_THAT(TokenizePacProxyList(L""), IsEmpty());
  EXPECT_THAT(TokenizePacProxyList(L" \t "), IsEmpty());
}

TEST(PacProxyListTest, MakesTokensOfColonsAndSemicolonsAlone) {
  EXPECT_THAT(TokenizePacProxyList(L";:a;b:://"), ElementsAre(L";", L":", L"a", L";", L"b", L":", L":", L"//"));
  EXPECT_THAT(TokenizePacProxyList(L"a=b\nc"), ElementsAre(L"a=b\nc"));
}

TEST(PacProxyListTest, EndsAtTheFirstZero) {
  EXPECT_THAT(TokenizePacProxyList(std::wstring_view(L"a b\0c d", 7)), ElementsAre(L"a", L"b"));
  Entries entries;
  EXPECT_TRUE(ParsePacProxyList(std::wstring_view(L"PROXY p:80\0;junk", 16), entries));
  EXPECT_THAT(entries, ElementsAre(ProxyListEntry{L"PROXY", L"p", 80}));
}

TEST(PacProxyListTest, ReadsDirectInAnyCaseAsTheEmptyEntry) {
  expectPac(
      {{L"DIRECT", {kDirect}}, {L"direct", {kDirect}}, {L"Direct", {kDirect}}, {L"DIRECT;DIRECT", {kDirect, kDirect}}});
}

TEST(PacProxyListTest, ReadsAnEmptyTextAsAnEmptyList) {
  expectPac({{L"", {}}, {L" \t", {}}, {L";;", {}}, {L"; ;", {}}});
}

TEST(PacProxyListTest, ReadsTheEntriesInTheirOrder) {
  expectPac({{L"PROXY p:8080; DIRECT", {{L"PROXY", L"p", 8080}, kDirect}},
             {L"DIRECT; PROXY p:8080", {kDirect, {L"PROXY", L"p", 8080}}},
             {L"PROXY a:1;PROXY b:2;SOCKS c:3", {{L"PROXY", L"a", 1}, {L"PROXY", L"b", 2}, {L"SOCKS", L"c", 3}}}});
}

TEST(PacProxyListTest, RefusesAnEntryThatNoSemicolonDividesFromTheNext) {
  expectPac({{L"PROXY p:8080 DIRECT", {}, false},
             {L"PROXY p:8080 PROXY q:8080", {}, false},
             {L"DIRECT PROXY p:8080", {}, false},
             {L"DIRECT:", {}, false}});
}

TEST(PacProxyListTest, SkipsSuperfluousSemicolons) {
  expectPac({{L";;DIRECT;", {kDirect}}, {L";PROXY p:1;;;SOCKS s:2;;", {{L"PROXY", L"p", 1}, {L"SOCKS", L"s", 2}}}});
}

TEST(PacProxyListTest, KeepsTheKeywordAndTheHostAsWritten) {
  expectPac({{L"SOCKS s:1080", {{L"SOCKS", L"s", 1080}}},
             {L"Https Some.Host:443", {{L"Https", L"Some.Host", 443}}},
             {L"NONSENSE h:1", {{L"NONSENSE", L"h", 1}}},
             {L"PROXY [a=b]:1", {{L"PROXY", L"[a=b]", 1}}}});
}

TEST(PacProxyListTest, RefusesAPortThatIsZeroOrNoNumber) {
  expectPac({{L"PROXY p:0", {}, false},
             {L"PROXY p:abc", {}, false},
             {L"PROXY p:80x", {}, false},
             {L"PROXY p:0x", {}, false}});
}

TEST(PacProxyListTest, ReadsAHexadecimalPort) { expectPac({{L"PROXY p:0x50", {{L"PROXY", L"p", 80}}}}); }

TEST(PacProxyListTest, AcceptsANegativePortAndOneOutOfRange) {
  expectPac({{L"PROXY p:-1", {{L"PROXY", L"p", -1}}},
             {L"PROXY p:70000", {{L"PROXY", L"p", 70000}}},
             {L"PROXY p:99999999999", {{L"PROXY", L"p", 2147483647}}}});
}

TEST(PacProxyListTest, RefusesAnEntryThatIsNotWhole) {
  expectPac({{L"PROXY", {}, false},
             {L"PROXY a.b", {}, false},
             {L"PROXY a.b:", {}, false},
             {L"PROXY a.b;DIRECT", {}, false},
             {L"PROXY :80", {}, false},
             {L"a.b:80", {}, false},
             {L":", {}, false}});
}

TEST(PacProxyListTest, TakesAnySymbolWhereTheKeywordOrTheHostBelongs) {
  expectPac({{L"PROXY ;:80", {{L"PROXY", L";", 80}}}, {L":::80", {{L":", L":", 80}}}});
}

TEST(PacProxyListTest, AllowsBlanksAroundSymbols) {
  expectPac({{L"PROXY p : 80 ; DIRECT", {{L"PROXY", L"p", 80}, kDirect}}});
}

TEST(PacProxyListTest, KeepsTheEntriesInFrontOfAnError) {
  expectPac({{L"PROXY p:1; DIRECT; PROXY q; PROXY r:2", {{L"PROXY", L"p", 1}, kDirect}, false}});
}

TEST(WinHttpProxyListTest, MakesASemicolonOfEveryBlank) {
  EXPECT_THAT(
      TokenizeWinHttpProxyList(L"http=http://a.b:3128 https=c:443"),
      ElementsAre(L"http", L"=", L"http", L"://", L"a.b", L":", L"3128", L";", L"https", L"=", L"c", L":", L"443"));
  EXPECT_THAT(TokenizeWinHttpProxyList(L" \t;a"), ElementsAre(L";", L";", L";", L"a"));
  EXPECT_THAT(TokenizeWinHttpProxyList(L""), IsEmpty());
}

TEST(WinHttpProxyListTest, TellsASchemeEndFromAColon) {
  EXPECT_THAT(TokenizeWinHttpProxyList(L"a://b:/c:c//://"),
              ElementsAre(L"a", L"://", L"b", L":", L"/c", L":", L"c//", L"://"));
  EXPECT_THAT(TokenizeWinHttpProxyList(L"a:/"), ElementsAre(L"a", L":", L"/"));
  EXPECT_THAT(TokenizeWinHttpProxyList(L"a:"), ElementsAre(L"a", L":"));
}

TEST(WinHttpProxyListTest, EndsAtTheFirstZero) {
  EXPECT_THAT(TokenizeWinHttpProxyList(std::wstring_view(L"a=b\0c", 5)), ElementsAre(L"a", L"=", L"b"));
}

TEST(WinHttpProxyListTest, ReadsAHostWithAndWithoutPort) {
  expectWinHttp({{L"p:8080", {{L"", L"p", 8080}}}, {L"p", {{L"", L"p", 0}}}});
}

TEST(WinHttpProxyListTest, ReadsAnEmptyTextAsAnEmptyList) { expectWinHttp({{L"", {}}, {L";", {}}, {L" ;\t;", {}}}); }

TEST(WinHttpProxyListTest, ReadsOneEntryPerScheme) {
  expectWinHttp({{L"http=p:80;https=q:443", {{L"http", L"p", 80}, {L"https", L"q", 443}}},
                 {L"socks=s", {{L"socks", L"s", 0}}},
                 {L"HTTP=P:80", {{L"HTTP", L"P", 80}}}});
}

TEST(WinHttpProxyListTest, DropsAUrlSchemeInsideAnEntry) {
  expectWinHttp({{L"http=http://p:80", {{L"http", L"p", 80}}},
                 {L"http://p:80", {{L"", L"p", 80}}},
                 {L"http=socks://p", {{L"http", L"p", 0}}},
                 {L"https://p", {{L"", L"p", 0}}}});
}

TEST(WinHttpProxyListTest, DividesEntriesAtBlanksAsWellAsSemicolons) {
  expectWinHttp(
      {{L"p:80 q:81", {{L"", L"p", 80}, {L"", L"q", 81}}}, {L" p:80\t; ;q:81;", {{L"", L"p", 80}, {L"", L"q", 81}}}});
}

TEST(WinHttpProxyListTest, TreatsANumberAfterABlankAsAHost) {
  expectWinHttp({{L"p 80", {{L"", L"p", 0}, {L"", L"80", 0}}}});
}

TEST(WinHttpProxyListTest, RefusesAnEntryOfTwoTokens) {
  expectWinHttp({{L"p:", {}, false}, {L"http=", {}, false}, {L"://p", {}, false}, {L"::", {}, false}});
}

TEST(WinHttpProxyListTest, AcceptsAPortThatIsZeroOrNoNumber) {
  expectWinHttp({{L"p:abc", {{L"", L"p", 0}}},
                 {L"p:0", {{L"", L"p", 0}}},
                 {L"p::", {{L"", L"p", 0}}},
                 {L"p:-1", {{L"", L"p", -1}}},
                 {L"p:0X50", {{L"", L"p", 80}}}});
}

TEST(WinHttpProxyListTest, RefusesAnEntryWithASymbolInPlaceOfAName) {
  for (const wchar_t* text :
       {L"=",          L":",     L"://",    L"===",    L":=p",     L"http==", L"http=:",  L"http=://",  L"=://p",
        L"http=:://p", L":://p", L"a://=",  L"a://:",  L"=:80",    L"a=b=c",  L"a=b=c:1", L"a://b://c", L"a://b:1:2",
        L"p:80:81",    L"a=b:",  L"a://b:", L"a=b://", L"a://b=c", L"::1",    L"a=://p",  L"p:80/"}) {
    Entries entries = {{L"old", L"old", 1}};
    const bool isPortNoNumber = std::wstring_view(text) == L"p:80/";
    EXPECT_EQ(ParseWinHttpProxyList(text, entries), isPortNoNumber) << text;
    EXPECT_EQ(entries.size(), isPortNoNumber ? 1U : 0U) << text;
  }
}

TEST(WinHttpProxyListTest, KeepsTheEntriesInFrontOfAnError) {
  expectWinHttp({{L"p:80;http=;q:81", {{L"", L"p", 80}}, false}});
}

TEST(PortNumberTest, ReadsDecimalAndHexadecimalNumbersWithASign) {
  struct NumberCase {
    const wchar_t* token;
    std::int32_t value;
  };
  constexpr std::int32_t kMost = 2147483647;
  constexpr std::int32_t kLeast = -kMost - 1;
  const NumberCase cases[] = {{L"0", 0},
                              {L"80", 80},
                              {L"+80", 80},
                              {L"-80", -80},
                              {L"080", 80},
                              {L"0x50", 80},
                              {L"0XfF", 255},
                              {L"-0x10", -16},
                              {L"2147483647", kMost},
                              {L"2147483648", kMost},
                              {L"-2147483648", kLeast},
                              {L"-2147483649", kLeast},
                              {L"99999999999999999999", kMost},
                              {L"-99999999999999999999", kLeast},
                              {L"0xFFFFFFFF", kMost},
                              {L"0x7FFFFFFF", kMost},
                              {L"-0xFFFFFFFFF", kLeast}};
  for (const NumberCase& c : cases) EXPECT_EQ(portNumber(c.token), c.value) << c.token;
}

TEST(PortNumberTest, GivesZeroForATextThatIsNotOneNumber) {
  for (const wchar_t* token : {L"", L"-", L"+", L"0x", L"-0x", L"x", L"80x", L" 80", L"80 ", L"8 0", L"--1", L"+-1",
                               L"0x0x1", L"1.0", L"0xg", L"ff", L"99999999999999999999x", L"\xFF11", L"\x0661"}) {
    EXPECT_EQ(portNumber(token), 0) << token;
  }
}

}  // namespace
}  // namespace kiv::test
