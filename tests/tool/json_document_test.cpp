// The JSON for texts that are not well formed.
#include "resolve/json_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace kiv::tool {
namespace {

using nlohmann::json;

constexpr const char* kReplacement = "\xEF\xBF\xBD";

TEST(JsonDocument, SurrogatesWithoutTheirPairAreReplaced) {
  Resolution resolution;
  resolution.url = L"http://a\xD800z/";
  resolution.settings.manualList = L"\xDC00";
  resolution.candidates.push_back({.text = L"http://\xDFFF\xD83D:1"});
  const json document = json::parse(jsonDocument(Task::Resolve, false, {resolution}));
  const json& result = document.at("results").at(0);
  EXPECT_EQ(result.at("url"), std::string("http://a") + kReplacement + "z/");
  EXPECT_EQ(result.at("settings").at("manualList"), kReplacement);
  EXPECT_EQ(result.at("candidates").at(0).at("candidate"), std::string("http://") + kReplacement + kReplacement + ":1");
}

TEST(JsonDocument, PairsAreOneCharacter) {
  Resolution resolution;
  resolution.url = L"http://\xD83D\xDE00/";
  EXPECT_EQ(json::parse(jsonDocument(Task::Resolve, false, {resolution})).at("results").at(0).at("url"),
            "http://\xF0\x9F\x98\x80/");
}

TEST(JsonDocument, ExplainsAFailureWithTheNameOfItsError) {
  Resolution resolution;
  resolution.candidates.push_back({.text = L"http://a:1", .requests = {{.error = 12002}}});
  const json document = json::parse(jsonDocument(Task::Resolve, false, {resolution}));
  const json& candidate = document.at("results").at(0).at("candidates").at(0);
  EXPECT_EQ(candidate.at("explanation"), "timed out: ERROR_WINHTTP_TIMEOUT (12002)");
  EXPECT_EQ(candidate.at("requests").at(0).at("error"), 12002);
}

TEST(JsonDocument, TaskIsNamed) {
  EXPECT_EQ(json::parse(jsonDocument(Task::Resolve, false, {})).at("task"), "resolve");
  EXPECT_EQ(json::parse(jsonDocument(Task::ShowSettings, false, {})).at("task"), "settings");
  EXPECT_EQ(json::parse(jsonDocument(Task::ListCandidates, false, {})).at("task"), "candidates");
}

TEST(TraceLine, IsOneLineWhateverTheMessage) {
  Resolution resolution;
  resolution.url = L"http://x/";
  const std::string line = traceLine(resolution, {{}, LogLevel::Warn, L"a\nb\x2028\"\\\xD800\x01"});
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  const json record = json::parse(line);
  EXPECT_EQ(record.at("message"), std::string("a\nb\xE2\x80\xA8\"\\") + kReplacement + "\x01");
  EXPECT_EQ(record.at("level"), "warn");
  EXPECT_EQ(record.at("time"), "1970-01-01T00:00:00.000Z");
}

TEST(JsonDocument, SaysThatNamesAreRemoved) {
  EXPECT_EQ(json::parse(jsonDocument(Task::Resolve, true, {})).at("redacted"), true);
  EXPECT_FALSE(json::parse(jsonDocument(Task::Resolve, false, {})).contains("redacted"));
}

}  // namespace
}  // namespace kiv::tool
