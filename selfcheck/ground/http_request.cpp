// A request as a server of the ground reads it.
#include "ground/http_request.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "common/ascii.h"

namespace selfcheck {
namespace {

constexpr std::string_view kEndOfLine = "\r\n";
constexpr std::string_view kEndOfHead = "\r\n\r\n";

bool equal(std::string_view one, std::string_view other) {
  using kiv::tool::asciiLower;
  return std::ranges::equal(one, other, {}, asciiLower<char>, asciiLower<char>);
}

std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

// Takes the text up to `end` away from `text`, and `end` too.
std::string_view take(std::string_view& text, std::string_view end) {
  const std::size_t at = std::min(text.find(end), text.size());
  const std::string_view taken = text.substr(0, at);
  text.remove_prefix(std::min(at + end.size(), text.size()));
  return taken;
}

HttpRequest parse(std::string_view head) {
  HttpRequest request;
  std::string_view line = take(head, kEndOfLine);
  request.method = take(line, " ");
  request.target = take(line, " ");
  while (!head.empty()) {
    std::string_view value = take(head, kEndOfLine);
    const std::string_view name = take(value, ":");
    request.headers.emplace_back(name, trimmed(value));
  }
  return request;
}

std::size_t bodySizeOf(const HttpRequest& request) {
  const std::string_view text = request.header("Content-Length");
  std::size_t size = 0;
  std::from_chars(text.data(), text.data() + text.size(), size);
  return size;
}

}  // namespace

std::string_view HttpRequest::header(std::string_view name) const {
  const auto found = std::ranges::find_if(headers, [&](const auto& header) { return equal(header.first, name); });
  return found == headers.end() ? std::string_view() : std::string_view(found->second);
}

std::string_view HttpRequest::path() const {
  std::string_view rest = target;
  if (const std::size_t scheme = rest.find("://"); scheme != std::string_view::npos) {
    rest.remove_prefix(scheme + 3);
    rest.remove_prefix(std::min(rest.find('/'), rest.size()));
  }
  return rest.empty() ? std::string_view("/") : rest;
}

Credentials credentialsIn(std::string_view header) {
  Credentials credentials;
  credentials.scheme = take(header, " ");
  credentials.token = trimmed(header);
  return credentials;
}

bool HttpReader::more() {
  std::array<char, 4096> buffer{};
  const std::size_t size = stream_.read(buffer);
  rest_.append(buffer.data(), size);
  return size != 0;
}

bool HttpReader::beginsWithTls() {
  constexpr char kHandshake = 0x16;
  return (!rest_.empty() || more()) && rest_.front() == kHandshake;
}

std::optional<HttpRequest> HttpReader::next() {
  constexpr std::size_t kLongestHead = 64 * 1024;
  while (rest_.find(kEndOfHead) == std::string::npos) {
    if (rest_.size() > kLongestHead || !more()) return std::nullopt;
  }
  const std::size_t end = rest_.find(kEndOfHead);
  HttpRequest request = parse(std::string_view(rest_).substr(0, end));
  const std::size_t whole = end + kEndOfHead.size() + bodySizeOf(request);
  while (rest_.size() < whole) {
    if (!more()) return std::nullopt;
  }
  rest_.erase(0, whole);
  return request;
}

}  // namespace selfcheck
