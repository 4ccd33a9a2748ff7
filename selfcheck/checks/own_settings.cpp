// Proxy settings that only this process sees: the user's are neither changed nor read as long as they stand.
#include "checks/own_settings.h"

#include <cstdint>
#include <vector>

#include "common/console.h"
#include "loop/system_error.h"

namespace selfcheck {
namespace {

using kiv::session::SystemError;
using Text = kiv::support::UniqueGlobalText<wchar_t>;

struct CloseKey {
  void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};

constexpr const wchar_t* kConnections = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections";
constexpr const wchar_t* kValue = L"DefaultConnectionSettings";
enum Flag : std::uint32_t { kDirect = 1, kProxies = 2, kScript = 4 };

void check(LSTATUS status) {
  if (status != ERROR_SUCCESS) throw SystemError{static_cast<DWORD>(status)};
}

void append(std::vector<std::uint8_t>& bytes, std::uint32_t number) {
  for (unsigned shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<std::uint8_t>(number >> shift));
}

void append(std::vector<std::uint8_t>& bytes, const std::wstring& text) {
  const std::string narrow = kiv::tool::toUtf8(text);
  append(bytes, static_cast<std::uint32_t>(narrow.size()));
  bytes.insert(bytes.end(), narrow.begin(), narrow.end());
}

// As Windows keeps the settings of a connection: version, counter, flags, three texts, and bytes that are zero.
std::vector<std::uint8_t> encoded(const ProxySettings& settings) {
  constexpr std::uint32_t kVersion = 0x46;
  constexpr std::size_t kZeros = 32;
  std::vector<std::uint8_t> bytes;
  append(bytes, kVersion);
  append(bytes, 1U);
  append(bytes, kDirect | (settings.proxies.empty() ? 0U : kProxies) | (settings.script.empty() ? 0U : kScript));
  append(bytes, settings.proxies);
  append(bytes, settings.bypass);
  append(bytes, settings.script);
  bytes.resize(bytes.size() + kZeros);
  return bytes;
}

std::wstring ownPath() { return L"Software\\kiv-selfcheck." + std::to_wstring(GetCurrentProcessId()); }

std::wstring textOf(const Text& text) { return text ? text.get() : L""; }

}  // namespace

void OwnSettings::DeleteKey::operator()(HKEY key) const noexcept {
  RegCloseKey(key);
  RegDeleteTreeW(HKEY_CURRENT_USER, ownPath().c_str());
}

OwnSettings::OwnSettings(const ProxySettings& settings) : settings_(settings) {
  check(RegCreateKeyExW(HKEY_CURRENT_USER, ownPath().c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                        key_.put(), nullptr));
  kiv::support::Unique<HKEY, CloseKey> connections;
  check(RegCreateKeyExW(key_.get(), kConnections, 0, nullptr, REG_OPTION_VOLATILE, KEY_SET_VALUE, nullptr,
                        connections.put(), nullptr));
  const std::vector<std::uint8_t> value = encoded(settings);
  check(RegSetValueExW(connections.get(), kValue, 0, REG_BINARY, value.data(), static_cast<DWORD>(value.size())));
  check(RegOverridePredefKey(HKEY_CURRENT_USER, key_.get()));
}

OwnSettings::~OwnSettings() { RegOverridePredefKey(HKEY_CURRENT_USER, nullptr); }

bool OwnSettings::areRead() const {
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG read{};
  if (!WinHttpGetIEProxyConfigForCurrentUser(&read)) return false;
  const Text proxies(read.lpszProxy);
  const Text bypass(read.lpszProxyBypass);
  const Text script(read.lpszAutoConfigUrl);
  return !read.fAutoDetect && textOf(proxies) == settings_.proxies && textOf(bypass) == settings_.bypass &&
         textOf(script) == settings_.script;
}

}  // namespace selfcheck
