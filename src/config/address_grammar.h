// The grammar of an address: which texts are one, and which part is what.
#pragma once

#include <optional>
#include <string_view>

namespace kiv::impl {

// The parts of an address, as written. A part that is not there is empty; a part that is there never is.
struct AddressParts {
  std::wstring_view scheme;
  std::wstring_view user;
  std::wstring_view password;
  std::wstring_view host;
  std::wstring_view port;
  std::wstring_view path;
  std::wstring_view query;
};

// Splits [scheme://][user:password@]host[:port][/path[?query]]; nothing for any other text. Takes linear time and
// constant space, whatever the text. The parts point into `text`.
std::optional<AddressParts> splitAddress(std::wstring_view text);

}  // namespace kiv::impl
