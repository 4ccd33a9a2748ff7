// What the checks are expected to find: an earlier result, which was looked at.
#pragma once

#include <map>
#include <string>

#include "checks/check.h"
#include "results/results.h"

namespace selfcheck {

class Baseline {
 public:
  // A document as --json writes it. Throws std::invalid_argument with what is wrong with it.
  explicit Baseline(const std::string& document);

  std::optional<Finding> of(std::string_view check) const;
  // Those of its checks that did not run.
  std::vector<std::string> missingIn(const Results& results) const;

 private:
  std::map<std::string, Finding, std::less<>> findings_;
};

}  // namespace selfcheck
