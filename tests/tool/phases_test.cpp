// The phases of requests, from recorded calls of WinHTTP's status callback.
#include "probe/phases.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <winhttp.h>

#include <string>

namespace kiv::tool {
namespace {

constexpr const char* kNames[] = {"name", "connection", "tunnel", "TLS", "sending", "first byte"};

// "connection 10+5" begins at 10 and takes 5; "!" is one that failed.
std::string shown(const std::vector<Phase>& phases) {
  std::string text;
  for (const Phase& phase : phases) {
    text += (text.empty() ? "" : ", ") + std::string(kNames[static_cast<std::size_t>(phase.kind)]) + " " +
            std::to_string(phase.began.count()) + "+" + std::to_string(phase.duration.count()) +
            (phase.completed ? "" : "!");
  }
  return text;
}

Notice at(int time, unsigned status, std::wstring text = {}) {
  return {.status = status, .at = microseconds(time), .text = std::move(text)};
}

Notice secured(int time) {
  return {.status = WINHTTP_CALLBACK_STATUS_SENDING_REQUEST, .at = microseconds(time), .hasCertificate = true};
}

struct Case {
  const char* what;
  bool isHttps;
  std::vector<Notice> notices;
  const char* phases;
};

const Case kCases[] = {
    {"http",
     false,
     {at(0, WINHTTP_CALLBACK_STATUS_RESOLVING_NAME), at(3, WINHTTP_CALLBACK_STATUS_NAME_RESOLVED),
      at(3, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER), at(10, WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER),
      at(11, WINHTTP_CALLBACK_STATUS_SENDING_REQUEST), at(12, WINHTTP_CALLBACK_STATUS_REQUEST_SENT),
      at(13, WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE), at(14, WINHTTP_CALLBACK_STATUS_RECEIVING_RESPONSE),
      at(40, WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED), at(41, WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE)},
     "name 0+3, connection 3+7, sending 11+1, first byte 12+28"},
    {"https without a proxy: TLS is what lies between",
     true,
     {at(0, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER), at(5, WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER),
      secured(25), at(26, WINHTTP_CALLBACK_STATUS_REQUEST_SENT), at(30, WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED)},
     "connection 0+5, TLS 5+20, sending 25+1, first byte 26+4"},
    {"https through a proxy whose CONNECT is reported: the request without TLS",
     true,
     {at(0, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER), at(5, WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER),
      at(6, WINHTTP_CALLBACK_STATUS_SENDING_REQUEST), at(7, WINHTTP_CALLBACK_STATUS_REQUEST_SENT),
      at(15, WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED), secured(35), at(36, WINHTTP_CALLBACK_STATUS_REQUEST_SENT),
      at(46, WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED)},
     "connection 0+5, tunnel 5+10, TLS 15+20, sending 35+1, first byte 36+10"},
    {"a proxy that asks for credentials first",
     true,
     {at(0, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER), at(5, WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER),
      at(6, WINHTTP_CALLBACK_STATUS_SENDING_REQUEST), at(7, WINHTTP_CALLBACK_STATUS_REQUEST_SENT),
      at(15, WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED), at(16, WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE),
      at(20, WINHTTP_CALLBACK_STATUS_SENDING_REQUEST), at(21, WINHTTP_CALLBACK_STATUS_REQUEST_SENT),
      at(30, WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED), secured(37)},
     "connection 0+5, tunnel 5+10, tunnel 20+10, TLS 30+7, sending 37+0"},
    {"a second request on the same connection has no TLS of its own",
     true,
     {at(0, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER), at(1, WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER),
      secured(2), at(3, WINHTTP_CALLBACK_STATUS_REQUEST_SENT), at(4, WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED),
      secured(6), at(7, WINHTTP_CALLBACK_STATUS_REQUEST_SENT), at(9, WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED)},
     "connection 0+1, TLS 1+1, sending 2+1, first byte 3+1, sending 6+1, first byte 7+2"},
    {"the first address does not answer",
     false,
     {at(0, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER), at(21, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER),
      at(24, WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER), at(24, WINHTTP_CALLBACK_STATUS_SENDING_REQUEST)},
     "connection 0+21!, connection 21+3, sending 24+0"},
    {"a refused certificate ends TLS",
     true,
     {at(0, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER), at(2, WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER),
      at(9, WINHTTP_CALLBACK_STATUS_SECURE_FAILURE), at(10, WINHTTP_CALLBACK_STATUS_REQUEST_ERROR)},
     "connection 0+2, TLS 2+8!"},
    {"a name that is not found",
     false,
     {at(0, WINHTTP_CALLBACK_STATUS_RESOLVING_NAME), at(8, WINHTTP_CALLBACK_STATUS_REQUEST_ERROR)},
     "name 0+8!"},
    {"a redirect from http to https",
     false,
     {at(0, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER), at(1, WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER),
      at(1, WINHTTP_CALLBACK_STATUS_SENDING_REQUEST), at(2, WINHTTP_CALLBACK_STATUS_REQUEST_SENT),
      at(3, WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED), at(4, WINHTTP_CALLBACK_STATUS_REDIRECT, L"https://b/"),
      at(5, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER), at(6, WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER),
      secured(9), at(10, WINHTTP_CALLBACK_STATUS_REQUEST_SENT), at(12, WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED)},
     "connection 0+1, sending 1+1, first byte 2+1, connection 5+1, TLS 6+3, sending 9+1, first byte 10+2"},
    {"nothing reported", false, {}, ""},
};

TEST(Phases, FollowFromTheNotifications) {
  for (const Case& each : kCases) EXPECT_EQ(shown(phasesOf(each.notices, each.isHttps)), each.phases) << each.what;
}

TEST(Phases, AConnectionNamesItsAddress) {
  const auto phases = phasesOf({at(0, WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER, L"192.0.2.1")}, false);
  ASSERT_EQ(phases.size(), 1u);
  EXPECT_EQ(phases.front().address, L"192.0.2.1");
}

}  // namespace
}  // namespace kiv::tool
