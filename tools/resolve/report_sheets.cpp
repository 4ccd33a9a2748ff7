// What reports say about a resolution as names and values; the page and the plain text show them in their own ways.
#include "resolve/report_sheets.h"

#include "common/console.h"
#include "common/presentable.h"
#include "resolve/failures.h"
#include "resolve/module_version.h"
#include "resolve/probe_words.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

constexpr const wchar_t* kPhasesNote =
    L"kiv-resolve sent one request of its own over each of these routes. WinHTTP does not report TLS: it is the time "
    L"between connection and request. Where it does not report the proxy's tunnel either, TLS includes that.";

constexpr const wchar_t* kAlwaysRemoved =
    L"Passwords: in every text that looks like user:password@ asterisks replace the password. Messages of NTLM and "
    L"Negotiate, which hold names. Characters that could control a viewer are replaced too. ";

constexpr const wchar_t* kStillHere =
    L"Names of users, hosts and domains, addresses, URLs, and the headers that servers sent are still here.";

void append(std::wstring& list, std::wstring_view item) {
  if (!list.empty()) list += L", ";
  list += item;
}

template <std::size_t count>
std::wstring flagsText(const FlagWords (&table)[count], unsigned flags) {
  std::wstring list;
  for (const FlagWords& each : table) {
    if (flags & each.flag) append(list, each.words.text);
  }
  return list;
}

std::wstring titleOf(const RouteFindings& route) {
  return route.candidate ? L"No. " + std::to_wstring(*route.candidate) + L"  " + route.route : route.route;
}

std::wstring inMilliseconds(microseconds duration) {
  return durationText(std::chrono::duration_cast<milliseconds>(duration));
}

std::wstring addressesText(const Addresses& addresses) {
  std::wstring text = addresses.host + L": ";
  if (addresses.error) return text + L"none, " + errorText(addresses.error);
  std::wstring list;
  for (const std::wstring& address : addresses.ipv4) append(list, address);
  for (const std::wstring& address : addresses.ipv6) append(list, address);
  return list == addresses.host ? list : text + list;
}

std::wstring phasesText(const std::vector<Phase>& phases) {
  std::wstring text;
  for (const Phase& phase : phases) {
    append(text, std::wstring(wordsOf(kPhaseWords, phase.kind).text) + L" " + inMilliseconds(phase.duration));
    if (!phase.address.empty()) text += L" to " + phase.address;
    if (!phase.completed) text += L" (failed)";
  }
  return text;
}

FactGroup phasesOf(const RouteFindings& route) {
  if (!route.notProbed.empty()) return {titleOf(route), {{L"Not probed", route.notProbed}}};
  return {titleOf(route),
          {{L"Addresses", addressesText(route.addresses)},
           {L"Phases", phasesText(route.phases)},
           {L"Response", responseText(route)},
           {L"Total", inMilliseconds(route.duration)}},
          route.phases};
}

std::wstring answerText(const Challenge& challenge) {
  if (!challenge.used) return L"not answered";
  const wchar_t* const who = challenge.asLoggedOnUser ? L" as the logged-on user" : L" with the credentials given";
  return flagsText(kSchemeWords, *challenge.used) + who + (challenge.accepted ? L": accepted" : L": rejected");
}

void addAuthentication(const RouteFindings& route, Sheet& sheet) {
  FactGroup group{titleOf(route), {}};
  for (const Challenge& challenge : route.challenges) {
    const wchar_t* const party = challenge.byProxy ? L"Proxy (407)" : L"Server (401)";
    const std::wstring offered = flagsText(kSchemeWords, challenge.offered);
    group.facts.push_back({party, L"offers " + (offered.empty() ? L"no scheme that WinHTTP knows" : offered)});
    group.facts.push_back({L"Used", answerText(challenge)});
  }
  if (!group.facts.empty()) sheet.groups.push_back(std::move(group));
}

void addCertificate(const RouteFindings& route, Sheet& sheet) {
  if (!route.certificate) return;
  const Certificate& certificate = *route.certificate;
  const std::wstring name = certificate.rootName.empty() ? L"" : certificate.rootName + L", ";
  const std::wstring root = name + std::wstring(wordsOf(kRootWords, certificate.root).text);
  FactGroup group{titleOf(route),
                  {{L"Host", certificate.host},
                   {L"Subject", certificate.subject},
                   {L"Issuer", certificate.issuer},
                   {L"Valid", timeText(certificate.notBefore) + L" to " + timeText(certificate.notAfter)},
                   {L"SHA-256", certificate.sha256},
                   {L"Root", root},
                   {L"Problems", flagsText(kProblemWords, certificate.problems)}}};
  if (certificate.refused) {
    group.facts.push_back(
        {L"Refused", L"read with a second request without credentials, closed before anything was sent"});
  }
  sheet.groups.push_back(std::move(group));
}

void addRedirects(const RouteFindings& route, Sheet& sheet) {
  if (route.redirects.empty()) return;
  FactGroup group{titleOf(route), {}};
  for (const std::wstring& url : route.redirects) group.facts.push_back({L"To", url});
  group.facts.push_back({L"Response", responseText(route)});
  sheet.groups.push_back(std::move(group));
}

void addScript(const ScriptFindings& script, Sheet& sheet) {
  std::vector<Fact>& facts = sheet.groups.front().facts;
  facts.push_back({L"Script URL", script.url + (script.fromDetection ? L" (found with WPAD)" : L"")});
  if (script.status >= 0) facts.push_back({L"Response", std::to_wstring(script.status)});
  if (script.error) {
    facts.push_back({L"Failed", errorText(script.error)});
  } else {
    if (script.status >= 0) facts.push_back({L"Type", script.type});
    facts.push_back({L"Size", std::to_wstring(script.bytes) + L" bytes"});
    facts.push_back({L"SHA-256", script.sha256});
  }
  sheet.note = L"kiv-resolve fetched the script once more, directly and without credentials.";
}

Sheet certificatesSheet(const ProbeFindings& probe) {
  Sheet sheet{L"certificates", L"Certificates"};
  for (const RouteFindings& route : probe.routes) addCertificate(route, sheet);
  if (sheet.groups.empty()) {
    sheet.note = L"No route showed a certificate.";
  } else if (probe.inspectionLikely) {
    sheet.note =
        L"TLS inspection is likely: for one host, one route has a root that was installed on this machine, "
        L"and another one a public root.";
  }
  return sheet;
}

template <class Add>
Sheet sheetOf(const ProbeFindings& probe, const wchar_t* kind, const wchar_t* heading, const wchar_t* none, Add add) {
  Sheet sheet{kind, heading};
  for (const RouteFindings& route : probe.routes) add(route, sheet);
  if (sheet.groups.empty()) sheet.note = none;
  return sheet;
}

}  // namespace

std::wstring responseText(const RouteFindings& route) {
  if (route.status < 0) return L"failed: " + errorText(route.error);
  const std::wstring status = std::to_wstring(route.status);
  return route.isAnsweredElsewhere() ? status + L", but from " + route.finalHost : status;
}

ThisRun shownRun(Redaction* redaction) {
  ThisRun run = readThisRun();
  run.account = presentable(run.account);
  run.computer = presentable(run.computer);
  if (redaction) redact(run, *redaction);
  return run;
}

Sheet whoSheet(const ThisRun& run, WallTime when) {
  return {L"who",
          L"Who, where and when",
          {{L"",
            {{L"User", run.account + (run.elevated.value_or(false) ? L" (elevated)" : L"")},
             {L"Session", run.session ? std::to_wstring(*run.session) : L""},
             {L"Computer", run.computer},
             {L"Time", timeText(when)}}}}};
}

Sheet whoSheet(const Resolution& resolution, const ThisRun& run) {
  Sheet sheet = whoSheet(run, resolution.began);
  sheet.groups.front().facts.push_back({L"Took", durationText(resolution.duration)});
  return sheet;
}

Sheet bypassSheet(const Resolution& resolution) {
  const Bypass& bypass = resolution.bypass;
  const std::wstring entry = bypass.entry.empty() ? L"" : L": " + bypass.entry;
  return {L"bypass",
          L"Bypass list",
          {{L"",
            {{L"List", bypass.list + (bypass.given ? L" (from --bypass)" : L"")},
             {L"For this URL", bypass.matches ? L"matches" + entry : L"does not match"}}}}};
}

Sheet discoverySheet(const Resolution& resolution) {
  Sheet sheet{L"discovery",
              L"Discovery",
              {{L"",
                {{L"Automatic detection (WPAD)", resolution.settings.automaticDetection ? L"on" : L"off"},
                 {L"Finding candidates", (resolution.discoveryFailed ? L"failed after " : L"took ") +
                                             durationText(resolution.discoveryDuration)}}}}};
  if (!resolution.probe) return sheet;
  if (resolution.probe->script) {
    addScript(*resolution.probe->script, sheet);
  } else {
    sheet.groups.front().facts.push_back({L"Script URL", L""});
  }
  return sheet;
}

std::vector<Sheet> probeSheets(const Resolution& resolution) {
  if (!resolution.probe) return {};
  const ProbeFindings& probe = *resolution.probe;
  Sheet phases{L"phases", L"Phases", {}, probe.routes.empty() ? L"No route was tested." : kPhasesNote};
  for (const RouteFindings& route : probe.routes) phases.groups.push_back(phasesOf(route));
  return {phases,
          sheetOf(probe, L"authentication", L"Authentication", L"Nobody asked for credentials.", addAuthentication),
          certificatesSheet(probe), sheetOf(probe, L"redirects", L"Redirects", L"No redirects.", addRedirects)};
}

Sheet versionsSheet(const ThisRun& run) {
  return {L"versions",
          L"Versions",
          {{L"",
            {{L"kiv-resolve", toWide(KIV_VERSION)},
             {L"kiv.dll", versionOf(L"kiv.dll")},
             {L"Windows", run.windows},
             {L"winhttp.dll", versionOf(L"winhttp.dll")}}}}};
}

Sheet removedSheet(const Redaction* redaction) {
  return {L"removed",
          L"What was removed",
          {},
          kAlwaysRemoved + (redaction ? L"With --redact: " + redaction->summary() + L"." : std::wstring(kStillHere))};
}

}  // namespace kiv::tool
