// The ASCII form of host names.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace kiv::impl {

// A host as the system converts it; empty if it has no ASCII form. Has its characters in itself.
class AsciiHost {
 public:
  static constexpr std::size_t kLongest = 255;

  explicit AsciiHost(std::wstring_view host) noexcept;

  std::wstring_view view() const noexcept { return {characters_.data(), length_}; }

 private:
  std::array<wchar_t, kLongest> characters_;  // not filled: that would take longer than all that is done with it
  std::size_t length_ = 0;
};

}  // namespace kiv::impl
