// What the checks are expected to find: an earlier result, which was looked at.
#include "results/baseline.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace selfcheck {

Baseline::Baseline(const std::string& document) try {
  const auto results = nlohmann::json::parse(document);
  for (const auto& group : results.at("groups")) {
    for (const auto& check : group.at("checks")) {
      const auto verdict = verdictOf(check.at("verdict").get<std::string>());
      if (!verdict) throw std::invalid_argument("it has an unknown verdict");
      findings_[check.at("name")] = {*verdict, check.at("text")};
    }
  }
} catch (const nlohmann::json::exception&) {
  throw std::invalid_argument("it is no result of kiv-selfcheck --json");
}

std::optional<Finding> Baseline::of(std::string_view check) const {
  const auto found = findings_.find(check);
  return found == findings_.end() ? std::nullopt : std::optional(found->second);
}

std::vector<std::string> Baseline::missingIn(const Results& results) const {
  std::vector<std::string> missing;
  for (const auto& entry : findings_) {
    const std::string& name = entry.first;
    const auto has = [&](const ResultGroup& group) {
      return std::ranges::count(group.results, name, &Result::name) > 0;
    };
    if (std::ranges::none_of(results.groups, has)) missing.push_back(name);
  }
  return missing;
}

}  // namespace selfcheck
