// kiv-resolve sources [URL]: shows every place that names a proxy, and what applies.
#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "commands/commands.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/output_files.h"
#include "resolve/report.h"
#include "resolve/request_options.h"
#include "resolve/resolution_run.h"
#include "sources/redacted.h"
#include "sources/sources.h"
#include "sources/sources_json.h"
#include "sources/sources_page.h"
#include "sources/sources_text.h"

namespace kiv::tool {
namespace {

constexpr int kWarnings = 1;

struct Written {
  Value url;
  bool json = false;
  Value trace;
  Value report;
};

constexpr ValueOption<Written> kTargets[] = {
    {"[URL]", &Written::url, "", mustBeUrl, "Also show what applies for this http or https URL; nothing is sent to it"},
};
// Of the options of commands that resolve, those that matter when nothing is tested.
constexpr ValueOption<WrittenRequest> kLimits[] = {
    {"--max-time", &WrittenRequest::maxTime, "SECONDS", mustBeSeconds, "Stop asking the network after that time"},
    {"--attempt-time", &WrittenRequest::attemptTime, "SECONDS", mustBeSeconds,
     "Give up each question to the network after that time"},
};
constexpr Flag<Written> kFlags[] = {
    {"--json", &Written::json, "Print one JSON document and nothing else"},
};
constexpr ValueOption<Written> kFiles[] = {
    {"--trace", &Written::trace, "FILE", mustNameAFile, "With a URL: write kiv.dll's log to a file, as JSON lines"},
    {"--report", &Written::report, "FILE", mustNameAFile, "Also write it to a file: text to FILE.txt, else HTML"},
};
constexpr const char* kNoCredentials = "sources asks the network without credentials";
constexpr Refused kRefused[] = {
    {"--proxy-cred", kNoCredentials},
    {"--proxy-cred-from", kNoCredentials},
    {"--server-cred", kNoCredentials},
    {"--server-cred-from", kNoCredentials},
};

std::string contradictionIn(const Written& written) {
  return written.trace && !written.url ? "--trace requires a URL" : "";
}

// What is asked in the time that the resolution leaves.
Sources sourcesWith(const std::optional<Resolution>& resolution, const RequestOptions& options) {
  std::optional<milliseconds> left = options.maxTime;
  if (left && resolution) left = std::max(*left - resolution->duration, milliseconds::zero());
  const TimeLimits limits(left, options.attemptTime);
  Sources sources = readSources(resolution ? resolution->candidates : std::vector<Candidate>(), limits);
  if (options.redaction) sources = redacted(std::move(sources), *options.redaction);
  // Its texts have been redacted already.
  sources.resolution = resolution;
  return sources;
}

int run(const Written& written, const RequestOptions& options) {
  OutputFiles files(written.trace, written.report);
  if (!files.check()) return kFileNotWritten;
  std::optional<Resolution> resolution;
  Display nothing(Detail::Nothing);
  if (written.url) resolution = resolve(options, Task::ShowSettings, readTarget(*written.url), nothing, files.trace());
  const Sources sources = sourcesWith(resolution, options);
  print(Stream::Output,
        written.json ? toWide(sourcesDocument(sources, options.redaction != nullptr)) : sourcesText(sources));
  if (files.report()) {
    files.report()->write(isTextReport(*written.report) ? toUtf8(sourcesText(sources))
                                                        : sourcesPage(sources, options.redaction.get()));
  }
  if (!files.check()) return kFileNotWritten;
  return sources.warnings.empty() ? kDone : kWarnings;
}

}  // namespace

int sourcesCommand(ArgumentList arguments) {
  Written written;
  WrittenRequest request;
  CommandLine commandLine("kiv-resolve sources",
                          "Shows every place that names a proxy for this account, and what applies.");
  commandLine.add(kTargets, written);
  commandLine.add(kLimits, request);
  addRedaction(commandLine, request);
  commandLine.add(kFlags, written);
  commandLine.add(kFiles, written);
  commandLine.refuse(kRefused);
  commandLine.footer(
      "It changes nothing. It asks DHCP and DNS for a PAC script (WPAD), downloads the\n"
      "PAC scripts that the settings name, and with a URL asks the first proxy for the\n"
      "time, all without credentials.\n"
      "To see the settings of another account, run it as that account, and give both\n"
      "results to kiv-resolve compare.\n" +
      std::string(kAsAnotherAccount) +
      "Exit codes: 0 nothing to warn of, 1 there are warnings, 64 wrong usage,\n"
      "            71 out of resources, 74 a file could not be written.");
  if (const auto exit = commandLine.parse(arguments, [&] { return contradictionIn(written); })) return leave(*exit);
  const auto options = readRequestOptions(commandLine, request);
  return options ? run(written, *options) : kBadUsage;
}

}  // namespace kiv::tool
