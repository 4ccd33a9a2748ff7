// kiv-resolve [resolve] URL: diagnoses how the current user reaches a URL.
#include <algorithm>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "commands/commands.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/output_file.h"
#include "resolve/choices.h"
#include "resolve/html_report.h"
#include "resolve/json_document.h"
#include "resolve/request_options.h"
#include "resolve/resolution_run.h"
#include "resolve/table.h"
#include "resolve/text_report.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

// The options as written.
struct Written {
  Value url;
  bool quiet = false;
  bool brief = false;
  bool json = false;
  bool probe = false;
  bool showSettings = false;
  bool candidatesOnly = false;
  Value trace;
  Value report;
};

constexpr ValueOption<Written> kTargets[] = {
    {"URL", &Written::url, "", mustBeUrlOrInput, "The http or https URL to reach; - reads URLs from standard input"},
};
constexpr Flag<Written> kOutputFlags[] = {
    {"--show-settings", &Written::showSettings, "Print the proxy settings and candidates; test nothing"},
    {"--candidates-only", &Written::candidatesOnly, "Print the candidates in order; test nothing"},
    {"--brief", &Written::brief, "Show a line per candidate instead of the log"},
    {"--quiet", &Written::quiet, "Print the outcome and nothing else"},
    {"--probe", &Written::probe, "Also measure each tested route, with a request of the tool's own"},
    {"--json", &Written::json, "Print one JSON document and nothing else"},
};
constexpr ValueOption<Written> kOutputFiles[] = {
    {"--trace", &Written::trace, "FILE", mustNameAFile, "Write the log to a file, as JSON lines"},
    {"--report", &Written::report, "FILE", mustNameAFile, "Write a report with a probe: FILE.html, or FILE.txt"},
};

std::string contradictionIn(const Written& written) {
  if (written.showSettings && written.candidatesOnly) return "--show-settings excludes --candidates-only";
  if (written.probe && written.showSettings) return "--probe excludes --show-settings";
  if (written.probe && written.candidatesOnly) return "--probe excludes --candidates-only";
  return written.brief && written.quiet ? "--brief excludes --quiet" : "";
}

Task taskOf(const Written& written) {
  if (written.showSettings) return Task::ShowSettings;
  return written.candidatesOnly ? Task::ListCandidates : Task::Resolve;
}

Detail detailOf(const Written& written) {
  if (written.quiet || written.json || taskOf(written) != Task::Resolve) return Detail::Nothing;
  return written.brief ? Detail::Brief : Detail::Log;
}

// A report is about all that can be known.
bool wantsProbe(const Written& written) {
  return written.probe || (written.report && taskOf(written) == Task::Resolve);
}

// The probe's findings are on the console only if it was requested there.
void showProbe(const Written& written, const Resolution& resolution) {
  if (written.probe && detailOf(written) != Detail::Nothing) print(Stream::Error, probeText(resolution));
}

std::string reportOn(const Written& written, const std::vector<Resolution>& resolutions) {
  return written.report->ends_with(L".txt") ? textReport(resolutions) : htmlReport(resolutions);
}

// With several URLs each line of the output begins with its URL.
std::wstring underUrl(const Resolution& resolution, const std::wstring& lines) {
  std::wstring text;
  for (std::size_t at = 0; at < lines.size();) {
    const std::size_t end = lines.find(L'\n', at) + 1;
    text += resolution.url + L'\t' + lines.substr(at, end - at);
    at = end;
  }
  return text;
}

std::wstring outputOf(const Written& written, const Resolution& resolution) {
  if (written.showSettings) return settingsText(resolution);
  const std::wstring lines = written.candidatesOnly ? candidatesText(resolution) : resolution.outcome.text + L"\n";
  return written.url == kFromInput ? underUrl(resolution, lines) : lines;
}

int exitCodeOf(const Outcome& outcome) {
  return outcome.kind == OutcomeKind::None || outcome.kind == OutcomeKind::NotCarriedOut ? kNoneFound : kDone;
}

// Creates the files before the first resolution, so that a wrong file name is reported immediately.
class Files {
 public:
  explicit Files(const Written& written) {
    if (written.trace) trace_.emplace(std::wstring(*written.trace));
    if (written.report) report_.emplace(std::wstring(*written.report));
  }

  OutputFile* trace() { return trace_ ? &*trace_ : nullptr; }
  OutputFile* report() { return report_ ? &*report_ : nullptr; }

  // Whether all files could be written; complains if not.
  bool check() {
    bool good = true;
    for (const OutputFile* file : {trace(), report()}) {
      if (!file || file->problem().empty()) continue;
      complain(file->problem());
      good = false;
    }
    return good;
  }

 private:
  std::optional<OutputFile> trace_;
  std::optional<OutputFile> report_;
};

int run(const Written& written, const RequestOptions& options, const std::vector<Target>& targets) {
  Files files(written);
  if (!files.check()) return kFileNotWritten;
  Display display(detailOf(written));
  std::vector<Resolution> resolutions;
  int worst = kDone;
  for (const Target& target : targets) {
    resolutions.push_back(
        ResolutionRun(options, taskOf(written), target, display, files.trace()).resolve(wantsProbe(written)));
    findInspection(resolutions);
    const Resolution& resolution = resolutions.back();
    showProbe(written, resolution);
    worst = std::max(worst, exitCodeOf(resolution.outcome));
    if (resolution.outcome.kind == OutcomeKind::NotCarriedOut) complain(kNotCompleted);
    if (!written.json) print(Stream::Output, outputOf(written, resolution));
  }
  if (written.json) print(Stream::Output, toWide(jsonDocument(taskOf(written), resolutions)));
  if (files.report()) files.report()->write(reportOn(written, resolutions));
  return files.check() ? worst : kFileNotWritten;
}

}  // namespace

int resolveCommand(ArgumentList arguments) {
  Written written;
  WrittenRequest request;
  CommandLine commandLine("kiv-resolve",
                          "Finds the proxy that works for a URL, or a direct connection, and shows why.");
  commandLine.add(kTargets, written);
  addRequestOptions(commandLine, request);
  commandLine.add(kOutputFlags, written);
  commandLine.add(kOutputFiles, written);
  commandLine.version("kiv-resolve " KIV_VERSION);
  commandLine.footer(
      "The candidates come from --prefer, the user's proxy settings (automatic detection\n"
      "with WPAD, PAC script, manual proxy list) and --fallback.\n"
      "Standard output: the outcome: a proxy, DIRECT or NONE (with -, after the URL).\n"
      "Standard error: the log and a table of the candidates, without colours if the\n"
      "environment variable NO_COLOR is not empty.\n"
      "Passwords on the command line can be read by other programs of this user while\n"
      "kiv-resolve runs, and are not erased from its memory. --prompt avoids both.\n"
      "Exit codes: 0 a route was found, 2 none was found (for at least one URL),\n"
      "            64 wrong usage, 71 out of resources, 74 a file could not be written.");
  if (const auto exit = commandLine.parse(arguments, [&] { return contradictionIn(written); })) return leave(*exit);
  const auto targets = readTargets(*written.url);
  if (const auto* const problem = std::get_if<std::string>(&targets)) return leave(commandLine.badUsage(*problem));
  return run(written, readRequestOptions(request), std::get<std::vector<Target>>(targets));
}

}  // namespace kiv::tool
