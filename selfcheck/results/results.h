// What the checks found, and what was expected.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "checks/check.h"

namespace selfcheck {

struct Result {
  std::string_view name;
  std::string_view question;
  Finding finding;
  // What the baseline says; nothing if it does not know the check.
  std::optional<Finding> expected{};
};

struct ResultGroup {
  std::string_view title;
  std::vector<Result> results;
};

struct Results {
  std::string windows;  // its version: "10.0.26100"
  std::string wine;     // the version of Wine, where it is that; empty on Windows
  std::vector<ResultGroup> groups{};
  bool compared = false;                  // with a baseline
  std::vector<std::string> notChecked{};  // what the baseline has, and this program no longer
};

// "pass", "fail", "fact", "skipped": in every output.
std::string_view idOf(Verdict verdict);
std::optional<Verdict> verdictOf(std::string_view id);

// With a baseline, what differs from it. Without one, what failed.
bool isUnexpected(const Result& result, bool compared);
bool isAsExpected(const Results& results);
std::size_t countOf(const Results& results, Verdict verdict);
// What is not checked any more counts too.
std::size_t unexpectedCount(const Results& results);

}  // namespace selfcheck
