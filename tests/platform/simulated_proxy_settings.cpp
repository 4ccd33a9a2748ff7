// Where the system says which proxies to use: the user's settings, automatic proxies, the script engine; and URLs.
#include <algorithm>
#include <cstring>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

bool startsWith(std::wstring_view text, std::wstring_view lowerPrefix) {
  return text.size() >= lowerPrefix.size() &&
         std::ranges::equal(text.substr(0, lowerPrefix.size()), lowerPrefix,
                            [](wchar_t a, wchar_t b) { return (a >= L'A' && a <= L'Z' ? a + 32 : int{a}) == int{b}; });
}

bool isPort(std::wstring_view digits) {
  unsigned port = 0;
  for (const wchar_t c : digits) {
    if (c < L'0' || c > L'9') return false;
    port = port * 10 + static_cast<unsigned>(c - L'0');
    if (port > 65535) return false;
  }
  return true;
}

// Cuts the host out of a URL; gives 0 or the error with which cracking fails.
DWORD crackHost(std::wstring_view url, std::wstring_view& host) {
  const std::size_t colon = url.find(L"://");
  if (colon == std::wstring_view::npos || colon == 0) return ERROR_WINHTTP_INVALID_URL;
  if (!startsWith(url, L"http://") && !startsWith(url, L"https://")) return ERROR_WINHTTP_UNRECOGNIZED_SCHEME;
  host = url.substr(colon + 3);
  host = host.substr(0, host.find_first_of(L"/?#"));
  if (const std::size_t at = host.rfind(L'@'); at != std::wstring_view::npos) host.remove_prefix(at + 1);
  const std::size_t bracket = host.rfind(L']');
  const std::size_t port = host.find(L':', bracket == std::wstring_view::npos ? 0 : bracket);
  if (port != std::wstring_view::npos) {
    if (!isPort(host.substr(port + 1))) return ERROR_WINHTTP_INVALID_URL;
    host = host.substr(0, port);
  }
  return host.empty() ? ERROR_WINHTTP_INVALID_URL : NO_ERROR;
}

BOOL answerAutoProxy(Entry& call, const AutoProxyAnswer& answer, WINHTTP_PROXY_INFO& info) {
  if (!call.spend(answer.takes)) return call.fail(ERROR_WINHTTP_AUTO_PROXY_SERVICE_ERROR, FALSE);
  State& state = call.state();
  info.dwAccessType = answer.proxy ? WINHTTP_ACCESS_TYPE_NAMED_PROXY : WINHTTP_ACCESS_TYPE_NO_PROXY;
  info.lpszProxy = state.newText(answer.proxy);
  info.lpszProxyBypass = state.newText(answer.bypass);
  return answer.error || answer.failsWithoutCode ? call.fail(answer.error, FALSE) : call.succeed(TRUE);
}

// A component is asked for by a buffer or a length that is not 0.
bool isOnlyHostAskedFor(const URL_COMPONENTS& components) {
  return !components.lpszScheme && !components.dwSchemeLength && !components.lpszUserName &&
         !components.dwUserNameLength && !components.lpszPassword && !components.dwPasswordLength &&
         !components.lpszUrlPath && !components.dwUrlPathLength && !components.lpszExtraInfo &&
         !components.dwExtraInfoLength && !components.nScheme && !components.nPort;
}

AutoProxyAnswer nextAnswer(const std::vector<AutoProxyAnswer>& answers, std::size_t& consumed) {
  if (answers.empty()) return {.error = ERROR_WINHTTP_AUTO_PROXY_SERVICE_ERROR};
  return answers[std::min(consumed++, answers.size() - 1)];
}

// The engine's functions are only valid while its module is loaded.
void checkModule(Entry& call) {
  for (const auto& [address, resource] : call.state().resources) {
    if (resource.kind == Kind::Module && !resource.released) return;
  }
  call.state().complaints.push_back(call.name() + " was called while its module was not loaded");
}

// The engine sees the bytes up to the length that it was told, but never beyond the terminator.
std::wstring seen(const char* text, DWORD length) {
  return text ? toWide(std::string_view(text, strnlen(text, length))) : L"null";
}

BOOL CALLBACK initializeEngine(DWORD version, LPSTR path, LPSTR mime, LPVOID functions, LPVOID script) {
  Entry call("InternetInitializeAutoProxyDll");
  call.number(L"version", version).text(L"path", std::wstring_view(path ? toWide(path) : L"null"));
  call.text(L"mime", mime ? L"set" : L"null").text(L"functions", functions ? L"set" : L"null");
  call.text(L"script", script ? L"set" : L"null");
  checkModule(call);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  const BOOL result = call.windows().scriptEngine.initializeResult;
  return result ? call.succeed(result) : call.fail(ERROR_FILE_NOT_FOUND, result);
}

BOOL CALLBACK getProxyInfo(LPCSTR url, DWORD urlLength, LPSTR host, DWORD hostLength, LPSTR* answer, LPDWORD length) {
  Entry call("InternetGetProxyInfo");
  call.text(L"url", std::wstring_view(seen(url, urlLength))).number(L"urlLength", urlLength);
  call.text(L"host", std::wstring_view(seen(host, hostLength))).number(L"hostLength", hostLength);
  checkModule(call);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  const ScriptEngine& engine = call.windows().scriptEngine;
  if (!call.spend(engine.takes)) return call.fail(ERROR_GEN_FAILURE, FALSE);
  if (engine.answer) {
    const std::string& bytes = *engine.answer;
    *answer = static_cast<LPSTR>(call.state().newBlock(Kind::GlobalBlock, bytes.c_str(), bytes.size() + 1));
    if (engine.reportsLength) *length = engine.reportedLength.value_or(static_cast<DWORD>(bytes.size()));
  }
  const BOOL result = engine.getInfoResult;
  return result ? call.succeed(result) : call.fail(ERROR_GEN_FAILURE, result);
}

}  // namespace
}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

BOOL WINAPI WinHttpCrackUrl(LPCWSTR url, DWORD length, DWORD flags, LPURL_COMPONENTS components) {
  Entry call("WinHttpCrackUrl");
  const std::wstring_view whole = !url ? std::wstring_view() : length ? std::wstring_view(url, length) : url;
  call.text(L"url", whole).number(L"length", length).flags(L"flags", flags);
  if (components) {
    call.number(L"hostLength", components->dwHostNameLength);
    if (!isOnlyHostAskedFor(*components)) call.text(L"others", L"set");
  }
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  if (!url || !components || components->dwStructSize != sizeof(URL_COMPONENTS)) {
    return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  std::wstring_view host;
  if (const DWORD error = crackHost(whole, host)) return call.fail(error, FALSE);
  const DWORD capacity = components->dwHostNameLength;
  components->dwHostNameLength = static_cast<DWORD>(host.size());
  if (!components->lpszHostName) {
    if (capacity) components->lpszHostName = const_cast<LPWSTR>(host.data());
    return call.succeed(TRUE);
  }
  if (host.size() >= capacity) {
    components->dwHostNameLength = static_cast<DWORD>(host.size() + 1);
    return call.fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  }
  std::ranges::copy(host, components->lpszHostName);
  components->lpszHostName[host.size()] = L'\0';
  components->dwHostNameLength = call.windows().crackedHostLength.value_or(components->dwHostNameLength);
  return call.succeed(TRUE);
}

BOOL WINAPI WinHttpGetIEProxyConfigForCurrentUser(WINHTTP_CURRENT_USER_IE_PROXY_CONFIG* config) {
  Entry call("WinHttpGetIEProxyConfigForCurrentUser");
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  if (!config) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  const auto& otherUsers = call.windows().otherUsers;
  const auto other = otherUsers.find(call.user());
  const UserSettings& user = other == otherUsers.end() ? call.windows().user : other->second;
  config->fAutoDetect = user.autoDetect ? TRUE : FALSE;
  config->lpszAutoConfigUrl = call.state().newText(user.autoConfigUrl);
  config->lpszProxy = call.state().newText(user.proxy);
  config->lpszProxyBypass = call.state().newText(user.bypass);
  return user.error ? call.fail(user.error, FALSE) : call.succeed(TRUE);
}

BOOL WINAPI WinHttpGetProxyForUrl(HINTERNET session, LPCWSTR url, WINHTTP_AUTOPROXY_OPTIONS* options,
                                  WINHTTP_PROXY_INFO* info) {
  Entry call("WinHttpGetProxyForUrl");
  call.handle(L"session", session).text(L"url", url);
  if (options) {
    call.number(L"flags", options->dwFlags).number(L"detect", options->dwAutoDetectFlags);
    call.text(L"configUrl", options->lpszAutoConfigUrl);
    call.number(L"autoLogon", options->fAutoLogonIfChallenged ? 1 : 0);
    if (options->lpvReserved || options->dwReserved) call.text(L"reserved", L"set");
  }
  if (info && (info->dwAccessType || info->lpszProxy || info->lpszProxyBypass)) call.text(L"info", L"set");
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  State& state = call.state();
  if (!state.check(session, Kind::Internet, call.name())) return call.fail(ERROR_INVALID_HANDLE, FALSE);
  if (!url || !options || !info) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  const SimulatedWindows& windows = call.windows();
  if (options->dwFlags & WINHTTP_AUTOPROXY_AUTO_DETECT) {
    return answerAutoProxy(call, nextAnswer(windows.autoDetection, state.detections), *info);
  }
  if (windows.decideConfig) return answerAutoProxy(call, windows.decideConfig(url), *info);
  return answerAutoProxy(call, nextAnswer(windows.autoConfig, state.configurations), *info);
}

HMODULE WINAPI LoadLibraryW(LPCWSTR fileName) {
  Entry call("LoadLibraryW");
  call.text(L"file", fileName);
  if (call.fault()) return call.fail(*call.fault(), HMODULE{});
  if (!fileName || std::wstring_view(fileName) != L"jsproxy.dll" || !call.windows().scriptEngine.present) {
    return call.fail(ERROR_MOD_NOT_FOUND, HMODULE{});
  }
  return call.succeed(static_cast<HMODULE>(call.state().newHandle(Kind::Module, "module")));
}

FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name) {
  Entry call("GetProcAddress");
  call.handle(L"module", module).text(L"name", std::wstring_view(name ? toWide(name) : L"null"));
  if (call.fault()) return call.fail(*call.fault(), FARPROC{});
  if (call.state().changes.modules.contains(module)) return findSystemProcedure(call, module, name ? name : "");
  if (!call.state().check(module, Kind::Module, call.name())) return call.fail(ERROR_MOD_NOT_FOUND, FARPROC{});
  const ScriptEngine& engine = call.windows().scriptEngine;
  const std::string_view wanted = name ? name : "";
  if (wanted == "InternetInitializeAutoProxyDll" && engine.hasInitialize) {
    return call.succeed(toProcedure(&initializeEngine));
  }
  if (wanted == "InternetGetProxyInfo" && engine.hasGetInfo) return call.succeed(toProcedure(&getProxyInfo));
  return call.fail(ERROR_PROC_NOT_FOUND, FARPROC{});
}

BOOL WINAPI FreeLibrary(HMODULE module) {
  Entry call("FreeLibrary");
  call.handle(L"module", module);
  if (!call.state().release(module, Kind::Module, call.name())) return call.fail(ERROR_INVALID_HANDLE, FALSE);
  return call.succeed(TRUE);
}
