// Bypass lists: which targets are reached without a proxy.
#include "discovery/bypass_rules.h"

#include <algorithm>

#include "support/find_any.h"
#include "support/number.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

// Memory is reserved for as many entries as a list has if they are of this length. To count them first would take as
// long as to read them, and to expect shorter ones would let a hostile list of separators ask for many times its own
// size.
constexpr std::size_t kUsualLength = 16;
constexpr wchar_t kSeparator = L';';
constexpr std::wstring_view kLocal = L"<local>";

std::optional<std::uint16_t> portOf(const ParsedAddress& target) {
  if (target.port || !target.kind) return target.port;
  return defaultPort(*target.kind);
}

// Calls `visit` with each entry of a list, in order.
template <class Visit>
void forEachEntry(std::wstring_view bypassText, Visit visit) {
  while (!bypassText.empty()) {
    const std::size_t length = support::findAny<kSeparator>(bypassText);
    if (length > 0) visit(support::trim(bypassText.substr(0, length)));
    bypassText.remove_prefix(std::min(length + 1, bypassText.size()));
  }
}

}  // namespace

std::vector<std::wstring_view> SplitBypassList(std::wstring_view bypassText) {
  std::vector<std::wstring_view> entries;
  entries.reserve(bypassText.size() / kUsualLength + 1);
  forEachEntry(bypassText, [&](std::wstring_view entry) { entries.push_back(entry); });
  return entries;
}

BypassPatternRule::BypassPatternRule(const AddressParts& entry) : host(WildcardToRegex(entry.host)) {
  if (!entry.scheme.empty()) scheme = WildcardToRegex(entry.scheme);
  if (!entry.port.empty()) port = static_cast<std::uint16_t>(support::toUnsigned32(entry.port));
}

BypassRule MakeBypassRule(std::wstring_view entry) {
  if (entry == kLocal) return BypassLocalRule();
  const std::optional<AddressParts> parts = splitAddress(entry);
  if (!parts) return BypassInvalidRule();
  return BypassPatternRule(*parts);
}

void removeInvalidRules(std::vector<BypassRule>& rules) {
  std::erase_if(rules, [](const BypassRule& rule) { return std::holds_alternative<BypassInvalidRule>(rule); });
}

std::vector<BypassRule> BuildBypassRules(std::wstring_view bypassText) {
  std::vector<BypassRule> rules;
  rules.reserve(bypassText.size() / kUsualLength + 1);
  forEachEntry(bypassText, [&](std::wstring_view entry) { rules.push_back(MakeBypassRule(entry)); });
  removeInvalidRules(rules);
  return rules;
}

BypassTarget::BypassTarget(const ParsedAddress& address)
    : scheme(address.scheme.empty() ? std::wstring_view(L"http") : address.scheme),
      host(address.host),
      port(portOf(address)) {}

bool MatchesBypassPattern(const BypassPatternRule& rule, const BypassTarget& target) {
  return (!rule.port || rule.port == target.port) && rule.scheme.matches(target.scheme) &&
         rule.host.matches(target.host);
}

bool anyRuleMatches(const std::vector<BypassRule>& rules, const BypassTarget& target) {
  return std::ranges::any_of(rules, [&](const BypassRule& rule) {
    const auto* const pattern = std::get_if<BypassPatternRule>(&rule);
    return pattern ? MatchesBypassPattern(*pattern, target) : IsPlainHostName(target);
  });
}

// The hosts that match ^\s*[^\.\s/:@\?]+\s*$
bool IsPlainHostName(const BypassTarget& target) {
  const std::wstring_view name = support::trim(target.host);
  const auto excluded = [](wchar_t c) {
    return support::isSpace(c) || std::wstring_view(L"./:@?").find(c) != std::wstring_view::npos;
  };
  return !name.empty() && std::ranges::none_of(name, excluded);
}

}  // namespace kiv::impl
