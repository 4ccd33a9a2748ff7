// What is shown of the answers of PAC scripts.
#include "pac/pac_result.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "common/console.h"
#include "pac/pac_page.h"

namespace kiv::tool {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr unsigned kBadScript = 12166;  // ERROR_WINHTTP_BAD_AUTO_PROXY_SCRIPT

PacAnswer answering(const wchar_t* list) { return {.list = list, .candidates = candidatesIn(list)}; }
PacAnswer failing(unsigned error) { return {.error = error}; }

PacResult comparison() {
  return {.script = {.name = L"new.pac", .text = "function FindProxyForURL() {}"},
          .against = PacScript{.name = L"old.pac", .text = "alert()"},
          .rows = {{L"http://a/", answering(L"p:1"), answering(L"p:1")},
                   {L"http://b/", answering(L""), answering(L"p:1")}}};
}

TEST(CandidatesIn, AreThoseOfTheLibrary) {
  EXPECT_THAT(candidatesIn(L""), IsEmpty());
  EXPECT_THAT(candidatesIn(L"p:1;q"), ElementsAre(L"http://p:1", L"http://q:0"));
  EXPECT_THAT(candidatesIn(L"http=p:1;https=q:2 socks=r:3"),
              ElementsAre(L"http://p:1", L"https://q:2", L"socks5://r:3"));
  EXPECT_THAT(candidatesIn(L"gopher=p:1;q:2"), ElementsAre(L"not a valid proxy", L"http://q:2"));
  EXPECT_THAT(candidatesIn(L"p:1;:;q:2"), ElementsAre(L"http://p:1"));
}

TEST(PacVerdict, FollowsFromTheAnswers) {
  const std::pair<PacRow, PacVerdict> rows[] = {
      {{L"u", answering(L"p:1")}, PacVerdict::Same},
      {{L"u", failing(kBadScript)}, PacVerdict::Failed},
      {{L"u", answering(L"p:1"), answering(L"p:1")}, PacVerdict::Same},
      {{L"u", answering(L"p:1"), answering(L"p:2")}, PacVerdict::Differs},
      {{L"u", answering(L"p:1"), failing(kBadScript)}, PacVerdict::Failed},
      {{L"u", failing(kBadScript), failing(kBadScript)}, PacVerdict::Failed},
  };
  for (const auto& [row, verdict] : rows) EXPECT_EQ(row.verdict(), verdict);
}

TEST(PacTable, HasWindowsAnswerAndTheLibrarysReading) {
  const PacResult result{
      .script = {},
      .rows = {
          {L"http://a/", answering(L"p:1;q:2")}, {L"http://b/", answering(L"")}, {L"http://c/", failing(kBadScript)}}};
  EXPECT_EQ(pacTable(result, false),
            L"URL        Windows returns                                      kiv tests\n"
            L"http://a/  p:1;q:2                                              http://p:1, http://q:2\n"
            L"http://b/  DIRECT                                               DIRECT\n"
            L"http://c/  failed: ERROR_WINHTTP_BAD_AUTO_PROXY_SCRIPT (12166)  -\n");
}

TEST(PacTable, OfTwoScriptsHasWhatDiffersUnlessAllIsWanted) {
  EXPECT_EQ(pacTable(comparison(), false), L"         URL        OLD  NEW\ndiffers  http://b/  p:1  DIRECT\n");
  EXPECT_EQ(pacTable(comparison(), true),
            L"         URL        OLD  NEW\nsame     http://a/  p:1  p:1\ndiffers  http://b/  p:1  DIRECT\n");
}

TEST(PacTable, IsEmptyWhereNothingDiffers) {
  PacResult result = comparison();
  result.rows.pop_back();
  EXPECT_EQ(pacTable(result, false), L"");
}

TEST(PacRemarks, CountDifferencesAndFailures) {
  EXPECT_THAT(pacRemarks(comparison()), HasSubstr(L"URLs: 2, different: 1, failed: 0\n"));
}

TEST(PacRemarks, TellWhatIsKnownOfTheScriptThatFails) {
  PacResult result = comparison();
  result.rows.front().now = failing(kBadScript);
  EXPECT_THAT(pacRemarks(result), HasSubstr(L"new.pac fails. Windows does not say where"));
  EXPECT_THAT(pacRemarks(result), Not(HasSubstr(L"old.pac")));
  result.rows.front().before = failing(kBadScript);
  EXPECT_THAT(pacRemarks(result), HasSubstr(L"old.pac has no function FindProxyForURL"));
}

TEST(PacRemarks, BlameNoScriptForTheTime) {
  PacResult result = comparison();
  result.rows.front().now = failing(12002);  // ERROR_WINHTTP_TIMEOUT
  EXPECT_THAT(pacRemarks(result), HasSubstr(L"failed: 1"));
  EXPECT_THAT(pacRemarks(result), Not(HasSubstr(L"fails")));
}

TEST(PacRemarks, TellWhatDirectMeansWhereItIsAnswered) {
  EXPECT_THAT(pacRemarks(comparison()), HasSubstr(L"manual proxy list"));
  EXPECT_EQ(pacRemarks({.script = {}, .rows = {{L"http://a/", answering(L"p:1")}}}), L"");
}

TEST(PacDocument, HasBothAnswers) {
  PacResult result = comparison();
  result.rows.front().now = failing(kBadScript);
  const json document = json::parse(pacDocument(result, false));
  EXPECT_EQ(document.at("task"), "pac");
  EXPECT_EQ(document.at("new").at("name"), "new.pac");
  EXPECT_EQ(document.at("old").at("bytes"), 7);
  const json& rows = document.at("results");
  EXPECT_EQ(rows.at(0).at("verdict"), "failed");
  EXPECT_EQ(rows.at(0).at("new").at("error"), kBadScript);
  EXPECT_EQ(rows.at(1).at("old").at("candidates"), json({"http://p:1"}));
  EXPECT_EQ(rows.at(1).at("new").at("list"), nullptr);
}

TEST(PacResult, NoFormShowsARedactedName) {
  PacResult result{
      .script = {.name = L"http://planted.example/new.pac", .text = "FindProxyForURL"},
      .against = PacScript{.name = L"old.pac", .text = "FindProxyForURL"},
      .rows = {{L"http://planted/?planted", answering(L"planted.example:1;[2001:db8::1]:2"), failing(kBadScript)}}};
  Redaction redaction;
  redact(result, redaction);
  const std::wstring page = toWide(pacPage(result, &redaction));
  for (const std::wstring& text :
       {pacTable(result, true), pacRemarks(result), page, toWide(pacDocument(result, true))}) {
    EXPECT_THAT(text, Not(HasSubstr(L"planted")));
    EXPECT_THAT(text, Not(HasSubstr(L"2001:db8")));
  }
  EXPECT_EQ(answerText(result.rows.front().now), L"host-1:1;[address-1]:2");
  EXPECT_EQ(readingText(result.rows.front().now), L"http://host-1:1");
}

TEST(PacPage, HasEachAnswerAndTheVerdict) {
  const std::wstring page = toWide(pacPage(comparison(), nullptr));
  for (const wchar_t* const text : {L"1 URL differs", L"new.pac against old.pac", L"http://b/", L"DIRECT", L"7 bytes"})
    EXPECT_THAT(page, HasSubstr(text));
  EXPECT_THAT(page, Not(HasSubstr(L"<script")));
}

}  // namespace
}  // namespace kiv::tool
