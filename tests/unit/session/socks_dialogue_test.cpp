// Tests of what is said to SOCKS proxies, byte by byte.
#include "network/socks_dialogue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "network/sockets.h"
#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using namespace std::string_literals;
using session::RouteKind;
using session::SocksDialogue;
using session::SocksTarget;

const SocksTarget kNamed{.name = "example.org", .address = {}, .port = 443};
const SocksTarget kIpv4{.name = "10.1.2.3", .address = {10, 1, 2, 3}, .port = 8080};
const SocksTarget kIpv6{.name = "fd00::1", .address = {0xFD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, .port = 80};

const std::string kConnect5 = "\x05\x01\x00\x03\x0B"s + "example.org" + "\x01\xBB";
const std::string kGranted5 = "\x05\x00\x00\x01\x0A\x00\x00\x01\x1F\x90"s;

// What was said to the proxy, and how it ended: -1 if it has not.
struct Outcome {
  std::vector<std::string> said;
  int error = -1;
  bool operator==(const Outcome&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << testing::PrintToString(outcome.said) << ", " << outcome.error;
}

class SocksDialogueTest : public PlatformTest {
 protected:
  static std::string taken(SocksDialogue& dialogue) {
    const session::SecureBytes bytes = dialogue.takeOutput();
    return {bytes.begin(), bytes.end()};
  }

  // Lets the proxy answer, in pieces of that size.
  static Outcome talk(RouteKind version, const SocksTarget& target, const std::optional<impl::Cred>& cred,
                      const std::vector<std::string>& answers, std::size_t piece = 1'000) {
    SocksDialogue dialogue(version, target, cred);
    Outcome outcome;
    const auto listen = [&] {
      if (std::string said = taken(dialogue); !said.empty()) outcome.said.push_back(std::move(said));
    };
    listen();
    for (const std::string& answer : answers) {
      for (std::size_t at = 0; at < answer.size(); at += piece) {
        const std::string bytes = answer.substr(at, piece);
        dialogue.receive(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      }
      listen();
    }
    if (dialogue.isFinished()) outcome.error = static_cast<int>(dialogue.error());
    return outcome;
  }
};

TEST_F(SocksDialogueTest, SpeaksSocks4WithAddressesAndSocks4aWithNames) {
  const std::string granted = "\x00\x5A\x00\x00\x00\x00\x00\x00"s;
  struct Case {
    SocksTarget target;
    std::string request;
  };
  const Case cases[] = {
      {kIpv4, "\x04\x01\x1F\x90\x0A\x01\x02\x03\x00"s},
      {kNamed, "\x04\x01\x01\xBB\x00\x00\x00\x01\x00"s + "example.org" + "\x00"s},
  };
  for (const Case& c : cases) {
    for (const std::size_t piece : {1, 3, 1'000}) {
      EXPECT_EQ(talk(RouteKind::Socks4, c.target, std::nullopt, {granted}, piece), (Outcome{{c.request}, 0}));
    }
  }
}

TEST_F(SocksDialogueTest, SaysNothingToSocks4AboutAnAddressOfIpv6) {
  EXPECT_EQ(talk(RouteKind::Socks4, kIpv6, std::nullopt, {}), (Outcome{{}, WSAEAFNOSUPPORT}));
}

TEST_F(SocksDialogueTest, ReadsWhatSocks4Answers) {
  struct Case {
    std::string answer;
    int error;
  };
  const Case cases[] = {
      {""s, -1},
      {"\x00\x5A\x00\x00\x00\x00\x00"s, -1},
      {"\x00\x5A\xFF\xFF\xFF\xFF\xFF\xFF"s, 0},
      {"\x00\x5A\x00\x00\x00\x00\x00\x00more of the target's"s, 0},
      {"\x00\x5B"s, WSAECONNREFUSED},
      {"\x00\x5C"s, WSAECONNREFUSED},
      {"\x00\x5D\x00\x00\x00\x00\x00\x00"s, WSAECONNREFUSED},
      {"\x00\x59"s, ERROR_INVALID_DATA},
      {"\x00\x5E"s, ERROR_INVALID_DATA},
      {"\x00\x00"s, ERROR_INVALID_DATA},
      {"\x04\x5A"s, ERROR_INVALID_DATA},
      {"HTTP/1.1 400"s, ERROR_INVALID_DATA},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(talk(RouteKind::Socks4, kIpv4, std::nullopt, {c.answer}).error, c.error)
        << testing::PrintToString(c.answer);
  }
}

TEST_F(SocksDialogueTest, SpeaksSocks5WithoutAuthentication) {
  struct Case {
    SocksTarget target;
    std::string request;
  };
  const Case cases[] = {
      {kNamed, kConnect5},
      {kIpv4, "\x05\x01\x00\x01\x0A\x01\x02\x03\x1F\x90"s},
      {kIpv6, "\x05\x01\x00\x04\xFD\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x01\x00\x50"s},
  };
  for (const Case& c : cases) {
    for (const std::size_t piece : {1, 3, 1'000}) {
      EXPECT_EQ(talk(RouteKind::Socks5, c.target, std::nullopt, {"\x05\x00"s, kGranted5}, piece),
                (Outcome{{"\x05\x01\x00"s, c.request}, 0}));
    }
  }
}

TEST_F(SocksDialogueTest, LogsOnOnlyIfTheProxyWantsIt) {
  const auto cred = impl::Cred::create(L"us\u00E9r", L"secret word");
  const std::string greeting = "\x05\x02\x00\x02"s;
  const std::string logOn = "\x01\x05us\xC3\xA9r\x0Bsecret word";
  EXPECT_EQ(talk(RouteKind::Socks5, kNamed, cred, {"\x05\x00"s, kGranted5}), (Outcome{{greeting, kConnect5}, 0}));
  EXPECT_EQ(talk(RouteKind::Socks5, kNamed, cred, {"\x05\x02"s, "\x01\x00"s, kGranted5}),
            (Outcome{{greeting, logOn, kConnect5}, 0}));
}

TEST_F(SocksDialogueTest, ReadsWhatSocks5Answers) {
  const std::string none = "\x05\x00"s;
  struct Case {
    bool hasCred;
    std::vector<std::string> answers;
    int error;
  };
  const Case cases[] = {
      {false, {}, -1},
      {false, {"\x05"s}, -1},
      {false, {"\x04\x00"s}, ERROR_INVALID_DATA},
      {false, {"\x05\xFF"s}, ERROR_LOGON_FAILURE},
      {false, {"\x05\x02"s}, ERROR_INVALID_DATA},
      {false, {"\x05\x01"s}, ERROR_INVALID_DATA},
      {false, {"HTTP/1.1 400"s}, ERROR_INVALID_DATA},
      {true, {"\x05\xFF"s}, ERROR_LOGON_FAILURE},
      {true, {"\x05\x02"s, "\x01\x01"s}, ERROR_LOGON_FAILURE},
      {true, {"\x05\x02"s, "\x05\x00"s}, ERROR_INVALID_DATA},
      {false, {none, "\x05\x01"s}, WSAECONNREFUSED},
      {false, {none, "\x05\x08\x00\x01\x00\x00\x00\x00\x00\x00"s}, WSAECONNREFUSED},
      {false, {none, "\x04\x00"s}, ERROR_INVALID_DATA},
      {false, {none, "\x05\x00\x00\x02\x01"s}, ERROR_INVALID_DATA},
      {false, {none, "\x05\x00\x00\x01\x00\x00\x00\x00\x00"s}, -1},
      {false, {none, "\x05\x00\x00\x01\x00\x00\x00\x00\x00\x00"s}, 0},
      {false, {none, "\x05\x00\x00\x04"s + std::string(17, '\0')}, -1},
      {false, {none, "\x05\x00\x00\x04"s + std::string(18, '\0')}, 0},
      {false, {none, "\x05\x00\x00\x03\x00\x00\x00"s}, 0},
      {false, {none, "\x05\x00\x00\x03\xFF"s + std::string(256, 'x')}, -1},
      {false, {none, "\x05\x00\x00\x03\xFF"s + std::string(257, 'x')}, 0},
      {false, {none + kGranted5 + "more of the target's"}, 0},
  };
  for (const Case& c : cases) {
    const auto cred = c.hasCred ? impl::Cred::create(L"user", L"word") : std::nullopt;
    EXPECT_EQ(talk(RouteKind::Socks5, kNamed, cred, c.answers).error, c.error) << testing::PrintToString(c.answers);
  }
}

TEST_F(SocksDialogueTest, SaysNoNameAndNoPasswordOfMoreThan255Bytes) {
  struct Case {
    std::size_t user;
    std::size_t password;
    int error;
  };
  for (const Case& c :
       {Case{255, 255, -1}, Case{256, 1, ERROR_LOGON_FAILURE}, Case{1, 256, ERROR_LOGON_FAILURE}, Case{255, 0, -1}}) {
    const auto cred = impl::Cred::create(std::wstring(c.user, L'u'), std::wstring(c.password, L'p'));
    const Outcome outcome = talk(RouteKind::Socks5, kNamed, cred, {"\x05\x02"s});
    EXPECT_EQ(outcome.error, c.error);
    EXPECT_EQ(outcome.said.size(), c.error == -1 ? 2U : 1U);
  }
}

TEST_F(SocksDialogueTest, WipesThePassword) {
  const auto cred = impl::Cred::create(L"user", L"secret word");
  const ExpectSecretWiped wiped(L"secret word");
  SocksDialogue dialogue(RouteKind::Socks5, kNamed, cred);
  (void)dialogue.takeOutput();
  dialogue.receive(reinterpret_cast<const std::uint8_t*>("\x05\x02"), 2);
  EXPECT_EQ(dialogue.takeOutput().size(), 1U + 1U + 4U + 1U + 11U);
}

}  // namespace
}  // namespace kiv::test
