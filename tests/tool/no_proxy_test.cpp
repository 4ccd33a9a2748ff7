// What of a bypass list NO_PROXY can say.
#include "environment/no_proxy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kiv::tool {
namespace {

using testing::HasSubstr;

constexpr const wchar_t* kTarget = L"www.example.com";
constexpr ExceptionsRead kNamesOnly{.networks = false, .ports = false};

BypassEntry converted(std::wstring_view entry, ExceptionsRead reads = {}) {
  return convertBypassList(entry, kTarget, reads).at(0);
}

TEST(ConvertBypassList, WritesWhatNoProxyCanSay) {
  const struct {
    const wchar_t* entry;
    std::wstring_view becomes;
  } cases[] = {
      {L"intranet", L"intranet"},
      {L"build.corp.test", L"build.corp.test"},
      {L"127.0.0.1", L"127.0.0.1"},
      {L"*.corp.test", L".corp.test"},
      {L"10.*", L"10.0.0.0/8"},
      {L"10.*.*.*", L"10.0.0.0/8"},
      {L"172.16.*", L"172.16.0.0/16"},
      {L"192.168.1.*", L"192.168.1.0/24"},
      {L"build.corp.test:8080", L"build.corp.test:8080"},
  };
  for (const auto& [entry, becomes] : cases) {
    const BypassEntry result = converted(entry);
    EXPECT_EQ(result.becomes, becomes) << entry;
    EXPECT_EQ(result.reason.empty(), entry == becomes && becomes.find(L':') == std::wstring_view::npos) << entry;
  }
}

TEST(ConvertBypassList, DropsTheRestAndSaysWhy) {
  const struct {
    const wchar_t* entry;
    const wchar_t* reason;
  } cases[] = {
      {L"<local>", L"without a dot"},
      {L"<-loopback>", L"not a host name"},
      {L"http://intranet", L"no scheme"},
      {L"https://*", L"no scheme"},
      {L"*", L"no patterns"},
      {L"*corp.test", L"no patterns"},
      {L"www.*.test", L"no patterns"},
      {L"*.*.test", L"no patterns"},
      {L"10*", L"no patterns"},
      {L"10.1*", L"no patterns"},
      {L"10.*.1", L"no patterns"},
      {L"10.1.2.3.*", L"no patterns"},
      {L"256.*", L"no patterns"},
      {L"*.*", L"no patterns"},
      {L"10.0.0.0/8", L"not a host name"},
      {L"a,b", L"not a host name"},
      {L"a b", L"not a host name"},
      {L"b\x00FC\x63her.test", L"ASCII"},
      {L"[::1]", L"with a port"},
      {L"intranet:99999", L"with a port"},
      {L"*.corp.test:80", L"with a port"},
  };
  for (const auto& [entry, reason] : cases) {
    const BypassEntry result = converted(entry);
    EXPECT_EQ(result.becomes, L"") << entry;
    EXPECT_THAT(result.reason, HasSubstr(reason)) << entry;
  }
}

TEST(ConvertBypassList, DropsEntriesThatProgramsWouldTakeForTheTarget) {
  for (const wchar_t* const entry : {L"example.com", L"EXAMPLE.com", L".example.com", L"com"}) {
    const BypassEntry result = converted(entry);
    EXPECT_EQ(result.becomes, L"") << entry;
    EXPECT_THAT(result.reason, HasSubstr(kTarget)) << entry;
  }
  EXPECT_EQ(convertBypassList(L"*.www.example.com", kTarget, {}).at(0).becomes, L"");
  EXPECT_EQ(converted(L"ample.com").becomes, L"ample.com");
  EXPECT_EQ(converted(L"w.example.com").becomes, L"w.example.com");
}

TEST(ConvertBypassList, DropsWhatTheProgramDoesNotRead) {
  EXPECT_EQ(converted(L"10.*", kNamesOnly).becomes, L"");
  EXPECT_EQ(converted(L"build.test:80", kNamesOnly).becomes, L"");
  EXPECT_EQ(converted(L"*.corp.test", kNamesOnly).becomes, L".corp.test");
}

TEST(ConvertBypassList, SeparatesAtSemicolonsAndTrims) {
  const auto entries = convertBypassList(L"; a.test ;\t;b.test", kTarget, {});
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].text, L"a.test");
  EXPECT_EQ(entries[1].text, L"b.test");
}

TEST(NoProxyText, HasEachEntryOnce) {
  EXPECT_EQ(noProxyText(convertBypassList(L"a.test;<local>;10.*;10.*.*.*;a.test", kTarget, {})), L"a.test,10.0.0.0/8");
  EXPECT_EQ(noProxyText({}), L"");
}

}  // namespace
}  // namespace kiv::tool
