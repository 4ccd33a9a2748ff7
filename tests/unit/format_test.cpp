// Tests of formatting into a text of just the needed size.
#include "support/format.h"

#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <string>

#include "platform/memory_watch.h"

namespace kiv::support {
namespace {

using test::MemoryWatch;

TEST(FormatTest, WritesEachConversionAtItsLimits) {
  const struct {
    std::wstring formatted;
    const wchar_t* expected;
  } cases[] = {
      {format(L"%d", 0), L"0"},
      {format(L"%d", 7), L"7"},
      {format(L"%d", -1), L"-1"},
      {format(L"%d", INT_MAX), L"2147483647"},
      {format(L"%d", INT_MIN), L"-2147483648"},
      {format(L"%lu", 0UL), L"0"},
      {format(L"%lu", 12180UL), L"12180"},
      {format(L"%lu", 0x80000000UL), L"2147483648"},
      {format(L"%lu", 0xFFFFFFFFUL), L"4294967295"},
      {format(L"%ls", L""), L""},
      {format(L"%ls", L"text"), L"text"},
      {format(L"%ls", L"%d %ls %n"), L"%d %ls %n"},
      {format(L"%ls", L" \r\n\t "), L" \r\n\t "},
      {format(L"%%"), L"%"},
      {format(L""), L""},
      {format(L"no conversion"), L"no conversion"},
      {format(L"%ls: %d of %d, code %lu", L"gate", 2, 3, 5UL), L"gate: 2 of 3, code 5"},
  };
  for (const auto& [formatted, expected] : cases) EXPECT_EQ(formatted, expected);
}

TEST(FormatTest, KeepsCharactersOfEveryLanguage) {
  const wchar_t* const text = L"Pr\u00FCfung \u0416 \u65E5\u672C\u8A9E \U0001F600";
  EXPECT_EQ(format(L"%ls", text), text);
  EXPECT_EQ(format(L"\u65E5 %ls \u00FC %d", text, 1), std::wstring(L"\u65E5 ") + text + L" \u00FC 1");
}

// What a C library takes for the end of a text or for half a character is a character like any other.
TEST(FormatTest, KeepsCharactersThatAreNone) {
  for (const unsigned unit :
       {0xFFFFU, 0xFFFEU, 0xFEFFU, 0xD800U, 0xDBFFU, 0xDC00U, 0xDFFFU, 0xFFFDU, 0x1U, 0x7FU, 0x80U}) {
    for (const std::size_t length : {1U, 6U, 7U, 8U, 255U, 256U, 300U, 70'000U}) {
      const std::wstring text(length, static_cast<wchar_t>(unit));
      EXPECT_EQ(format(L"<%ls|%ls>", text.c_str(), L"b"), L"<" + text + L"|b>") << unit << " times " << length;
      EXPECT_EQ(format(text + L"%d" + text, 7), text + L"7" + text) << unit << " times " << length;
    }
  }
  const wchar_t wrong[] = {L'a', static_cast<wchar_t>(0xDC00), static_cast<wchar_t>(0xD800), L'b', L'\0'};
  EXPECT_EQ(format(L"%ls%%%ls", wrong, wrong), std::wstring(wrong) + L"%" + wrong);
}

TEST(FormatTest, WritesAPercentThatStartsNoConversionAsItStands) {
  const struct {
    std::wstring formatted;
    const wchar_t* expected;
  } cases[] = {
      {format(L"100%"), L"100%"},
      {format(L"%"), L"%"},
      {format(L"%%%"), L"%%"},
      {format(L"a%yb%d", 1), L"a%yb1"},
      {format(L"%l%s%n%5d%u", 1), L"%l%s%n%5d%u"},
      {format(L"%%d%%ls", 1, L"x"), L"%d%ls"},
      {format(L"%d%d", 1), L"1%d"},
      {format(L"%d", 1, 2), L"1"},
      {format(L"% d%D%LS%L", 1), L"% d%D%LS%L"},
  };
  for (const auto& [formatted, expected] : cases) EXPECT_EQ(formatted, expected);
}

TEST(FormatTest, ResultIsAsLongAsItsCharactersWhateverTheLength) {
  for (const std::size_t length :
       {1U, 6U, 7U, 8U, 255U, 256U, 511U, 512U, 1023U, 1024U, 4095U, 4096U, 32768U, 65536U, 100'000U}) {
    const std::wstring text(length, L'\u00E9');
    const std::wstring formatted = format(L"%ls", text.c_str());
    EXPECT_EQ(formatted.size(), length);
    EXPECT_EQ(formatted, text);
    EXPECT_EQ(formatted.c_str()[length], L'\0');
    EXPECT_EQ(format(L"<%ls|%d>", text.c_str(), -1), L"<" + text + L"|-1>");
  }
}

TEST(FormatTest, LongFormatTextIsWrittenWhole) {
  const std::wstring text(100'000, L'x');
  EXPECT_EQ(format((text + L"%d" + text).c_str(), 5), text + L"5" + text);
}

TEST(FormatTest, NeedsOneAllocationForALongTextAndNoneForAShortOne) {
  const MemoryWatch::AllocationFailure counter(0);
  EXPECT_EQ(format(L"%d", 12).size(), 2U);
  EXPECT_EQ(counter.count(), 0U);
  EXPECT_EQ(format(L"%ls", L"a text that is too long for its own buffer").size(), 42U);
  EXPECT_EQ(counter.count(), 1U);
}

TEST(FormatTest, ThrowsWhenMemoryRunsOut) {
  const MemoryWatch::Scope scope;
  bool thrown = false;
  {
    const MemoryWatch::AllocationFailure failure(1);
    try {
      (void)format(L"%ls", L"a text that is too long for its own buffer");
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
  }
  EXPECT_TRUE(thrown);
  EXPECT_EQ(scope.liveBlocks(), 0U);
}

TEST(FormatTest, FailureOfASystemCallNamesTheCallAndItsErrorCode) {
  const struct {
    const wchar_t* call;
    DWORD error;
    const wchar_t* expected;
  } cases[] = {
      {L"WinHttpOpen", 12007, L"WinHttpOpen failed. ErrorCode = 12007"},
      {L"WinHttpSendRequest", 0, L"WinHttpSendRequest failed. ErrorCode = 0"},
      {L"X", 0xFFFFFFFF, L"X failed. ErrorCode = 4294967295"},
  };
  for (const auto& [call, error, expected] : cases) EXPECT_EQ(failureOf(call, error), expected);
}

}  // namespace
}  // namespace kiv::support
