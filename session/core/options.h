// What an application can set before the first resolution.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "config/cred.h"
#include "kiv/session.h"
#include "routes/candidates.h"
#include "routes/left_out.h"
#include "routes/route.h"

namespace kiv::session {

struct Options {
  std::uint32_t test = KIV_TEST_REACHED;
  std::uint32_t timeOut = 30'000;  // times in milliseconds
  std::uint32_t discoveryTimeOut = 10'000;
  std::uint32_t connectTimeOut = 5'000;
  std::uint32_t answerTimeOut = 15'000;
  std::uint32_t keptTime = 300'000;
  std::uint32_t pastTime = 300'000;
  std::uint32_t failureTime = 10'000;
  std::uint32_t deadTime = 300'000;
  std::uint32_t origins = 1'024;
  std::uint32_t candidates = 32;
  std::uint32_t direct = KIV_DIRECT_SETTINGS;
  std::uint32_t loggedOnUser = KIV_LOGGED_ON_USER_SYSTEM;
  std::uint32_t schemes = KIV_SCHEME_BASIC | KIV_SCHEME_NTLM | KIV_SCHEME_DIGEST | KIV_SCHEME_NEGOTIATE;
  std::uint32_t logLevel = KIV_LOG_LEVEL_OFF;
  LeftOut leftOut;
  std::optional<std::wstring> bypassList;  // absent: the settings'
  std::optional<Route> preferred;
  std::optional<Route> fallback;

  DirectPolicy directPolicy() const noexcept { return static_cast<DirectPolicy>(direct); }

  // KIV_STATUS_OK, or KIV_STATUS_BAD_ARGUMENT with nothing changed. Throw std::bad_alloc.
  KivStatus setNumber(std::uint32_t option, std::uint32_t value) noexcept;
  KivStatus setText(std::uint32_t option, const wchar_t* text);
  KivStatus setProxy(std::uint32_t which, const wchar_t* text);

  static constexpr std::size_t kLongestBypassList = 1'048'576;
  static constexpr std::size_t kLongestProxy = 4'096;
};

}  // namespace kiv::session
