// Which variables say what, and the URLs of proxies in them.
#include "environment/variables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "environment/environment_block.h"

namespace kiv::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::string_literals;

const ProxyServer kGate{.scheme = L"http", .host = L"gate", .port = 8080};

Route routeTo(const wchar_t* url, std::optional<ProxyServer> proxy) { return {.url = url, .proxy = std::move(proxy)}; }

// "name=value" of each, "-name" of those that are removed.
std::vector<std::wstring> shown(const std::vector<Variable>& variables) {
  std::vector<std::wstring> texts;
  for (const Variable& variable : variables) {
    const std::wstring name(variable.name);
    texts.push_back(variable.value ? name + L"=" + std::wstring(viewOf(*variable.value)) : L"-" + name);
  }
  return texts;
}

std::vector<std::wstring> variablesOf(std::vector<Route> routes, std::wstring_view exceptions = L"") {
  return shown(variablesFor(routes, exceptions));
}

std::vector<Route> routes(Route first) {
  std::vector<Route> list;
  list.push_back(std::move(first));
  return list;
}

std::vector<Route> routes(Route first, Route second) {
  auto list = routes(std::move(first));
  list.push_back(std::move(second));
  return list;
}

TEST(VariablesFor, NamesTheProxyForTheUrlsScheme) {
  EXPECT_THAT(variablesOf(routes(routeTo(L"http://h/", kGate)), L".corp"),
              ElementsAre(L"http_proxy=http://gate:8080", L"no_proxy=.corp"));
  EXPECT_THAT(variablesOf(routes(routeTo(L"HTTPS://h/", kGate))),
              ElementsAre(L"https_proxy=http://gate:8080", L"-no_proxy"));
}

TEST(VariablesFor, RemovesAllForADirectConnection) {
  EXPECT_THAT(variablesOf(routes(routeTo(L"https://h/", {})), L".corp"),
              ElementsAre(L"-http_proxy", L"-https_proxy", L"-all_proxy", L"no_proxy=*"));
  EXPECT_THAT(variablesOf(routes(routeTo(L"https://h/", {}), routeTo(L"http://h/", {}))),
              ElementsAre(L"-http_proxy", L"-https_proxy", L"-all_proxy", L"no_proxy=*"));
}

TEST(VariablesFor, KeepsSchemesApart) {
  EXPECT_THAT(variablesOf(routes(routeTo(L"https://h/", kGate), routeTo(L"http://h/", {})), L".corp"),
              ElementsAre(L"https_proxy=http://gate:8080", L"-http_proxy", L"-all_proxy", L"no_proxy=.corp"));
}

TEST(ReadProxyServer, RefusesWhatNoProgramCouldUse) {
  for (const wchar_t* const proxy : {L"http://gate:0", L"http://gate:65536"}) {
    EXPECT_FALSE(readProxyServer(ProxyConfig::parse(proxy))) << proxy;
  }
  EXPECT_FALSE(readProxyServer(ProxyConfig::http(L"", 80)));
  EXPECT_FALSE(readProxyServer(ProxyConfig::direct()));
  EXPECT_FALSE(readProxyServer({}));
}

TEST(UrlOf, AlwaysHasThePort) {
  const struct {
    const wchar_t* proxy;
    std::wstring_view url;
  } cases[] = {
      {L"gate:8080", L"http://gate:8080"},       {L"gate", L"http://gate:80"},
      {L"https://gate", L"https://gate:443"},    {L"socks5://gate:1081", L"socks5://gate:1081"},
      {L"socks4://gate", L"socks4://gate:1080"}, {L"alice:secret@gate:1", L"http://gate:1"},
  };
  for (const auto& [proxy, url] : cases) {
    const auto server = readProxyServer(ProxyConfig::parse(proxy));
    ASSERT_TRUE(server) << proxy;
    EXPECT_EQ(viewOf(urlOf(*server)), url);
  }
}

TEST(UserInfoOf, EncodesAllButPlainCharacters) {
  EXPECT_EQ(viewOf(userInfoOf({L"CORP\\alice", L"p@ss:/w\x00F6rd%"})), L"CORP%5Calice:p%40ss%3A%2Fw%C3%B6rd%25@");
  EXPECT_EQ(viewOf(userInfoOf({L"aZ09-._~", L""})), L"aZ09-._~:@");
  EXPECT_TRUE(userInfoOf({}).empty());
}

std::wstring merged(const std::wstring& inherited, const std::vector<Variable>& variables) {
  return std::wstring(viewOf(mergedBlock(inherited, variables)));
}

std::vector<Variable> variables(std::wstring_view name, std::optional<std::wstring_view> value) {
  std::vector<Variable> list;
  list.push_back({name, std::nullopt});
  if (value) list.back().value.emplace(value->begin(), value->end());
  return list;
}

TEST(MergedBlock, ReplacesVariablesOfAnyCaseByOne) {
  EXPECT_EQ(merged(L"A=1\0HTTP_PROXY=x\0Http_Proxy=y\0http_proxy=z\0"s, variables(L"http_proxy", L"new")),
            L"A=1\0http_proxy=new\0\0"s);
}

TEST(MergedBlock, RemovesVariables) {
  EXPECT_EQ(merged(L"A=1\0HTTP_PROXY=x\0ZZ=2\0"s, variables(L"http_proxy", {})), L"A=1\0ZZ=2\0\0"s);
  EXPECT_EQ(merged(L"HTTP_PROXY=x\0"s, variables(L"http_proxy", {})), L"\0\0"s);
}

TEST(MergedBlock, IsSortedByNameWithoutRegardToCase) {
  EXPECT_EQ(merged(L"=C:=C:\\x\0Z=1\0a=2\0HTTP_PROXY_X=3\0"s, variables(L"http_proxy", L"p")),
            L"=C:=C:\\x\0a=2\0http_proxy=p\0HTTP_PROXY_X=3\0Z=1\0\0"s);
}

TEST(OwnEnvironment, IsThatOfThisProcess) {
  SetEnvironmentVariableW(L"KIV_TEST_VARIABLE", L"here");
  EXPECT_THAT(std::wstring(viewOf(ownEnvironment())), HasSubstr(L"KIV_TEST_VARIABLE=here\0"s));
  SetEnvironmentVariableW(L"KIV_TEST_VARIABLE", nullptr);
}

}  // namespace
}  // namespace kiv::tool
