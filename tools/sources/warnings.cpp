// What is probably wrong with proxy settings, and what to do.
#include "sources/warnings.h"

#include <algorithm>
#include <cstdlib>
#include <set>

#include "common/console.h"
#include "sources/calls.h"
#include "sources/places.h"
#include "sources/registry.h"
#include "sources/sources_text.h"

namespace kiv::tool {
namespace {

struct Advice {
  std::string_view id;
  std::wstring_view text;
};

constexpr Advice kAdvice[] = {
    {"bypass-blank", L"Separate the entries of the bypass list with \";\" alone."},
    {"bypass-comma", L"Separate the entries of the bypass list with \";\", not with a comma."},
    {"scheme-misplaced",
     L"Write host:port, or scheme=host:port with the scheme of the URLs; PAC URLs begin with http:// "
     L"or https://; entries of a bypass list are host names."},
    {"missing-port", L"Write the port of the proxy: host:8080."},
    {"file-url", L"Put the PAC script on a web server, or write file://C:/folder/proxy.pac for kiv.dll."},
    {"pac-is-html",
     L"Open the address in a browser: a login page or an error page is in place of the PAC script. "
     L"Correct the address, or what the server delivers."},
    {"pac-unreachable",
     L"Check that the address of the PAC script is right and that its server answers on this network."},
    {"malformed",
     L"Open the proxy settings of Windows for this account and save them again, or run netsh winhttp reset "
     L"proxy for those of WinHTTP."},
    {"forms-differ",
     L"Open the proxy settings of Windows and save them again: some programs read one form, some the "
     L"other."},
    {"views-differ",
     L"Set the proxy with netsh winhttp in both folders, System32 and SysWOW64: 32-bit programs read the "
     L"32-bit view."},
    {"one-view-only",
     L"Nothing, unless the other programs need the proxy too: then run netsh winhttp of the other folder, "
     L"System32 for 64-bit programs or SysWOW64 for 32-bit programs."},
    {"sources-differ",
     L"Decide which one is right, and change the other. The table of programs tells who reads which."},
    {"user-settings-ignored",
     L"Change the machine's settings, or remove the policy ProxySettingsPerUser: while it is 0, "
     L"Windows uses those of the machine."},
    {"environment-differs",
     L"Restart this program, and the shell that starts it, to get the stored variables; or store "
     L"what is meant."},
    {"wpad-disabled", L"Turn automatic detection off in the user's settings, or remove DisableWpad."},
    {"clock-differs",
     L"Set the clock: with more than five minutes of difference Kerberos does not log on, by default."},
};

using Warnings = std::vector<SourceWarning>;

bool hasBlank(std::wstring_view text) { return text.find_first_of(L" \t") != std::wstring_view::npos; }

void add(Warnings& warnings, const char* id, const Place& place, std::wstring problem) {
  warnings.push_back({id, place.title + L": " + std::move(problem), {place.id}});
}

void checkBypass(const Place& place, Warnings& warnings) {
  const std::wstring& list = place.naming.bypassList;
  const auto entries = bypassEntriesByKiv(list);
  const auto any = [&](auto predicate) { return std::ranges::any_of(entries, predicate); };
  if (any(hasBlank)) add(warnings, "bypass-blank", place, L"blanks in the bypass list " + list);
  if (list.find(L',') != std::wstring::npos) add(warnings, "bypass-comma", place, L"commas in the bypass list " + list);
  const auto hasScheme = [](std::wstring_view entry) {
    return entry.find(L'=') != std::wstring_view::npos || entry.find(L"://") != std::wstring_view::npos;
  };
  if (any(hasScheme)) add(warnings, "scheme-misplaced", place, L"a scheme in the bypass list " + list);
}

// "http" in front of "://" changes nothing. Any other word, and what follows the port, is not part of a list's form.
bool isMisplaced(const ListEntry& entry) {
  return (!entry.proxyScheme.empty() && !sameName(entry.proxyScheme, L"http")) ||
         (!entry.rest.empty() && entry.rest != L"/");
}

void checkManualList(const Place& place, Warnings& warnings) {
  for (const std::wstring_view text : entriesByWindows(place.naming.manualList)) {
    const ListEntry entry = readEntry(text);
    const std::wstring shown(text);
    if (isMisplaced(entry)) add(warnings, "scheme-misplaced", place, L"the entry " + shown);
    if (entry.port.empty()) add(warnings, "missing-port", place, L"no port in " + shown);
  }
}

void checkScriptUrl(const Place& place, Warnings& warnings) {
  const std::wstring& url = place.naming.scriptUrl;
  constexpr std::wstring_view kThreeSlashes = L"file:///";
  if (url.empty()) return;
  if (sameName(std::wstring_view(url).substr(0, kThreeSlashes.size()), kThreeSlashes)) {
    add(warnings, "file-url", place, L"WinHTTP does not load the PAC script " + url + L", and neither does kiv.dll");
  } else if (url.find(L"://") == std::wstring::npos) {
    add(warnings, "scheme-misplaced", place, L"no scheme in the PAC URL " + url);
  }
}

void checkVariable(const Place& place, const PlaceValue& variable, Warnings& warnings) {
  if (sameName(variable.name, L"NO_PROXY") || variable.text.empty()) return;
  const ListEntry entry = readEntry(variable.text);
  const std::wstring shown = variable.name + L"=" + variable.text;
  if (!entry.urlScheme.empty() || variable.text.find(L';') != std::wstring::npos) {
    add(warnings, "scheme-misplaced", place, shown);
  } else if (entry.port.empty()) {
    add(warnings, "missing-port", place, L"no port in " + shown);
  }
}

// A variable names one proxy: [scheme://][user:password@]host:port. What several environments have is one problem.
void checkEnvironments(const Sources& sources, Warnings& warnings) {
  std::set<std::wstring> checked;
  for (const char* const id : {"environment-process", "environment-user", "environment-machine"}) {
    const Place* const place = placeWith(sources.places, id);
    for (const PlaceValue& variable : place ? place->values : std::vector<PlaceValue>()) {
      if (checked.insert(variable.text).second) checkVariable(*place, variable, warnings);
    }
  }
}

void checkPlace(const Place& place, Warnings& warnings) {
  if (place.state == PlaceState::NotReadable && place.remark.starts_with(L"malformed"))
    add(warnings, "malformed", place, L"the value is " + place.remark);
  if (!isOfBrowser(place)) checkBypass(place, warnings);
  checkManualList(place, warnings);
  checkScriptUrl(place, warnings);
}

void checkScript(const ScriptAnswer& script, Warnings& warnings) {
  const int status = script.fetched.status;
  if (status >= 0 && script.isHtml()) {
    warnings.push_back({"pac-is-html", L"The PAC URL " + script.url + L" answers an HTML page.", script.places});
  } else if (status < 200 || status > 299) {
    const std::wstring answer = status < 0 ? L"does not answer" : L"answers the status " + std::to_wstring(status);
    warnings.push_back({"pac-unreachable", L"The PAC URL " + script.url + L" " + answer + L".", script.places});
  }
}

// Two places whose settings must not contradict each other.
struct Pair {
  const char* warning;
  const char* left;
  const char* right;
  // Whether it is a contradiction that only one of them names a proxy.
  bool alsoIfOneIsEmpty;
};

constexpr Pair kPairs[] = {
    {"forms-differ", "user-values", "user-connection", true},
    {"views-differ", "winhttp-64", "winhttp-32", false},
    {"sources-differ", kUserCall, kMachineCall, false},
    {"sources-differ", kUserCall, "user-policy", false},
    {"sources-differ", kUserCall, "machine-policy", false},
    {"sources-differ", kUserCall, "edge-user-policy", false},
    {"sources-differ", kUserCall, "edge-machine-policy", false},
    {"sources-differ", kUserCall, "chrome-user-policy", false},
    {"sources-differ", kUserCall, "chrome-machine-policy", false},
    {"sources-differ", "wpad-dhcp", "wpad-dns", false},
};

const Place* find(const Sources& sources, std::string_view id) {
  const Place* const place = placeWith(sources.places, id);
  return place ? place : placeWith(sources.calls, id);
}

// Of a list: "host:port" of its proxies for all schemes, because places name them in different forms.
std::set<std::wstring> proxiesOf(std::wstring_view list) {
  std::set<std::wstring> proxies;
  for (const std::wstring_view text : entriesByWindows(list)) {
    const ListEntry entry = readEntry(text);
    proxies.insert(std::wstring(entry.host) + L":" + std::wstring(entry.port));
  }
  return proxies;
}

bool differ(const Naming& left, const Naming& right, bool alsoIfOneIsEmpty) {
  const auto either = [&](bool leftIsEmpty, bool rightIsEmpty, bool isSame) {
    return !isSame && (alsoIfOneIsEmpty || (!leftIsEmpty && !rightIsEmpty));
  };
  return either(left.scriptUrl.empty(), right.scriptUrl.empty(), left.scriptUrl == right.scriptUrl) ||
         either(left.manualList.empty(), right.manualList.empty(),
                proxiesOf(left.manualList) == proxiesOf(right.manualList));
}

SourceWarning contradiction(const char* id, const Place& left, const Place& right) {
  return {id,
          left.title + L" (" + summaryOf(left.naming) + L") and " + right.title + L" (" + summaryOf(right.naming) +
              L") differ.",
          {left.id, right.id}};
}

bool isFound(const Place* place) { return place && place->state == PlaceState::Found; }

void checkPairs(const Sources& sources, Warnings& warnings) {
  for (const Pair& pair : kPairs) {
    const Place* const left = find(sources, pair.left);
    const Place* const right = find(sources, pair.right);
    if (isFound(left) && isFound(right) && differ(left->naming, right->naming, pair.alsoIfOneIsEmpty))
      warnings.push_back(contradiction(pair.warning, *left, *right));
  }
}

const PlaceValue* variableOf(const Place* place, std::wstring_view name) {
  if (!place) return nullptr;
  const auto found =
      std::ranges::find_if(place->values, [&](const PlaceValue& value) { return sameName(value.name, name); });
  return found == place->values.end() ? nullptr : &*found;
}

// A new program gets the user's variables, and those of the machine that the user does not have.
void checkStoredEnvironment(const Sources& sources, Warnings& warnings) {
  for (const wchar_t* const name : {L"HTTP_PROXY", L"HTTPS_PROXY", L"ALL_PROXY", L"NO_PROXY"}) {
    const PlaceValue* const here = variableOf(find(sources, "environment-process"), name);
    const PlaceValue* stored = variableOf(find(sources, "environment-user"), name);
    if (!stored) stored = variableOf(find(sources, "environment-machine"), name);
    const std::wstring current = here ? here->text : L"";
    const std::wstring expected = stored ? stored->text : L"";
    if (current == expected) continue;
    const auto shown = [](const std::wstring& text) { return text.empty() ? L"not set" : L"\"" + text + L"\""; };
    warnings.push_back({"environment-differs",
                        name + (L" is " + shown(current)) + L" for this program, and " + shown(expected) +
                            L" for programs that Windows starts.",
                        {"environment-process", "environment-user", "environment-machine"}});
  }
}

// A program that reads the environment goes another way than one that reads the user's settings.
void checkEnvironmentAgainstUser(const Sources& sources, Warnings& warnings) {
  const Place* const user = find(sources, kUserCall);
  const Place* const process = find(sources, "environment-process");
  if (!user || !process || user->naming.manualList.empty()) return;
  const auto known = proxiesOf(user->naming.manualList);
  for (const PlaceValue& variable : process->values) {
    if (sameName(variable.name, L"NO_PROXY") || variable.text.empty()) continue;
    const auto named = proxiesOf(variable.text);
    if (std::ranges::includes(known, named)) continue;
    warnings.push_back({"sources-differ",
                        variable.name + L" (" + variable.text + L") and the user's settings (" +
                            summaryOf(user->naming) + L") differ.",
                        {process->id, user->id}});
  }
}

void checkSwitches(const Sources& sources, Warnings& warnings) {
  const auto isNumber = [&](const char* id, const wchar_t* name, const wchar_t* number) {
    const PlaceValue* const value = variableOf(find(sources, id), name);
    return value && value->text == number;
  };
  const Place* const user = find(sources, "user-connection");
  const Place* const machine = find(sources, "machine-connection");
  if (isNumber("per-user-policy", L"ProxySettingsPerUser", L"0") && user && machine && isFound(user) &&
      differ(user->naming, machine->naming, true)) {
    warnings.push_back(contradiction("user-settings-ignored", *user, *machine));
  }
  const Place* const call = find(sources, kUserCall);
  if (isNumber("wpad-switch", L"DisableWpad", L"1") && call && call->naming.automaticDetection) {
    warnings.push_back({"wpad-disabled",
                        L"Automatic detection (WPAD) is on in the user's settings, and switched off for the machine.",
                        {call->id, "wpad-switch"}});
  }
}

void checkClock(const Sources& sources, Warnings& warnings) {
  constexpr std::int64_t kMostByKerberos = 300;
  if (!sources.clock || std::abs(sources.clock->secondsAhead.value_or(0)) <= kMostByKerberos) return;
  warnings.push_back({"clock-differs",
                      L"The clocks of this machine and of the proxy " + sources.clock->proxy + L" differ by " +
                          std::to_wstring(std::abs(*sources.clock->secondsAhead)) + L" s.",
                      {}});
}

// A wrong list that several places have is one problem: the call returns what a place holds.
void checkCalls(const Sources& sources, Warnings& warnings) {
  for (const Place& call : sources.calls) {
    const auto isSame = [&](const Place& place) { return place.naming == call.naming; };
    if (std::ranges::none_of(sources.places, isSame)) checkPlace(call, warnings);
  }
}

}  // namespace

std::vector<SourceWarning> warningsAbout(const Sources& sources) {
  Warnings warnings;
  for (const Place& place : sources.places) checkPlace(place, warnings);
  checkEnvironments(sources, warnings);
  checkCalls(sources, warnings);
  for (const ScriptAnswer& script : sources.scripts) checkScript(script, warnings);
  checkPairs(sources, warnings);
  checkStoredEnvironment(sources, warnings);
  checkEnvironmentAgainstUser(sources, warnings);
  checkSwitches(sources, warnings);
  checkClock(sources, warnings);
  return warnings;
}

// netsh writes the view of programs of its own kind, so a proxy that was set once stands in one view.
std::vector<SourceWarning> notesAbout(const Sources& sources) {
  const Place* const wide = find(sources, "winhttp-64");
  const Place* const narrow = find(sources, "winhttp-32");
  const auto isKnown = [](const Place* place) {
    return place && (place->state == PlaceState::Found || place->state == PlaceState::NothingThere);
  };
  if (!isKnown(wide) || !isKnown(narrow) || wide->naming.namesProxy() == narrow->naming.namesProxy()) return {};
  const bool forWide = wide->naming.namesProxy();
  return {{"one-view-only",
           std::wstring(L"WinHTTP's proxy for the machine, ") + summaryOf((forWide ? wide : narrow)->naming) +
               L", is set for " + (forWide ? L"64" : L"32") + L"-bit programs only.",
           {wide->id, narrow->id}}};
}

std::wstring_view adviceFor(std::string_view id) {
  const auto* const found = std::ranges::find(kAdvice, id, &Advice::id);
  return found == std::ranges::end(kAdvice) ? std::wstring_view() : found->text;
}

bool isOfBrowser(const Place& place) { return place.id.starts_with("edge-") || place.id.starts_with("chrome-"); }

}  // namespace kiv::tool
