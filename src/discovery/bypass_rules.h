// Bypass lists: which targets are reached without a proxy.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "config/address.h"
#include "config/address_grammar.h"
#include "discovery/wildcard.h"

namespace kiv::impl {

// [scheme://]host[:port], where scheme and host may hold "*".
struct BypassPatternRule {
  // Of what the entry names as scheme, host and port; the port is kept modulo 65536.
  explicit BypassPatternRule(const AddressParts& entry);

  WildcardPattern scheme;
  WildcardPattern host;
  std::optional<std::uint16_t> port;
};

// "<local>": hosts without a dot.
struct BypassLocalRule {};

// An entry that is no rule; dropped before anything is matched.
struct BypassInvalidRule {};

using BypassRule = std::variant<BypassPatternRule, BypassLocalRule, BypassInvalidRule>;
static_assert(std::is_trivially_copyable_v<BypassRule>, "no assignment of a rule can fail and leave it empty");

// The rules of a list, in its order; they point into `bypassText`. Throws std::out_of_range for a port beyond the
// unsigned 32-bit range.
std::vector<BypassRule> BuildBypassRules(std::wstring_view bypassText);

// The entries of a list, which point into `bypassText`. Only ";" separates; white space around an entry is dropped.
std::vector<std::wstring_view> SplitBypassList(std::wstring_view bypassText);

BypassRule MakeBypassRule(std::wstring_view entry);

// Takes the invalid rules out.
void removeInvalidRules(std::vector<BypassRule>& rules);

// What rules ask of a target, found once for all of them; it points into the address.
struct BypassTarget {
  BypassTarget(const ParsedAddress& address);  // NOLINT(google-explicit-constructor): an address, as rules see it

  std::wstring_view scheme;
  std::wstring_view host;
  std::optional<std::uint16_t> port;  // that the target is reached at; nothing if its scheme is not known
};

// Whether one of the rules, none of which is invalid, sends the target direct.
bool anyRuleMatches(const std::vector<BypassRule>& rules, const BypassTarget& target);

bool MatchesBypassPattern(const BypassPatternRule& rule, const BypassTarget& target);

// Whether the target's host has no dot. Nothing else makes a host local: not its address, nor its being this machine.
bool IsPlainHostName(const BypassTarget& target);

}  // namespace kiv::impl
