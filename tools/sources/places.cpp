// Reads every place that can name a proxy. Nothing is changed.
#include "sources/places.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <span>
#include <string_view>
#include <variant>

#include "common/console.h"
#include "resolve/failures.h"
#include "sources/connection_settings.h"
#include "support/owners.h"

namespace kiv::tool {
namespace {

constexpr const wchar_t* kSettings = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr const wchar_t* kConnections = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections";
constexpr const wchar_t* kPolicies = L"Software\\Policies\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr const wchar_t* kEdge = L"Software\\Policies\\Microsoft\\Edge";
constexpr const wchar_t* kChrome = L"Software\\Policies\\Google\\Chrome";
constexpr const wchar_t* kWinHttp = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\WinHttp";
constexpr const wchar_t* kUserEnvironment = L"Environment";
constexpr const wchar_t* kMachineEnvironment = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
constexpr const wchar_t* kDefaultConnection = L"DefaultConnectionSettings";
constexpr const wchar_t* kLegacyConnection = L"SavedLegacySettings";
constexpr const wchar_t* kWinHttpSettings = L"WinHttpSettings";

constexpr std::wstring_view kSettingsValues[] = {L"ProxyEnable", L"ProxyServer", L"ProxyOverride", L"AutoConfigURL",
                                                 L"AutoDetect"};
constexpr std::wstring_view kPerUserValues[] = {L"ProxySettingsPerUser"};
constexpr std::wstring_view kBrowserValues[] = {L"ProxyMode", L"ProxyServer", L"ProxyPacUrl", L"ProxyBypassList",
                                                L"ProxySettings"};
constexpr std::wstring_view kSwitchValues[] = {L"DisableWpad"};
constexpr std::wstring_view kVariables[] = {L"HTTP_PROXY", L"HTTPS_PROXY", L"ALL_PROXY", L"NO_PROXY"};

Place unread(const KeyContents& key, Place place) {
  if (key.status == ERROR_SUCCESS || key.status == ERROR_FILE_NOT_FOUND) return place;
  place.state = PlaceState::NotReadable;
  place.remark = errorText(static_cast<unsigned>(key.status));
  return place;
}

// The values with these names, in their order.
Place withValues(const KeyContents& key, std::span<const std::wstring_view> names, Place place) {
  for (const std::wstring_view name : names) {
    if (const RegistryValue* const value = key.find(name)) {
      place.values.push_back({std::wstring(name), textOf(*value)});
      place.state = PlaceState::Found;
    }
  }
  return unread(key, std::move(place));
}

Place readSettings(const KeyContents& key, Place place) {
  place = withValues(key, kSettingsValues, std::move(place));
  if (numberOf(key.find(L"ProxyEnable")).value_or(0) != 0) {
    place.naming.manualList = stringOf(key.find(L"ProxyServer"));
    place.naming.bypassList = stringOf(key.find(L"ProxyOverride"));
  }
  place.naming.scriptUrl = stringOf(key.find(L"AutoConfigURL"));
  place.naming.automaticDetection = numberOf(key.find(L"AutoDetect")).value_or(0) != 0;
  return place;
}

Place readPerUser(const KeyContents& key, Place place) { return withValues(key, kPerUserValues, std::move(place)); }

Place readSwitch(const KeyContents& key, Place place) { return withValues(key, kSwitchValues, std::move(place)); }

Place readVariables(const KeyContents& key, Place place) { return withValues(key, kVariables, std::move(place)); }

using BlobReader = std::variant<ConnectionSettings, std::wstring> (*)(std::span<const std::uint8_t>);

Place readBlob(const RegistryValue& value, BlobReader read, Place place) {
  const auto settings = read(value.data);
  if (const auto* const problem = std::get_if<std::wstring>(&settings)) {
    place.state = PlaceState::NotReadable;
    place.remark = *problem;
    return place;
  }
  const auto& known = std::get<ConnectionSettings>(settings);
  place.state = PlaceState::Found;
  place.naming = known.naming();
  place.values = {{L"flags", std::to_wstring(known.flags)}};
  for (const auto& [name, text] : {std::pair(L"manual list", known.manualList),
                                   {L"bypass list", known.bypassList},
                                   {L"script URL", known.scriptUrl}}) {
    if (!text.empty()) place.values.push_back({name, text});
  }
  return place;
}

Place readNamedBlob(const KeyContents& key, const wchar_t* name, BlobReader read, Place place) {
  const RegistryValue* const value = key.find(name);
  return value ? readBlob(*value, read, std::move(place)) : unread(key, std::move(place));
}

Place readConnection(const KeyContents& key, Place place) {
  return readNamedBlob(key, kDefaultConnection, readConnectionSettings, std::move(place));
}

Place readMachineWinHttp(const KeyContents& key, Place place) {
  return readNamedBlob(key, kWinHttpSettings, readWinHttpSettings, std::move(place));
}

// What a browser's policies say together: single values, or one text with a JSON object that replaces them.
Naming namingOfBrowser(const std::vector<PlaceValue>& values) {
  const auto valueOf = [&](std::wstring_view name) {
    const auto found = std::ranges::find(values, name, &PlaceValue::name);
    return found == values.end() ? std::wstring() : found->text;
  };
  const std::wstring mode = valueOf(L"ProxyMode");
  if (mode == L"auto_detect") return {.automaticDetection = true};
  if (mode == L"pac_script") return {.scriptUrl = valueOf(L"ProxyPacUrl")};
  if (mode == L"fixed_servers")
    return {.manualList = valueOf(L"ProxyServer"), .bypassList = valueOf(L"ProxyBypassList")};
  return {};
}

// The texts of the object that ProxySettings holds; nothing if it holds none.
std::optional<std::vector<PlaceValue>> valuesOfProxySettings(const std::wstring& text) {
  const auto json = nlohmann::json::parse(toUtf8(text), nullptr, false);
  if (!json.is_object()) return std::nullopt;
  std::vector<PlaceValue> values;
  for (const auto& [name, value] : json.items()) {
    if (value.is_string()) values.push_back({toWide(name), toWide(value.get<std::string>())});
  }
  return values;
}

Place readBrowser(const KeyContents& key, Place place) {
  place = withValues(key, kBrowserValues, std::move(place));
  const std::wstring settings = stringOf(key.find(L"ProxySettings"));
  const auto together = settings.empty() ? place.values : valuesOfProxySettings(settings);
  if (together) {
    place.naming = namingOfBrowser(*together);
  } else {
    place.remark = L"ProxySettings is not a JSON object";
  }
  return place;
}

// A place in the registry: what reads it from the contents of its key.
struct KnownPlace {
  const char* id;
  const wchar_t* title;
  Hive hive;
  const wchar_t* key;
  Place (*read)(const KeyContents& key, Place place);
  View view = View::Own;
};

constexpr KnownPlace kUserPlaces[] = {
    {"user-values", L"The user's settings, as values", Hive::CurrentUser, kSettings, readSettings},
    {"user-connection", L"The user's settings, as a connection", Hive::CurrentUser, kConnections, readConnection},
};

constexpr KnownPlace kOtherPlaces[] = {
    {"per-user-policy", L"Policy: settings per user or per machine", Hive::LocalMachine, kPolicies, readPerUser},
    {"machine-values", L"The machine's settings, as values", Hive::LocalMachine, kSettings, readSettings},
    {"machine-connection", L"The machine's settings, as a connection", Hive::LocalMachine, kConnections,
     readConnection},
    {"user-policy", L"Policy of the user", Hive::CurrentUser, kPolicies, readSettings},
    {"machine-policy", L"Policy of the machine", Hive::LocalMachine, kPolicies, readSettings},
    {"edge-user-policy", L"Policy of the user for Microsoft Edge", Hive::CurrentUser, kEdge, readBrowser},
    {"edge-machine-policy", L"Policy of the machine for Microsoft Edge", Hive::LocalMachine, kEdge, readBrowser},
    {"chrome-user-policy", L"Policy of the user for Chrome", Hive::CurrentUser, kChrome, readBrowser},
    {"chrome-machine-policy", L"Policy of the machine for Chrome", Hive::LocalMachine, kChrome, readBrowser},
    {"winhttp-64", L"WinHTTP for the machine, 64-bit programs", Hive::LocalMachine, kConnections, readMachineWinHttp,
     View::Bits64},
    {"winhttp-32", L"WinHTTP for the machine, 32-bit programs", Hive::LocalMachine, kConnections, readMachineWinHttp,
     View::Bits32},
    {"environment-user", L"Environment variables of the user", Hive::CurrentUser, kUserEnvironment, readVariables},
    {"environment-machine", L"Environment variables of the machine", Hive::LocalMachine, kMachineEnvironment,
     readVariables},
    {"wpad-switch", L"Automatic detection (WPAD), switched off?", Hive::LocalMachine, kWinHttp, readSwitch},
};

struct ServiceAccount {
  const char* id;
  const wchar_t* name;
  const wchar_t* sid;
};

constexpr ServiceAccount kServiceAccounts[] = {
    {"local-system", L"LocalSystem", L"S-1-5-18"},
    {"local-service", L"LocalService", L"S-1-5-19"},
    {"network-service", L"NetworkService", L"S-1-5-20"},
};

Place readPlace(const Registry& registry, const RegistryKey& key, const KnownPlace& known, Place place) {
  place.location = textOf(key);
  return known.read(registry.read(key), std::move(place));
}

Place readPlace(const Registry& registry, const KnownPlace& known) {
  return readPlace(registry, {known.hive, known.key, known.view}, known, {.id = known.id, .title = known.title});
}

// Both forms of an account's settings.
void addAccount(const Registry& registry, const ServiceAccount& account, std::vector<Place>& places) {
  const bool exists = registry.read({Hive::Users, account.sid}).status != ERROR_FILE_NOT_FOUND;
  for (const KnownPlace& form : kUserPlaces) {
    const bool isBlob = form.read == readConnection;
    const RegistryKey key = {Hive::Users, std::wstring(account.sid).append(L"\\").append(form.key), View::Own};
    const std::wstring title = std::wstring(L"Settings of the service account ") + account.name +
                               (isBlob ? L", as a connection" : L", as values");
    const std::string id = std::string(account.id).append(isBlob ? "-connection" : "-values");
    places.push_back(readPlace(registry, key, form, {.id = id, .title = title}));
    if (!exists) places.back().state = PlaceState::NotOnThisSystem;
  }
}

// Windows keeps the settings of each VPN and dial-up connection beside those of the network, under its name.
void addVpnConnections(const Registry& registry, std::vector<Place>& places) {
  const RegistryKey key = {Hive::CurrentUser, kConnections, View::Own};
  for (const RegistryValue& value : registry.read(key).values) {
    const auto isOwn = [&](const wchar_t* name) { return sameName(value.name, name); };
    if (value.type != REG_BINARY || isOwn(kDefaultConnection) || isOwn(kLegacyConnection) || isOwn(kWinHttpSettings))
      continue;
    places.push_back(readBlob(value, readConnectionSettings,
                              {.id = "vpn:" + toUtf8(value.name),
                               .title = L"Settings of the VPN or dial-up connection " + value.name,
                               .location = textOf(key)}));
  }
}

Place readEnvironment(const Environment& process) {
  Place place = {.id = "environment-process",
                 .title = L"Environment variables of this program",
                 .location = L"GetEnvironmentStringsW"};
  for (const std::wstring_view name : kVariables) {
    for (const PlaceValue& variable : process) {
      if (sameName(variable.name, name)) place.values.push_back(variable);
    }
  }
  if (!place.values.empty()) place.state = PlaceState::Found;
  return place;
}

Place readDetection(const Network& network, DetectionBy way) {
  const bool byDhcp = way == DetectionBy::Dhcp;
  const Detected detected = network.detect(way);
  Place place = {.id = byDhcp ? "wpad-dhcp" : "wpad-dns",
                 .title = byDhcp ? L"Automatic detection (WPAD) by DHCP" : L"Automatic detection (WPAD) by DNS",
                 .location = L"WinHttpDetectAutoProxyConfigUrl",
                 .state = detected.state};
  if (detected.state == PlaceState::Found) place.values = {{L"script URL", detected.scriptUrl}};
  if (detected.state == PlaceState::NotReadable) place.remark = errorText(detected.error);
  place.naming.scriptUrl = detected.scriptUrl;
  return place;
}

struct FreeEnvironment {
  void operator()(wchar_t* block) const noexcept { FreeEnvironmentStringsW(block); }
};

}  // namespace

Environment processEnvironment() {
  const support::Unique<wchar_t*, FreeEnvironment> block(GetEnvironmentStringsW());
  Environment variables;
  for (const wchar_t* at = block.get(); at && *at != L'\0';) {
    const std::wstring_view entry = at;
    at += entry.size() + 1;
    // The names of Windows' own variables for the folders of drives begin with "=".
    const std::size_t end = entry.find(L'=', 1);
    if (end != std::wstring_view::npos)
      variables.push_back({std::wstring(entry.substr(0, end)), std::wstring(entry.substr(end + 1))});
  }
  return variables;
}

std::vector<Place> readPlaces(const Registry& registry, const Environment& process, const Network& network) {
  std::vector<Place> places;
  for (const KnownPlace& known : kUserPlaces) places.push_back(readPlace(registry, known));
  addVpnConnections(registry, places);
  for (const KnownPlace& known : kOtherPlaces) places.push_back(readPlace(registry, known));
  places.push_back(readEnvironment(process));
  places.push_back(readDetection(network, DetectionBy::Dhcp));
  places.push_back(readDetection(network, DetectionBy::Dns));
  for (const ServiceAccount& account : kServiceAccounts) addAccount(registry, account, places);
  return places;
}

const Place* placeWith(const std::vector<Place>& places, std::string_view id) {
  const auto found = std::ranges::find(places, id, &Place::id);
  return found == places.end() ? nullptr : &*found;
}

}  // namespace kiv::tool
