// What probes found, for programs: a part of the JSON document.
#include "resolve/probe_json.h"

#include <windows.h>

#include <winhttp.h>

#include <array>
#include <string_view>

#include "common/console.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

using Json = nlohmann::ordered_json;

// In the order of the enumerators.
constexpr std::array<std::string_view, 6> kPhaseIds = {"name", "connection", "tunnel", "tls", "sending", "first-byte"};
constexpr std::array<std::string_view, 4> kRootIds = {"public", "installed", "untrusted", "missing"};

struct FlagId {
  unsigned flag;
  std::string_view id;
};

constexpr FlagId kProblemIds[] = {
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_REV_FAILED, "revocation-not-checked"},
    {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CERT, "invalid"},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED, "revoked"},
    {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA, "authority-not-trusted"},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID, "other-host"},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID, "out-of-date"},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_WRONG_USAGE, "wrong-usage"},
    {WINHTTP_CALLBACK_STATUS_FLAG_SECURITY_CHANNEL_ERROR, "tls-failed"},
};

constexpr FlagId kSchemeIds[] = {
    {WINHTTP_AUTH_SCHEME_NEGOTIATE, "negotiate"}, {WINHTTP_AUTH_SCHEME_NTLM, "ntlm"},
    {WINHTTP_AUTH_SCHEME_DIGEST, "digest"},       {WINHTTP_AUTH_SCHEME_BASIC, "basic"},
    {WINHTTP_AUTH_SCHEME_PASSPORT, "passport"},
};

template <std::size_t count>
Json listed(const FlagId (&ids)[count], unsigned flags) {
  Json list = Json::array();
  for (const FlagId& id : ids) {
    if (flags & id.flag) list.push_back(id.id);
  }
  return list;
}

Json listed(const std::vector<std::wstring>& texts) {
  Json list = Json::array();
  for (const std::wstring& text : texts) list.push_back(toUtf8(text));
  return list;
}

long long inMilliseconds(microseconds time) { return std::chrono::duration_cast<milliseconds>(time).count(); }

Json phaseOf(const Phase& phase) {
  Json json = {{"phase", kPhaseIds[static_cast<std::size_t>(phase.kind)]},
               {"milliseconds", inMilliseconds(phase.duration)},
               {"completed", phase.completed}};
  if (!phase.address.empty()) json["address"] = toUtf8(phase.address);
  return json;
}

Json challengeOf(const Challenge& challenge) {
  Json json = {{"by", challenge.byProxy ? "proxy" : "server"}, {"offered", listed(kSchemeIds, challenge.offered)}};
  if (!challenge.used) return json;
  json["used"] = listed(kSchemeIds, *challenge.used).at(0);
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
          {"root", kRootIds[static_cast<std::size_t>(certificate.root)]},
          {"rootName", toUtf8(certificate.rootName)},
          {"problems", listed(kProblemIds, certificate.problems)},
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
  json["milliseconds"] = inMilliseconds(route.duration);
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
