// What probes found, for programs: a part of the JSON document.
#include "resolve/probe_json.h"

#include "common/console.h"
#include "resolve/probe_words.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

using Json = nlohmann::ordered_json;

template <std::size_t count>
Json listed(const FlagWords (&table)[count], unsigned flags) {
  Json list = Json::array();
  for (const FlagWords& each : table) {
    if (flags & each.flag) list.push_back(each.words.id);
  }
  return list;
}

Json listed(const std::vector<std::wstring>& texts) {
  Json list = Json::array();
  for (const std::wstring& text : texts) list.push_back(toUtf8(text));
  return list;
}

long long wholeMilliseconds(microseconds time) { return std::chrono::duration_cast<milliseconds>(time).count(); }

Json phaseOf(const Phase& phase) {
  Json json = {{"phase", wordsOf(kPhaseWords, phase.kind).id},
               {"milliseconds", wholeMilliseconds(phase.duration)},
               {"completed", phase.completed}};
  if (!phase.address.empty()) json["address"] = toUtf8(phase.address);
  return json;
}

Json challengeOf(const Challenge& challenge) {
  Json json = {{"by", challenge.byProxy ? "proxy" : "server"}, {"offered", listed(kSchemeWords, challenge.offered)}};
  if (!challenge.used) return json;
  json["used"] = listed(kSchemeWords, *challenge.used).at(0);
  json["asLoggedOnUser"] = challenge.asLoggedOnUser;
  json["accepted"] = challenge.accepted;
  return json;
}

Json certificateOf(const Certificate& certificate) {
  return {{"host", toUtf8(certificate.host)},
          {"subject", toUtf8(certificate.subject)},
          {"issuer", toUtf8(certificate.issuer)},
          {"notBefore", toUtf8(timeText(certificate.notBefore))},
          {"notAfter", toUtf8(timeText(certificate.notAfter))},
          {"sha256", toUtf8(certificate.sha256)},
          {"root", wordsOf(kRootWords, certificate.root).id},
          {"rootName", toUtf8(certificate.rootName)},
          {"problems", listed(kProblemWords, certificate.problems)},
          {"refused", certificate.refused}};
}

Json addressesOf(const Addresses& addresses) {
  Json json = {{"host", toUtf8(addresses.host)}, {"ipv4", listed(addresses.ipv4)}, {"ipv6", listed(addresses.ipv6)}};
  if (addresses.error) json["error"] = addresses.error;
  return json;
}

Json routeOf(const RouteFindings& route) {
  Json json = {{"route", toUtf8(route.route)}};
  if (route.candidate) json["candidate"] = *route.candidate;
  if (!route.notProbed.empty()) {
    json["notProbed"] = toUtf8(route.notProbed);
    return json;
  }
  json["addresses"] = addressesOf(route.addresses);
  json["phases"] = Json::array();
  for (const Phase& phase : route.phases) json["phases"].push_back(phaseOf(phase));
  json["milliseconds"] = wholeMilliseconds(route.duration);
  json["status"] = route.status < 0 ? Json(nullptr) : Json(route.status);
  if (route.error) json["error"] = route.error;
  json["redirects"] = listed(route.redirects);
  if (!route.finalHost.empty()) json["finalHost"] = toUtf8(route.finalHost);
  json["challenges"] = Json::array();
  for (const Challenge& challenge : route.challenges) json["challenges"].push_back(challengeOf(challenge));
  if (route.certificate) json["certificate"] = certificateOf(*route.certificate);
  return json;
}

Json scriptOf(const ScriptFindings& script) {
  Json json = {{"url", toUtf8(script.url)}, {"source", script.fromDetection ? "detection" : "settings"}};
  if (script.status >= 0) json["status"] = script.status;
  if (script.error) {
    json["error"] = script.error;
    return json;
  }
  json["type"] = toUtf8(script.type);
  json["bytes"] = script.bytes;
  json["sha256"] = toUtf8(script.sha256);
  return json;
}

}  // namespace

nlohmann::ordered_json probeJson(const ProbeFindings& probe) {
  Json json = {{"tlsInspectionLikely", probe.inspectionLikely}, {"routes", Json::array()}};
  for (const RouteFindings& route : probe.routes) json["routes"].push_back(routeOf(route));
  if (probe.script) json["script"] = scriptOf(*probe.script);
  return json;
}

}  // namespace kiv::tool
