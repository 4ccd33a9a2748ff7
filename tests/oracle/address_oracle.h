// The grammar of an address, evaluated literally as the regular expression that defines it.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string_view>

namespace kiv::test {

// Slow, but its engine neither recurses on the text nor backtracks. Classifies characters by the locale that is global
// when it is made.
class AddressOracle {
 public:
  // Scheme, user, password, host, port, path, query; empty if not there.
  using Groups = std::array<std::wstring_view, 7>;

  AddressOracle();
  ~AddressOracle();
  AddressOracle(const AddressOracle&) = delete;
  AddressOracle& operator=(const AddressOracle&) = delete;

  std::optional<Groups> split(std::wstring_view text) const;

 private:
  struct Expression;
  std::unique_ptr<const Expression> expression_;
};

}  // namespace kiv::test
