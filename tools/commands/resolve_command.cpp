// kiv-resolve [resolve] URL: diagnoses how the current user reaches a URL.
#include <algorithm>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/resolution_report.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/output_files.h"
#include "resolve/choices.h"
#include "resolve/json_document.h"
#include "resolve/request_options.h"
#include "resolve/resolution_probe.h"
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
    {"--probe", &Written::probe,
     "Also look at each tested route: slow phases, certificates, TLS inspection, redirects"},
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
  const bool found = outcome.kind == OutcomeKind::Proxy || outcome.kind == OutcomeKind::Direct;
  return found || outcome.kind == OutcomeKind::NotTested ? kDone : kNoneFound;
}

int run(const Written& written, const RequestOptions& options, const std::vector<Target>& targets) {
  OutputFiles files(written.trace, written.report);
  if (!files.check()) return kFileNotWritten;
  Display display(detailOf(written));
  std::vector<Resolution> resolutions;
  int worst = kDone;
  for (const Target& target : targets) {
    resolutions.push_back(resolve(options, taskOf(written), target, display, files.trace()));
    if (wantsProbe(written)) resolutions.back().probe = probed(options, target, resolutions.back(), display);
    findInspection(resolutions);
    const Resolution& resolution = resolutions.back();
    showProbe(written, resolution);
    worst = std::max(worst, exitCodeOf(resolution.outcome));
    if (resolution.outcome.kind == OutcomeKind::NotCarriedOut) complain(kNotCompleted);
    if (!written.json) print(Stream::Output, outputOf(written, resolution));
  }
  if (written.json)
    print(Stream::Output, toWide(jsonDocument(taskOf(written), options.redaction != nullptr, resolutions)));
  writeReport(files, options, resolutions);
  return files.check() ? worst : kFileNotWritten;
}

std::string commandsText() {
  std::string text = "Commands (kiv-resolve COMMAND --help explains one):\n";
  for (const Command& command : commands()) {
    std::string name = toUtf8(command.name);
    name.resize(10, ' ');
    text += "  " + name + toUtf8(command.use) + "\n";
  }
  return text;
}

}  // namespace

int resolveCommand(ArgumentList arguments) {
  Written written;
  WrittenRequest request;
  CommandLine commandLine("kiv-resolve",
                          "Finds the proxy that works for a URL, or a direct connection, and shows why.");
  commandLine.add(kTargets, written);
  addRequestOptions(commandLine, request);
  addRedaction(commandLine, request);
  commandLine.add(kOutputFlags, written);
  commandLine.add(kOutputFiles, written);
  commandLine.version("kiv-resolve " KIV_VERSION);
  commandLine.footer(commandsText() +
                     "\n"
                     "The candidates come from --prefer, the user's proxy settings (automatic detection\n"
                     "with WPAD, PAC script, manual proxy list) and --fallback.\n"
                     "Standard output: the outcome: a proxy, DIRECT or NONE (with -, after the URL).\n"
                     "Standard error: the log and a table of the candidates, without colours if the\n"
                     "environment variable NO_COLOR is not empty.\n"
                     "Passwords on the command line can be read by other programs of this user while\n"
                     "kiv-resolve runs, and are not erased from its memory. --prompt, a user name\n"
                     "without a password and --proxy-cred-from avoid both.\n"
                     "kiv-resolve --completion powershell prints a script that completes command lines.\n"
                     "Exit codes: 0 a route was found, 2 none was found (for at least one URL),\n"
                     "            64 wrong usage, 71 out of resources, 74 a file could not be written.");
  if (const auto exit = commandLine.parse(arguments, [&] { return contradictionIn(written); })) return leave(*exit);
  const auto targets = readTargets(commandLine, *written.url);
  if (!targets) return kBadUsage;
  const auto options = readRequestOptions(commandLine, request);
  if (!options) return kBadUsage;
  return run(written, *options, *targets);
}

}  // namespace kiv::tool
