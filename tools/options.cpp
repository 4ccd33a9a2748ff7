// The command line of kiv-resolve.
#include "options.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "console.h"

namespace kiv::tool {
namespace {

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

UniqueCred readCred(const std::string& userAndPassword) {
  const std::size_t colon = userAndPassword.find(':');
  if (colon == std::string::npos) return nullptr;
  const std::wstring user = toWide(userAndPassword.substr(0, colon));
  std::wstring password = toWide(std::string_view(userAndPassword).substr(colon + 1));
  UniqueCred cred(KivCred_Create(user.c_str(), password.c_str()));
  SecureZeroMemory(password.data(), password.size() * sizeof(wchar_t));
  return cred;
}

// Where the user name and password of a URL stand: the position behind "://" and their length with the "@".
struct UserInfo {
  std::size_t at = 0;
  std::size_t length = 0;
};

UserInfo userInfoOf(const std::string& url) {
  const std::size_t start = url.find("://") + 3;
  const std::size_t end = url.find('@', start);
  return {start, end == std::string::npos ? 0 : end + 1 - start};
}

// What the validators say must not quote their text, which can hold a password.

std::string mustBeUrl(const std::string& text) {
  std::string scheme = text.substr(0, std::min(text.find("://"), text.size()));
  std::ranges::transform(scheme, scheme.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; });
  if (scheme == text || (scheme != "http" && scheme != "https")) return "must begin with http:// or https://";
  if (KivProxyConfig_IsNone(parseProxy(text).get())) {
    return "cannot be read; the form is http[s]://[user:password@]host[:port][/path[?query]]";
  }
  return {};
}

std::string mustBeCandidate(const std::string& text) {
  if (!KivProxyConfig_IsNone(readCandidate(text).get())) return {};
  return "must be direct or [scheme://][user:password@]host[:port], with scheme http, https, socks4 or socks5";
}

std::string mustBeUserAndPassword(const std::string& text) {
  return text.find(':') == std::string::npos ? "must be USER:PASS" : std::string();
}

void declare(CLI::App& app, Written& written) {
  app.allow_windows_style_options(false);
  app.add_option("URL", written.url, "The http or https URL to reach")->required()->check(mustBeUrl)->type_name("");
  app.add_option("--user-agent", written.userAgent, "Agent name of the requests")->type_name("TEXT");
  app.add_option("--bypass", written.bypass, "Bypass list in place of the system's; empty for none")->type_name("LIST");
  app.add_option("--prefer", written.preferred, "Candidate to try first: a proxy, or direct")
      ->type_name("PROXY")
      ->check(mustBeCandidate);
  app.add_option("--fallback", written.fallback, "Candidate to try last: a proxy, or direct")
      ->type_name("PROXY")
      ->check(mustBeCandidate);
  app.add_option("--proxy-cred", written.proxyCred, "Credentials for a proxy that asks for them (407)")
      ->type_name("USER:PASS")
      ->check(mustBeUserAndPassword);
  app.add_option("--server-cred", written.serverCred, "Credentials for a server that asks for them (401)")
      ->type_name("USER:PASS")
      ->check(mustBeUserAndPassword);
  app.add_option("--method", written.method, "Test request (head if not given)")
      ->type_name("")
      ->check(CLI::IsMember({"head", "get"}));
  app.add_flag("--ignore-cert-errors", written.ignoreCertErrors, "Accept any certificate of the server");
  app.add_flag("--prompt", written.prompt, "Ask for credentials that were not given with the system's dialogs");
  app.add_flag("--quiet", written.quiet, "Print the outcome alone, without the log");
  app.set_version_flag("--version", "kiv-resolve " KIV_VERSION, "Print the version and exit");
  app.footer(
      "Prints the log to standard error and the outcome (a proxy, DIRECT or NONE) to standard output.\n"
      "Exit codes: 0 a way out was found, 2 none was, 64 bad usage.");
}

Options read(const CLI::App& app, const Written& written) {
  // The library logs the URL as it is given, so the password in it is handed on as a credential.
  const UserInfo userInfo = userInfoOf(written.url);
  std::string url = written.url;
  url.erase(userInfo.at, userInfo.length);
  UniqueCred serverCred = readCred(written.serverCred);
  if (!serverCred && userInfo.length > 0) {
    serverCred = readCred(written.url.substr(userInfo.at, userInfo.length - 1));
  }
  return Options{
      .url = toWide(url),
      .userAgent = toWide(written.userAgent),
      .bypass = app.count("--bypass") > 0 ? std::optional(toWide(written.bypass)) : std::nullopt,
      .preferred = readCandidate(written.preferred),
      .fallback = readCandidate(written.fallback),
      .proxyCred = readCred(written.proxyCred),
      .serverCred = std::move(serverCred),
      .method = written.method == "get" ? Method::Get : Method::Head,
      .ignoreCertErrors = written.ignoreCertErrors,
      .prompt = written.prompt,
      .quiet = written.quiet,
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
