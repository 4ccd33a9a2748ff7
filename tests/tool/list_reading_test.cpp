// How Windows and kiv.dll read the same lists.
#include "sources/list_reading.h"

#include <gtest/gtest.h>

namespace kiv::tool {
namespace {

using Texts = std::vector<std::wstring>;

TEST(ListReading, EntriesArePutInPlaceOfEachReader) {
  struct Case {
    const wchar_t* list;
    Texts forHttp;
    Texts forHttps;
    Texts byKiv;
  };
  const Case kCases[] = {
      {L"", {}, {}, {}},
      {L"gate:8080", {L"gate:8080"}, {L"gate:8080"}, {L"http://gate:8080"}},
      {L"http=a:1;https=b:2", {L"a:1"}, {L"b:2"}, {L"http://a:1", L"https://b:2"}},
      {L"a:1 b:2", {L"a:1", L"b:2"}, {L"a:1", L"b:2"}, {L"http://a:1", L"http://b:2"}},
      {L"HTTP=http://a:1", {L"a:1"}, {}, {L"HTTP://a:1"}},
      {L"a", {L"a"}, {L"a"}, {L"http://a:0"}},
      {L"a:1;b:2:3;c:4", {L"a:1", L"b:2:3", L"c:4"}, {L"a:1", L"b:2:3", L"c:4"}, {L"http://a:1"}},
      {L"bob:pw@a:1", {L"a:1"}, {L"a:1"}, {}},
  };
  for (const auto& [list, forHttp, forHttps, byKiv] : kCases) {
    const ListReading reading = readingOf(list, L"");
    EXPECT_EQ(reading.forHttp, forHttp) << list;
    EXPECT_EQ(reading.forHttps, forHttps) << list;
    EXPECT_EQ(reading.byKiv, byKiv) << list;
  }
}

TEST(ListReading, DifferencesAreNamedOnceEach) {
  struct Case {
    const wchar_t* manualList;
    const wchar_t* bypassList;
    std::size_t differences;
  };
  constexpr Case kCases[] = {
      {L"gate:8080", L"*.corp;<local>", 0}, {L"gate:8080", L" a ; b ", 0},  {L"gate:8080", L"a b", 1},
      {L"gate:8080", L"https://a", 1},      {L"gate:8080", L"a:81 b", 2},   {L"gate", L"", 1},
      {L"http=a:1;https=b:2", L"", 1},      {L"http=a;https=b", L"a b", 3}, {L"a:1:2", L"", 1},
  };
  for (const auto& [manualList, bypassList, differences] : kCases)
    EXPECT_EQ(readingOf(manualList, bypassList).differences.size(), differences) << manualList << L" " << bypassList;
}

TEST(ListEntry, PartsAreFoundInAnyText) {
  struct Case {
    const wchar_t* text;
    ListEntry entry;
  };
  constexpr Case kCases[] = {
      {L"", {}},
      {L"=", {}},
      {L"://", {}},
      {L":", {}},
      {L"https=http://gate:8080/x", {L"https", L"http", L"gate", L"8080", L"/x"}},
      {L"http://bob:p@gate:1", {L"", L"http", L"gate", L"1", L""}},
      {L"[::1]:80", {L"", L"", L"[::1]", L"80", L""}},
      {L"[::1]", {L"", L"", L"[::1]", L"", L""}},
  };
  for (const auto& [text, expected] : kCases) {
    const ListEntry entry = readEntry(text);
    EXPECT_EQ(entry.urlScheme, expected.urlScheme) << text;
    EXPECT_EQ(entry.proxyScheme, expected.proxyScheme) << text;
    EXPECT_EQ(entry.host, expected.host) << text;
    EXPECT_EQ(entry.port, expected.port) << text;
    EXPECT_EQ(entry.rest, expected.rest) << text;
  }
}

}  // namespace
}  // namespace kiv::tool
