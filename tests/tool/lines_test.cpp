// The lines to paste, for each shell and program.
#include "environment/lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kiv::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const ProxyServer kGate{.scheme = L"http", .host = L"gate", .port = 8080};
constexpr const wchar_t* kUrl = L"https://host:8443/x";

std::vector<Route> via(std::optional<ProxyServer> proxy, const wchar_t* url = kUrl) {
  std::vector<Route> routes;
  routes.push_back({.url = url, .proxy = std::move(proxy)});
  return routes;
}

std::vector<std::wstring> linesTo(Reader reader, const std::vector<Route>& routes, LogOn logOn = LogOn::None) {
  return linesFor(reader, routes, L".corp,intranet", logOn).lines;
}

TEST(LinesFor, SetTheProxy) {
  const auto routes = via(kGate);
  EXPECT_THAT(linesTo(Reader::Cmd, routes),
              ElementsAre(L"set \"https_proxy=http://gate:8080\"", L"set \"no_proxy=.corp,intranet\""));
  EXPECT_THAT(linesTo(Reader::Batch, routes),
              ElementsAre(L"set \"https_proxy=http://gate:8080\"", L"set \"no_proxy=.corp,intranet\""));
  EXPECT_THAT(linesTo(Reader::PowerShell, routes),
              ElementsAre(L"$env:https_proxy = 'http://gate:8080'", L"$env:no_proxy = '.corp,intranet'"));
  EXPECT_THAT(linesTo(Reader::Bash, routes),
              ElementsAre(L"unset HTTPS_PROXY https_proxy NO_PROXY no_proxy", L"export https_proxy='http://gate:8080'",
                          L"export no_proxy='.corp,intranet'"));
  EXPECT_THAT(linesTo(Reader::Git, routes),
              ElementsAre(L"git config --global \"http.https://host:8443/.proxy\" \"http://gate:8080\""));
  EXPECT_THAT(linesTo(Reader::Npm, routes), ElementsAre(L"npm config set https-proxy \"http://gate:8080\"",
                                                        L"npm config set noproxy \".corp,intranet\""));
  EXPECT_THAT(linesTo(Reader::Pip, routes), ElementsAre(L"pip config set global.proxy \"http://gate:8080\""));
  EXPECT_THAT(linesTo(Reader::Curl, routes),
              ElementsAre(L"curl.exe -g --proxy \"http://gate:8080\" \"https://host:8443/x\""));
}

TEST(LinesFor, RemoveTheProxyForADirectConnection) {
  const auto routes = via({});
  EXPECT_THAT(linesTo(Reader::Cmd, routes), ElementsAre(L"set \"http_proxy=\"", L"set \"https_proxy=\"",
                                                        L"set \"all_proxy=\"", L"set \"no_proxy=*\""));
  EXPECT_THAT(
      linesTo(Reader::PowerShell, routes),
      ElementsAre(L"Remove-Item Env:http_proxy -ErrorAction Ignore", L"Remove-Item Env:https_proxy -ErrorAction Ignore",
                  L"Remove-Item Env:all_proxy -ErrorAction Ignore", L"$env:no_proxy = '*'"));
  EXPECT_THAT(linesTo(Reader::Bash, routes),
              ElementsAre(L"unset HTTP_PROXY http_proxy HTTPS_PROXY https_proxy ALL_PROXY all_proxy NO_PROXY no_proxy",
                          L"export no_proxy='*'"));
  EXPECT_THAT(linesTo(Reader::Git, routes), ElementsAre(L"git config --global \"http.https://host:8443/.proxy\" \"\""));
  EXPECT_THAT(linesTo(Reader::Npm, routes),
              ElementsAre(L"npm config delete https-proxy", L"npm config set noproxy \"host\""));
  EXPECT_THAT(linesTo(Reader::Pip, routes), ElementsAre(L"pip config unset global.proxy"));
  EXPECT_THAT(linesTo(Reader::Curl, routes), ElementsAre(L"curl.exe -g --noproxy \"*\" \"https://host:8443/x\""));
}

TEST(LinesFor, LogOnAsTheUserWhereGitAndCurlCan) {
  const auto routes = via(kGate, L"http://host/");
  EXPECT_THAT(linesTo(Reader::Git, routes, LogOn::Ntlm),
              ElementsAre(L"git config --global \"http.http://host/.proxy\" \"http://:@gate:8080\""));
  EXPECT_THAT(linesTo(Reader::Git, routes, LogOn::Basic), ElementsAre(HasSubstr(L"\"http://gate:8080\"")));
  EXPECT_THAT(linesTo(Reader::Curl, routes, LogOn::Negotiate),
              ElementsAre(L"curl.exe -g --proxy \"http://gate:8080\" -U : --proxy-negotiate \"http://host/\""));
}

TEST(LinesFor, RefuseWhatCannotBeQuoted) {
  const auto hostile = via(ProxyServer{.scheme = L"http", .host = L"a\"&calc&\"", .port = 80});
  for (const Reader reader : {Reader::Cmd, Reader::Batch, Reader::Git, Reader::Npm, Reader::Pip, Reader::Curl}) {
    const Lines lines = linesFor(reader, hostile, L"", LogOn::None);
    EXPECT_THAT(lines.lines, IsEmpty());
    EXPECT_THAT(lines.problem, HasSubstr(L"cannot be quoted for " + std::wstring(nameOf(reader))));
  }
  EXPECT_THAT(linesTo(Reader::PowerShell, hostile).front(), HasSubstr(L"'http://a\"&calc&\":80'"));
}

TEST(LinesFor, RefuseProxiesThatTheProgramDoesNotRead) {
  const auto socks = via(ProxyServer{.scheme = L"socks5", .host = L"gate", .port = 1080});
  for (const Reader reader : {Reader::Npm, Reader::Pip}) {
    EXPECT_THAT(linesFor(reader, socks, L"", LogOn::None).problem, HasSubstr(L"SOCKS"));
  }
  EXPECT_THAT(linesTo(Reader::Curl, socks), ElementsAre(HasSubstr(L"--proxy \"socks5://gate:1080\"")));
  EXPECT_THAT(linesFor(Reader::Cmd, socks, L"", LogOn::None).remarks, ElementsAre(HasSubstr(L"socks5:// is read by")));
}

TEST(LinesFor, RefuseTwoProxiesForPip) {
  auto routes = via(kGate);
  routes.push_back({.url = L"http://host/"});
  EXPECT_THAT(linesFor(Reader::Pip, routes, L"", LogOn::None).problem, HasSubstr(L"one proxy for both schemes"));
  routes.back().proxy = kGate;
  EXPECT_THAT(linesTo(Reader::Pip, routes), ElementsAre(L"pip config set global.proxy \"http://gate:8080\""));
}

TEST(ReaderNamed, KnowsEachByItsName) {
  for (const Reader reader : {Reader::Cmd, Reader::Batch, Reader::PowerShell, Reader::Bash, Reader::Git, Reader::Npm,
                              Reader::Pip, Reader::Curl}) {
    EXPECT_EQ(readerNamed(nameOf(reader)), reader);
  }
  EXPECT_FALSE(readerNamed(L"CMD"));
  EXPECT_FALSE(readerNamed(L""));
}

}  // namespace
}  // namespace kiv::tool
