// Proxy scripts in local files, which WinHTTP does not fetch.
#include "discovery/local_script.h"

#include <optional>
#include <string_view>

#include "support/owners.h"
#include "support/platform.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

// The engine's entry points, as it publishes them; the tables that describe a script in memory are never given.
using InitializeFn = BOOL(CALLBACK*)(DWORD version, LPSTR scriptPath, LPSTR mimeType, void* callbacks, void* script);
using GetProxyInfoFn = BOOL(CALLBACK*)(LPCSTR url, DWORD urlLength, LPSTR host, DWORD hostLength, LPSTR* answer,
                                       DWORD* answerLength);

// The engine speaks the code page of the thread. Nothing if the text cannot be converted.
std::optional<std::string> toNarrow(const std::wstring& text) {
  const int size = WideCharToMultiByte(CP_THREAD_ACP, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
  if (size <= 0) return std::nullopt;
  std::string narrow(static_cast<std::size_t>(size), '\0');
  if (WideCharToMultiByte(CP_THREAD_ACP, 0, text.c_str(), -1, narrow.data(), size, nullptr, nullptr) == 0) {
    return std::nullopt;
  }
  narrow.resize(support::upToNul(std::string_view(narrow)).size());
  return narrow;
}

// Engines differ in whether the length counts the terminator.
std::wstring toWide(const char* answer, DWORD length) {
  if (length == 0) return {};
  constexpr DWORD kUpToTerminator = 0xFFFFFFFF;
  int count = MultiByteToWideChar(CP_THREAD_ACP, 0, answer, static_cast<int>(length), nullptr, 0);
  if (length == kUpToTerminator || answer[length - 1] == '\0') --count;
  if (count < 1) return {};
  // One more than is kept, since the conversion writes the terminator as well where it is counted.
  std::wstring wide(static_cast<std::size_t>(count) + 1, L'\0');
  MultiByteToWideChar(CP_THREAD_ACP, 0, answer, static_cast<int>(length), wide.data(), count + 1);
  wide.resize(static_cast<std::size_t>(count));
  return wide;
}

// Leaves the script's path: what follows "file://", as written, or the whole text if that does not occur.
void dropUpToFileScheme(std::string& url) {
  constexpr std::string_view kFile = "file://";
  const std::size_t at = url.find(kFile);
  if (at != std::string::npos) url.erase(0, at + kFile.size());
}

template <class Function>
Function lookUp(const support::UniqueModule& module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module.get(), name)));
}

}  // namespace

bool EvaluateLocalPacScript(const std::wstring& autoConfigUrl, const std::wstring& targetUrl, const std::wstring& host,
                            std::vector<ProxyListEntry>& candidates, std::size_t longestAnswer) {
  if (autoConfigUrl.empty()) return false;
  // Declared in the reverse of the order in which they are released: the engine first, then its answer, then the texts
  // that it was given, which it may point into for as long as it is loaded.
  std::optional<std::string> path = toNarrow(autoConfigUrl);
  if (!path) return false;
  dropUpToFileScheme(*path);
  std::optional<std::string> name;
  std::optional<std::string> url;
  support::UniqueGlobalText<char> answer;
  const support::UniqueModule engine(LoadLibraryW(L"jsproxy.dll"));
  if (!engine) return false;
  const auto initialize = lookUp<InitializeFn>(engine, "InternetInitializeAutoProxyDll");
  if (!initialize || !initialize(0, path->data(), nullptr, nullptr, nullptr)) return false;
  const auto getProxyInfo = lookUp<GetProxyInfoFn>(engine, "InternetGetProxyInfo");
  if (!getProxyInfo) return false;

  url = toNarrow(targetUrl);
  name = toNarrow(host);
  if (!url || !name) return false;
  DWORD length = 0;
  const bool answered = getProxyInfo(url->c_str(), static_cast<DWORD>(url->size()), name->data(),
                                     static_cast<DWORD>(name->size()), answer.put(), &length);
  if (!answered || !answer) return false;
  const std::wstring text = toWide(answer.get(), length);
  (void)ParsePacProxyList(std::wstring_view(text).substr(0, longestAnswer), candidates);
  return true;
}

}  // namespace kiv::impl
