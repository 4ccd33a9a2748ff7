// What a plain host name is, evaluated literally as the regular expression that defines it.
#include "oracle/plain_host_oracle.h"

#include <regex>

#include "oracle/whole_match.h"

namespace kiv::test {

struct PlainHostOracle::Expression {
  std::wregex compiled{LR"(^\s*[^\.\s/:@\?]+\s*$)", std::regex_constants::ECMAScript | std::regex_constants::optimize |
                                                        std::regex_constants::__polynomial};
};

PlainHostOracle::PlainHostOracle() : expression_(std::make_unique<Expression>()) {}
PlainHostOracle::~PlainHostOracle() = default;

bool PlainHostOracle::matches(std::wstring_view host) const { return matchesWhole(host, expression_->compiled); }

}  // namespace kiv::test
