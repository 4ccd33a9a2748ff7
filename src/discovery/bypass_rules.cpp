// Bypass lists: which targets are reached without a proxy.
#include "discovery/bypass_rules.h"

#include <algorithm>

#include "support/find_any.h"
#include "support/number.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

// Room is made for a list of such entries, so that hostile ones, of nothing but separators, get no more than others.
constexpr std::size_t kUsualLength = 16;
constexpr wchar_t kSeparator = L';';
constexpr std::wstring_view kLocal = L"<local>";

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

// Gives `make` the type of an entry's rule and what it is made of, so that it can be made where it is to stay: moving
// one costs more than reading it.
template <class Make>
auto makeRule(std::wstring_view entry, Make make) {
  if (entry == kLocal) return make(std::in_place_type<BypassLocalRule>);
  const std::optional<AddressParts> parts = splitAddress(entry);
  if (!parts) return make(std::in_place_type<BypassInvalidRule>);
  return make(std::in_place_type<BypassPatternRule>, *parts);
}

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
  return makeRule(entry, [](auto type, const auto&... parts) { return BypassRule(type, parts...); });
}

void RemoveInvalidRules(std::vector<BypassRule>& rules) {
  std::erase_if(rules, [](const BypassRule& rule) { return std::holds_alternative<BypassInvalidRule>(rule); });
}

std::vector<BypassRule> BuildBypassRules(std::wstring_view bypassText) {
  std::vector<BypassRule> rules;
  rules.reserve(bypassText.size() / kUsualLength + 1);
  const auto append = [&](auto type, const auto&... parts) { rules.emplace_back(type, parts...); };
  forEachEntry(bypassText, [&](std::wstring_view entry) { makeRule(entry, append); });
  RemoveInvalidRules(rules);
  return rules;
}

BypassTarget::BypassTarget(const ParsedAddress& address)
    : scheme(address.scheme.empty() ? std::wstring_view(L"http") : address.scheme),
      host(address.host),
      port(portOf(address)) {}

// The host first, which rules out nearly all.
bool MatchesBypassPattern(const BypassPatternRule& rule, const BypassTarget& target) {
  return !rule.host.rulesOut(target.host) && (!rule.port || rule.port == target.port) &&
         rule.scheme.matches(target.scheme) && rule.host.matches(target.host);
}

bool MatchesBypassRules(const std::vector<BypassRule>& rules, const BypassTarget& target) {
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
