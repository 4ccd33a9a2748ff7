// kiv-resolve sources [URL]: shows every place that names a proxy, and what applies.
#include <optional>
#include <utility>
#include <variant>

#include "commands/commands.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/output_file.h"
#include "resolve/request_options.h"
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
  Value report;
};

constexpr ValueOption<Written> kTargets[] = {
    {"[URL]", &Written::url, "", mustBeUrl, "Also show what applies for this http or https URL; nothing is sent to it"},
};
// Of the options of commands that resolve, those that matter when nothing is tested.
constexpr ValueOption<WrittenRequest> kLimits[] = {
    {"--max-time", &WrittenRequest::maxTime, "SECONDS", mustBeSeconds, "Stop asking the network after that time"},
};
constexpr Flag<WrittenRequest> kRedaction[] = {
    {"--redact", &WrittenRequest::redact, "Show host-1, user-1, address-1 instead of names; no queries"},
};
constexpr Flag<Written> kFlags[] = {
    {"--json", &Written::json, "Print one JSON document and nothing else"},
};
constexpr ValueOption<Written> kFiles[] = {
    {"--report", &Written::report, "FILE", mustNameAFile, "Also write it to a file: text to FILE.txt, else HTML"},
};

// Whether the report, if one is wanted, could be written; complains if not.
bool check(const std::optional<OutputFile>& report) {
  if (!report || report->problem().empty()) return true;
  complain(report->problem());
  return false;
}

int run(const Written& written, const WrittenRequest& request) {
  RequestOptions options = std::get<RequestOptions>(readRequestOptions(request));
  const auto redaction = std::exchange(options.redaction, nullptr);
  // Created before anything is asked, so that a wrong file name is reported immediately.
  std::optional<OutputFile> report;
  if (written.report) report.emplace(std::wstring(*written.report));
  if (!check(report)) return kFileNotWritten;
  std::optional<Target> target;
  if (written.url) target.emplace(readTarget(*written.url));
  Sources sources = readSources(target ? &*target : nullptr, options);
  if (redaction) sources = redacted(std::move(sources), *redaction);
  print(Stream::Output, written.json ? toWide(sourcesDocument(sources)) : sourcesText(sources));
  if (report) report->write(written.report->ends_with(L".txt") ? toUtf8(sourcesText(sources)) : sourcesPage(sources));
  if (!check(report)) return kFileNotWritten;
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
  commandLine.add(kRedaction, request);
  commandLine.add(kFlags, written);
  commandLine.add(kFiles, written);
  commandLine.footer(
      "It changes nothing. It asks DHCP and DNS for a PAC script (WPAD), downloads the\n"
      "PAC scripts that the settings name, and with a URL asks the first proxy for the\n"
      "time, all without credentials.\n"
      "To see another account's settings, run it as that account and use\n"
      "kiv-resolve compare.\n"
      "Exit codes: 0 nothing to warn of, 1 there are warnings, 64 wrong usage,\n"
      "            71 out of resources, 74 a file could not be written.");
  if (const auto exit = commandLine.parse(arguments)) return leave(*exit);
  return run(written, request);
}

}  // namespace kiv::tool
