// The JSON document of `kiv-resolve env --json`.
#include "environment/json_environment.h"

#include <nlohmann/json.hpp>

#include "common/console.h"
#include "resolve/json_document.h"

namespace kiv::tool {
namespace {

using Json = nlohmann::ordered_json;

Json textOrNull(std::wstring_view text) { return text.empty() ? Json(nullptr) : Json(toUtf8(text)); }

Json textsOf(const std::vector<std::wstring>& texts) {
  Json list = Json::array();
  for (const std::wstring& text : texts) list.push_back(toUtf8(text));
  return list;
}

Json variablesOf(const EnvironmentResult& result) {
  Json list = Json::array();
  if (result.routes.empty()) return list;
  for (const Variable& variable : variablesFor(result.routes, noProxyText(result.exceptions))) {
    list.push_back({{"name", toUtf8(variable.name)},
                    {"value", variable.value ? Json(toUtf8(viewOf(*variable.value))) : Json(nullptr)}});
  }
  return list;
}

Json exceptionsOf(const std::vector<BypassEntry>& entries) {
  Json list = Json::array();
  for (const BypassEntry& entry : entries) {
    list.push_back(
        {{"entry", toUtf8(entry.text)}, {"becomes", textOrNull(entry.becomes)}, {"reason", textOrNull(entry.reason)}});
  }
  return list;
}

Json answersOf(const std::vector<Finding>& findings) {
  Json list = Json::array();
  for (const Finding& finding : findings) {
    if (!finding.answer) continue;
    const int status = finding.answer->status;
    list.push_back({{"url", toUtf8(finding.resolution.url)},
                    {"proxy", toUtf8(finding.resolution.outcome.text)},
                    {"status", status == 0 ? Json(nullptr) : Json(status)},
                    {"schemes", textsOf(finding.answer->schemes)}});
  }
  return list;
}

}  // namespace

std::string jsonDocument(const EnvironmentResult& result) {
  std::vector<Resolution> resolutions;
  for (const Finding& finding : result.findings) resolutions.push_back(finding.resolution);
  Json document = documentOf("env", false, resolutions);
  document["environment"] = {{"for", toUtf8(nameOf(result.reader))},  {"lines", textsOf(result.lines.lines)},
                             {"variables", variablesOf(result)},      {"exceptions", exceptionsOf(result.exceptions)},
                             {"answers", answersOf(result.findings)}, {"remarks", textsOf(result.remarks)}};
  return textOf(document);
}

}  // namespace kiv::tool
