// Results for programs: a JSON document, which docs/kiv-selfcheck.schema.json describes. It is a baseline too.
#include "results/json.h"

#include <nlohmann/json.hpp>

namespace selfcheck {
namespace {

using Json = nlohmann::ordered_json;

Json checkOf(const Result& result, bool compared) {
  return {{"name", result.name},
          {"question", result.question},
          {"verdict", idOf(result.finding.verdict)},
          {"text", result.finding.text},
          {"unexpected", isUnexpected(result, compared)}};
}

Json groupOf(const ResultGroup& group, bool compared) {
  Json checks = Json::array();
  for (const Result& result : group.results) checks.push_back(checkOf(result, compared));
  return {{"title", group.title}, {"checks", checks}};
}

Json countsOf(const Results& results) {
  Json counts;
  for (const Verdict verdict : {Verdict::Pass, Verdict::Fail, Verdict::Fact, Verdict::Skipped}) {
    counts[std::string(idOf(verdict))] = countOf(results, verdict);
  }
  counts["unexpected"] = unexpectedCount(results);
  return counts;
}

}  // namespace

std::string jsonText(const Results& results) {
  Json groups = Json::array();
  for (const ResultGroup& group : results.groups) groups.push_back(groupOf(group, results.compared));
  const Json document = {
      {"program", "kiv-selfcheck"},       {"version", KIV_VERSION},
      {"windows", results.windows},       {"wine", results.wine.empty() ? Json(nullptr) : Json(results.wine)},
      {"compared", results.compared},     {"counts", countsOf(results)},
      {"notChecked", results.notChecked}, {"groups", groups}};
  return document.dump(2) + "\n";
}

}  // namespace selfcheck
