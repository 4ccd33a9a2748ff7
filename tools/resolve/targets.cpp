// The URLs to reach, and the credentials in them.
#include "resolve/targets.h"

#include <algorithm>

#include "common/ascii.h"

namespace kiv::tool {
namespace {

// The user name and password of a URL: the position after "://" and their length with the "@".
struct UserInfo {
  std::size_t at = 0;
  std::size_t length = 0;
};

UserInfo userInfoOf(std::wstring_view url) {
  const std::size_t start = url.find(L"://") + 3;
  const std::size_t end = url.find(L'@', start);
  return {start, end == std::wstring_view::npos ? 0 : end + 1 - start};
}

std::wstring_view trimmed(std::wstring_view line) {
  constexpr std::wstring_view kSpace = L" \t\r";
  const std::size_t first = line.find_first_not_of(kSpace);
  if (first == std::wstring_view::npos) return {};
  return line.substr(first, line.find_last_not_of(kSpace) + 1 - first);
}

bool isWebScheme(std::wstring_view scheme) {
  return std::ranges::equal(scheme, std::wstring_view(L"http"), {}, asciiLower<wchar_t>) ||
         std::ranges::equal(scheme, std::wstring_view(L"https"), {}, asciiLower<wchar_t>);
}

}  // namespace

std::string problemOfUrl(std::wstring_view url) {
  const std::size_t end = url.find(L"://");
  if (end == std::wstring_view::npos || !isWebScheme(url.substr(0, end))) return "must begin with http:// or https://";
  if (url.find(L'\0') == std::wstring_view::npos && !ProxyConfig::parse(url).is_none()) return {};
  return "is not valid; the form is http[s]://[user:password@]host[:port][/path[?query]]";
}

Target readTarget(std::wstring_view url) {
  const UserInfo userInfo = userInfoOf(url);
  std::wstring bare(url.substr(0, userInfo.at));
  bare += url.substr(userInfo.at + userInfo.length);
  return {std::move(bare), userInfo.length > 0 ? readCred(url.substr(userInfo.at, userInfo.length - 1)) : Credential()};
}

Credential readCred(std::wstring_view userAndPassword) {
  const std::size_t colon = userAndPassword.find(L':');
  if (colon == std::wstring_view::npos) return {};
  return {userAndPassword.substr(0, colon), userAndPassword.substr(colon + 1)};
}

std::variant<std::vector<Target>, std::string> readTargetList(std::wstring_view lines) {
  constexpr wchar_t kByteOrderMark = L'\xFEFF';
  if (lines.starts_with(kByteOrderMark)) lines.remove_prefix(1);
  std::vector<Target> targets;
  for (int number = 1; !lines.empty(); ++number) {
    const std::size_t end = std::min(lines.find(L'\n'), lines.size());
    const std::wstring_view line = trimmed(lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
    if (line.empty() || line.starts_with(L'#')) continue;
    const std::string problem = problemOfUrl(line);
    if (!problem.empty()) return "standard input, line " + std::to_string(number) + ": URL " + problem;
    targets.push_back(readTarget(line));
  }
  if (targets.empty()) return "standard input contains no URL";
  return targets;
}

}  // namespace kiv::tool
