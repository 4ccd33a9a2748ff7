// Tests of what an application can set before the first resolution.
#include "core/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using session::Options;
using session::Route;
using session::RouteKind;

class OptionsTest : public PlatformTest {
 protected:
  Options options;
};

TEST_F(OptionsTest, TakeTheNumbersOfTheirRangeAndNoOther) {
  struct Case {
    std::uint32_t option;
    std::uint32_t Options::*member;
    std::uint32_t byDefault;
    std::uint32_t least;
    std::uint32_t most;
  };
  constexpr std::uint32_t kDay = 86'400'000;
  const std::vector<Case> cases = {
      {KIV_OPTION_TEST, &Options::test, KIV_TEST_REACHED, 0, 2},
      {KIV_OPTION_TIME_OUT, &Options::timeOut, 30'000, 1, kDay},
      {KIV_OPTION_DISCOVERY_TIME_OUT, &Options::discoveryTimeOut, 10'000, 1, kDay},
      {KIV_OPTION_CONNECT_TIME_OUT, &Options::connectTimeOut, 5'000, 1, kDay},
      {KIV_OPTION_ANSWER_TIME_OUT, &Options::answerTimeOut, 15'000, 1, kDay},
      {KIV_OPTION_KEPT_TIME, &Options::keptTime, 300'000, 0, kDay},
      {KIV_OPTION_PAST_TIME, &Options::pastTime, 300'000, 0, kDay},
      {KIV_OPTION_FAILURE_TIME, &Options::failureTime, 10'000, 0, kDay},
      {KIV_OPTION_DEAD_TIME, &Options::deadTime, 300'000, 0, kDay},
      {KIV_OPTION_ORIGINS, &Options::origins, 1'024, 1, 10'000},
      {KIV_OPTION_CANDIDATES, &Options::candidates, 32, 1, 32},
      {KIV_OPTION_DIRECT, &Options::direct, KIV_DIRECT_SETTINGS, 0, 2},
      {KIV_OPTION_LOGGED_ON_USER, &Options::loggedOnUser, KIV_LOGGED_ON_USER_SYSTEM, 0, 2},
      {KIV_OPTION_SCHEMES, &Options::schemes, 0x1B, 1, 0x1B},
      {KIV_OPTION_LOG_LEVEL, &Options::logLevel, KIV_LOG_LEVEL_OFF, 0, 4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("option " + std::to_string(c.option));
    EXPECT_EQ(options.*c.member, c.byDefault);
    for (const std::uint32_t value : {c.least, c.most}) {
      EXPECT_EQ(options.setNumber(c.option, value), KIV_STATUS_OK);
      EXPECT_EQ(options.*c.member, value);
    }
    std::vector<std::uint32_t> beyond = {c.most + 1, 0xFFFFFFFF};
    if (c.least > 0) beyond.push_back(c.least - 1);
    for (const std::uint32_t value : beyond) {
      EXPECT_EQ(options.setNumber(c.option, value), KIV_STATUS_BAD_ARGUMENT) << value;
      EXPECT_EQ(options.*c.member, c.most);
    }
  }
}

TEST_F(OptionsTest, TakeAnySumOfSchemes) {
  for (std::uint32_t schemes = 0; schemes < 0x40; ++schemes) {
    const bool known = schemes != 0 && (schemes & ~0x1BU) == 0;
    EXPECT_EQ(options.setNumber(KIV_OPTION_SCHEMES, schemes), known ? KIV_STATUS_OK : KIV_STATUS_BAD_ARGUMENT)
        << schemes;
  }
}

TEST_F(OptionsTest, DoNotTakeWhatTheyDoNotKnow) {
  for (const std::uint32_t option : {0U, 16U, 63U, 64U, 65U, 66U, 0xFFFFFFFFU}) {
    EXPECT_EQ(options.setNumber(option, 1), KIV_STATUS_BAD_ARGUMENT) << option;
  }
  for (const std::uint32_t option : {0U, 1U, 15U, 63U, 66U, 0xFFFFFFFFU}) {
    EXPECT_EQ(options.setText(option, L"x"), KIV_STATUS_BAD_ARGUMENT) << option;
    EXPECT_EQ(options.setText(option, nullptr), KIV_STATUS_BAD_ARGUMENT) << option;
  }
  for (const std::uint32_t which : {0U, 3U}) {
    EXPECT_EQ(options.setProxy(which, L"proxy"), KIV_STATUS_BAD_ARGUMENT) << which;
    EXPECT_EQ(options.setProxy(which, nullptr), KIV_STATUS_BAD_ARGUMENT) << which;
  }
}

TEST_F(OptionsTest, SayWhatBecomesOfDirectConnections) {
  EXPECT_EQ(options.directPolicy(), session::DirectPolicy::Settings);
  options.setNumber(KIV_OPTION_DIRECT, KIV_DIRECT_LAST_RESORT);
  EXPECT_EQ(options.directPolicy(), session::DirectPolicy::LastResort);
  options.setNumber(KIV_OPTION_DIRECT, KIV_DIRECT_NEVER);
  EXPECT_EQ(options.directPolicy(), session::DirectPolicy::Never);
}

TEST_F(OptionsTest, TakeTheProxiesThatAreLeftOut) {
  const Route proxy = {RouteKind::Http, L"a", 80};
  EXPECT_EQ(options.setText(KIV_OPTION_LEFT_OUT, L"a"), KIV_STATUS_OK);
  EXPECT_TRUE(options.leftOut.names(proxy));
  std::wstring text(65'536, L'x');
  EXPECT_EQ(options.setText(KIV_OPTION_LEFT_OUT, (text + L"x").c_str()), KIV_STATUS_BAD_ARGUMENT);
  EXPECT_TRUE(options.leftOut.names(proxy));
  EXPECT_EQ(options.setText(KIV_OPTION_LEFT_OUT, text.c_str()), KIV_STATUS_OK);
  EXPECT_FALSE(options.leftOut.names(proxy));
  options.setText(KIV_OPTION_LEFT_OUT, L"a");
  EXPECT_EQ(options.setText(KIV_OPTION_LEFT_OUT, nullptr), KIV_STATUS_OK);
  EXPECT_FALSE(options.leftOut.names(proxy));
}

TEST_F(OptionsTest, TellAnEmptyBypassListFromTheSettings) {
  EXPECT_EQ(options.bypassList, std::nullopt);
  EXPECT_EQ(options.setText(KIV_OPTION_BYPASS_LIST, L""), KIV_STATUS_OK);
  EXPECT_EQ(options.bypassList, L"");
  const std::wstring text(1'048'576, L'x');
  EXPECT_EQ(options.setText(KIV_OPTION_BYPASS_LIST, (text + L"x").c_str()), KIV_STATUS_BAD_ARGUMENT);
  EXPECT_EQ(options.bypassList, L"");
  EXPECT_EQ(options.setText(KIV_OPTION_BYPASS_LIST, text.c_str()), KIV_STATUS_OK);
  EXPECT_EQ(options.bypassList, text);
  EXPECT_EQ(options.setText(KIV_OPTION_BYPASS_LIST, nullptr), KIV_STATUS_OK);
  EXPECT_EQ(options.bypassList, std::nullopt);
}

TEST_F(OptionsTest, TakeTheApplicationsOwnProxies) {
  EXPECT_EQ(options.setProxy(KIV_PROXY_PREFERRED, L"socks://first"), KIV_STATUS_OK);
  EXPECT_EQ(options.setProxy(KIV_PROXY_FALLBACK, L"last:1"), KIV_STATUS_OK);
  EXPECT_EQ(options.preferred, (Route{RouteKind::Socks5, L"first", 1080}));
  EXPECT_EQ(options.fallback, (Route{RouteKind::Http, L"last", 1}));
  for (const std::wstring& text : {std::wstring(), std::wstring(L"user:word@host"), std::wstring(L"direct://")}) {
    EXPECT_EQ(options.setProxy(KIV_PROXY_PREFERRED, text.c_str()), KIV_STATUS_BAD_ARGUMENT) << text;
    EXPECT_EQ(options.preferred, (Route{RouteKind::Socks5, L"first", 1080}));
  }
  EXPECT_EQ(options.setProxy(KIV_PROXY_PREFERRED, nullptr), KIV_STATUS_OK);
  EXPECT_EQ(options.preferred, std::nullopt);
  EXPECT_TRUE(options.fallback);
}

TEST_F(OptionsTest, TakeAProxyOf4096CharactersAndNoLongerOne) {
  const std::wstring digits(4096 - 6, L'0');
  EXPECT_EQ(options.setProxy(KIV_PROXY_PREFERRED, (L"host:" + digits + L"1").c_str()), KIV_STATUS_OK);
  EXPECT_EQ(options.preferred, (Route{RouteKind::Http, L"host", 1}));
  EXPECT_EQ(options.setProxy(KIV_PROXY_PREFERRED, (L"host:0" + digits + L"1").c_str()), KIV_STATUS_BAD_ARGUMENT);
}

TEST_F(OptionsTest, ChangeNothingWithoutMemory) {
  const std::wstring text = L"a.very.long.host.that.needs.memory";
  for (std::size_t nth = 1;; ++nth) {
    Options fresh;
    bool happened = false;
    const auto attempt = [&](auto&& set) {
      try {
        set();
      } catch (const std::bad_alloc&) {
        happened = true;
      }
    };
    {
      const MemoryWatch::AllocationFailure failure(nth);
      attempt([&] { fresh.setText(KIV_OPTION_LEFT_OUT, text.c_str()); });
      if (!happened) attempt([&] { fresh.setText(KIV_OPTION_BYPASS_LIST, text.c_str()); });
      if (!happened) attempt([&] { fresh.setProxy(KIV_PROXY_FALLBACK, text.c_str()); });
    }
    EXPECT_EQ(fresh.fallback.has_value(), !happened);
    if (!happened) {
      EXPECT_GT(nth, 3U);
      return;
    }
  }
}

}  // namespace
}  // namespace kiv::test
