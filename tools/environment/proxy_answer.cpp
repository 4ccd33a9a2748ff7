// The text of the question to a proxy, and of its answer.
#include <algorithm>
#include <charconv>

#include "common/ascii.h"
#include "common/console.h"
#include "environment/proxy_question.h"

namespace kiv::tool {
namespace {

using std::string_view;

bool isGraphic(char c) { return c > 0x20 && c < 0x7F; }

// What a request's first line cannot have as it is.
std::string encoded(string_view text) {
  constexpr string_view kDigits = "0123456789ABCDEF";
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (isGraphic(c)) {
      result += c;
    } else {
      result.append({'%', kDigits[byte / 16], kDigits[byte % 16]});
    }
  }
  return result;
}

bool isOfName(char c) { return isAsciiLetter(c) || isAsciiDigit(c) || c == '-'; }

bool beginsWith(string_view line, string_view lowerCase) {
  return line.size() >= lowerCase.size() &&
         std::ranges::equal(line.substr(0, lowerCase.size()), lowerCase, {}, asciiLower<char>);
}

string_view trimmed(string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

// The end of the part up to the next comma outside of quotes.
std::size_t partEnd(string_view text) {
  bool quoted = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (quoted && text[at] == '\\') {
      ++at;
    } else if (text[at] == '"') {
      quoted = !quoted;
    } else if (text[at] == ',' && !quoted) {
      return at;
    }
  }
  return text.size();
}

// A challenge is a scheme and, behind a blank, its parameters, which commas separate as they do challenges.
void readChallenges(string_view text, std::vector<std::wstring>& schemes) {
  constexpr std::size_t kMost = 8;
  while (!text.empty() && schemes.size() < kMost) {
    const std::size_t end = partEnd(text);
    const string_view part = trimmed(text.substr(0, end));
    const auto nameEnd = static_cast<std::size_t>(std::ranges::find_if_not(part, isOfName) - part.begin());
    const bool isScheme = nameEnd > 0 && nameEnd <= 32 && (nameEnd == part.size() || part[nameEnd] == ' ');
    if (isScheme) schemes.push_back(toWide(part.substr(0, nameEnd)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

}  // namespace

std::string questionFor(std::wstring_view url, std::wstring_view userAgent) {
  const ProxyConfig target = ProxyConfig::parse(url);
  const std::string host = toUtf8(target.host());
  if (host.empty() || !std::ranges::all_of(host, isGraphic)) return {};
  const std::string address = host + ":" + std::to_string(target.port_or_default().value_or(0));
  const std::wstring_view rest = url.substr(url.find(L"://") + 3);
  const std::wstring_view path = rest.substr(std::min(rest.find_first_of(L"/?"), rest.size()));
  const std::string what = target.is_https()
                               ? "CONNECT " + address
                               : "HEAD http://" + address + (path.starts_with(L'/') ? "" : "/") + encoded(toUtf8(path));
  std::string agent = toUtf8(userAgent);
  std::ranges::replace_if(
      agent, [](char c) { return !isGraphic(c); }, ' ');
  return what + " HTTP/1.1\r\nHost: " + address + "\r\nUser-Agent: " + agent + "\r\nConnection: close\r\n\r\n";
}

ProxyAnswer readAnswer(string_view head) {
  constexpr string_view kAuthenticate = "proxy-authenticate:";
  ProxyAnswer answer;
  const std::size_t blank = head.find(' ');
  if (!head.starts_with("HTTP/1.") || blank == string_view::npos) return answer;
  const string_view code = head.substr(blank + 1, 3);
  if (code.size() < 3 || !std::ranges::all_of(code, isAsciiDigit<char>)) return answer;
  std::from_chars(code.data(), code.data() + code.size(), answer.status);
  if (answer.status != 407) return answer;
  while (!head.empty()) {
    const std::size_t end = std::min(head.find('\n'), head.size());
    const string_view line = head.substr(0, end);
    if (beginsWith(line, kAuthenticate)) readChallenges(line.substr(kAuthenticate.size()), answer.schemes);
    head.remove_prefix(std::min(end + 1, head.size()));
  }
  return answer;
}

}  // namespace kiv::tool
