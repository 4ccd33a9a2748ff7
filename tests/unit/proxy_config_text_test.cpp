// Tests of the text form of proxy configurations.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "config/proxy_config.h"
#include "kiv/proxy_config.h"
#include "platform/platform_test.h"
#include "unit/support/handles.h"
#include "unit/support/odd_ports.h"
#include "unit/support/valueless.h"

namespace kiv::test {
namespace {

using impl::ProxyConfig;

constexpr const wchar_t* kPassword = L"open sesame, open";

struct Sink {
  std::vector<std::wstring> texts;

  static void collect(void* context, const wchar_t* text) {
    const MemoryWatch::Pause pause;
    static_cast<Sink*>(context)->texts.emplace_back(text);
  }
};

class ProxyConfigTextTest : public PlatformTest {
 protected:
  static UniqueProxyConfig parse(const wchar_t* text, const KivCred* cred = nullptr) {
    UniqueProxyConfig config(KivProxyConfig_Parse(text, cred));
    EXPECT_NE(config, nullptr) << text;
    return config;
  }

  static std::wstring format(const UniqueProxyConfig& config, bool withScheme, bool withCred) {
    Sink sink;
    KivProxyConfig_ToString(config.get(), withScheme ? 1 : 0, withCred ? 1 : 0, &sink, &Sink::collect);
    EXPECT_EQ(sink.texts.size(), 1U);
    return sink.texts.empty() ? L"(none)" : sink.texts[0];
  }

  // Scheme word, host and port (-1: not given) of what the text is read as.
  static void expectParsed(const wchar_t* text, const wchar_t* scheme, const wchar_t* host, int port) {
    const UniqueProxyConfig config = parse(text);
    EXPECT_STREQ(KivProxyConfig_Scheme(config.get()), scheme) << text;
    EXPECT_STREQ(KivProxyConfig_Host(config.get()), host) << text;
    EXPECT_EQ(KivProxyConfig_Port(config.get(), 0), port) << text;
    EXPECT_EQ(KivProxyConfig_HasExplicitPort(config.get()), port >= 0) << text;
  }

  static void expectCred(const UniqueProxyConfig& config, const wchar_t* user, const wchar_t* password) {
    const UniqueCred cred(KivProxyConfig_Cred(config.get()));
    EXPECT_STREQ(KivCred_Username(cred.get()), user);
    const UniqueSecStr clear(KivCred_Password(cred.get()));
    EXPECT_STREQ(KivSecStr_CStr(clear.get()), password);
  }
};

TEST_F(ProxyConfigTextTest, ReadsASchemeWordInCapitalsAndATextWithBlanksAround) {
  expectParsed(L" \t\nHTTP://gate:3128\r\n ", L"http", L"gate", 3128);
}

TEST_F(ProxyConfigTextTest, ReadsEverySchemeWord) {
  expectParsed(L"h:1", L"http", L"h", 1);
  expectParsed(L"http://h:1", L"http", L"h", 1);
  expectParsed(L"proxy://h:1", L"http", L"h", 1);
  expectParsed(L"https://h:1", L"https", L"h", 1);
  expectParsed(L"socks4://h:1081", L"socks4", L"h", 1081);
  expectParsed(L"socks5://h:1", L"socks5", L"h", 1);
  expectParsed(L"socks://h:1", L"socks5", L"h", 1);
  expectParsed(L"SoCkS://h:1", L"socks5", L"h", 1);
}

TEST_F(ProxyConfigTextTest, LeavesThePortToTheSchemeIfNoneIsWritten) {
  struct Case {
    const wchar_t* text;
    int port;
  };
  for (const Case& c : {Case{L"h", 80}, Case{L"https://h", 443}, Case{L"socks4://h", 1080}, Case{L"socks://h", 1080}}) {
    const UniqueProxyConfig config = parse(c.text);
    EXPECT_FALSE(KivProxyConfig_HasExplicitPort(config.get())) << c.text;
    EXPECT_EQ(KivProxyConfig_Port(config.get(), 0), -1) << c.text;
    EXPECT_EQ(KivProxyConfig_Port(config.get(), 1), c.port) << c.text;
  }
}

TEST_F(ProxyConfigTextTest, GivesNoneForATextThatItCannotRead) {
  for (const wchar_t* text : {L"", L"h:", L"ftp://h", L"direct://h", L"http ://h", L"[::1]:8080", L"[fe80::1]", L"h:x",
                              L"u@h", L"://h", L"http://", L"h?q", L"h:1:2"}) {
    EXPECT_TRUE(KivProxyConfig_IsNone(parse(text).get())) << text;
  }
}

TEST_F(ProxyConfigTextTest, GivesNoneWithoutTheCredentialsOfTheTextOrTheCaller) {
  const UniqueCred cred(KivCred_Create(L"a", L"b"));
  EXPECT_FALSE(KivProxyConfig_HasCred(parse(L"ftp://u:p@h").get()));
  EXPECT_FALSE(KivProxyConfig_HasCred(parse(L"ftp://h", cred.get()).get()));
}

TEST_F(ProxyConfigTextTest, TreatsABareDirectAsAHost) {
  expectParsed(L"direct", L"http", L"direct", -1);
  expectParsed(L"DIRECT", L"http", L"DIRECT", -1);
}

TEST_F(ProxyConfigTextTest, ReadsCredentialsInTheText) {
  const UniqueProxyConfig config = parse(L"http://u:p@h");
  expectCred(config, L"u", L"p");
  expectParsed(L"u:p@h", L"http", L"h", -1);
}

TEST_F(ProxyConfigTextTest, PrefersTheCallersCredentialsToThoseInTheText) {
  const UniqueCred cred(KivCred_Create(L"a", L"b"));
  expectCred(parse(L"u:p@h", cred.get()), L"a", L"b");
  expectCred(parse(L"h", cred.get()), L"a", L"b");
  expectCred(parse(L"socks4://u:p@h", cred.get()), L"a", L"b");
}

TEST_F(ProxyConfigTextTest, TreatsANoneCredentialAsNoCredential) {
  const UniqueCred none(KivCred_None());
  expectCred(parse(L"u:p@h", none.get()), L"u", L"p");
  EXPECT_FALSE(KivProxyConfig_HasCred(parse(L"h", none.get()).get()));
}

TEST_F(ProxyConfigTextTest, DoesWithoutCredentialsIfThePasswordCannotBeProtected) {
  windows.failAlways("CryptProtectMemory", ERROR_GEN_FAILURE);
  const UniqueProxyConfig config = parse(L"u:p@h");
  EXPECT_STREQ(KivProxyConfig_Host(config.get()), L"h");
  EXPECT_FALSE(KivProxyConfig_HasCred(config.get()));
}

TEST_F(ProxyConfigTextTest, TreatsAWrittenPortAsExplicitAndReadsItModulo65536) {
  expectParsed(L"h:0", L"http", L"h", 0);
  expectParsed(L"h:65537", L"http", L"h", 1);
  expectParsed(L"h:70000", L"http", L"h", 4464);
  expectParsed(L"h:65536", L"http", L"h", 0);
  expectParsed(L"h:2147483647", L"http", L"h", 65535);
}

TEST_F(ProxyConfigTextTest, GivesNoneForAPortThatIsTooLong) {
  EXPECT_TRUE(KivProxyConfig_IsNone(parse(L"h:2147483648").get()));
  EXPECT_TRUE(KivProxyConfig_IsNone(parse(L"https://u:p@h:99999999999999999999").get()));
  EXPECT_THROW(ProxyConfig::parse(L"h:2147483648", std::nullopt), std::out_of_range);
}

TEST_F(ProxyConfigTextTest, ReadsAPortOfOtherDigitsAsTheCLibraryDoesOrGivesNone) {
  forEachOddPort([](const OddPort& port) {
    const UniqueProxyConfig config = parse((L"h:" + std::wstring(port.text)).c_str());
    EXPECT_EQ(KivProxyConfig_IsNone(config.get()), !port.value);
    EXPECT_EQ(KivProxyConfig_Port(config.get(), 0), port.value.value_or(-1));
  });
}

TEST_F(ProxyConfigTextTest, IgnoresPathAndQuery) {
  expectParsed(L"h/", L"http", L"h", -1);
  expectParsed(L"h/path?x=1", L"http", L"h", -1);
  expectParsed(L"https://h:1/path?x=1", L"https", L"h", 1);
}

TEST_F(ProxyConfigTextTest, ConvertsTheHostToAscii) {
  expectParsed(
      L"b\x00FC"
      L"cher.example:1",
      L"http", L"xn--bcher-kva.example", 1);
}

TEST_F(ProxyConfigTextTest, StaysAServerIfTheHostHasNoAsciiForm) {
  const UniqueProxyConfig config = parse(L"https://a..b:1");
  EXPECT_TRUE(KivProxyConfig_IsHttps(config.get()));
  EXPECT_TRUE(KivProxyConfig_IsValid(config.get()));
  EXPECT_STREQ(KivProxyConfig_Host(config.get()), L"");
  EXPECT_EQ(format(config, true, false), L"https://:1");
}

TEST_F(ProxyConfigTextTest, WritesWhatTheFlagsAskFor) {
  struct Case {
    const wchar_t* text;
    const wchar_t* neither;
    const wchar_t* scheme;
    const wchar_t* cred;
    const wchar_t* both;
  };
  const std::vector<Case> cases = {
      {L"gate:3128", L"gate:3128", L"http://gate:3128", L"gate:3128", L"http://gate:3128"},
      {L"socks://gate", L"gate", L"socks5://gate", L"gate", L"socks5://gate"},
      {L"socks4://u:p@gate:1080", L"gate:1080", L"socks4://gate:1080", L"u:p@gate:1080", L"socks4://u:p@gate:1080"},
      {L"https://u:p@gate", L"gate", L"https://gate", L"u:p@gate", L"https://u:p@gate"},
      {L"proxy://gate:0/path", L"gate:0", L"http://gate:0", L"gate:0", L"http://gate:0"},
  };
  for (const Case& c : cases) {
    const UniqueProxyConfig config = parse(c.text);
    EXPECT_EQ(format(config, false, false), c.neither);
    EXPECT_EQ(format(config, true, false), c.scheme);
    EXPECT_EQ(format(config, false, true), c.cred);
    EXPECT_EQ(format(config, true, true), c.both);
  }
}

TEST_F(ProxyConfigTextTest, WritesJustTheHostOfAnHttpsProxyWithoutPort) {
  EXPECT_EQ(format(parse(L"https://gate"), false, false), L"gate");
}

TEST_F(ProxyConfigTextTest, WritesDirectAndNoneAsTheEmptyText) {
  const UniqueProxyConfig direct(KivProxyConfig_Direct());
  const UniqueProxyConfig none(KivProxyConfig_None());
  for (const bool withScheme : {false, true}) {
    for (const bool withCred : {false, true}) {
      EXPECT_EQ(format(direct, withScheme, withCred), L"");
      EXPECT_EQ(format(none, withScheme, withCred), L"");
    }
  }
}

TEST_F(ProxyConfigTextTest, WritesHostAndPortAsTheyAreStored) {
  const UniqueProxyConfig brackets(KivProxyConfig_Http(L"[::1]", 80, nullptr));
  EXPECT_EQ(format(brackets, true, false), L"http://[::1]:80");
  const UniqueProxyConfig bare(KivProxyConfig_Http(L"::1 /@", 70000, nullptr));
  EXPECT_EQ(format(bare, false, false), L"::1 /@:70000");
}

TEST_F(ProxyConfigTextTest, EscapesNothingInCredentials) {
  const UniqueCred cred(KivCred_Create(L"us:er", L"p@ss/word%"));
  const UniqueProxyConfig config(KivProxyConfig_Http(L"h", -1, cred.get()));
  EXPECT_EQ(format(config, false, true), L"us:er:p@ss/word%@h");
}

TEST_F(ProxyConfigTextTest, WritesEmptyCredentialsWithTheirMarks) {
  const UniqueCred cred(KivCred_Create(L"", L""));
  const UniqueProxyConfig config(KivProxyConfig_Http(L"h", -1, cred.get()));
  EXPECT_EQ(format(config, false, true), L":@h");
}

TEST_F(ProxyConfigTextTest, WritesNoPasswordIfItCannotBeDecrypted) {
  const UniqueProxyConfig config = parse(L"u:p@h");
  windows.failAlways("CryptUnprotectMemory", ERROR_GEN_FAILURE);
  EXPECT_EQ(format(config, false, true), L"u:@h");
}

TEST_F(ProxyConfigTextTest, DoesNotDecryptThePasswordUnlessAskedTo) {
  const UniqueProxyConfig config = parse(L"u:p@h");
  static_cast<void>(format(config, true, false));
  EXPECT_EQ(windows.count("CryptUnprotectMemory"), 0U);
}

TEST_F(ProxyConfigTextTest, CallsNoSinkIfConfigurationContextOrSinkIsMissing) {
  Sink sink;
  const UniqueProxyConfig config = parse(L"h");
  static bool called = false;
  KivProxyConfig_ToString(config.get(), 1, 1, nullptr, [](void*, const wchar_t*) { called = true; });
  EXPECT_FALSE(called);
  KivProxyConfig_ToString(nullptr, 1, 1, &sink, &Sink::collect);
  KivProxyConfig_ToString(config.get(), 1, 1, &sink, nullptr);
  EXPECT_TRUE(sink.texts.empty());
}

TEST_F(ProxyConfigTextTest, TreatsAnyNonZeroFlagAsSet) {
  const UniqueProxyConfig config = parse(L"u:p@h");
  Sink sink;
  KivProxyConfig_ToString(config.get(), -1, 256, &sink, &Sink::collect);
  EXPECT_EQ(sink.texts, std::vector<std::wstring>{L"http://u:p@h"});
}

TEST_F(ProxyConfigTextTest, LetsNoExceptionOfTheSinkOut) {
  const UniqueProxyConfig config = parse(L"h");
  int context = 0;
  KivProxyConfig_ToString(config.get(), 1, 1, &context, [](void* calls, const wchar_t*) {
    ++*static_cast<int*>(calls);
    throw std::runtime_error("of the sink");
  });
  EXPECT_EQ(context, 1);
}

TEST_F(ProxyConfigTextTest, ThrowsForAConfigurationThatAFailedAssignmentLeftWithoutAKind) {
  ProxyConfig config = ProxyConfig::makeHttp(L"h", 1, std::nullopt);
  impl::ProxyConfigAccess::makeValueless(config);
  EXPECT_THROW(static_cast<void>(config.toString(true, true)), std::bad_variant_access);
}

TEST_F(ProxyConfigTextTest, LeavesNoPasswordBehindThatItRead) {
  const ExpectSecretWiped expectation(kPassword);
  const UniqueProxyConfig config = parse(L"http://user:open sesame, open@h");
  EXPECT_TRUE(KivProxyConfig_HasCred(config.get()));
}

TEST_F(ProxyConfigTextTest, WipesTheTextThatItWrote) {
  const UniqueCred cred(KivCred_Create(L"user", kPassword));
  const UniqueProxyConfig config(KivProxyConfig_Socks5(L"host.example", 1080, cred.get()));
  const ExpectSecretWiped expectation(kPassword);
  std::size_t length = 0;
  KivProxyConfig_ToString(config.get(), 1, 1, &length, [](void* context, const wchar_t* text) {
    *static_cast<std::size_t*>(context) = std::wcslen(text);
  });
  EXPECT_EQ(length, std::wcslen(L"socks5://user:@host.example:1080") + std::wcslen(kPassword));
}

TEST_F(ProxyConfigTextTest, WritesATextThatReadsAsTheSameConfiguration) {
  for (const wchar_t* text :
       {L"http://h", L"https://h:0", L"socks4://u:p@h:1", L"socks5://u:p@a.b-c", L"http://a b:65535"}) {
    EXPECT_EQ(format(parse(text), true, true), text);
  }
}

TEST(ProxyConfigTextWithoutMemoryTest, ReadsNoConfigurationOrTheWholeOne) {
  int failures = 0;
  forEachAllocation([&](SimulatedWindows&, auto armed) {
    UniqueProxyConfig config;
    armed([&] {
      config.reset(
          KivProxyConfig_Parse(L"https://a long name of a user:a long password@a.long.name.of.a.host:1", nullptr));
    });
    if (!config) {
      ++failures;
    } else {
      EXPECT_TRUE(KivProxyConfig_IsHttps(config.get()));
      EXPECT_STREQ(KivProxyConfig_Host(config.get()), L"a.long.name.of.a.host");
      EXPECT_TRUE(KivProxyConfig_HasCred(config.get()));
    }
  });
  EXPECT_GE(failures, 4);
}

TEST(ProxyConfigTextWithoutMemoryTest, WritesNothingOrTheWholeText) {
  int failures = 0;
  forEachAllocation([&](SimulatedWindows&, auto armed) {
    const UniqueCred cred(KivCred_Create(L"a long name of a user", L"a long password"));
    const UniqueProxyConfig config(KivProxyConfig_Https(L"a.long.name.of.a.host", 1, cred.get()));
    Sink sink;
    armed([&] { KivProxyConfig_ToString(config.get(), 1, 1, &sink, &Sink::collect); });
    if (sink.texts.empty()) {
      ++failures;
    } else {
      EXPECT_EQ(sink.texts[0], L"https://a long name of a user:a long password@a.long.name.of.a.host:1");
    }
  });
  EXPECT_EQ(failures, 2);
}

}  // namespace
}  // namespace kiv::test
