// The command line of kiv-resolve.
#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "arguments.h"
#include "console.h"

namespace kiv::tool {
namespace {

// Instead of a URL: the URLs are in standard input.
constexpr std::wstring_view kFromInput = L"-";

// A value of the command line. It stays where it is: it can hold a password.
using Value = std::optional<std::wstring_view>;

// The options as written.
struct Written {
  Value url;
  Value userAgent;
  Value bypass;
  Value preferred;
  Value fallback;
  Value proxyCred;
  Value serverCred;
  Value method;
  bool ignoreCertErrors = false;
  bool prompt = false;
  bool quiet = false;
  bool brief = false;
  bool json = false;
  bool showSettings = false;
  bool candidatesOnly = false;
  Value trace;
  Value report;
};

ProxyConfig readCandidate(Value text) {
  if (!text || text->empty()) return {};
  return *text == L"direct" ? ProxyConfig::direct() : ProxyConfig::parse(*text);
}

// What is wrong with a value; empty if nothing is. Must not quote the value, which can hold a password.
using Check = std::string (*)(std::wstring_view);

std::string mustBeUrl(std::wstring_view text) { return text == kFromInput ? std::string() : problemOfUrl(text); }

std::string mustBeCandidate(std::wstring_view text) {
  if (!readCandidate(text).is_none()) return {};
  return "must be direct or [scheme://][user:password@]host[:port], with scheme http, https, socks4 or socks5";
}

std::string mustBeUserAndPassword(std::wstring_view text) {
  return text.find(L':') == std::wstring_view::npos ? "must be USER:PASS" : std::string();
}

std::string mustBeMethod(std::wstring_view text) {
  return text == L"head" || text == L"get" ? std::string() : "must be head or get";
}

std::string mustNameAFile(std::wstring_view text) { return text.empty() ? "must name a file" : std::string(); }

std::string anything(std::wstring_view /*text*/) { return {}; }

// An option with a value, or the URL.
struct ValueOption {
  std::string_view name;
  Value Written::*value;
  const char* type;
  Check check;
  const char* help;
};

struct Flag {
  const char* name;
  bool Written::*value;
  const char* help;
};

// --help has them in this order: those of the requests, then those of the output.
constexpr ValueOption kRequestOptions[] = {
    {"URL", &Written::url, "", mustBeUrl, "The http or https URL to reach; - reads URLs from standard input"},
    {"--user-agent", &Written::userAgent, "TEXT", anything, "User-Agent of the requests"},
    {"--bypass", &Written::bypass, "LIST", anything, "Replace the user's bypass list; empty: no list"},
    {"--prefer", &Written::preferred, "PROXY", mustBeCandidate, "Test this candidate first: a proxy, or direct"},
    {"--fallback", &Written::fallback, "PROXY", mustBeCandidate, "Test this candidate last: a proxy, or direct"},
    {"--proxy-cred", &Written::proxyCred, "USER:PASS", mustBeUserAndPassword, "Credentials if a proxy asks (407)"},
    {"--server-cred", &Written::serverCred, "USER:PASS", mustBeUserAndPassword, "Credentials if the server asks (401)"},
    {"--method", &Written::method, "head|get", mustBeMethod, "Test with HEAD or GET requests (default: head)"},
};
constexpr Flag kRequestFlags[] = {
    {"--ignore-cert-errors", &Written::ignoreCertErrors, "Accept any certificate of the server"},
    {"--prompt", &Written::prompt, "Ask for missing credentials in a dialog"},
};
constexpr Flag kOutputFlags[] = {
    {"--show-settings", &Written::showSettings, "Print the proxy settings and candidates; test nothing"},
    {"--candidates-only", &Written::candidatesOnly, "Print the candidates in order; test nothing"},
    {"--brief", &Written::brief, "Show a line per candidate instead of the log"},
    {"--quiet", &Written::quiet, "Print the outcome and nothing else"},
    {"--json", &Written::json, "Print one JSON document and nothing else"},
};
constexpr ValueOption kOutputOptions[] = {
    {"--trace", &Written::trace, "FILE", mustNameAFile, "Write the log to a file, as JSON lines"},
    {"--report", &Written::report, "FILE", mustNameAFile, "Write an HTML report to a file"},
};

bool takesValue(std::string_view option) {
  const auto has = [&](const auto& options) {
    return std::ranges::find(options, option, &ValueOption::name) != std::ranges::end(options);
  };
  return has(kRequestOptions) || has(kOutputOptions);
}

// The declarations for CLI11, and what CLI11 has found.
class CommandLine {
 public:
  explicit CommandLine(const Arguments& arguments) : arguments_(arguments) {
    app_.allow_windows_style_options(false);
    app_.get_formatter()->column_width(26);
    for (const ValueOption& option : kRequestOptions) declare(option);
    for (const Flag& flag : kRequestFlags) declare(flag);
    for (const Flag& flag : kOutputFlags) declare(flag);
    for (const ValueOption& option : kOutputOptions) declare(option);
    app_.get_option("URL")->required();
    app_.set_version_flag("--version", "kiv-resolve " KIV_VERSION, "Print the version and exit");
    app_.footer(
        "The candidates come from --prefer, the user's proxy settings (automatic detection\n"
        "with WPAD, PAC script, manual proxy list) and --fallback.\n"
        "Standard output: the outcome: a proxy, DIRECT or NONE (with -, after the URL).\n"
        "Standard error: the log and a table of the candidates, without colours if the\n"
        "environment variable NO_COLOR is not empty.\n"
        "Passwords on the command line can be read by other programs of this user while\n"
        "kiv-resolve runs, and are not erased from its memory. --prompt avoids both.\n"
        "Exit codes: 0 a route was found, 2 none was found (for at least one URL),\n"
        "            64 wrong usage, 71 out of resources, 74 a file could not be written.");
  }

  // Throws what CLI11 throws.
  const Written& parse() {
    std::vector<std::string> forParser = arguments_.forParser();
    std::ranges::reverse(forParser);  // as CLI11 takes them
    app_.parse(std::move(forParser));
    refuseContradictions();
    return written_;
  }

  std::string help() const { return app_.help(); }

  // CLI11 would quote the placeholders of values. An unknown option may have its value in the same argument.
  std::string unexpected() const {
    for (const std::string& argument : app_.remaining()) {
      if (argument.starts_with("-")) return "unknown option " + argument.substr(0, argument.find_first_of("=:"));
    }
    return "more than one URL";
  }

 private:
  void declare(const ValueOption& option) {
    const auto store = [this, &option](const std::string& placeholder) {
      written_.*option.value = arguments_.valueOf(placeholder);
    };
    const auto check = [this, &option](const std::string& placeholder) {
      return option.check(arguments_.valueOf(placeholder));
    };
    app_.add_option_function<std::string>(std::string(option.name), store, option.help)
        ->type_name(option.type)
        ->check(check);
  }

  void declare(const Flag& flag) { app_.add_flag(flag.name, written_.*flag.value, flag.help)->disable_flag_override(); }

  // Checked here because CLI11's help would mention them on lines of their own.
  void refuseContradictions() const {
    if (written_.showSettings && written_.candidatesOnly) {
      throw CLI::ExcludesError("--show-settings", "--candidates-only");
    }
    if (written_.brief && written_.quiet) throw CLI::ExcludesError("--brief", "--quiet");
  }

  const Arguments& arguments_;
  Written written_;
  CLI::App app_{"Finds the proxy that works for a URL, or a direct connection, and shows why.", "kiv-resolve"};
};

Task taskOf(const Written& written) {
  if (written.showSettings) return Task::ShowSettings;
  return written.candidatesOnly ? Task::ListCandidates : Task::Resolve;
}

Detail detailOf(const Written& written) {
  if (written.quiet || written.json || taskOf(written) != Task::Resolve) return Detail::Nothing;
  return written.brief ? Detail::Brief : Detail::Log;
}

std::vector<Target> readTargets(std::wstring_view url) {
  std::vector<Target> targets;
  if (url != kFromInput) {
    targets.push_back(readTarget(url));
    return targets;
  }
  auto read = readTargetList(viewOf(readInput()));
  if (const auto* const problem = std::get_if<std::string>(&read)) throw CLI::ValidationError(*problem);
  return std::get<std::vector<Target>>(std::move(read));
}

Options read(const Written& written) {
  return Options{
      .targets = readTargets(*written.url),
      .targetsFromInput = written.url == kFromInput,
      .userAgent = std::wstring(written.userAgent.value_or(L"kiv-resolve/" KIV_VERSION)),
      .bypass = written.bypass ? std::optional<std::wstring>(*written.bypass) : std::nullopt,
      .preferred = readCandidate(written.preferred),
      .fallback = readCandidate(written.fallback),
      .proxyCred = readCred(written.proxyCred.value_or(L"")),
      .serverCred = readCred(written.serverCred.value_or(L"")),
      .method = written.method == L"get" ? Method::Get : Method::Head,
      .ignoreCertErrors = written.ignoreCertErrors,
      .prompt = written.prompt,
      .task = taskOf(written),
      .detail = detailOf(written),
      .json = written.json,
      .traceFile = std::wstring(written.trace.value_or(L"")),
      .reportFile = std::wstring(written.report.value_or(L"")),
  };
}

}  // namespace

std::variant<Options, Exit> parseCommandLine(std::span<const wchar_t* const> arguments) {
  const Arguments given(arguments, takesValue);
  CommandLine commandLine(given);
  const auto badUsage = [](const std::string& problem) {
    return Exit{kBadUsage, "kiv-resolve: " + problem + " (see --help)\n"};
  };
  try {
    return read(commandLine.parse());
  } catch (const CLI::CallForHelp&) {
    return Exit{0, commandLine.help()};
  } catch (const CLI::CallForVersion& version) {
    return Exit{0, std::string(version.what()) + "\n"};
  } catch (const CLI::ExtrasError&) {
    return badUsage(commandLine.unexpected());
  } catch (const CLI::ParseError& error) {
    return badUsage(error.what());
  }
}

}  // namespace kiv::tool
