// What the system says: which proxies the current user would use for a URL.
#include "discovery/system_proxy.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "discovery/local_script.h"
#include "support/owners.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

using GlobalWideText = support::UniqueGlobalText<wchar_t>;

constexpr DWORD kHostCapacity = 2048;

// The user's own settings, later overwritten by what automatic configuration answers.
struct Settings {
  bool autoDetect = false;
  std::wstring autoConfigUrl;
  std::wstring proxyText;
  std::wstring bypassText;
};

void assignIfGiven(std::wstring& text, const GlobalWideText& given) {
  if (given) text = given.get();
}

std::optional<std::wstring> hostOf(const std::wstring& url) {
  std::array<wchar_t, kHostCapacity> buffer{};
  URL_COMPONENTS components{};
  components.dwStructSize = sizeof(components);
  components.lpszHostName = buffer.data();
  components.dwHostNameLength = kHostCapacity;
  if (!WinHttpCrackUrl(url.c_str(), 0, 0, &components)) return std::nullopt;
  const std::size_t length = std::min<std::size_t>(components.dwHostNameLength, buffer.size());
  return std::wstring(support::upToNul(std::wstring_view(buffer.data(), length)));
}

// Nothing if the settings cannot be read. A user without settings has automatic detection on, as the system assumes.
std::optional<Settings> userSettings() {
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG user{};
  const bool read = WinHttpGetIEProxyConfigForCurrentUser(&user);
  const DWORD error = read ? ERROR_SUCCESS : GetLastError();
  const GlobalWideText autoConfigUrl(user.lpszAutoConfigUrl);
  const GlobalWideText proxy(user.lpszProxy);
  const GlobalWideText bypass(user.lpszProxyBypass);
  if (!read && error != ERROR_FILE_NOT_FOUND) return std::nullopt;
  Settings settings;
  settings.autoDetect = !read || user.fAutoDetect;
  assignIfGiven(settings.autoConfigUrl, autoConfigUrl);
  assignIfGiven(settings.proxyText, proxy);
  assignIfGiven(settings.bypassText, bypass);
  return settings;
}

WINHTTP_AUTOPROXY_OPTIONS optionsFor(const std::wstring& autoConfigUrl) {
  WINHTTP_AUTOPROXY_OPTIONS options{};
  if (autoConfigUrl.empty()) {
    options.dwFlags = WINHTTP_AUTOPROXY_AUTO_DETECT;
    options.dwAutoDetectFlags = WINHTTP_AUTO_DETECT_TYPE_DHCP | WINHTTP_AUTO_DETECT_TYPE_DNS_A;
  } else {
    options.dwFlags = WINHTTP_AUTOPROXY_CONFIG_URL;
    options.lpszAutoConfigUrl = autoConfigUrl.c_str();
  }
  return options;
}

struct AutoProxyAnswer {
  bool answered = false;
  DWORD error = ERROR_SUCCESS;  // of a call that failed; 0 even then if the system named none
  bool namesProxies = false;
  GlobalWideText proxy;
  GlobalWideText bypass;
};

AutoProxyAnswer askOnce(HINTERNET winHttp, const std::wstring& targetUrl, WINHTTP_AUTOPROXY_OPTIONS& options) {
  WINHTTP_PROXY_INFO info{};
  const bool answered = WinHttpGetProxyForUrl(winHttp, targetUrl.c_str(), &options, &info);
  const DWORD error = answered ? ERROR_SUCCESS : GetLastError();
  const bool namesProxies = info.dwAccessType == WINHTTP_ACCESS_TYPE_NAMED_PROXY && info.lpszProxy;
  return {answered, error, namesProxies, GlobalWideText(info.lpszProxy), GlobalWideText(info.lpszProxyBypass)};
}

bool isWanted(DiscoveryProgress* progress) { return !progress || progress->isWanted(); }
bool mayLogOn(DiscoveryProgress* progress) { return !progress || progress->mayLogOn(); }

// An error after which no source is asked.
constexpr DWORD kGivenUp = ERROR_CANCELLED;

// Automatic detection if `autoConfigUrl` is empty. Both texts of `settings` are overwritten only by a call that
// succeeds and answers with one: a script that says "no proxy" leaves the user's manual list in force.
DWORD GetAutoProxyForUrl(HINTERNET winHttp, const std::wstring& targetUrl, const std::wstring& autoConfigUrl,
                         Settings& settings, DiscoveryProgress* progress) {
  if (!isWanted(progress)) return kGivenUp;
  WINHTTP_AUTOPROXY_OPTIONS options = optionsFor(autoConfigUrl);
  AutoProxyAnswer answer = askOnce(winHttp, targetUrl, options);
  if (answer.error == ERROR_WINHTTP_LOGIN_FAILURE && mayLogOn(progress)) {
    // By Microsoft's documentation of WINHTTP_AUTOPROXY_OPTIONS a program tries fAutoLogonIfChallenged = FALSE first,
    // which lets WinHTTP use its faster service outside of the process, and TRUE only after this error.
    options.fAutoLogonIfChallenged = TRUE;
    answer = {};  // what came with the failure is released before the system is asked again
    if (!isWanted(progress)) return kGivenUp;
    answer = askOnce(winHttp, targetUrl, options);
  }
  if (!answer.answered) return answer.error;
  if (progress) progress->scriptAnswered(answer.namesProxies);
  assignIfGiven(settings.proxyText, answer.proxy);
  assignIfGiven(settings.bypassText, answer.bypass);
  return ERROR_SUCCESS;
}

class ScriptEngineTurn {
 public:
  explicit ScriptEngineTurn(DiscoveryProgress* progress) noexcept : progress_(progress) {
    if (progress_) progress_->enterScriptEngine();
  }
  ScriptEngineTurn(const ScriptEngineTurn&) = delete;
  ScriptEngineTurn& operator=(const ScriptEngineTurn&) = delete;
  ~ScriptEngineTurn() {
    if (progress_) progress_->leaveScriptEngine();
  }

 private:
  DiscoveryProgress* progress_;
};

bool runLocalScript(const std::wstring& autoConfigUrl, const std::wstring& targetUrl, const std::wstring& host,
                    std::vector<ProxyListEntry>& candidates, DiscoveryProgress* progress) {
  const ScriptEngineTurn turn(progress);
  const std::size_t longest = progress ? DiscoveryProgress::kLongestList : std::wstring::npos;
  if (!isWanted(progress) || !EvaluateLocalPacScript(autoConfigUrl, targetUrl, host, candidates, longest)) return false;
  if (progress) progress->scriptAnswered(true);
  return true;
}

void limit(Settings& settings) {
  if (settings.proxyText.size() > DiscoveryProgress::kLongestList) {
    settings.proxyText.resize(DiscoveryProgress::kLongestList);
  }
  if (settings.bypassText.size() > DiscoveryProgress::kLongestBypassList) settings.bypassText.clear();
}

// How asking one source ended.
enum class Step : std::uint8_t { Answered, AskNext, Failed };

Step stepAfter(DWORD error) {
  if (error == ERROR_SUCCESS) return Step::Answered;
  return IsTolerableAutoProxyError(error) ? Step::AskNext : Step::Failed;
}

}  // namespace

bool IsTolerableAutoProxyError(DWORD code) {
  constexpr std::array<DWORD, 10> kTolerable = {
      ERROR_SUCCESS,
      ERROR_INVALID_PARAMETER,
      ERROR_WINHTTP_TIMEOUT,
      ERROR_WINHTTP_UNRECOGNIZED_SCHEME,
      ERROR_WINHTTP_LOGIN_FAILURE,
      ERROR_WINHTTP_OPERATION_CANCELLED,
      ERROR_WINHTTP_BAD_AUTO_PROXY_SCRIPT,
      ERROR_WINHTTP_UNABLE_TO_DOWNLOAD_SCRIPT,
      ERROR_WINHTTP_AUTO_PROXY_SERVICE_ERROR,
      ERROR_WINHTTP_AUTODETECTION_FAILED,
  };
  return std::ranges::find(kTolerable, code) != kTolerable.end();
}

bool lorvResolveProxy(HINTERNET winHttp, const std::wstring& targetUrl, std::vector<ProxyListEntry>& candidates,
                      std::wstring& bypassText, DiscoveryProgress* progress) {
  const std::optional<std::wstring> host = hostOf(targetUrl);
  if (!host) return false;
  std::optional<Settings> settings = userSettings();
  if (!settings) return false;
  if (progress) {
    limit(*settings);
    progress->settingsRead(settings->bypassText);
  }

  Step step = Step::AskNext;
  if (settings->autoDetect) step = stepAfter(GetAutoProxyForUrl(winHttp, targetUrl, {}, *settings, progress));
  if (step == Step::AskNext && !settings->autoConfigUrl.empty()) {
    const DWORD error = GetAutoProxyForUrl(winHttp, targetUrl, settings->autoConfigUrl, *settings, progress);
    // WinHTTP cannot fetch file URLs.
    if (error == ERROR_WINHTTP_UNRECOGNIZED_SCHEME &&
        runLocalScript(settings->autoConfigUrl, targetUrl, *host, candidates, progress)) {
      bypassText.clear();
      return true;
    }
    step = stepAfter(error);
  }
  if (step == Step::Failed) return false;
  if (progress) limit(*settings);
  // A list that breaks off at an error still names the proxies in front of it.
  (void)ParseWinHttpProxyList(settings->proxyText, candidates);
  bypassText = std::move(settings->bypassText);
  return true;
}

}  // namespace kiv::impl
