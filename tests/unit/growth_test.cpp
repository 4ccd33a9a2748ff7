// Tests of how the time of reading hostile texts grows with their size: no worse than is documented.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "config/address_grammar.h"
#include "discovery/bypass_rules.h"
#include "discovery/proxy_list.h"
#include "discovery/wildcard.h"
#include "kiv/proxy_config.h"
#include "platform/platform_test.h"
#include "unit/support/handles.h"

namespace kiv::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRepetitions = 5;
constexpr std::size_t kFactor = 8;
// What eight times the input may cost: where time is proportional to size, and where it is to the square.
constexpr double kLinear = 3 * kFactor;
constexpr double kSquare = 3 * kFactor * kFactor;

// Repeats so that what else the machine does counts as little as possible.
template <class Body>
double leastSeconds(Body body) {
  auto least = Clock::duration::max();
  for (int i = 0; i < kRepetitions; ++i) {
    const auto start = Clock::now();
    body();
    least = std::min(least, Clock::now() - start);
  }
  return std::chrono::duration<double>(least).count();
}

// `Prepared` makes, for a size, the input, and returns what is to be measured.
using Prepared = std::function<std::function<void()>(std::size_t size)>;

void expectGrowth(double most, std::size_t size, const Prepared& prepare) {
  const double small = leastSeconds(prepare(size));
  const double large = leastSeconds(prepare(size * kFactor));
  EXPECT_LT(large, small * most) << "from " << small << " s to " << large << " s";
}

std::wstring repeated(std::wstring_view piece, std::size_t size) {
  std::wstring text;
  text.reserve(size + piece.size());
  while (text.size() < size) text += piece;
  return text;
}

constexpr std::size_t kSize = 32 * 1024;

class GrowthTest : public PlatformTest {};

TEST_F(GrowthTest, IsLinearForProxyAddresses) {
  struct Family {
    const wchar_t* before;
    const wchar_t* piece;
    const wchar_t* after;
  };
  const std::vector<Family> families = {
      {L"", L" ", L""},
      {L"", L" ", L"h"},
      {L"", L"h", L""},
      {L"", L"a.", L":80"},
      {L"", L"s", L"://h"},
      {L"u", L"u", L":p@h"},
      {L"u:", L"p", L"@h"},
      {L"h:", L"0", L"80"},
      {L"h:", L"9", L""},
      {L"h:80", L" ", L"x"},
      {L"h/", L"p", L""},
      {L"h/", L"/", L":"},
      {L"h/?", L"q", L"/"},
      {L"", L"a:", L""},
      {L"", L"s://", L"h"},
      {L"", L"u:p@", L"h"},
      {L"", L"\x4E2D", L".example"},
  };
  for (const Family& family : families) {
    SCOPED_TRACE(::testing::Message() << family.before << " ... " << family.piece << " ... " << family.after);
    expectGrowth(kLinear, kSize, [&](std::size_t size) {
      return [text = family.before + repeated(family.piece, size) + family.after] {
        const SimulatedWindows windows;
        const UniqueProxyConfig config(KivProxyConfig_Parse(text.c_str(), nullptr));
        ASSERT_TRUE(config);
      };
    });
  }
}

TEST_F(GrowthTest, IsLinearForProxyLists) {
  std::vector<impl::ProxyListEntry> entries;
  for (const wchar_t* piece : {L"PROXY p:1;", L"DIRECT;", L";", L" ", L"p", L"PROXY p:1 ", L":"}) {
    SCOPED_TRACE(::testing::Message() << "script answers of " << piece);
    expectGrowth(kLinear, kSize, [&](std::size_t size) {
      return [&, text = repeated(piece, size)] { static_cast<void>(impl::ParsePacProxyList(text, entries)); };
    });
  }
  for (const wchar_t* piece : {L"http=s://p:1;", L"p ", L";", L"=", L"://", L"p", L"a=", L"p:9999999"}) {
    SCOPED_TRACE(::testing::Message() << "WinHTTP lists of " << piece);
    expectGrowth(kLinear, kSize, [&](std::size_t size) {
      return [&, text = repeated(piece, size)] { static_cast<void>(impl::ParseWinHttpProxyList(text, entries)); };
    });
  }
}

TEST_F(GrowthTest, IsLinearForBypassLists) {
  impl::ParsedAddress target;
  target.host = L"www.host.example";
  target.kind = impl::AddressScheme::Http;
  for (const wchar_t* piece :
       {L"a;", L"*;", L";", L" ;", L" ", L"<local>;", L"http*://*.example:8080;", L":", L"*a", L"[;"}) {
    SCOPED_TRACE(::testing::Message() << "bypass lists of " << piece);
    expectGrowth(kLinear, kSize, [&](std::size_t size) {
      return [&, list = repeated(piece, size)] {
        for (const impl::BypassRule& rule : impl::BuildBypassRules(list)) {
          const auto* pattern = std::get_if<impl::BypassPatternRule>(&rule);
          static_cast<void>(pattern ? impl::MatchesBypassPattern(*pattern, target) : impl::IsPlainHostName(target));
        }
      };
    });
  }
}

TEST_F(GrowthTest, IsLinearForTheTextThatAPatternIsMatchedAgainst) {
  for (const wchar_t* pattern : {L"*a*a*a*a*a*a*a*a*b", L"*aaaaaaaaaaaaaaab", L"*b*a", L"aaaa*"}) {
    SCOPED_TRACE(pattern);
    expectGrowth(kLinear, kSize, [&](std::size_t size) {
      return [&, text = std::wstring(size, L'a')] { static_cast<void>(impl::WildcardToRegex(pattern).matches(text)); };
    });
  }
}

TEST_F(GrowthTest, IsAtWorstTheProductOfPatternAndText) {
  expectGrowth(kSquare, 512, [](std::size_t size) {
    const std::wstring letters(size / 2, L'a');
    return [pattern = impl::WildcardToRegex(L"*" + letters + L"b"), text = letters + letters] {
      ASSERT_FALSE(pattern.matches(text));
    };
  });
  expectGrowth(kSquare, 512, [](std::size_t size) {
    return [pattern = impl::WildcardToRegex(repeated(L"*a", size) + L"b"), text = std::wstring(size, L'a')] {
      ASSERT_FALSE(pattern.matches(text));
    };
  });
}

TEST_F(GrowthTest, IsLinearForWritingAProxyAddress) {
  expectGrowth(kLinear, kSize, [](std::size_t size) {
    const std::wstring longText(size, L'x');
    const std::shared_ptr<KivCred> cred(KivCred_Create(longText.c_str(), longText.c_str()), KivCred_Destruct);
    const std::shared_ptr<KivProxyConfig> config(KivProxyConfig_Http(longText.c_str(), 1, cred.get()),
                                                 KivProxyConfig_Destruct);
    return [config] {
      const SimulatedWindows windows;
      std::size_t length = 0;
      KivProxyConfig_ToString(config.get(), 1, 1, &length, [](void* context, const wchar_t* text) {
        *static_cast<std::size_t*>(context) = std::wcslen(text);
      });
      ASSERT_GT(length, 0U);
    };
  });
}

}  // namespace
}  // namespace kiv::test
