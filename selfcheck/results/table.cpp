// Results as text for a console.
#include "results/table.h"

namespace selfcheck {
namespace {

std::string labelled(std::string_view label, std::string_view text) {
  constexpr std::size_t kLabelWidth = 12;
  std::string line("  ");
  line.append(label).resize(kLabelWidth, ' ');
  return line.append(text).append("\n");
}

std::string counted(std::size_t count, std::string_view what) { return std::to_string(count).append(" ").append(what); }

}  // namespace

std::string titleText(std::string_view title) { return std::string("\n").append(title).append("\n"); }

std::string lineText(const Result& result, bool compared) {
  std::string text = labelled(idOf(result.finding.verdict), result.question) +
                     labelled("", result.finding.text + " (" + std::string(result.name) + ")");
  if (!compared || !isUnexpected(result, compared)) return text;
  if (!result.expected) return text + labelled("", "UNEXPECTED: the baseline does not have this check.");
  return text + labelled("", "UNEXPECTED: the baseline says " + std::string(idOf(result.expected->verdict)) + ": " +
                                 result.expected->text);
}

std::string summaryText(const Results& results) {
  std::string notChecked;
  for (const std::string& name : results.notChecked) {
    notChecked += labelled("", "UNEXPECTED: the baseline has a check that this program lacks: " + name);
  }
  std::string text =
      counted(countOf(results, Verdict::Pass), "passed, ") + counted(countOf(results, Verdict::Fail), "failed, ") +
      counted(countOf(results, Verdict::Fact), "facts, ") + counted(countOf(results, Verdict::Skipped), "skipped");
  if (results.compared) text += "; " + counted(unexpectedCount(results), "not as in the baseline");
  return notChecked + "\n" + text + "\n";
}

}  // namespace selfcheck
