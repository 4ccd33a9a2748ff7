// kiv-resolve exec URL -- PROGRAM: runs a program with the proxy that was found in its environment.
#include <algorithm>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/resolution_report.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/output_files.h"
#include "common/presentable.h"
#include "environment/environment_block.h"
#include "environment/finding.h"
#include "environment/lines.h"
#include "environment/program.h"

namespace kiv::tool {
namespace {

// As env and timeout of POSIX systems use them. All other codes are the program's.
constexpr int kOwnFailure = 125;
constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;

// The options as written.
struct Written {
  Value url;
  bool all = false;
  bool withPassword = false;
  bool log = false;
  Value trace;
  Value report;
};

constexpr ValueOption<Written> kTargets[] = {
    {"URL", &Written::url, "", mustBeUrl, "The http or https URL to reach; -- PROGRAM and its arguments come last"},
};
constexpr Flag<Written> kFlags[] = {
    {"--all", &Written::all, "Also for the other scheme: http beside https, or https beside http"},
    {"--with-password", &Written::withPassword, "Give the program the proxy's user name and password"},
    {"--log", &Written::log, "Show the log and a table of the candidates on standard error"},
};
constexpr ValueOption<Written> kFiles[] = {
    {"--trace", &Written::trace, "FILE", mustNameAFile, "Write the log to a file, as JSON lines"},
    {"--report", &Written::report, "FILE", mustNameAFile, "Write a report with a probe: FILE.html, or FILE.txt"},
};
constexpr Refused kRefused[] = {
    {"--redact", "the program needs the names that it removes"},
    {"--json", "standard output is the program's; --trace FILE writes what happens as JSON lines"},
};

struct Split {
  ArgumentList own;
  ArgumentList program;  // with its arguments
};

Split splitAtDashes(ArgumentList arguments) {
  const auto dashes = std::ranges::find(arguments, std::wstring_view(L"--"),
                                        [](const wchar_t* argument) { return std::wstring_view(argument); });
  const auto own = static_cast<std::size_t>(dashes - arguments.begin());
  return {arguments.first(own), arguments.subspan(std::min(own + 1, arguments.size()))};
}

void warn(const std::vector<std::wstring>& remarks) {
  for (const std::wstring& remark : remarks) complain(presentable(remark));
}

// The routes that were found, with credentials if the program gets them.
std::vector<Route> routesOf(std::vector<Finding>& findings, bool withPassword) {
  std::vector<Route> routes;
  for (Finding& finding : findings) {
    if (!finding.problem.empty()) continue;
    if (withPassword && finding.route.proxy) finding.route.userInfo = userInfoOf(finding.cred);
    routes.push_back(std::move(finding.route));
  }
  return routes;
}

void warnOfPassword(const std::vector<Route>& routes) {
  const bool any = std::ranges::any_of(routes, [](const Route& route) { return !route.userInfo.empty(); });
  complain(any ? L"the program, and every program that it starts, can read the proxy's password in its environment"
               : L"--with-password: there is no password for the proxy");
}

// What the program's environment is to say; nothing if the URL cannot be reached.
std::optional<std::vector<Variable>> variablesOf(const Written& written, std::vector<Finding>& findings) {
  for (const Finding& finding : findings) {
    if (!finding.problem.empty()) complain(presentable(finding.problem));
  }
  if (!findings.front().problem.empty()) return std::nullopt;
  for (const Finding& finding : findings) warn(remarksOn(finding));
  const std::vector<Route> routes = routesOf(findings, written.withPassword);
  std::vector<BypassEntry> exceptions;
  if (!allDirect(routes)) exceptions = convertedExceptions(findings, {});
  warn(remarksOn(exceptions));
  for (const Route& route : routes) {
    const std::wstring remark = route.proxy ? schemeRemark(*route.proxy) : std::wstring();
    if (!remark.empty()) complain(remark);
  }
  if (written.withPassword) warnOfPassword(routes);
  return variablesFor(routes, noProxyText(exceptions));
}

int start(const CommandText& command, const std::wstring& program, std::vector<Variable> variables) {
  Wiped<wchar_t> block = mergedBlock(viewOf(ownEnvironment()), variables);
  // They may have a password, and the program may run for days.
  variables.clear();
  const ProgramEnd end = runProgram(command, std::move(block));
  if (end.error == 0) return static_cast<int>(end.exitCode);
  complain(L"cannot run " + program + L": " + startProblem(end.error));
  return kCannotRun;
}

int run(const Written& written, const RequestOptions& options, const Target& target, ArgumentList program) {
  const std::wstring path = findProgram(program.front());
  if (path.empty()) {
    complain(L"cannot find " + presentable(program.front()));
    return kNotFound;
  }
  const CommandText command = commandTextOf(path, program.subspan(1), pathOfCommandProcessor());
  if (!command.problem.empty()) {
    complain(L"cannot run " + presentable(path) + L": " + command.problem);
    return kCannotRun;
  }
  std::optional<std::vector<Variable>> variables;
  {
    OutputFiles files(written.trace, written.report);
    if (!files.check()) return kOwnFailure;
    auto findings = findRoutes(
        options, target,
        {.all = written.all, .probe = files.report() != nullptr, .detail = written.log ? Detail::Log : Detail::Nothing},
        files.trace());
    variables = variablesOf(written, findings);
    writeReport(files, options, resolutionsOf(findings));
    if (!files.check()) return kOwnFailure;
  }
  return variables ? start(command, presentable(path), std::move(*variables)) : kOwnFailure;
}

int execute(ArgumentList arguments) {
  const Split split = splitAtDashes(arguments);
  Written written;
  WrittenRequest request;
  CommandLine commandLine("kiv-resolve exec", "Runs a program with the proxy for a URL in its environment.");
  commandLine.add(kTargets, written);
  addRequestOptions(commandLine, request);
  commandLine.add(kFlags, written);
  commandLine.add(kFiles, written);
  commandLine.refuse(kRefused);
  commandLine.footer(
      "kiv-resolve exec URL -- PROGRAM [ARGUMENT...] sets http_proxy or https_proxy and\n"
      "no_proxy in the program's environment, or removes the proxies for DIRECT.\n"
      "Passwords are passed with --with-password only.\n"
      "Exit codes: the program's; 125 kiv-resolve failed: wrong usage, no route;\n"
      "            126 the program cannot be run, 127 it was not found.");
  const auto missing = [&]() -> std::string {
    return split.program.empty() ? "-- PROGRAM is required, behind the options" : "";
  };
  if (const auto exit = commandLine.parse(split.own, missing)) return leave(*exit) == kDone ? kDone : kOwnFailure;
  const auto options = readRequestOptions(commandLine, request);
  return options ? run(written, *options, readTarget(*written.url), split.program) : kOwnFailure;
}

}  // namespace

int execCommand(ArgumentList arguments) try { return execute(arguments); } catch (const std::exception& failure) {
  complain(L"cannot continue: " + toWide(failure.what()));
  return kOwnFailure;
}

}  // namespace kiv::tool
