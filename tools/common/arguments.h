// The arguments of the command line, for CLI11.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::tool {

// CLI11 copies its arguments many times and never wipes the copies, but values can be passwords. So it gets a
// placeholder for each value, and the value is read where the C library keeps it.
class Arguments {
 public:
  using Predicate = std::function<bool(std::string_view option)>;

  // `arguments` must outlive this object. Like CLI11, takes whatever follows an option that takes a value as the value.
  Arguments(std::span<const wchar_t* const> arguments, const Predicate& takesValue);

  // The names of options as they are, and placeholders for all else.
  const std::vector<std::string>& forParser() const { return forParser_; }
  std::wstring_view valueOf(const std::string& placeholder) const;

 private:
  std::string placeholderFor(std::wstring_view value);

  std::vector<std::string> forParser_;
  std::vector<std::wstring_view> values_;
};

}  // namespace kiv::tool
