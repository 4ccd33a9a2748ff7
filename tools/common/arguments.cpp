// The arguments of the command line, for CLI11.
#include "common/arguments.h"

#include <algorithm>

#include "common/console.h"

namespace kiv::tool {

Arguments::Arguments(std::span<const wchar_t* const> arguments, const Predicate& takesValue) {
  bool options = true;  // until "--"
  bool wantsValue = false;
  for (const std::wstring_view argument : arguments) {
    // "-" alone is a value.
    if (wantsValue || !options || argument.size() < 2 || argument.front() != L'-') {
      forParser_.push_back(placeholderFor(argument));
      wantsValue = false;
      continue;
    }
    options = argument != L"--";
    const std::size_t end = std::min(argument.find(L'='), argument.size());
    std::string form = toUtf8(argument.substr(0, end));
    if (end < argument.size()) form.append(1, '=').append(placeholderFor(argument.substr(end + 1)));
    wantsValue = takesValue(form);
    forParser_.push_back(std::move(form));
  }
}

std::wstring_view Arguments::valueOf(const std::string& placeholder) const {
  return values_.at(std::stoul(placeholder));
}

std::string Arguments::placeholderFor(std::wstring_view value) {
  values_.push_back(value);
  return std::to_string(values_.size() - 1);
}

}  // namespace kiv::tool
