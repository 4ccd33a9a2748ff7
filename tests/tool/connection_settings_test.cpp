// The binary forms of proxy settings, well formed and hostile.
#include "sources/connection_settings.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::tool {
namespace {

using Bytes = std::vector<std::uint8_t>;

void addNumber(Bytes& bytes, std::uint32_t number) {
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
}

void addText(Bytes& bytes, const std::string& text) {
  addNumber(bytes, static_cast<std::uint32_t>(text.size()));
  bytes.insert(bytes.end(), text.begin(), text.end());
}

Bytes blob(std::uint32_t version, std::uint32_t flags, const std::vector<std::string>& texts) {
  Bytes bytes;
  for (const std::uint32_t number : {version, 7U, flags}) addNumber(bytes, number);
  for (const std::string& text : texts) addText(bytes, text);
  return bytes;
}

const std::vector<std::string> kTexts = {"gate:8080", "*.corp;<local>", "http://pac.corp/p.pac"};

TEST(ConnectionSettings, FlagsSayWhatIsOn) {
  struct Case {
    std::uint32_t flags;
    Naming naming;
  };
  const Case kCases[] = {
      {1, {}},
      {3, {.manualList = L"gate:8080", .bypassList = L"*.corp;<local>"}},
      {5, {.scriptUrl = L"http://pac.corp/p.pac"}},
      {9, {.automaticDetection = true}},
      {15, {true, L"http://pac.corp/p.pac", L"gate:8080", L"*.corp;<local>"}},
  };
  for (const auto& [flags, naming] : kCases) {
    const auto read = readConnectionSettings(blob(0x46, flags, kTexts));
    ASSERT_TRUE(std::holds_alternative<ConnectionSettings>(read)) << flags;
    EXPECT_EQ(std::get<ConnectionSettings>(read).naming(), naming) << flags;
  }
}

TEST(ConnectionSettings, WhatFollowsTheTextsIsNotRead) {
  Bytes bytes = blob(0x46, 3, kTexts);
  bytes.resize(bytes.size() + 32, 0xFF);
  EXPECT_TRUE(std::holds_alternative<ConnectionSettings>(readConnectionSettings(bytes)));
}

TEST(ConnectionSettings, EveryCutIsMalformed) {
  const Bytes whole = blob(0x46, 15, kTexts);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const auto read = readConnectionSettings(std::span(whole).first(size));
    EXPECT_TRUE(std::holds_alternative<std::wstring>(read)) << size;
  }
}

TEST(ConnectionSettings, AWrongLengthIsMalformed) {
  for (const std::uint32_t length : {100U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFCU, 0xFFFFFFFFU}) {
    Bytes bytes = blob(0x46, 3, {});
    addNumber(bytes, length);
    bytes.resize(bytes.size() + 64, 'x');
    const auto read = readConnectionSettings(bytes);
    ASSERT_TRUE(std::holds_alternative<std::wstring>(read)) << length;
    EXPECT_EQ(std::get<std::wstring>(read), L"malformed: the manual list is longer than the value");
  }
}

TEST(ConnectionSettings, AnUnknownVersionIsMalformed) {
  const auto read = readConnectionSettings(blob(0x3C, 3, kTexts));
  ASSERT_TRUE(std::holds_alternative<std::wstring>(read));
  EXPECT_EQ(std::get<std::wstring>(read), L"malformed: its form is unknown (version 60)");
}

TEST(ConnectionSettings, ATextEndsAtItsNul) {
  const auto read = readConnectionSettings(blob(0x46, 3, {std::string("gate\0evil", 9), "", ""}));
  EXPECT_EQ(std::get<ConnectionSettings>(read).manualList, L"gate");
}

TEST(WinHttpSettings, BothVersionsAreRead) {
  for (const std::uint32_t version : {0x18U, 0x28U}) {
    const auto read = readWinHttpSettings(blob(version, 3, {"gate:8080", "<local>"}));
    ASSERT_TRUE(std::holds_alternative<ConnectionSettings>(read)) << version;
    const Naming expected = {.manualList = L"gate:8080", .bypassList = L"<local>"};
    EXPECT_EQ(std::get<ConnectionSettings>(read).naming(), expected);
  }
  EXPECT_TRUE(std::holds_alternative<std::wstring>(readWinHttpSettings(blob(0x46, 3, {"gate:8080", ""}))));
}

}  // namespace
}  // namespace kiv::tool
