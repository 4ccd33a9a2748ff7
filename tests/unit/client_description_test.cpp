// Tests of the line that describes a client in the log.
#include "http/client_description.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using impl::ClientSettings;
using impl::Cred;
using impl::describe;
using impl::ProxyConfig;

class ClientDescriptionTest : public PlatformTest {
 protected:
  static ClientSettings clientOf(const wchar_t* url, ProxyConfig proxy = {}, const wchar_t* agent = L"agent") {
    ClientSettings client;
    client.server = impl::parseAddress(url, false);
    client.serverCred = take(client.server->cred);
    client.proxy = std::move(proxy);
    client.userAgent = agent;
    return client;
  }
  static std::optional<Cred> cred(const wchar_t* user) { return Cred::create(user, L"hidden-sesame"); }
};

TEST_F(ClientDescriptionTest, HoldsOnlyTheServerAndTheUserAgentWithoutCredentialsAndProxy) {
  const wchar_t* expected = L"{\"Server\": {\"URL\": \"http://h\"}, \"User Agent\": \"agent\"}";
  EXPECT_EQ(describe(clientOf(L"http://h")), expected);
  EXPECT_EQ(describe(clientOf(L"http://h", ProxyConfig::makeDirect())), expected);
  EXPECT_EQ(describe(clientOf(L"http://h", ProxyConfig::makeNone())), expected);
}

TEST_F(ClientDescriptionTest, HoldsOnlyTheAddressOfAProxyWithoutCredentials) {
  EXPECT_EQ(describe(clientOf(L"http://h", ProxyConfig::makeHttp(L"gate", 3128, std::nullopt))),
            L"{\"Server\": {\"URL\": \"http://h\"}, \"Proxy\": {\"Address\": \"http://gate:3128\"}, "
            L"\"User Agent\": \"agent\"}");
}

TEST_F(ClientDescriptionTest, MasksTheTwoPasswordsDifferently) {
  EXPECT_EQ(describe(clientOf(L"https://A:hidden-sesame@u/p?q", ProxyConfig::makeSocks5(L"P", -1, cred(L"B")), L"G")),
            L"{\"Server\": {\"URL\": \"https://u/p?q\", \"Credentials\": {\"username\": \"A\", \"password\": "
            L"\"****\"}}, \"Proxy\": {\"Address\": \"socks5://P\", \"Credentials\": {\"username\": \"B\", password: "
            L"\"*****\"}}, \"User Agent\": \"G\"}");
}

TEST_F(ClientDescriptionTest, ShowsTheServersCredentialsWithoutAProxy) {
  EXPECT_EQ(describe(clientOf(L"http://sam:hidden-sesame@h")),
            L"{\"Server\": {\"URL\": \"http://h\", \"Credentials\": {\"username\": \"sam\", \"password\": \"****\"}}, "
            L"\"User Agent\": \"agent\"}");
}

TEST_F(ClientDescriptionTest, MasksAnEmptyUserAndAnEmptyPasswordLikeAnyOther) {
  ClientSettings client = clientOf(L"http://h");
  client.serverCred = Cred::create(L"", L"");
  EXPECT_EQ(describe(client),
            L"{\"Server\": {\"URL\": \"http://h\", \"Credentials\": {\"username\": \"\", \"password\": \"****\"}}, "
            L"\"User Agent\": \"agent\"}");
}

TEST_F(ClientDescriptionTest, YieldsTheUserAgentMemberForAnEmptyUserAgent) {
  EXPECT_EQ(describe(clientOf(L"http://h", {}, L"")), L"{\"Server\": {\"URL\": \"http://h\"}, \"User Agent\": \"\"}");
}

TEST_F(ClientDescriptionTest, WritesTheUrlFromItsParts) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"http://h", L"http://h"},
      {L"http://h/", L"http://h"},
      {L"h", L"h"},
      {L"h:8080/p", L"h:8080/p"},
      {L" HTTPS://h:443 ", L"https://h:443"},
      {L"http://h:65536", L"http://h:0"},
      {L"http://h/p", L"http://h/p"},
      {L"http://h/p/q/", L"http://h/p/q/"},
      {L"http://h/p?q", L"http://h/p?q"},
      {L"http://h/?q", L"http://h/?q"},
      {L"http://u:hidden-sesame@h:1/p?q", L"http://h:1/p?q"},
      {L"http://\x65E5\x672C\x8A9E.jp", L"http://xn--wgv71a119e.jp"},
  };
  for (const auto& [url, text] : cases) {
    ClientSettings client = clientOf(url);
    client.serverCred.reset();
    EXPECT_EQ(describe(client), std::wstring(L"{\"Server\": {\"URL\": \"") + text + L"\"}, \"User Agent\": \"agent\"}");
  }
}

TEST_F(ClientDescriptionTest, LeavesNoTrailingSlashBehindAUrlWithoutPathAndQuery) {
  for (const wchar_t* url : {L"http://h", L"http://h/", L"http://h:80", L"http://h:80/"}) {
    EXPECT_EQ(describe(clientOf(url)).find(L"/\"}"), std::wstring::npos) << url;
  }
}

TEST_F(ClientDescriptionTest, WritesTheProxyWithItsSchemeAndItsExplicitPort) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"gate", L"http://gate"},
      {L"proxy://gate:1", L"http://gate:1"},
      {L"https://gate:0", L"https://gate:0"},
      {L"socks4://gate", L"socks4://gate"},
      {L"socks://gate:1080", L"socks5://gate:1080"},
  };
  for (const auto& [proxy, address] : cases) {
    EXPECT_EQ(describe(clientOf(L"http://h", ProxyConfig::parse(proxy, std::nullopt))),
              std::wstring(L"{\"Server\": {\"URL\": \"http://h\"}, \"Proxy\": {\"Address\": \"") + address +
                  L"\"}, \"User Agent\": \"agent\"}");
  }
}

TEST_F(ClientDescriptionTest, InsertsValuesRaw) {
  const wchar_t* raw = L"\"\\\n\t%ls%d{}\x65E5";
  const std::wstring url = std::wstring(L"http://h/") + raw;
  EXPECT_EQ(describe(clientOf(url.c_str(), ProxyConfig::makeHttp(raw, -1, cred(raw)), raw)),
            L"{\"Server\": {\"URL\": \"http://h/" + std::wstring(raw) + L"\"}, \"Proxy\": {\"Address\": \"http://" +
                raw + L"\", \"Credentials\": {\"username\": \"" + raw +
                L"\", password: \"*****\"}}, \"User Agent\": \"" + raw + L"\"}");
}

TEST_F(ClientDescriptionTest, NeverDecryptsAPassword) {
  describe(clientOf(L"http://sam:hidden-sesame@h", ProxyConfig::makeHttp(L"gate", 1, cred(L"pam"))));
  EXPECT_EQ(windows.count("CryptProtectMemory"), 2U);
  EXPECT_EQ(windows.count("CryptUnprotectMemory"), 0U);
}

}  // namespace
}  // namespace kiv::test
