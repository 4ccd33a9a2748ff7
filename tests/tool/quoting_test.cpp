// How texts are quoted for shells, hostile ones too. The shells themselves read them in the end-to-end tests.
#include "environment/quoting.h"

#include <gtest/gtest.h>

namespace kiv::tool {
namespace {

using Quote = std::optional<std::wstring> (*)(std::wstring_view);

constexpr const wchar_t* kRefused = nullptr;

// The text for each shell; null where it is refused.
struct Case {
  const wchar_t* text;
  const wchar_t* cmd;
  const wchar_t* batch;
  const wchar_t* powerShell;
  const wchar_t* bash;
  const wchar_t* allShells;
  const wchar_t* scripts;
};

constexpr Case kCases[] = {
    {L"http://gate:80", L"http://gate:80", L"http://gate:80", L"'http://gate:80'", L"'http://gate:80'",
     L"\"http://gate:80\"", L"\"http://gate:80\""},
    {L"", L"", L"", L"''", L"''", L"\"\"", L"\"\""},
    {L"a&calc|b>c<d^e", L"a&calc|b>c<d^e", L"a&calc|b>c<d^e", L"'a&calc|b>c<d^e'", L"'a&calc|b>c<d^e'",
     L"\"a&calc|b>c<d^e\"", kRefused},
    {L"%PATH%", kRefused, L"%%PATH%%", L"'%PATH%'", L"'%PATH%'", kRefused, kRefused},
    {L"a\"b", kRefused, kRefused, L"'a\"b'", L"'a\"b'", kRefused, kRefused},
    {L"!x!", kRefused, kRefused, L"'!x!'", L"'!x!'", kRefused, kRefused},
    {L"a'b", L"a'b", L"a'b", L"'a''b'", L"'a'\\''b'", L"\"a'b\"", kRefused},
    {L"\x2018\x2019\x201A\x201B", L"\x2018\x2019\x201A\x201B", kRefused,
     L"'\x2018\x2018\x2019\x2019\x201A\x201A\x201B\x201B'", L"'\x2018\x2019\x201A\x201B'",
     L"\"\x2018\x2019\x201A\x201B\"", L"\"\x2018\x2019\x201A\x201B\""},
    {L"\x201Cx\x201D", L"\x201Cx\x201D", kRefused, L"'\x201Cx\x201D'", L"'\x201Cx\x201D'", kRefused, kRefused},
    {L"$(calc)`x`", L"$(calc)`x`", L"$(calc)`x`", L"'$(calc)`x`'", L"'$(calc)`x`'", kRefused, kRefused},
    {L"a\\", L"a\\", L"a\\", L"'a\\'", L"'a\\'", kRefused, kRefused},
    {L"(a) ;b", L"(a) ;b", L"(a) ;b", L"'(a) ;b'", L"'(a) ;b'", L"\"(a) ;b\"", kRefused},
};

TEST(Quoting, KeepsEveryTextAsItIsOrRefusesIt) {
  const struct {
    const char* name;
    Quote quote;
    const wchar_t* Case::*expected;
  } shells[] = {
      {"cmd", quotedForCmd, &Case::cmd},
      {"batch", quotedForBatch, &Case::batch},
      {"powershell", quotedForPowerShell, &Case::powerShell},
      {"bash", quotedForBash, &Case::bash},
      {"all shells", quotedForAllShells, &Case::allShells},
      {"scripts", quotedForScripts, &Case::scripts},
  };
  for (const auto& [name, quote, expected] : shells) {
    for (const Case& c : kCases) {
      const auto quoted = quote(c.text);
      EXPECT_EQ(quoted.has_value(), c.*expected != kRefused) << name << ": " << c.text;
      if (quoted && c.*expected) {
        EXPECT_EQ(*quoted, c.*expected) << name;
      }
    }
  }
}

TEST(Quoting, RefusesWhatCannotBeSeen) {
  for (const Quote quote :
       {quotedForCmd, quotedForBatch, quotedForPowerShell, quotedForBash, quotedForAllShells, quotedForScripts}) {
    for (const wchar_t hidden : {L'\0', L'\t', L'\n', L'\r', L'\x1B', L'\x7F', L'\x85', L'\x200B', L'\x2028', L'\x202E',
                                 L'\x2066', wchar_t{0xD800}, L'\xFEFF'}) {
      EXPECT_FALSE(quote(std::wstring(L"a") + hidden + L"b")) << static_cast<unsigned>(hidden);
    }
  }
}

}  // namespace
}  // namespace kiv::tool
