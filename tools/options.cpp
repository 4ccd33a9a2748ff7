// The command line of kiv-resolve.
#include "options.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "console.h"

namespace kiv::tool {
namespace {

// In place of a URL: they stand in standard input.
constexpr std::string_view kFromInput = "-";

// The options as written.
struct Written {
  std::string url;
  std::string userAgent = "kiv-resolve/" KIV_VERSION;
  std::string bypass;
  std::string preferred;
  std::string fallback;
  std::string proxyCred;
  std::string serverCred;
  std::string method = "head";
  bool ignoreCertErrors = false;
  bool prompt = false;
  bool quiet = false;
  bool brief = false;
  bool json = false;
  bool showSettings = false;
  bool candidatesOnly = false;
  std::string trace;
  std::string report;

  ~Written() {
    for (std::string* text : {&url, &preferred, &fallback, &proxyCred, &serverCred}) {
      SecureZeroMemory(text->data(), text->size());
    }
  }
};

UniqueProxyConfig parseProxy(const std::string& text) {
  return UniqueProxyConfig(KivProxyConfig_Parse(toWide(text).c_str(), nullptr));
}

UniqueProxyConfig readCandidate(const std::string& text) {
  if (text.empty()) return nullptr;
  if (text == "direct") return UniqueProxyConfig(KivProxyConfig_Direct());
  return parseProxy(text);
}

// What the validators say must not quote their text, which can hold a password.

std::string mustBeUrl(const std::string& text) { return text == kFromInput ? std::string() : problemOfUrl(text); }

std::string mustBeCandidate(const std::string& text) {
  if (!KivProxyConfig_IsNone(readCandidate(text).get())) return {};
  return "must be direct or [scheme://][user:password@]host[:port], with scheme http, https, socks4 or socks5";
}

std::string mustBeUserAndPassword(const std::string& text) {
  return text.find(':') == std::string::npos ? "must be USER:PASS" : std::string();
}

std::string mustNameAFile(const std::string& text) { return text.empty() ? "must name a file" : std::string(); }

void declareRequests(CLI::App& app, Written& written) {
  app.add_option("URL", written.url, "The http or https URL to reach; - reads standard input")
      ->required()
      ->check(mustBeUrl)
      ->type_name("");
  app.add_option("--user-agent", written.userAgent, "Agent name of the requests")->type_name("TEXT");
  app.add_option("--bypass", written.bypass, "Bypass list in place of the system's; empty: none")->type_name("LIST");
  app.add_option("--prefer", written.preferred, "Candidate to try first: a proxy, or direct")
      ->type_name("PROXY")
      ->check(mustBeCandidate);
  app.add_option("--fallback", written.fallback, "Candidate to try last: a proxy, or direct")
      ->type_name("PROXY")
      ->check(mustBeCandidate);
  app.add_option("--proxy-cred", written.proxyCred, "For a proxy that asks for them (407)")
      ->type_name("USER:PASS")
      ->check(mustBeUserAndPassword);
  app.add_option("--server-cred", written.serverCred, "For a server that asks for them (401)")
      ->type_name("USER:PASS")
      ->check(mustBeUserAndPassword);
  app.add_option("--method", written.method, "Test request (head if not given)")
      ->type_name("head|get")
      ->check(CLI::IsMember({"head", "get"}).description(""));
  app.add_flag("--ignore-cert-errors", written.ignoreCertErrors, "Accept any certificate of the server");
  app.add_flag("--prompt", written.prompt, "Ask for credentials not given, in a dialog");
}

void declareAnswers(CLI::App& app, Written& written) {
  app.add_flag("--show-settings", written.showSettings, "Print what the settings say; test nothing");
  app.add_flag("--candidates-only", written.candidatesOnly, "Print the candidates in order; test nothing");
  app.add_flag("--brief", written.brief, "No log: a line per candidate, and the table");
  app.add_flag("--quiet", written.quiet, "Print the outcome alone");
  app.add_flag("--json", written.json, "Print one JSON document instead of all else");
  app.add_option("--trace", written.trace, "Write the log's records as JSON lines")
      ->type_name("FILE")
      ->check(mustNameAFile);
  app.add_option("--report", written.report, "Write a report to be read in a browser")
      ->type_name("FILE")
      ->check(mustNameAFile);
}

void declare(CLI::App& app, Written& written) {
  app.allow_windows_style_options(false);
  app.get_formatter()->column_width(26);
  declareRequests(app, written);
  declareAnswers(app, written);
  app.set_version_flag("--version", "kiv-resolve " KIV_VERSION, "Print the version and exit");
  app.footer(
      "Standard output: the outcome, a proxy, DIRECT or NONE (behind its URL with -).\n"
      "Standard error: the log, and a table of the candidates.\n"
      "Exit codes: 0 a way out was found, 2 none was (for one URL at least),\n"
      "            64 bad usage, 74 a file could not be written.");
}

// Said here rather than to CLI11, whose help would tell it on lines of its own.
void refuseContradictions(const Written& written) {
  if (written.showSettings && written.candidatesOnly) throw CLI::ExcludesError("--show-settings", "--candidates-only");
  if (written.brief && written.quiet) throw CLI::ExcludesError("--brief", "--quiet");
}

Task taskOf(const Written& written) {
  if (written.showSettings) return Task::ShowSettings;
  return written.candidatesOnly ? Task::ListCandidates : Task::Resolve;
}

Detail detailOf(const Written& written) {
  if (written.quiet || written.json || taskOf(written) != Task::Resolve) return Detail::Nothing;
  return written.brief ? Detail::Brief : Detail::Log;
}

std::vector<Target> readTargets(const std::string& url) {
  std::vector<Target> targets;
  if (url != kFromInput) {
    targets.push_back(readTarget(url));
    return targets;
  }
  std::string input = readInput();
  auto read = readTargetList(input);
  SecureZeroMemory(input.data(), input.size());
  if (const auto* const problem = std::get_if<std::string>(&read)) throw CLI::ValidationError(*problem);
  return std::get<std::vector<Target>>(std::move(read));
}

Options read(const CLI::App& app, const Written& written) {
  return Options{
      .targets = readTargets(written.url),
      .targetsFromInput = written.url == kFromInput,
      .userAgent = toWide(written.userAgent),
      .bypass = app.count("--bypass") > 0 ? std::optional(toWide(written.bypass)) : std::nullopt,
      .preferred = readCandidate(written.preferred),
      .fallback = readCandidate(written.fallback),
      .proxyCred = readCred(written.proxyCred),
      .serverCred = readCred(written.serverCred),
      .method = written.method == "get" ? Method::Get : Method::Head,
      .ignoreCertErrors = written.ignoreCertErrors,
      .prompt = written.prompt,
      .task = taskOf(written),
      .detail = detailOf(written),
      .json = written.json,
      .traceFile = toWide(written.trace),
      .reportFile = toWide(written.report),
  };
}

// CLI11 would quote the arguments that it could not place, and one of them may be the password behind a mistyped
// option.
std::string unexpected(const CLI::App& app) {
  for (const std::string& argument : app.remaining()) {
    if (argument.starts_with("-")) return "unknown option " + argument.substr(0, argument.find('='));
  }
  return "more than one URL";
}

}  // namespace

std::variant<Options, Exit> parseCommandLine(std::vector<std::string> arguments) {
  CLI::App app("Finds how this user gets out to a URL, and tells why.", "kiv-resolve");
  Written written;
  declare(app, written);
  const auto badUsage = [](const std::string& problem) {
    return Exit{kBadUsage, "kiv-resolve: " + problem + " (see --help)\n"};
  };
  try {
    std::ranges::reverse(arguments);  // as CLI11 takes them
    app.parse(std::move(arguments));
    refuseContradictions(written);
    return read(app, written);
  } catch (const CLI::CallForHelp&) {
    return Exit{0, app.help()};
  } catch (const CLI::CallForVersion& version) {
    return Exit{0, std::string(version.what()) + "\n"};
  } catch (const CLI::ExtrasError&) {
    return badUsage(unexpected(app));
  } catch (const CLI::ParseError& error) {
    return badUsage(error.what());
  }
}

}  // namespace kiv::tool
