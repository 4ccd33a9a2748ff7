// A PAC script: read from a file, or fetched over http or https.
#include "pac/script.h"

#include <array>
#include <optional>

#include "common/presentable.h"
#include "common/system_text.h"
#include "resolve/failures.h"
#include "resolve/targets.h"
#include "support/owners.h"

namespace kiv::tool {
namespace {

using support::UniqueInternet;

constexpr std::size_t kLargest = 1U << 20U;
constexpr const wchar_t* kTooLarge = L"it is larger than one MiB";

bool isUrl(std::wstring_view name) { return name.find(L"://") != std::wstring_view::npos; }

// `read` stores what there is next, and returns its size: 0 at the end, nothing after a failure.
template <class Read>
std::wstring readAll(std::string& text, Read read) {
  std::array<char, 16384> part{};
  while (text.size() <= kLargest) {
    const std::optional<DWORD> size = read(part.data(), static_cast<DWORD>(part.size()));
    if (!size) return systemText(GetLastError());
    if (*size == 0) return {};
    text.append(part.data(), *size);
  }
  return kTooLarge;
}

std::wstring readFile(const std::wstring& path, std::string& text) {
  support::Unique<HANDLE, support::CloseKernelHandle> file;
  const HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return systemText(GetLastError());
  *file.put() = handle;
  return readAll(text, [&](char* part, DWORD size) -> std::optional<DWORD> {
    DWORD read = 0;
    return ReadFile(file.get(), part, size, &read, nullptr) ? std::optional(read) : std::nullopt;
  });
}

struct Place {
  std::wstring host;
  INTERNET_PORT port = 0;
  bool secure = false;
  std::wstring path;
};

std::optional<Place> placeOf(const std::wstring& url) {
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof(parts);
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = 1;  // asks for views into the URL
  if (!WinHttpCrackUrl(url.c_str(), 0, 0, &parts)) return std::nullopt;
  std::wstring path(parts.lpszUrlPath, parts.dwUrlPathLength);
  path.append(parts.lpszExtraInfo, parts.dwExtraInfoLength);
  return Place{{parts.lpszHostName, parts.dwHostNameLength},
               parts.nPort,
               parts.nScheme == INTERNET_SCHEME_HTTPS,
               std::move(path)};
}

// The status of the answer; nothing after a failure.
std::optional<DWORD> statusOf(HINTERNET request) {
  DWORD disabled = WINHTTP_DISABLE_AUTHENTICATION;
  DWORD status = 0;
  DWORD size = sizeof(status);
  const bool answered =
      WinHttpSetOption(request, WINHTTP_OPTION_DISABLE_FEATURE, &disabled, sizeof(disabled)) &&
      WinHttpSendRequest(request, WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0) &&
      WinHttpReceiveResponse(request, nullptr) &&
      WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, WINHTTP_HEADER_NAME_BY_INDEX,
                          &status, &size, WINHTTP_NO_HEADER_INDEX);
  return answered ? std::optional(status) : std::nullopt;
}

std::wstring fetch(const std::wstring& url, std::string& text) {
  constexpr int kPatience = 15'000;
  const std::optional<Place> place = placeOf(url);
  if (!place) return errorText(GetLastError());
  const UniqueInternet session(WinHttpOpen(L"kiv-resolve/" KIV_VERSION, WINHTTP_ACCESS_TYPE_NO_PROXY,
                                           WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
  if (session) WinHttpSetTimeouts(session.get(), kPatience, kPatience, kPatience, kPatience);
  const UniqueInternet connection(session ? WinHttpConnect(session.get(), place->host.c_str(), place->port, 0)
                                          : nullptr);
  const UniqueInternet request(connection ? WinHttpOpenRequest(connection.get(), L"GET", place->path.c_str(), nullptr,
                                                               WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                                               place->secure ? WINHTTP_FLAG_SECURE : 0)
                                          : nullptr);
  if (!request) return errorText(GetLastError());
  const std::optional<DWORD> status = statusOf(request.get());
  if (!status) return errorText(GetLastError());
  if (*status != HTTP_STATUS_OK) return L"the server answers with status " + std::to_wstring(*status);
  return readAll(text, [&](char* part, DWORD size) -> std::optional<DWORD> {
    DWORD read = 0;
    return WinHttpReadData(request.get(), part, size, &read) ? std::optional(read) : std::nullopt;
  });
}

}  // namespace

std::string mustBeScript(std::wstring_view name) {
  if (name.empty()) return "must name a file or a URL";
  if (!isUrl(name)) return {};
  std::string problem = problemOfUrl(name);
  if (problem.empty() && readTarget(name).url != name) problem = "must not contain a user name or a password";
  return problem;
}

PacScript readScript(std::wstring_view name, const TimeLimits& limits) {
  const PacScript tooLate{.name = presentable(name), .text = {}, .problem = errorText(ERROR_WINHTTP_TIMEOUT)};
  return limits.within(tooLate, [script = PacScript{.name = tooLate.name}, given = std::wstring(name)]() mutable {
    script.problem = isUrl(given) ? fetch(given, script.text) : readFile(given, script.text);
    return script;
  });
}

}  // namespace kiv::tool
