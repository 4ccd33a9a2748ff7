// What an application can set before the first resolution.
#include "core/options.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kiv::session {
namespace {

constexpr std::uint32_t kDay = 86'400'000;
constexpr std::uint32_t kAllSchemes = KIV_SCHEME_BASIC | KIV_SCHEME_NTLM | KIV_SCHEME_DIGEST | KIV_SCHEME_NEGOTIATE;

struct NumberOption {
  std::uint32_t option;
  std::uint32_t least;
  std::uint32_t most;
  std::uint32_t Options::*member;
  std::uint32_t bits = 0xFFFFFFFF;  // that a value may have
};

constexpr std::array kNumberOptions = {
    NumberOption{KIV_OPTION_TEST, KIV_TEST_NONE, KIV_TEST_REACHED, &Options::test},
    NumberOption{KIV_OPTION_TIME_OUT, 1, kDay, &Options::timeOut},
    NumberOption{KIV_OPTION_DISCOVERY_TIME_OUT, 1, kDay, &Options::discoveryTimeOut},
    NumberOption{KIV_OPTION_CONNECT_TIME_OUT, 1, kDay, &Options::connectTimeOut},
    NumberOption{KIV_OPTION_ANSWER_TIME_OUT, 1, kDay, &Options::answerTimeOut},
    NumberOption{KIV_OPTION_KEPT_TIME, 0, kDay, &Options::keptTime},
    NumberOption{KIV_OPTION_PAST_TIME, 0, kDay, &Options::pastTime},
    NumberOption{KIV_OPTION_FAILURE_TIME, 0, kDay, &Options::failureTime},
    NumberOption{KIV_OPTION_DEAD_TIME, 0, kDay, &Options::deadTime},
    NumberOption{KIV_OPTION_ORIGINS, 1, 10'000, &Options::origins},
    NumberOption{KIV_OPTION_CANDIDATES, 1, 32, &Options::candidates},
    NumberOption{KIV_OPTION_DIRECT, KIV_DIRECT_SETTINGS, KIV_DIRECT_NEVER, &Options::direct},
    NumberOption{KIV_OPTION_LOGGED_ON_USER, KIV_LOGGED_ON_USER_NEVER, KIV_LOGGED_ON_USER_PROXIES,
                 &Options::loggedOnUser},
    NumberOption{KIV_OPTION_SCHEMES, 1, kAllSchemes, &Options::schemes, kAllSchemes},
    NumberOption{KIV_OPTION_LOG_LEVEL, KIV_LOG_LEVEL_OFF, KIV_LOG_LEVEL_DEBUG, &Options::logLevel},
};

}  // namespace

KivStatus Options::setNumber(std::uint32_t option, std::uint32_t value) noexcept {
  const auto known = std::ranges::find(kNumberOptions, option, &NumberOption::option);
  if (known == kNumberOptions.end() || value < known->least || value > known->most || (value & ~known->bits) != 0) {
    return KIV_STATUS_BAD_ARGUMENT;
  }
  this->*known->member = value;
  return KIV_STATUS_OK;
}

KivStatus Options::setText(std::uint32_t option, const wchar_t* text) {
  const std::wstring_view value = text ? std::wstring_view(text) : std::wstring_view();
  switch (option) {
    case KIV_OPTION_LEFT_OUT:
      if (value.size() > LeftOut::kLongestText) return KIV_STATUS_BAD_ARGUMENT;
      leftOut = LeftOut(value);
      return KIV_STATUS_OK;
    case KIV_OPTION_BYPASS_LIST:
      if (value.size() > kLongestBypassList) return KIV_STATUS_BAD_ARGUMENT;
      bypassList = text ? std::optional<std::wstring>(value) : std::nullopt;
      return KIV_STATUS_OK;
    default:
      return KIV_STATUS_BAD_ARGUMENT;
  }
}

KivStatus Options::setProxy(std::uint32_t which, const wchar_t* text) {
  if (which != KIV_PROXY_PREFERRED && which != KIV_PROXY_FALLBACK) return KIV_STATUS_BAD_ARGUMENT;
  const std::wstring_view value = text ? std::wstring_view(text) : std::wstring_view();
  if (value.size() > kLongestProxy) return KIV_STATUS_BAD_ARGUMENT;
  std::optional<Route> proxy = Route::parse(value, RouteKind::Socks5);
  if (text && !proxy) return KIV_STATUS_BAD_ARGUMENT;
  (which == KIV_PROXY_PREFERRED ? preferred : fallback) = std::move(proxy);
  return KIV_STATUS_OK;
}

}  // namespace kiv::session
