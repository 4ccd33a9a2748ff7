// Lines to paste, which make shells and programs use the routes that were found.
#include "environment/lines.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "environment/quoting.h"

namespace kiv::tool {
namespace {

using std::wstring_view;
using Quote = std::optional<std::wstring> (*)(wstring_view);

// Builds the lines of one reader. The first text that cannot be quoted makes them fail as a whole.
class Writer {
 public:
  Writer(wstring_view reader, Quote quote) : reader_(reader), quote_(quote) {}

  std::wstring quoted(wstring_view text) {
    const auto result = quote_(text);
    if (!result) fail(L"'" + std::wstring(text) + L"' cannot be quoted for " + std::wstring(reader_));
    return result.value_or(std::wstring());
  }
  void line(std::wstring text) { result_.lines.push_back(std::move(text)); }
  void remark(std::wstring text) { result_.remarks.push_back(std::move(text)); }
  void fail(std::wstring problem) {
    if (result_.problem.empty()) result_.problem = std::move(problem);
  }
  Lines take() {
    if (!result_.problem.empty()) result_.lines.clear();
    return std::move(result_);
  }

 private:
  wstring_view reader_;
  Quote quote_;
  Lines result_;
};

struct Input {
  const std::vector<Route>& routes;
  const std::wstring& exceptions;
  LogOn logOn;
};

std::wstring text(wstring_view view) { return std::wstring(view); }

std::wstring urlText(const Route& route, wstring_view userInfo = {}) {
  return text(viewOf(urlOf(*route.proxy, userInfo)));
}

// For cmd and batch files. A variable without a value does not exist there.
void writeCmd(Writer& writer, const Input& input) {
  for (const Variable& variable : variablesFor(input.routes, input.exceptions)) {
    const std::wstring value = variable.value ? writer.quoted(viewOf(*variable.value)) : std::wstring();
    writer.line(L"set \"" + text(variable.name) + L"=" + value + L"\"");
  }
}

void writePowerShell(Writer& writer, const Input& input) {
  for (const Variable& variable : variablesFor(input.routes, input.exceptions)) {
    writer.line(variable.value ? L"$env:" + text(variable.name) + L" = " + writer.quoted(viewOf(*variable.value))
                               : L"Remove-Item Env:" + text(variable.name) + L" -ErrorAction Ignore");
  }
}

// bash tells cases apart, and hands all of them on to programs of Windows, which do not.
void writeBash(Writer& writer, const Input& input) {
  const std::vector<Variable> variables = variablesFor(input.routes, input.exceptions);
  std::wstring unset = L"unset";
  for (const Variable& variable : variables) {
    std::wstring upper(variable.name);
    std::ranges::transform(upper, upper.begin(), [](wchar_t c) {
      return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
    });
    unset += L" " + upper + L" " + text(variable.name);
  }
  writer.line(unset);
  for (const Variable& variable : variables) {
    if (variable.value) writer.line(L"export " + text(variable.name) + L"=" + writer.quoted(viewOf(*variable.value)));
  }
}

std::wstring originOf(const Route& route) {
  const ProxyConfig target = ProxyConfig::parse(route.url);
  std::wstring origin = text(target.scheme()) + L"://" + text(target.host());
  if (target.has_explicit_port()) origin += L":" + std::to_wstring(target.port().value_or(0));
  return origin + L"/";
}

// The setting is of one origin, and an empty one means no proxy whatever other settings and variables say.
void writeGit(Writer& writer, const Input& input) {
  for (const Route& route : input.routes) {
    const wstring_view user = logsOnAsUser(input.logOn) ? L":@" : L"";
    writer.line(L"git config --global " + writer.quoted(L"http." + originOf(route) + L".proxy") + L" " +
                writer.quoted(route.proxy ? urlText(route, user) : L""));
  }
  if (std::ranges::any_of(input.routes, [](const Route& route) { return !route.proxy; })) {
    writer.remark(L"Windows PowerShell drops the empty argument: write '\"\"' there");
  }
}

void refuseSocks(Writer& writer, const Input& input, const wchar_t* problem) {
  for (const Route& route : input.routes) {
    if (route.proxy && route.proxy->isSocks()) writer.fail(problem);
  }
}

void writeNpm(Writer& writer, const Input& input) {
  refuseSocks(writer, input, L"npm is not documented to use SOCKS proxies");
  for (const Route& route : input.routes) {
    const std::wstring name = isHttps(route) ? L"https-proxy" : L"proxy";
    writer.line(route.proxy ? L"npm config set " + name + L" " + writer.quoted(urlText(route))
                            : L"npm config delete " + name);
  }
  // npm knows no entry for all names, and its variables may name a proxy.
  const std::wstring exceptions =
      allDirect(input.routes) ? text(ProxyConfig::parse(input.routes.front().url).host()) : input.exceptions;
  writer.line(exceptions.empty() ? L"npm config delete noproxy"
                                 : L"npm config set noproxy " + writer.quoted(exceptions));
}

bool sameProxy(const Route& left, const Route& right) {
  return left.proxy.has_value() == right.proxy.has_value() && (!left.proxy || urlText(left) == urlText(right));
}

void writePip(Writer& writer, const Input& input) {
  refuseSocks(writer, input, L"pip has no support for SOCKS proxies of its own");
  if (!sameProxy(input.routes.front(), input.routes.back())) {
    writer.fail(L"pip has one proxy for both schemes, and the routes differ");
  }
  const Route& route = input.routes.front();
  writer.line(route.proxy ? L"pip config set global.proxy " + writer.quoted(urlText(route))
                          : L"pip config unset global.proxy");
  if (route.proxy) writer.remark(L"pip has no setting for exceptions; it reads the variable no_proxy");
}

// -g: brackets and braces in the URL mean nothing else.
void writeCurl(Writer& writer, const Input& input) {
  const wstring_view logOn = curlOptionsFor(input.logOn);
  if (!logOn.empty() && !logsOnAsUser(input.logOn)) {
    writer.remark(L"replace USER by the user name; curl asks for the password");
  }
  for (const Route& route : input.routes) {
    std::wstring line = L"curl.exe -g ";
    line += route.proxy ? L"--proxy " + writer.quoted(urlText(route)) : L"--noproxy \"*\"";
    if (route.proxy && !logOn.empty()) line.append(L" ").append(logOn);
    writer.line(line + L" " + writer.quoted(route.url));
  }
}

struct ReaderFacts {
  wstring_view name;
  Quote quote;
  std::optional<ExceptionsRead> exceptions;
  void (*write)(Writer& writer, const Input& input);
};

constexpr ExceptionsRead kAll{.networks = true, .ports = true};
constexpr ExceptionsRead kNames{.networks = false, .ports = false};

// In the order of the enumerators.
constexpr std::array<ReaderFacts, 8> kReaders = {{
    {L"cmd", quotedForCmd, kAll, writeCmd},
    {L"batch", quotedForBatch, kAll, writeCmd},
    {L"powershell", quotedForPowerShell, kAll, writePowerShell},
    {L"bash", quotedForBash, kAll, writeBash},
    {L"git", quotedForAllShells, std::nullopt, writeGit},
    {L"npm", quotedForScripts, kNames, writeNpm},
    {L"pip", quotedForAllShells, std::nullopt, writePip},
    {L"curl", quotedForAllShells, std::nullopt, writeCurl},
}};

const ReaderFacts& factsOf(Reader reader) { return kReaders[static_cast<std::size_t>(reader)]; }

bool readsVariables(Reader reader) { return reader <= Reader::Bash; }

}  // namespace

std::optional<Reader> readerNamed(wstring_view name) {
  const auto found = std::ranges::find(kReaders, name, &ReaderFacts::name);
  if (found == kReaders.end()) return std::nullopt;
  return static_cast<Reader>(found - kReaders.begin());
}

wstring_view nameOf(Reader reader) { return factsOf(reader).name; }

std::optional<ExceptionsRead> exceptionsReadBy(Reader reader) { return factsOf(reader).exceptions; }

std::wstring schemeRemark(const ProxyServer& proxy) {
  if (proxy.isHttp()) return {};
  if (proxy.scheme == L"https") {
    return L"https:// here means TLS to the proxy itself; curl, git and Go programs read it, others may not";
  }
  const std::wstring first = proxy.scheme + L":// is read by ";
  return first + (proxy.scheme == L"socks5" ? L"curl, git and Go programs" : L"curl and git") +
         L"; curl looks up host names itself then. Python, npm and pip do not read it without additions";
}

Lines linesFor(Reader reader, const std::vector<Route>& routes, const std::wstring& exceptions, LogOn logOn) {
  const ReaderFacts& facts = factsOf(reader);
  Writer writer(facts.name, facts.quote);
  facts.write(writer, {routes, exceptions, logOn});
  for (const Route& route : routes) {
    const std::wstring remark = route.proxy && readsVariables(reader) ? schemeRemark(*route.proxy) : std::wstring();
    if (!remark.empty()) writer.remark(remark);
  }
  return writer.take();
}

}  // namespace kiv::tool
