// What a site answers, by the path of the request.
#include "ground/answers.h"

#include <charconv>

namespace selfcheck {
namespace {

constexpr std::string_view kScripts = "/pac/";
constexpr std::string_view kStatuses = "/status/";
constexpr std::size_t kBigBody = 2 * 1024 * 1024;

Answer challenge(std::string body) { return {401, {{"WWW-Authenticate", "Basic realm=\"ground\""}}, std::move(body)}; }

std::size_t numberIn(std::string_view text) {
  std::size_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

std::string Answer::written(std::string_view method) const {
  std::string text = "HTTP/1.1 " + std::to_string(status) + " Answer\r\n";
  for (const auto& [name, value] : headers) text += name + ": " + value + "\r\n";
  text += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  return method == "HEAD" ? text : text + body;
}

bool isBasicOfGround(std::string_view header) {
  const Credentials credentials = credentialsIn(header);
  // kUser and kPassword, as RFC 7617 encodes them.
  return credentials.scheme == "Basic" && credentials.token == "c2VsZmNoZWNrOm9ubHkgZm9yIGxvb3BiYWNr";
}

std::string Scripts::add(std::string script) {
  const kiv::session::LockGuard guard(lock_);
  scripts_.push_back(std::move(script));
  return std::string(kScripts) + std::to_string(scripts_.size());
}

std::string Scripts::at(std::string_view path) const {
  if (!path.starts_with(kScripts)) return {};
  const std::size_t number = numberIn(path.substr(kScripts.size()));
  const kiv::session::LockGuard guard(lock_);
  return number >= 1 && number <= scripts_.size() ? scripts_[number - 1] : std::string();
}

Answer siteAnswer(const HttpRequest& request, const Scripts& scripts) {
  const std::string_view path = request.path();
  const bool known = isBasicOfGround(request.header("Authorization"));
  if (path == "/") return {200, {}, "ground\n"};
  if (path == "/big") return {200, {}, std::string(kBigBody, '.')};
  if (path == "/401") return known ? Answer{} : challenge({});
  if (path == "/big401") return known ? Answer{} : challenge(std::string(kBigBody, '.'));
  if (path == "/redirect") return {302, {{"Location", "/"}}};
  if (path == "/silent") return {0};
  if (path.starts_with(kStatuses)) return {static_cast<int>(numberIn(path.substr(kStatuses.size())))};
  const std::string script = scripts.at(path);
  if (script.empty()) return {404};
  return {200, {{"Content-Type", "application/x-ns-proxy-autoconfig"}, {"Cache-Control", "no-store"}}, script};
}

}  // namespace selfcheck
