// kiv-resolve env URL --for SHELL: prints lines to paste, which make programs use the proxy that was found.
#include <string>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/resolution_report.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/output_files.h"
#include "common/presentable.h"
#include "environment/json_environment.h"

namespace kiv::tool {
namespace {

// The options as written.
struct Written {
  Value url;
  Value reader;
  bool all = false;
  bool log = false;
  bool json = false;
  Value trace;
  Value report;
};

std::string mustBeReader(std::wstring_view text) {
  return readerNamed(text) ? std::string() : "must be cmd, batch, powershell, bash, git, npm, pip or curl";
}

constexpr ValueOption<Written> kTargets[] = {
    {"URL", &Written::url, "", mustBeUrl, "The http or https URL to reach"},
};
constexpr ValueOption<Written> kReaders[] = {
    {"--for", &Written::reader, "cmd|batch|powershell|bash|git|npm|pip|curl", mustBeReader,
     "Whom the lines are for; required"},
};
constexpr Flag<Written> kFlags[] = {
    {"--all", &Written::all, "Also for the other scheme: http beside https, or https beside http"},
    {"--log", &Written::log, "Show the log and a table of the candidates on standard error"},
    {"--json", &Written::json, "Print one JSON document and nothing else"},
};
constexpr ValueOption<Written> kFiles[] = {
    {"--trace", &Written::trace, "FILE", mustNameAFile, "Write the log to a file, as JSON lines"},
    {"--report", &Written::report, "FILE", mustNameAFile, "Write a report with a probe: FILE.html, or FILE.txt"},
};
constexpr Refused kRefused[] = {
    {"--redact", "the lines need the names that it removes"},
};

std::string contradictionIn(const Written& written) {
  if (!written.reader) return "--for is required";
  return written.json && written.log ? "--json excludes --log" : "";
}

LogOn logOnOf(const std::vector<Finding>& findings) {
  for (const Finding& finding : findings) {
    if (finding.answer && finding.answer->status == 407) return bestLogOn(finding.answer->schemes);
  }
  return LogOn::None;
}

EnvironmentResult resultOf(const Written& written, std::vector<Finding> findings) {
  EnvironmentResult result;
  result.reader = *readerNamed(*written.reader);
  result.findings = std::move(findings);
  for (const Finding& finding : result.findings) {
    if (finding.problem.empty()) {
      result.routes.push_back({.url = finding.route.url, .proxy = finding.route.proxy});
    } else {
      result.remarks.push_back(finding.problem);
    }
  }
  // Without the URL's own route there is nothing to tell.
  if (!result.findings.front().problem.empty()) return result;
  if (const auto reads = exceptionsReadBy(result.reader); reads && !allDirect(result.routes)) {
    result.exceptions = convertedExceptions(result.findings, *reads);
  }
  result.lines = linesFor(result.reader, result.routes, noProxyText(result.exceptions), logOnOf(result.findings));
  const auto add = [&](const std::vector<std::wstring>& remarks) {
    result.remarks.insert(result.remarks.end(), remarks.begin(), remarks.end());
  };
  if (!result.lines.problem.empty()) add({result.lines.problem});
  add(result.lines.remarks);
  add(remarksOn(result.exceptions));
  for (const Finding& finding : result.findings) add(remarksOn(finding));
  return result;
}

int run(const Written& written, const RequestOptions& options, const Target& target) {
  OutputFiles files(written.trace, written.report);
  if (!files.check()) return kFileNotWritten;
  const EnvironmentResult result = resultOf(written, findRoutes(options, target,
                                                                {.all = written.all,
                                                                 .probe = files.report() != nullptr,
                                                                 .detail = written.log ? Detail::Log : Detail::Nothing},
                                                                files.trace()));
  if (written.json) {
    print(Stream::Output, toWide(jsonDocument(result)));
  } else {
    for (const std::wstring& remark : result.remarks) complain(presentable(remark));
    for (const std::wstring& line : result.lines.lines) print(Stream::Output, line + L"\n");
  }
  writeReport(files, options, resolutionsOf(result.findings));
  if (!files.check()) return kFileNotWritten;
  return result.lines.lines.empty() ? kNoneFound : kDone;
}

}  // namespace

int envCommand(ArgumentList arguments) {
  Written written;
  WrittenRequest request;
  CommandLine commandLine("kiv-resolve env",
                          "Prints lines to paste, which make a shell or a program use the proxy for a URL.");
  commandLine.add(kTargets, written);
  commandLine.add(kReaders, written);
  addRequestOptions(commandLine, request);
  commandLine.add(kFlags, written);
  commandLine.add(kFiles, written);
  commandLine.refuse(kRefused);
  commandLine.footer(
      "Standard output: the lines. Standard error: what they cannot say: entries of the\n"
      "bypass list that were changed or dropped, and which programs can log on if the\n"
      "proxy requires credentials. The lines never contain a password.\n"
      "Exit codes: 0 the lines were printed, 2 no route was found, or it cannot be\n"
      "            written for this shell or program, 64 wrong usage,\n"
      "            71 out of resources, 74 a file could not be written.");
  if (const auto exit = commandLine.parse(arguments, [&] { return contradictionIn(written); })) return leave(*exit);
  const auto options = readRequestOptions(commandLine, request);
  if (!options) return kBadUsage;
  return run(written, *options, readTarget(*written.url));
}

}  // namespace kiv::tool
