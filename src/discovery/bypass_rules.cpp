// Bypass lists: which targets are reached without a proxy.
#include "discovery/bypass_rules.h"

#include <algorithm>

#include "config/address_grammar.h"
#include "support/number.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

// Port that the target is reached at; nothing if its scheme is not known.
std::optional<std::uint16_t> portOf(const ParsedAddress& target) {
  if (target.port) return target.port;
  if (!target.kind) return std::nullopt;
  switch (*target.kind) {
    case AddressScheme::Http:
      return 80;
    case AddressScheme::Https:
      return 443;
    case AddressScheme::Socks:
      return 1080;
  }
  return 0;
}

}  // namespace

std::vector<std::wstring_view> SplitBypassList(std::wstring_view bypassText) {
  std::vector<std::wstring_view> entries;
  entries.reserve(std::ranges::count(bypassText, L';') + 1);
  while (!bypassText.empty()) {
    const std::size_t length = std::min(bypassText.find(L';'), bypassText.size());
    if (length > 0) entries.push_back(support::trim(bypassText.substr(0, length)));
    bypassText.remove_prefix(std::min(length + 1, bypassText.size()));
  }
  return entries;
}

BypassPatternRule BuildBypassPattern(std::wstring_view scheme, std::wstring_view host, std::wstring_view port) {
  BypassPatternRule rule{std::nullopt, WildcardToRegex(host), std::nullopt};
  if (!scheme.empty()) rule.scheme = WildcardToRegex(scheme);
  if (!port.empty()) rule.port = static_cast<std::uint16_t>(support::toUnsigned32(port));
  return rule;
}

BypassRule MakeBypassRule(std::wstring_view entry) {
  if (entry == L"<local>") return BypassLocalRule();
  const std::optional<AddressParts> parts = splitAddress(entry);
  if (!parts) return BypassInvalidRule();
  return BuildBypassPattern(parts->scheme, parts->host, parts->port);
}

void RemoveInvalidRules(std::vector<BypassRule>& rules) {
  std::erase_if(rules, [](const BypassRule& rule) { return std::holds_alternative<BypassInvalidRule>(rule); });
}

std::vector<BypassRule> BuildBypassRules(std::wstring_view bypassText) {
  const std::vector<std::wstring_view> entries = SplitBypassList(bypassText);
  std::vector<BypassRule> rules;
  rules.reserve(entries.size());
  for (const std::wstring_view entry : entries) rules.push_back(MakeBypassRule(entry));
  RemoveInvalidRules(rules);
  return rules;
}

bool MatchesBypassPattern(const BypassPatternRule& rule, const ParsedAddress& target) {
  if (rule.port && rule.port != portOf(target)) return false;
  const std::wstring_view scheme = target.scheme.empty() ? std::wstring_view(L"http") : target.scheme;
  if (rule.scheme && !rule.scheme->matches(scheme)) return false;
  return rule.host.matches(target.host);
}

// The hosts that match ^\s*[^\.\s/:@\?]+\s*$
bool IsPlainHostName(const ParsedAddress& target) {
  const std::wstring_view name = support::trim(target.host);
  const auto excluded = [](wchar_t c) {
    return support::isSpace(c) || std::wstring_view(L"./:@?").find(c) != std::wstring_view::npos;
  };
  return !name.empty() && std::ranges::none_of(name, excluded);
}

}  // namespace kiv::impl
