// kiv-resolve compare A.json B.json: shows two results side by side.
#include <string>
#include <variant>

#include "commands/commands.h"
#include "common/console.h"
#include "common/exits.h"
#include "compare/comparison.h"
#include "compare/document_file.h"

namespace kiv::tool {
namespace {

constexpr int kDifferent = 1;

struct Written {
  Value left;
  Value right;
  bool json = false;
};

constexpr ValueOption<Written> kFiles[] = {
    {"A.json", &Written::left, "", mustNameAFile, "What kiv-resolve sources --json, or resolve --json, printed"},
    {"B.json", &Written::right, "", mustNameAFile, "The same of another machine, user or day"},
};
constexpr Flag<Written> kFlags[] = {
    {"--json", &Written::json, "Print one JSON document and nothing else"},
};

int wrongInput(const DocumentProblem& problem) {
  complain(problem.text);
  return kBadUsage;
}

int run(const Written& written) {
  const auto left = readDocumentFile(std::wstring(*written.left));
  if (const auto* const problem = std::get_if<DocumentProblem>(&left)) return wrongInput(*problem);
  const auto right = readDocumentFile(std::wstring(*written.right));
  if (const auto* const problem = std::get_if<DocumentProblem>(&right)) return wrongInput(*problem);
  const auto compared = compareDocuments(std::get<std::string>(left), std::get<std::string>(right));
  if (const auto* const problem = std::get_if<DocumentProblem>(&compared)) return wrongInput(*problem);
  const auto& comparison = std::get<Comparison>(compared);
  print(Stream::Output, written.json ? toWide(comparisonDocument(comparison))
                                     : comparisonText(comparison, consoleWidth(Stream::Output)));
  return comparison.same() ? kDone : kDifferent;
}

}  // namespace

int compareCommand(ArgumentList arguments) {
  Written written;
  CommandLine commandLine("kiv-resolve compare", "Shows two results of kiv-resolve side by side.");
  commandLine.add(kFiles, written);
  commandLine.add(kFlags, written);
  commandLine.footer(
      "Times and durations are not compared, nor the machine and the account.\n"
      "Exit codes: 0 no difference, 1 they differ, 64 wrong usage or no such document,\n"
      "            71 out of resources.");
  if (const auto exit = commandLine.parse(arguments)) return leave(*exit);
  return run(written);
}

}  // namespace kiv::tool
