// The resolutions that are swept: one for each way to the system's proxies, and one with both demands.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/simulated_windows.h"
#include "unit/support/scripted_application.h"

namespace kiv::test {

// What one source of proxies leads to.
struct Source {
  std::vector<std::wstring> candidates = {};
  std::wstring bypass = {};
};

struct ResolutionScenario {
  const char* name;
  std::function<void(SimulatedWindows&)> setUp;
  std::function<void(ScriptedApplication&)> script = [](ScriptedApplication&) {};
  Source normal;
  // In force when the first, the second automatic configuration is not to be had.
  std::vector<Source> withoutAutomatic = {};
  Source withoutSettings = {};  // in force when the user has no settings
  bool bypassed = false;
};

inline constexpr ScriptedApplication::Login kProxyLogin = {L"pam", L"proxy-sesame-which-opens-the-proxy"};
inline constexpr ScriptedApplication::Login kServerLogin = {L"sam", L"server-sesame-which-opens-the-server"};
inline constexpr const wchar_t* kSharedSecret = L"-sesame-which-opens-the-";

inline std::vector<ResolutionScenario> resolutionScenarios() {
  const Source manual = {{L"http://manual:1"}, L"m.test"};
  const Source scripted = {{L"http://scripted:2"}, L"s.test"};
  const Source detected = {{L"http://detected:3", L"http://detected:4"}, L"d.test"};
  const Source local = {{L"http://local:5", L"socks5://local:6"}, L""};
  const auto user = [](SimulatedWindows& windows, bool autoDetect, std::optional<std::wstring> configUrl) {
    windows.user = {
        .autoDetect = autoDetect, .autoConfigUrl = std::move(configUrl), .proxy = L"manual:1", .bypass = L"m.test"};
    windows.autoConfig = {{.proxy = L"scripted:2", .bypass = L"s.test"}};
    windows.scriptEngine.present = false;
  };
  const auto detecting = [](SimulatedWindows& windows) {
    windows.autoDetection = {{.proxy = L"detected:3;detected:4", .bypass = L"d.test"}};
  };
  return {
      {.name = "manual settings",
       .setUp = [=](SimulatedWindows& windows) { user(windows, false, std::nullopt); },
       .normal = manual},
      {.name = "automatic detection",
       .setUp =
           [=](SimulatedWindows& windows) {
             user(windows, true, L"http://conf/p.pac");
             detecting(windows);
           },
       .normal = detected,
       .withoutAutomatic = {scripted},
       .withoutSettings = detected},
      {.name = "script URL after detection failed",
       .setUp = [=](SimulatedWindows& windows) { user(windows, true, L"http://conf/p.pac"); },
       .normal = scripted,
       .withoutAutomatic = {scripted, manual}},
      {.name = "manual settings after detection and script URL failed",
       .setUp =
           [=](SimulatedWindows& windows) {
             user(windows, true, L"http://conf/p.pac");
             windows.autoConfig = {{.error = 12167}};
           },
       .normal = manual,
       .withoutAutomatic = {manual, manual}},
      {.name = "local script",
       .setUp =
           [=](SimulatedWindows& windows) {
             user(windows, false, L"file://C:/p.pac");
             windows.autoConfig = {{.error = 12006}};
             windows.scriptEngine.present = true;
             windows.scriptEngine.answer = "PROXY local:5; SOCKS local:6";
           },
       .normal = local,
       .withoutAutomatic = {manual}},
      {.name = "bypassed target",
       .setUp =
           [=](SimulatedWindows& windows) {
             user(windows, false, std::nullopt);
             windows.user.bypass = L"<local>;tar*";
           },
       .normal = {{L"http://manual:1"}, L"<local>;tar*"},
       .bypassed = true},
      {.name = "both demands",
       .setUp = [=](SimulatedWindows& windows) { user(windows, false, std::nullopt); },
       .script =
           [](ScriptedApplication& application) {
             application.statuses = {407, 401, 200};
             application.proxyLogin = kProxyLogin;
             application.serverLogin = kServerLogin;
           },
       .normal = manual},
  };
}

}  // namespace kiv::test
