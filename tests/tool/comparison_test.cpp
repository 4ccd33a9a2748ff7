// Two results side by side.
#include "compare/comparison.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "common/console.h"
#include "compare/comparison_page.h"

namespace kiv::tool {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Rows = std::vector<ComparedRow>;

std::string document(const std::string& more) {
  return R"({"program": "kiv-resolve", "version": "1.0.0", "task": "sources", )" + more + "}";
}

Comparison comparisonOf(const std::string& left, const std::string& right) {
  const auto compared = compareDocuments(document(left), document(right), nullptr);
  const auto* const problem = std::get_if<DocumentProblem>(&compared);
  EXPECT_EQ(problem, nullptr) << left << " " << right;
  return problem ? Comparison{} : std::get<Comparison>(compared);
}

TEST(Comparison, DifferencesAreNamedByTheirPlace) {
  struct Case {
    const char* left;
    const char* right;
    Rows differences;
  };
  const Case kCases[] = {
      {R"("a": 1)", R"("a": 1)", {}},
      {R"("a": 1)", R"("a": 2)", {{L"a", L"1", L"2"}}},
      {R"("a": true)", R"("a": null)", {{L"a", L"yes", L"none"}}},
      {R"("a": 1)", R"("b": 1)", {{L"b", std::nullopt, L"1"}, {L"a", L"1", std::nullopt}}},
      {R"("time": 1, "x": {"milliseconds": 5})", R"("time": 2, "x": {"milliseconds": 6})", {}},
      {R"("places": [{"id": "p", "state": "found"}, {"id": "q", "state": "found"}])",
       R"("places": [{"id": "q", "state": "found"}, {"id": "p", "state": "not-readable"}])",
       {{L"places / p / state", L"found", L"not-readable"}}},
      {R"("values": [{"name": "ProxyServer", "text": "a:1"}])",
       R"("values": [{"name": "ProxyServer", "text": "b:1"}])",
       {{L"values / ProxyServer", L"a:1", L"b:1"}}},
      {R"("warnings": [{"id": "w", "problem": "1"}, {"id": "w", "problem": "2"}])",
       R"("warnings": [{"id": "w", "problem": "1"}, {"id": "w", "problem": "3"}])",
       {{L"warnings / w / problem (2)", L"2", L"3"}}},
      {R"("a": 1, "c": 1, "x": 1)",
       R"("a": 1, "b": 2, "c": 2, "d": 2, "x": 1)",
       {{L"b", std::nullopt, L"2"}, {L"c", L"1", L"2"}, {L"d", std::nullopt, L"2"}}},
      {R"("list": ["a", "b"])", R"("list": ["a"])", {{L"list / 1", L"b", std::nullopt}}},
      {R"("a": "x\u001b[1m bob:secret@h")", R"("a": "y")", {{L"a", L"x\xFFFD[1m bob:****@h", L"y"}}},
  };
  for (const auto& [left, right, differences] : kCases)
    EXPECT_EQ(comparisonOf(left, right).differences, differences) << left << " " << right;
}

TEST(Comparison, TheMachineAndTheAccountAreNoDifference) {
  const Comparison comparison = comparisonOf(R"("machine": {"account": "A\\x"})", R"("machine": {"account": "A\\y"})");
  const Rows origin = {{L"version", L"1.0.0", L"1.0.0"}, {L"machine / account", L"A\\x", L"A\\y"}};
  EXPECT_EQ(comparison.origin, origin);
  EXPECT_TRUE(comparison.same());
}

TEST(Comparison, OtherTextsAreRefused) {
  struct Case {
    std::string left;
    std::string right;
    const wchar_t* problem;
  };
  const std::string good = document(R"("a": 1)");
  const std::string deep = document(R"("a": )" + std::string(100000, '[') + std::string(100000, ']'));
  const Case kCases[] = {
      {"", good, L"A is not a JSON document of kiv-resolve"},
      {good, "[]", L"B is not a JSON document of kiv-resolve"},
      {good, R"({"program": "other", "task": "sources"})", L"B is not a JSON document of kiv-resolve"},
      {good, R"({"program": "kiv-resolve"})", L"B is not a JSON document of kiv-resolve"},
      {good, R"({"program": "kiv-resolve", "task": "resolve"})", L"A and B are of different commands"},
      {good, deep, L"A or B is nested too deeply"},
  };
  for (const auto& [left, right, problem] : kCases) {
    const auto compared = compareDocuments(left, right, nullptr);
    ASSERT_TRUE(std::holds_alternative<DocumentProblem>(compared)) << problem;
    EXPECT_EQ(std::get<DocumentProblem>(compared).text, problem);
  }
}

TEST(ComparisonText, HasColumnsIfTheyFit) {
  const Comparison comparison = comparisonOf(R"("proxy": "a:1")", R"("proxy": "gate:8080")");
  EXPECT_EQ(comparisonText(comparison, 80),
            L"Where they are from\n  version  1.0.0  1.0.0\nDifferences: 1\n  proxy  a:1  gate:8080\n");
  EXPECT_EQ(comparisonText(comparison, 10),
            L"Where they are from\n  version\n    A  1.0.0\n    B  1.0.0\n"
            L"Differences: 1\n  proxy\n    A  a:1\n    B  gate:8080\n");
}

TEST(Comparison, SaysThatNamesOfRedactedFilesAreNotTheSame) {
  const char* const kRedacted = R"("redacted": true)";
  EXPECT_EQ(noteOn(comparisonOf(R"("a": 1)", R"("a": 1)")), L"");
  EXPECT_THAT(noteOn(comparisonOf(kRedacted, kRedacted)), StartsWith(L"A and B were written with --redact"));
  EXPECT_THAT(noteOn(comparisonOf(kRedacted, R"("a": 1)")), StartsWith(L"A was written with --redact"));
  EXPECT_THAT(noteOn(comparisonOf(R"("a": 1)", kRedacted)), StartsWith(L"B was written with --redact"));
  EXPECT_THAT(comparisonText(comparisonOf(kRedacted, kRedacted), 80), HasSubstr(L"\nNote: A and B"));
  EXPECT_TRUE(comparisonOf(kRedacted, "\"redacted\": false").same());
}

TEST(Comparison, GivesANameOfBothDocumentsTheSameWord) {
  const std::string left = document(
      R"("machine": {"computer": "PlantedPC.corp", "account": "CORP\\planted", "sid": "S-1-5-planted"},
         "places": [{"id": "vpn:Planted Office", "title": "connection Planted Office", "proxy": "planted.example:1"}],
         "proxy": "gate.planted.example:8080", "late": "plantedpc")");
  const std::string right = document(
      R"("machine": {"computer": "OtherPlanted", "account": "planted", "sid": null},
         "places": [{"id": "vpn:Planted Office", "proxy": "planted.example:2"}],
         "proxy": "other.planted.example:8080", "late": "otherplanted")");
  Redaction redaction;
  const auto compared = compareDocuments(left, right, &redaction);
  ASSERT_TRUE(std::holds_alternative<Comparison>(compared));
  const auto& comparison = std::get<Comparison>(compared);
  for (const std::string& text : {toUtf8(comparisonText(comparison, 80)), comparisonDocument(comparison),
                                  comparisonPage(comparison, L"A and B", &redaction)}) {
    EXPECT_THAT(text, Not(AnyOf(HasSubstr("lanted"), HasSubstr("LANTED")))) << text;
  }
  ASSERT_EQ(comparison.differences.size(), 3u);
  EXPECT_EQ(comparison.differences[0].where, L"places / vpn:1 / proxy");
  // The name is that of both, the port is not.
  EXPECT_EQ(comparison.differences[0].left->substr(0, 7), comparison.differences[0].right->substr(0, 7));
}

TEST(ComparisonDocument, SaysWhatOnlyOneHas) {
  const auto json = nlohmann::json::parse(comparisonDocument(comparisonOf(R"("a": 1)", R"("b": 1)")));
  EXPECT_EQ(json.at("same"), false);
  EXPECT_TRUE(json.at("differences").at(0).at("a").is_null());
  EXPECT_EQ(json.at("differences").at(1).at("a"), "1");
}

TEST(DocumentFile, ByteOrderMarksAreUnderstood) {
  using std::string_view_literals::operator""sv;
  EXPECT_EQ(utf8Of("{}"), "{}");
  EXPECT_EQ(utf8Of("\xEF\xBB\xBF{}"), "{}");
  EXPECT_EQ(utf8Of("\xFF\xFE{\0}\0"sv), "{}");
  EXPECT_EQ(utf8Of("\xFF\xFE\xE4\0x"sv), "\xC3\xA4");
  EXPECT_EQ(utf8Of(""), "");
}

}  // namespace
}  // namespace kiv::tool
