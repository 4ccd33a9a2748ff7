// What is warned of, and what not.
#include "sources/warnings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sources/calls.h"

namespace kiv::tool {
namespace {

using Ids = std::vector<std::string>;
using testing::UnorderedElementsAreArray;

Ids idsOf(const Sources& sources) {
  Ids ids;
  for (const SourceWarning& warning : warningsAbout(sources)) {
    ids.push_back(warning.id);
    EXPECT_FALSE(adviceFor(warning.id).empty()) << warning.id;
    EXPECT_FALSE(warning.problem.empty()) << warning.id;
  }
  return ids;
}

Place found(std::string id, Naming naming, std::vector<PlaceValue> values = {}) {
  return {.id = std::move(id),
          .title = L"a place",
          .location = L"somewhere",
          .state = PlaceState::Found,
          .values = std::move(values),
          .naming = std::move(naming)};
}

Sources with(std::vector<Place> places) {
  Sources sources;
  sources.places = std::move(places);
  return sources;
}

TEST(SourceWarnings, ListsAndScriptUrlsAreChecked) {
  struct Case {
    Naming naming;
    Ids ids;
  };
  const Case kCases[] = {
      {{}, {}},
      {{.manualList = L"gate:8080", .bypassList = L"*.corp;10.*; <local> "}, {}},
      {{.manualList = L"http=a:1;https=http://b:2/"}, {}},
      {{.manualList = L"gate:8080", .bypassList = L"a b"}, {"bypass-blank"}},
      {{.manualList = L"gate:8080", .bypassList = L"a,b"}, {"bypass-comma"}},
      {{.manualList = L"gate:8080", .bypassList = L"a, b"}, {"bypass-comma", "bypass-blank"}},
      {{.manualList = L"gate:8080", .bypassList = L"http://a"}, {"scheme-misplaced"}},
      {{.manualList = L"gate:8080", .bypassList = L"http=a"}, {"scheme-misplaced"}},
      {{.manualList = L"gate"}, {"missing-port"}},
      {{.manualList = L"http=a:1;https=b"}, {"missing-port"}},
      {{.manualList = L"socks5://a:1"}, {"scheme-misplaced"}},
      {{.manualList = L"https=https://a:1"}, {"scheme-misplaced"}},
      {{.manualList = L"http://a:1/proxy.pac"}, {"scheme-misplaced"}},
      {{.scriptUrl = L"http://p/p.pac"}, {}},
      {{.scriptUrl = L"file://C:/p.pac"}, {}},
      {{.scriptUrl = L"FILE:///C:/p.pac"}, {"file-url"}},
      {{.scriptUrl = L"p.pac"}, {"scheme-misplaced"}},
  };
  for (const auto& [naming, ids] : kCases) {
    EXPECT_THAT(idsOf(with({found("user-connection", naming)})), UnorderedElementsAreArray(ids))
        << naming.manualList << L" " << naming.bypassList << L" " << naming.scriptUrl;
  }
}

TEST(SourceWarnings, BypassListsOfBrowsersHaveTheirOwnForm) {
  EXPECT_THAT(idsOf(with({found("edge-user-policy", {.manualList = L"gate:1", .bypassList = L"a, b"})})), Ids());
}

TEST(SourceWarnings, VariablesAreChecked) {
  struct Case {
    const wchar_t* name;
    const wchar_t* text;
    Ids ids;
  };
  const Case kCases[] = {
      {L"HTTP_PROXY", L"http://bob:pw@gate:8080", {}},
      {L"HTTP_PROXY", L"socks5://gate:1080", {}},
      {L"HTTP_PROXY", L"", {}},
      {L"https_proxy", L"http://gate", {"missing-port"}},
      {L"HTTP_PROXY", L"gate", {"missing-port"}},
      {L"HTTP_PROXY", L"http=a:1;https=b:2", {"scheme-misplaced"}},
      {L"NO_PROXY", L"a, b", {}},
  };
  for (const auto& [name, text, ids] : kCases) {
    // Stored as it is in this process.
    EXPECT_EQ(idsOf(with({found("environment-process", {}, {{name, text}}),
                          found("environment-machine", {}, {{name, text}})})),
              ids)
        << name << L"=" << text;
  }
}

TEST(SourceWarnings, AnEnvironmentThatIsOlderThanTheStoredOneIsNamed) {
  struct Case {
    const wchar_t* process;  // null: not set
    const wchar_t* user;
    const wchar_t* machine;
    bool warned;
  };
  constexpr Case kCases[] = {
      {nullptr, nullptr, nullptr, false}, {L"a:1", L"a:1", nullptr, false}, {L"a:1", nullptr, L"a:1", false},
      {L"a:1", L"a:1", L"b:2", false},    {L"b:2", L"a:1", L"b:2", true},   {nullptr, L"a:1", nullptr, true},
      {L"a:1", nullptr, nullptr, true},
  };
  for (const auto& [process, user, machine, warned] : kCases) {
    std::vector<Place> places;
    const auto add = [&](const char* id, const wchar_t* text) {
      if (text) places.push_back(found(id, {}, {{L"Http_Proxy", text}}));
    };
    add("environment-process", process);
    add("environment-user", user);
    add("environment-machine", machine);
    EXPECT_EQ(idsOf(with(places)), warned ? Ids{"environment-differs"} : Ids());
  }
}

TEST(SourceWarnings, ContradictionsAreNamed) {
  struct Case {
    const char* left;
    Naming leftNames;
    const char* right;
    Naming rightNames;
    Ids ids;
  };
  const Naming kNone;
  const Naming kA = {.manualList = L"a:1"};
  const Naming kAForAll = {.manualList = L"http=http://a:1;https=a:1"};
  const Naming kB = {.manualList = L"b:1"};
  const Naming kScript = {.scriptUrl = L"http://p/"};
  const Case kCases[] = {
      {"user-values", kA, "user-connection", kA, {}},
      {"user-values", kA, "user-connection", kAForAll, {}},
      {"user-values", kA, "user-connection", kB, {"forms-differ"}},
      {"user-values", kA, "user-connection", kNone, {"forms-differ"}},
      {"user-values", kScript, "user-connection", kNone, {"forms-differ"}},
      {"winhttp-64", kA, "winhttp-32", kA, {}},
      {"winhttp-64", kA, "winhttp-32", kB, {"views-differ"}},
      {"winhttp-64", kA, "winhttp-32", kNone, {}},
      {"edge-user-policy", kA, "user-connection", kB, {}},  // nothing says that the connection applies
      {"wpad-dhcp", kScript, "wpad-dns", {.scriptUrl = L"http://q/"}, {"sources-differ"}},
      {"wpad-dhcp", kScript, "wpad-dns", kNone, {}},
  };
  for (const auto& [left, leftNames, right, rightNames, ids] : kCases)
    EXPECT_EQ(idsOf(with({found(left, leftNames), found(right, rightNames)})), ids) << left << " " << right;
}

TEST(SourceNotes, AProxyInOneViewAloneIsNormal) {
  const Naming kNone;
  const Naming kA = {.manualList = L"a:1"};
  const Place kAbsent = {.id = "winhttp-32", .state = PlaceState::NotOnThisSystem};
  const Place kEmpty = {.id = "winhttp-32", .state = PlaceState::NothingThere};
  const auto problemWith = [](Place wide, Place narrow) {
    const auto notes = notesAbout(with({std::move(wide), std::move(narrow)}));
    return notes.empty() ? std::wstring() : notes.front().problem;
  };
  EXPECT_EQ(problemWith(found("winhttp-64", kA), kEmpty),
            L"WinHTTP's proxy for the machine, a:1, is set for 64-bit programs only.");
  EXPECT_EQ(problemWith(found("winhttp-64", kNone), found("winhttp-32", kA)),
            L"WinHTTP's proxy for the machine, a:1, is set for 32-bit programs only.");
  EXPECT_EQ(problemWith(found("winhttp-64", kA), found("winhttp-32", kA)), L"");
  EXPECT_EQ(problemWith(found("winhttp-64", kNone), kEmpty), L"");
  EXPECT_EQ(problemWith(found("winhttp-64", kA), kAbsent), L"");
  EXPECT_NE(adviceFor("one-view-only"), L"");
}

TEST(SourceWarnings, WhatAppliesIsComparedWithOtherPlaces) {
  const Naming kA = {.manualList = L"a:1"};
  const Naming kB = {.manualList = L"b:1"};
  for (const char* const id :
       {"user-policy", "machine-policy", "edge-user-policy", "edge-machine-policy", "chrome-user-policy"}) {
    Sources sources = with({found("user-connection", kA), found(id, kB)});
    sources.calls = {found(kUserCall, kA)};
    EXPECT_EQ(idsOf(sources), Ids{"sources-differ"}) << id;
    sources.places.back().naming = {};
    EXPECT_EQ(idsOf(sources), Ids()) << id;
  }
  Sources sources;
  sources.calls = {found(kUserCall, kA), found(kMachineCall, kB)};
  EXPECT_EQ(idsOf(sources), Ids{"sources-differ"});
}

TEST(SourceWarnings, VariablesAreComparedWithTheUsersList) {
  for (const auto& [text, warned] : {std::pair(L"http://a:1", false), {L"http://b:1", true}}) {
    Sources sources = with({found("environment-process", {}, {{L"HTTP_PROXY", text}}),
                            found("environment-user", {}, {{L"HTTP_PROXY", text}})});
    sources.calls = {found(kUserCall, {.manualList = L"http=a:1;https=c:1"})};
    EXPECT_EQ(idsOf(sources), warned ? Ids{"sources-differ"} : Ids()) << text;
  }
}

TEST(SourceWarnings, SwitchesOfTheMachineAreComparedWithTheUser) {
  Sources sources = with({found("per-user-policy", {}, {{L"ProxySettingsPerUser", L"0"}}),
                          found("user-connection", {.manualList = L"a:1"}), found("machine-connection", {}),
                          found("wpad-switch", {}, {{L"DisableWpad", L"1"}})});
  sources.calls = {found(kUserCall, {.automaticDetection = true})};
  EXPECT_THAT(idsOf(sources), UnorderedElementsAreArray(Ids{"user-settings-ignored", "wpad-disabled"}));
  sources.places[0].values[0].text = L"1";
  sources.places[3].values[0].text = L"0";
  EXPECT_EQ(idsOf(sources), Ids());
}

TEST(SourceWarnings, AnswersForScriptsAreChecked) {
  struct Case {
    int status;
    const wchar_t* type;
    const char* body;
    Ids ids;
  };
  const Case kCases[] = {
      {200, L"application/x-ns-proxy-autoconfig", "function FindProxyForURL", {}},
      {200, L"", "", {}},
      {200, L"Text/HTML; charset=utf-8", "function FindProxyForURL", {"pac-is-html"}},
      {200, L"text/plain", "\xEF\xBB\xBF\r\n <!doctype html>", {"pac-is-html"}},
      {404, L"text/html", "<html>", {"pac-is-html"}},
      {404, L"", "", {"pac-unreachable"}},
      {-1, L"", "", {"pac-unreachable"}},
  };
  for (const auto& [status, type, body, ids] : kCases) {
    Sources sources;
    sources.scripts = {{L"http://p/", {"user-connection"}, {status, 0, type, body}}};
    EXPECT_EQ(idsOf(sources), ids) << status << " " << body;
  }
}

TEST(SourceWarnings, AClockIsComparedWithWhatKerberosAllows) {
  for (const auto& [seconds, warned] : {std::pair(0, false), {300, false}, {-300, false}, {301, true}, {-301, true}}) {
    Sources sources;
    sources.clock = {L"http://gate:8080", seconds};
    EXPECT_EQ(idsOf(sources), warned ? Ids{"clock-differs"} : Ids()) << seconds;
  }
  Sources sources;
  sources.clock = {L"http://gate:8080", std::nullopt};
  EXPECT_EQ(idsOf(sources), Ids());
}

TEST(SourceWarnings, AMalformedValueIsNamed) {
  Place place = found("winhttp-64", {});
  place.state = PlaceState::NotReadable;
  place.remark = L"malformed: it ends before the flags";
  EXPECT_EQ(idsOf(with({place})), Ids{"malformed"});
}

}  // namespace
}  // namespace kiv::tool
