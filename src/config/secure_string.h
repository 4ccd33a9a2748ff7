// Memory for passwords in clear: whatever held one is overwritten with zeros, over its whole capacity, when released.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "kiv/cred.h"
#include "support/border.h"
#include "support/platform.h"

namespace kiv::impl {

// An allocator that wipes each block before it frees it. The call cannot be optimised away.
template <class T>
struct WipingAllocator {
  using value_type = T;

  WipingAllocator() = default;
  template <class Other>
  explicit WipingAllocator(const WipingAllocator<Other>& /*other*/) noexcept {}

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* block, std::size_t count) noexcept {
    SecureZeroMemory(block, count * sizeof(T));
    std::allocator<T>().deallocate(block, count);
  }
  bool operator==(const WipingAllocator& /*other*/) const noexcept { return true; }
};

using SecureWideBuffer = std::vector<wchar_t, WipingAllocator<wchar_t>>;

// A text in clear that is wiped when released. Empty, it has no characters at all, not even a terminator. A moved-from
// one has lost its characters but keeps its size.
class SecureString {
 public:
  SecureString() = default;
  // `buffer` holds `length` characters and at least one zero behind them.
  SecureString(SecureWideBuffer&& buffer, std::uint64_t length) noexcept
      : buffer_(std::move(buffer)), length_(length) {}
  SecureString(SecureString&&) = default;
  SecureString& operator=(SecureString&&) = default;
  SecureString(const SecureString&) = delete;
  SecureString& operator=(const SecureString&) = delete;
  ~SecureString() = default;

  // Null if the string is empty or was moved from.
  const wchar_t* c_str() const noexcept { return buffer_.empty() ? nullptr : buffer_.data(); }
  std::uint64_t size() const noexcept { return length_; }
  std::wstring_view view() const noexcept {
    return buffer_.empty() ? std::wstring_view() : std::wstring_view(buffer_.data(), length_);
  }

 private:
  SecureWideBuffer buffer_;
  std::uint64_t length_ = 0;
};

}  // namespace kiv::impl

template <>
struct kiv::support::ObjectOf<KivSecStr> {
  using Type = kiv::impl::SecureString;
};
