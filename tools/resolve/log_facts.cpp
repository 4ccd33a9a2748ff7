// Facts that only the library's log lines contain, because no callback reports them.
#include "resolve/log_facts.h"

#include <string>

namespace kiv::tool {
namespace {

constexpr std::wstring_view kDiscoveryFailed = L"lorvResolveProxy() returned error status.";
constexpr std::wstring_view kBypassList = L"Proxy bypass list: ";
constexpr std::wstring_view kBypassed = L" is matched to the bypass list (";
constexpr std::wstring_view kAttempt = L"No. ";
constexpr std::wstring_view kInvalid = L": Invalid proxy";
constexpr std::wstring_view kErrorCode = L" failed. ErrorCode = ";

// Removes and returns the number at the beginning of a text; nothing if there is none, or one of too many digits.
std::optional<unsigned> takeNumber(std::wstring_view& text) {
  constexpr std::size_t kMostDigits = 9;
  const std::size_t digits = std::min(text.find_first_not_of(L"0123456789"), text.size());
  if (digits == 0 || digits > kMostDigits) return std::nullopt;
  unsigned number = 0;
  for (const wchar_t digit : text.substr(0, digits)) number = number * 10 + static_cast<unsigned>(digit - L'0');
  text.remove_prefix(digits);
  return number;
}

LogFact attemptOf(std::wstring_view message) {
  message.remove_prefix(kAttempt.size());
  const std::optional<unsigned> number = takeNumber(message);
  if (!number || !message.starts_with(L": ")) return {};
  return {message == kInvalid ? FactKind::InvalidCandidate : FactKind::Attempt, *number};
}

}  // namespace

LogFact factOf(std::wstring_view message, std::wstring_view url) {
  if (message.starts_with(kAttempt)) return attemptOf(message);
  if (message == kDiscoveryFailed) return {FactKind::DiscoveryFailed};
  if (message.starts_with(kBypassList)) return {FactKind::BypassList, 0, message.substr(kBypassList.size())};
  if (message.starts_with(url) && message.substr(url.size()).starts_with(kBypassed)) return {FactKind::Bypassed};
  return {};
}

std::optional<unsigned> errorCodeOf(std::wstring_view message) {
  const std::size_t at = message.rfind(kErrorCode);
  if (at == std::wstring_view::npos) return std::nullopt;
  message.remove_prefix(at + kErrorCode.size());
  const std::optional<unsigned> code = takeNumber(message);
  return message.empty() ? code : std::nullopt;
}

}  // namespace kiv::tool
