// Which authentication scheme answers a challenge.
#include "http/auth_scheme.h"

#include <algorithm>
#include <array>
#include <string>

namespace kiv::impl {
namespace {

constexpr std::array<DWORD, 5> kPreference = {WINHTTP_AUTH_SCHEME_NEGOTIATE, WINHTTP_AUTH_SCHEME_NTLM,
                                              WINHTTP_AUTH_SCHEME_PASSPORT, WINHTTP_AUTH_SCHEME_DIGEST,
                                              WINHTTP_AUTH_SCHEME_BASIC};

constexpr const wchar_t* kAllowInsecure = L"PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME";

// Nothing if the variable does not exist or cannot be read.
std::optional<std::wstring> environmentVariable(const wchar_t* name) {
  const DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
  if (size == 0) return std::nullopt;
  std::wstring value(size, L'\0');
  const DWORD length = GetEnvironmentVariableW(name, value.data(), size);
  // An empty value has length 0 as well; the size, which counts the terminator, tells it from a failure.
  if (length >= size || (length == 0 && size > 1)) return std::nullopt;
  value.resize(length);
  return value;
}

bool allowsInsecure() {
  const std::optional<std::wstring> value = environmentVariable(kAllowInsecure);
  return value && *value != L"0";
}

}  // namespace

std::optional<DWORD> chooseScheme(DWORD supported) {
  const auto found = std::ranges::find_if(kPreference, [&](DWORD scheme) { return (supported & scheme) != 0; });
  if (found == kPreference.end()) return std::nullopt;
  return *found;
}

std::optional<DWORD> chooseServerScheme(DWORD supported, bool https) {
  const bool insecureAllowed = allowsInsecure();
  const std::optional<DWORD> scheme = chooseScheme(supported);
  if (scheme == WINHTTP_AUTH_SCHEME_BASIC && !https && !insecureAllowed) return std::nullopt;
  return scheme;
}

}  // namespace kiv::impl
