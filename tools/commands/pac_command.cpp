// kiv-resolve pac NEW [--against OLD] URL: evaluates PAC scripts, and shows what differs.
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/output_files.h"
#include "common/presentable.h"
#include "pac/evaluation.h"
#include "pac/pac_page.h"
#include "pac/pac_result.h"
#include "pac/script.h"
#include "pac/script_server.h"
#include "resolve/report.h"
#include "resolve/request_options.h"

namespace kiv::tool {
namespace {

constexpr int kDiffers = 1;
constexpr int kFailed = 2;

// The options as written.
struct Written {
  Value script;
  Value url;
  Value against;
  bool all = false;
  bool json = false;
  Value report;
};

constexpr ValueOption<Written> kValues[] = {
    {"NEW", &Written::script, "", mustBeScript, "The PAC script: a file, or an http or https URL"},
    {"URL", &Written::url, "", mustBeUrlOrInput, "The URL to ask it for; - reads URLs from standard input"},
    {"--against", &Written::against, "OLD", mustBeScript, "Compare with this script, and show what differs"},
};
constexpr Flag<Written> kFlags[] = {
    {"--all", &Written::all, "With --against: show also what does not differ"},
    {"--json", &Written::json, "Print one JSON document and nothing else"},
};
constexpr ValueOption<Written> kFiles[] = {
    {"--report", &Written::report, "FILE", mustNameAFile, "Also write it to a file: text to FILE.txt, else HTML"},
};
constexpr ValueOption<WrittenRequest> kLimits[] = {
    {"--max-time", &WrittenRequest::maxTime, "SECONDS", mustBeSeconds, "Stop after that time, for all URLs together"},
    {"--attempt-time", &WrittenRequest::attemptTime, "SECONDS", mustBeSeconds,
     "Give up reading a script, or an answer of it, after that time"},
};
constexpr const char* kNoCredentials = "scripts are fetched without credentials, as Windows fetches them";
constexpr Refused kRefused[] = {
    {"--trace", "WinHTTP runs the script, and writes no log"},
    {"--proxy-cred", kNoCredentials},
    {"--proxy-cred-from", kNoCredentials},
    {"--server-cred", kNoCredentials},
    {"--server-cred-from", kNoCredentials},
};

std::string contradictionIn(const Written& written) {
  return written.all && !written.against ? "--all requires --against" : "";
}

// A script that the system can run, as long as this object lives.
class ServedScript {
 public:
  ServedScript(const ScriptRunner& runner, const PacScript& script) : runner_(runner), server_(script.text) {}

  PacAnswer ask(const std::wstring& url) const { return runner_.ask(server_.url(), url); }

 private:
  const ScriptRunner& runner_;
  ScriptServer server_;
};

std::vector<PacRow> evaluate(const PacResult& scripts, const std::vector<Target>& targets, const TimeLimits& limits) {
  const ScriptRunner runner(limits);
  const ServedScript now(runner, scripts.script);
  std::optional<ServedScript> before;
  if (scripts.against) before.emplace(runner, *scripts.against);
  std::vector<PacRow> rows;
  for (const Target& target : targets) {
    rows.push_back({.url = presentable(target.url), .now = now.ask(target.url)});
    if (before) rows.back().before = before->ask(target.url);
  }
  return rows;
}

bool wasRead(const PacScript& script) {
  if (!script.problem.empty()) complain(L"cannot read " + script.name + L": " + script.problem);
  return script.problem.empty();
}

int exitCodeOf(const PacResult& result) {
  if (result.count(PacVerdict::Failed) > 0) return kFailed;
  return result.count(PacVerdict::Differs) > 0 ? kDiffers : kDone;
}

// Nothing if a script cannot be read.
std::optional<PacResult> find(const Written& written, const RequestOptions& options,
                              const std::vector<Target>& targets) {
  const TimeLimits limits(options.maxTime, options.attemptTime);
  PacResult result{.script = readScript(*written.script, limits)};
  if (written.against) result.against = readScript(*written.against, limits);
  const bool read = wasRead(result.script);
  if ((result.against && !wasRead(*result.against)) || !read) return std::nullopt;
  result.rows = evaluate(result, targets, limits);
  if (options.redaction) redact(result, *options.redaction);
  return result;
}

int run(const Written& written, const RequestOptions& options, const std::vector<Target>& targets) {
  OutputFiles files({}, written.report);
  if (!files.check()) return kFileNotWritten;
  const auto result = find(written, options, targets);
  if (!result) return kFailed;
  if (written.json) {
    print(Stream::Output, toWide(pacDocument(*result, options.redaction != nullptr)));
  } else {
    print(Stream::Output, pacTable(*result, written.all));
    print(Stream::Error, pacRemarks(*result));
  }
  if (files.report()) {
    files.report()->write(isTextReport(*written.report) ? toUtf8(pacTable(*result, true) + L"\n" + pacRemarks(*result))
                                                        : pacPage(*result, options.redaction.get()));
  }
  return files.check() ? exitCodeOf(*result) : kFileNotWritten;
}

}  // namespace

int pacCommand(ArgumentList arguments) {
  Written written;
  WrittenRequest request;
  CommandLine commandLine("kiv-resolve pac",
                          "Shows which proxies a PAC script returns for URLs, or what a new script changes.");
  commandLine.add(kValues, written);
  commandLine.add(kLimits, request);
  addRedaction(commandLine, request);
  commandLine.add(kFlags, written);
  commandLine.add(kFiles, written);
  commandLine.refuse(kRefused);
  commandLine.footer(
      "Windows runs the script (WinHTTP), as for every program. kiv-resolve serves it to\n"
      "WinHTTP on 127.0.0.1, under an address that is used once, because WinHTTP runs\n"
      "only what it has downloaded, and keeps scripts by their addresses.\n"
      "Nothing is sent to the URLs. If NEW or OLD is a URL, that script is fetched,\n"
      "directly and without credentials. Functions of a script, such as dnsResolve and\n"
      "isInNet, may ask DNS.\n"
      "Standard output: a line for each URL: the list that Windows returns and the\n"
      "candidates that kiv.dll makes of it; with --against, the lists of both scripts.\n"
      "Exit codes: 0 the scripts agree, or there is only one, 1 they differ, 2 a script\n"
      "            could not be read or run, 64 wrong usage, 71 out of resources,\n"
      "            74 the report could not be written.");
  if (const auto exit = commandLine.parse(arguments, [&] { return contradictionIn(written); })) return leave(*exit);
  const auto targets = readTargets(commandLine, *written.url);
  if (!targets) return kBadUsage;
  const auto options = readRequestOptions(commandLine, request);
  return options ? run(written, *options, *targets) : kBadUsage;
}

}  // namespace kiv::tool
