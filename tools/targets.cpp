// The URLs to reach, and the credentials that stand in them.
#include "targets.h"

#include <windows.h>

#include <algorithm>
#include <string_view>

#include "console.h"

namespace kiv::tool {
namespace {

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

std::string_view trimmed(std::string_view line) {
  constexpr std::string_view kSpace = " \t\r";
  const std::size_t first = line.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  return line.substr(first, line.find_last_not_of(kSpace) + 1 - first);
}

}  // namespace

std::string problemOfUrl(const std::string& url) {
  std::string scheme = url.substr(0, std::min(url.find("://"), url.size()));
  std::ranges::transform(scheme, scheme.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; });
  if (scheme == url || (scheme != "http" && scheme != "https")) return "must begin with http:// or https://";
  const UniqueProxyConfig read(KivProxyConfig_Parse(toWide(url).c_str(), nullptr));
  if (!KivProxyConfig_IsNone(read.get())) return {};
  return "cannot be read; the form is http[s]://[user:password@]host[:port][/path[?query]]";
}

Target readTarget(const std::string& url) {
  const UserInfo userInfo = userInfoOf(url);
  std::string bare = url;
  bare.erase(userInfo.at, userInfo.length);
  return {toWide(bare), userInfo.length > 0 ? readCred(url.substr(userInfo.at, userInfo.length - 1)) : nullptr};
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

std::variant<std::vector<Target>, std::string> readTargetList(std::string_view lines) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (lines.starts_with(kByteOrderMark)) lines.remove_prefix(kByteOrderMark.size());
  std::vector<Target> targets;
  for (int number = 1; !lines.empty(); ++number) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    const std::string line(trimmed(lines.substr(0, end)));
    lines.remove_prefix(std::min(end + 1, lines.size()));
    if (line.empty() || line.starts_with('#')) continue;
    const std::string problem = problemOfUrl(line);
    if (!problem.empty()) return "standard input, line " + std::to_string(number) + ": URL " + problem;
    targets.push_back(readTarget(line));
  }
  if (targets.empty()) return "standard input holds no URL";
  return targets;
}

}  // namespace kiv::tool
