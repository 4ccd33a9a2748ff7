// kiv-resolve compare A.json B.json: shows two results side by side.
#include <string>
#include <variant>

#include "commands/commands.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/output_files.h"
#include "common/presentable.h"
#include "compare/comparison.h"
#include "compare/comparison_page.h"
#include "compare/document_file.h"
#include "resolve/report.h"
#include "resolve/request_options.h"

namespace kiv::tool {
namespace {

constexpr int kDifferent = 1;

struct Written {
  Value left;
  Value right;
  bool json = false;
  Value report;
};

constexpr ValueOption<Written> kFiles[] = {
    {"A.json", &Written::left, "", mustNameAFile, "What kiv-resolve sources --json, or resolve --json, printed"},
    {"B.json", &Written::right, "", mustNameAFile, "The same of another machine, user or day"},
};
constexpr Flag<Written> kFlags[] = {
    {"--json", &Written::json, "Print one JSON document and nothing else"},
};
constexpr ValueOption<Written> kReports[] = {
    {"--report", &Written::report, "FILE", mustNameAFile, "Also write it to a file: text to FILE.txt, else HTML"},
};
constexpr const char* kNothingAsked = "compare reads two files, and asks nobody";
constexpr Refused kRefused[] = {
    {"--trace", kNothingAsked},
    {"--max-time", kNothingAsked},
    {"--attempt-time", kNothingAsked},
    {"--proxy-cred", kNothingAsked},
    {"--proxy-cred-from", kNothingAsked},
    {"--server-cred", kNothingAsked},
    {"--server-cred-from", kNothingAsked},
};

int wrongInput(const DocumentProblem& problem) {
  complain(problem.text);
  return kBadUsage;
}

// Wide, because nobody knows how wide the console of its readers is.
std::string reportOf(const Written& written, const Comparison& comparison, Redaction* redaction) {
  constexpr std::size_t kWidth = 120;
  if (isTextReport(*written.report)) return toUtf8(comparisonText(comparison, kWidth));
  const std::wstring subject = presentable(std::wstring(*written.left) + L" and " + std::wstring(*written.right));
  return comparisonPage(comparison, redaction ? (*redaction)(subject) : subject, redaction);
}

int run(const Written& written, Redaction* redaction) {
  const auto left = readDocumentFile(std::wstring(*written.left));
  if (const auto* const problem = std::get_if<DocumentProblem>(&left)) return wrongInput(*problem);
  const auto right = readDocumentFile(std::wstring(*written.right));
  if (const auto* const problem = std::get_if<DocumentProblem>(&right)) return wrongInput(*problem);
  const auto compared = compareDocuments(std::get<std::string>(left), std::get<std::string>(right), redaction);
  if (const auto* const problem = std::get_if<DocumentProblem>(&compared)) return wrongInput(*problem);
  const auto& comparison = std::get<Comparison>(compared);
  OutputFiles files({}, written.report);
  if (!files.check()) return kFileNotWritten;
  print(Stream::Output, written.json ? toWide(comparisonDocument(comparison))
                                     : comparisonText(comparison, consoleWidth(Stream::Output)));
  if (files.report()) files.report()->write(reportOf(written, comparison, redaction));
  if (!files.check()) return kFileNotWritten;
  return comparison.same() ? kDone : kDifferent;
}

}  // namespace

int compareCommand(ArgumentList arguments) {
  Written written;
  WrittenRequest request;
  CommandLine commandLine("kiv-resolve compare", "Shows two results of kiv-resolve side by side.");
  commandLine.add(kFiles, written);
  addRedaction(commandLine, request);
  commandLine.add(kFlags, written);
  commandLine.add(kReports, written);
  commandLine.refuse(kRefused);
  commandLine.footer(
      "Times and durations are not compared, nor the machine and the account.\n"
      "With --redact, a name of both files gets the same word. Files that were written\n"
      "with --redact have words of their own: what differs may be equal.\n" +
      std::string(kAsAnotherAccount) +
      "Exit codes: 0 no difference, 1 they differ, 64 wrong usage or no such document,\n"
      "            71 out of resources, 74 the report could not be written.");
  if (const auto exit = commandLine.parse(arguments)) return leave(*exit);
  const auto options = readRequestOptions(commandLine, request);
  return options ? run(written, options->redaction.get()) : kBadUsage;
}

}  // namespace kiv::tool
