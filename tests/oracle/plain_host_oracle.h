// What a plain host name is, evaluated literally as the regular expression that defines it.
#pragma once

#include <memory>
#include <string_view>

namespace kiv::test {

// Classifies characters by the locale that is global when it is made.
class PlainHostOracle {
 public:
  PlainHostOracle();
  ~PlainHostOracle();
  PlainHostOracle(const PlainHostOracle&) = delete;
  PlainHostOracle& operator=(const PlainHostOracle&) = delete;

  bool matches(std::wstring_view host) const;

 private:
  struct Expression;
  std::unique_ptr<const Expression> expression_;
};

}  // namespace kiv::test
