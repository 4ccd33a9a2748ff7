// What a PAC script answers for a URL: as WinHTTP returns it, and as kiv reads that.
#include "pac/evaluation.h"

#include <algorithm>
#include <system_error>

#include "common/presentable.h"
#include "discovery/proxy_list.h"
#include "kiv/kiv.hpp"

namespace kiv::tool {
namespace {

using Text = support::UniqueGlobalText<wchar_t>;

// As kiv.dll makes a candidate of an entry.
std::wstring candidateText(const impl::ProxyListEntry& entry) {
  const std::wstring_view scheme = entry.type.empty() ? std::wstring_view(L"http") : entry.type;
  const ProxyConfig candidate = ProxyConfig::create(scheme, entry.host, std::max(entry.port, -1));
  return candidate.is_none() ? L"not a valid proxy" : presentable(candidate.display_string());
}

PacAnswer answerTo(HINTERNET session, const std::wstring& scriptUrl, const std::wstring& url) {
  WINHTTP_AUTOPROXY_OPTIONS options{};
  options.dwFlags = WINHTTP_AUTOPROXY_CONFIG_URL;
  options.lpszAutoConfigUrl = scriptUrl.c_str();
  WINHTTP_PROXY_INFO info{};
  const bool answered = WinHttpGetProxyForUrl(session, url.c_str(), &options, &info);
  const DWORD error = answered ? ERROR_SUCCESS : GetLastError();
  const Text proxy(info.lpszProxy);
  const Text bypass(info.lpszProxyBypass);
  PacAnswer answer;
  if (!answered) {
    answer.error = error;
  } else if (info.dwAccessType == WINHTTP_ACCESS_TYPE_NAMED_PROXY && proxy) {
    answer.list = presentable(proxy.get());
    answer.candidates = candidatesIn(answer.list);
  }
  return answer;
}

}  // namespace

ScriptRunner::ScriptRunner(TimeLimits limits)
    : session_(std::make_shared<support::UniqueInternet>(
          WinHttpOpen(L"kiv-resolve/" KIV_VERSION, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                      WINHTTP_NO_PROXY_BYPASS, 0))),
      limits_(limits) {
  if (!*session_) throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "WinHTTP");
}

PacAnswer ScriptRunner::ask(const std::wstring& scriptUrl, const std::wstring& url) const {
  const auto began = std::chrono::steady_clock::now();
  PacAnswer answer = limits_.within(PacAnswer{.error = ERROR_WINHTTP_TIMEOUT}, [session = session_, scriptUrl, url] {
    return answerTo(session->get(), scriptUrl, url);
  });
  answer.duration = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - began);
  return answer;
}

std::vector<std::wstring> candidatesIn(std::wstring_view list) {
  std::vector<impl::ProxyListEntry> entries;
  // A list that breaks off at an error still names the proxies in front of it.
  (void)impl::ParseWinHttpProxyList(list, entries);
  std::vector<std::wstring> candidates;
  std::ranges::transform(entries, std::back_inserter(candidates), candidateText);
  return candidates;
}

}  // namespace kiv::tool
