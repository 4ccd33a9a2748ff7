// What a plain host name is, evaluated literally as the regular expression that defines it.
#include "oracle/plain_host_oracle.h"

#include <regex>

namespace kiv::test {

struct PlainHostOracle::Expression {
  std::wregex compiled{LR"(^\s*[^\.\s/:@\?]+\s*$)", std::regex_constants::ECMAScript | std::regex_constants::optimize |
                                                        std::regex_constants::__polynomial};
};

PlainHostOracle::PlainHostOracle() : expression_(std::make_unique<Expression>()) {}
PlainHostOracle::~PlainHostOracle() = default;

bool PlainHostOracle::matches(std::wstring_view host) const {
  return std::regex_match(host.data(), host.data() + host.size(), expression_->compiled);
}

}  // namespace kiv::test
