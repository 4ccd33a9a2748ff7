// What is read from the places that name a proxy.
#include "sources/places.h"

#include <gtest/gtest.h>

#include "source_fakes.h"

namespace kiv::tool {
namespace {

const std::wstring kSettings = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
const RegistryKey kUser = {Hive::CurrentUser, kSettings};
const RegistryKey kUserConnections = {Hive::CurrentUser, kSettings + L"\\Connections"};
const RegistryKey kEdge = {Hive::LocalMachine, L"Software\\Policies\\Microsoft\\Edge"};

RegistryValue binaryValue(std::wstring name, std::vector<std::uint8_t> data) {
  return {std::move(name), REG_BINARY, std::move(data)};
}

// "a:1", in use.
const std::vector<std::uint8_t> kBlob = {0x46, 0, 0,   0,   1,   0, 0, 0, 3, 0, 0, 0, 3, 0,
                                         0,    0, 'a', ':', '1', 0, 0, 0, 0, 0, 0, 0, 0};

Place read(const FakeRegistry& registry, std::string_view id, const Environment& process = {},
           const FakeNetwork& network = {}) {
  const std::vector<Place> places = readPlaces(registry, process, network);
  const Place* const place = placeWith(places, id);
  EXPECT_NE(place, nullptr) << id;
  return place ? *place : Place{};
}

TEST(Places, NothingIsThereInAnEmptyRegistry) {
  for (const Place& place : readPlaces(FakeRegistry(), {}, FakeNetwork())) {
    const bool isAccount = place.location.starts_with(L"HKU\\");
    EXPECT_EQ(place.state, isAccount ? PlaceState::NotOnThisSystem : PlaceState::NothingThere) << place.id;
    EXPECT_FALSE(place.naming.namesProxy()) << place.id;
    EXPECT_FALSE(place.title.empty() || place.location.empty()) << place.id;
  }
}

TEST(Places, EachHasAnIdOfItsOwn) {
  std::map<std::string, int> ids;
  for (const Place& place : readPlaces(FakeRegistry(), {}, FakeNetwork())) ++ids[place.id];
  for (const auto& [id, count] : ids) EXPECT_EQ(count, 1) << id;
}

TEST(Places, ManualListCountsOnlyIfItIsEnabled) {
  for (const DWORD enabled : {0U, 1U}) {
    FakeRegistry registry;
    registry.add(kUser, numberValue(L"proxyenable", enabled));
    registry.add(kUser, textValue(L"ProxyServer", L"gate:8080"));
    registry.add(kUser, textValue(L"ProxyOverride", L"<local>"));
    const Place place = read(registry, "user-values");
    EXPECT_EQ(place.state, PlaceState::Found);
    EXPECT_EQ(place.values.size(), 3U);
    EXPECT_EQ(place.naming.manualList, enabled ? L"gate:8080" : L"");
    EXPECT_EQ(place.naming.bypassList, enabled ? L"<local>" : L"");
  }
}

TEST(Places, AValueOfAnotherTypeIsShownAndNamesNothing) {
  FakeRegistry registry;
  registry.add(kUser, numberValue(L"AutoConfigURL", 5));
  registry.add(kUser, binaryValue(L"ProxyServer", {1, 2, 3}));
  const Place place = read(registry, "user-values");
  const std::vector<PlaceValue> expected = {{L"ProxyServer", L"(type 3, 3 bytes)"}, {L"AutoConfigURL", L"5"}};
  EXPECT_EQ(place.values, expected);
  EXPECT_FALSE(place.naming.namesProxy());
}

TEST(Places, AKeyThatMayNotBeReadIsNotReadable) {
  FakeRegistry registry;
  registry.keys[{Hive::Users, L"S-1-5-18"}].status = ERROR_SUCCESS;
  registry.keys[{Hive::Users, L"S-1-5-18\\" + kSettings}].status = ERROR_ACCESS_DENIED;
  const Place place = read(registry, "local-system-values");
  EXPECT_EQ(place.state, PlaceState::NotReadable);
  EXPECT_NE(place.remark.find(L"5"), std::wstring::npos) << place.remark;
}

TEST(Places, ConnectionsAreReadAndVpnConnectionsAreNamed) {
  FakeRegistry registry;
  registry.add(kUserConnections, binaryValue(L"DefaultConnectionSettings", kBlob));
  registry.add(kUserConnections, binaryValue(L"SavedLegacySettings", kBlob));
  registry.add(kUserConnections, binaryValue(L"Office", kBlob));
  registry.add(kUserConnections, binaryValue(L"Broken", {0x46}));
  registry.add(kUserConnections, textValue(L"NoBlob", L"x"));
  EXPECT_EQ(read(registry, "user-connection").naming.manualList, L"a:1");
  EXPECT_EQ(read(registry, "vpn:Office").naming.manualList, L"a:1");
  EXPECT_EQ(read(registry, "vpn:Broken").state, PlaceState::NotReadable);
  const auto places = readPlaces(registry, {}, FakeNetwork());
  EXPECT_EQ(placeWith(places, "vpn:SavedLegacySettings"), nullptr);
  EXPECT_EQ(placeWith(places, "vpn:NoBlob"), nullptr);
}

TEST(Places, WinHttpIsReadInBothViews) {
  FakeRegistry registry;
  const std::vector<std::uint8_t> blob = {0x18, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 3, 0, 0, 0, 'b', ':', '2', 0, 0, 0, 0};
  registry.add({Hive::LocalMachine, kSettings + L"\\Connections", View::Bits32}, binaryValue(L"WinHttpSettings", blob));
  EXPECT_EQ(read(registry, "winhttp-32").naming.manualList, L"b:2");
  EXPECT_EQ(read(registry, "winhttp-64").state, PlaceState::NothingThere);
}

TEST(Places, BrowserPoliciesNameWhatTheirModeSays) {
  struct Case {
    const wchar_t* mode;
    Naming naming;
  };
  const Case kCases[] = {
      {L"direct", {}},
      {L"system", {}},
      {L"nonsense", {}},
      {L"auto_detect", {.automaticDetection = true}},
      {L"pac_script", {.scriptUrl = L"http://p/"}},
      {L"fixed_servers", {.manualList = L"gate:8080", .bypassList = L"a,b"}},
  };
  for (const auto& [mode, naming] : kCases) {
    FakeRegistry registry;
    registry.add(kEdge, textValue(L"ProxyMode", mode));
    registry.add(kEdge, textValue(L"ProxyServer", L"gate:8080"));
    registry.add(kEdge, textValue(L"ProxyPacUrl", L"http://p/"));
    registry.add(kEdge, textValue(L"ProxyBypassList", L"a,b"));
    EXPECT_EQ(read(registry, "edge-machine-policy").naming, naming) << mode;
  }
}

TEST(Places, ProxySettingsOfABrowserAreAJsonObject) {
  struct Case {
    const wchar_t* text;
    const wchar_t* manualList;
    bool remarked;
  };
  constexpr Case kCases[] = {
      {LR"({"ProxyMode": "fixed_servers", "ProxyServer": "gate:1"})", L"gate:1", false},
      {LR"({"ProxyMode": "fixed_servers", "ProxyServer": 1})", L"", false},
      {LR"({"ProxyMode": ["fixed_servers"]})", L"", false},
      {LR"(["ProxyMode"])", L"", true},
      {LR"({"ProxyMode)", L"", true},
      {L"gate:1", L"", true},
  };
  for (const auto& [text, manualList, remarked] : kCases) {
    FakeRegistry registry;
    registry.add(kEdge, textValue(L"ProxySettings", text));
    const Place place = read(registry, "edge-machine-policy");
    EXPECT_EQ(place.naming.manualList, manualList) << text;
    EXPECT_EQ(!place.remark.empty(), remarked) << text;
  }
}

TEST(Places, VariablesAreFoundInAnyCase) {
  const Environment process = {{L"Path", L"x"}, {L"http_proxy", L"a:1"}, {L"HTTP_PROXY", L"b:2"}, {L"No_Proxy", L"*"}};
  const Place place = read(FakeRegistry(), "environment-process", process);
  const std::vector<PlaceValue> expected = {{L"http_proxy", L"a:1"}, {L"HTTP_PROXY", L"b:2"}, {L"No_Proxy", L"*"}};
  EXPECT_EQ(place.values, expected);
}

TEST(Places, DetectionSaysWhatItFoundOrWhyNot) {
  FakeNetwork network;
  network.byDns = {PlaceState::Found, L"http://wpad/wpad.dat"};
  network.byDhcp = {PlaceState::NotReadable, L"", 12180};
  EXPECT_EQ(read(FakeRegistry(), "wpad-dns", {}, network).naming.scriptUrl, L"http://wpad/wpad.dat");
  const Place byDhcp = read(FakeRegistry(), "wpad-dhcp", {}, network);
  EXPECT_EQ(byDhcp.state, PlaceState::NotReadable);
  EXPECT_NE(byDhcp.remark.find(L"12180"), std::wstring::npos);
}

}  // namespace
}  // namespace kiv::tool
