// What the checks found, and what was expected.
#include "results/results.h"

#include <algorithm>
#include <array>

namespace selfcheck {
namespace {

// In the order of the verdicts.
constexpr std::array<std::string_view, 4> kIds = {"pass", "fail", "fact", "skipped"};

template <class Predicate>
std::size_t countIf(const Results& results, Predicate predicate) {
  std::size_t count = 0;
  for (const ResultGroup& group : results.groups) {
    count += static_cast<std::size_t>(std::ranges::count_if(group.results, predicate));
  }
  return count;
}

}  // namespace

std::string_view idOf(Verdict verdict) { return kIds[static_cast<std::size_t>(verdict)]; }

std::optional<Verdict> verdictOf(std::string_view id) {
  const auto found = std::ranges::find(kIds, id);
  if (found == kIds.end()) return std::nullopt;
  return static_cast<Verdict>(found - kIds.begin());
}

bool isUnexpected(const Result& result, bool compared) {
  if (!compared) return result.finding.verdict == Verdict::Fail;
  return !result.expected || result.expected->verdict != result.finding.verdict ||
         result.expected->text != result.finding.text;
}

bool isAsExpected(const Results& results) { return unexpectedCount(results) == 0; }

std::size_t countOf(const Results& results, Verdict verdict) {
  return countIf(results, [&](const Result& result) { return result.finding.verdict == verdict; });
}

std::size_t unexpectedCount(const Results& results) {
  return results.notChecked.size() +
         countIf(results, [&](const Result& result) { return isUnexpected(result, results.compared); });
}

}  // namespace selfcheck
