// Text that may hold passwords.
#pragma once

#include <windows.h>

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace kiv::tool {

// Wipes each block before it frees it, also when a vector grows. The compiler cannot remove SecureZeroMemory.
template <class T>
struct WipingAllocator {
  using value_type = T;

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* block, std::size_t count) noexcept {
    SecureZeroMemory(block, count * sizeof(T));
    std::allocator<T>().deallocate(block, count);
  }
  bool operator==(const WipingAllocator& /*other*/) const noexcept { return true; }
};

// A text that is wiped when destroyed. It is a vector because a short std::basic_string lies in the object itself,
// where no allocator wipes it.
template <class Character>
using Wiped = std::vector<Character, WipingAllocator<Character>>;

template <class Character>
std::basic_string_view<Character> viewOf(const Wiped<Character>& text) {
  return {text.data(), text.size()};
}

}  // namespace kiv::tool
