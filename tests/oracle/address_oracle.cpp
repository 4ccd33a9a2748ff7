// The grammar of an address, evaluated literally as the regular expression that defines it.
#include "oracle/address_oracle.h"

#include <regex>

#include "oracle/whole_match.h"

namespace kiv::test {

struct AddressOracle::Expression {
  std::wregex compiled{
      LR"(^\s*(?:([^/:@\?]+)://)?(?:([^/:@\?]+):([^/:@\?]+)@)?([^/:@\?]+)(?::(\d+))?(?:/([^:@\?]+)?(?:\?([^/:@\?]+))?)?\s*$)",
      std::regex_constants::ECMAScript | std::regex_constants::optimize | std::regex_constants::__polynomial};
};

AddressOracle::AddressOracle() : expression_(std::make_unique<Expression>()) {}
AddressOracle::~AddressOracle() = default;

std::optional<AddressOracle::Groups> AddressOracle::split(std::wstring_view text) const {
  WholeMatch match;
  if (!matchesWhole(text, expression_->compiled, match)) return std::nullopt;
  Groups groups;
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (match[i + 1].matched) groups[i] = {match[i + 1].first, match[i + 1].second};
  }
  return groups;
}

}  // namespace kiv::test
