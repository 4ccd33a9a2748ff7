// Matching of a whole text with a regular expression, made fast enough for hundreds of thousands of texts.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <regex>
#include <string_view>
#include <utility>

namespace kiv::test {

// Keeps the blocks that were freed for the next ones of the kind. The engine copies the groups for every state and
// every character, and a sanitizer makes each allocation dear. For one thread.
template <class T>
struct KeepingAllocator {
  using value_type = T;

  KeepingAllocator() = default;
  template <class Other>
  explicit KeepingAllocator(const KeepingAllocator<Other>&) noexcept {}

  T* allocate(std::size_t count) {
    if (count > kCount) return std::allocator<T>().allocate(count);
    if (!kept) return std::allocator<T>().allocate(kCount);
    return reinterpret_cast<T*>(std::exchange(kept, kept->next));
  }
  void deallocate(T* block, std::size_t count) noexcept {
    if (count > kCount) return std::allocator<T>().deallocate(block, count);
    kept = new (static_cast<void*>(block)) Kept{kept};
  }
  bool operator==(const KeepingAllocator&) const noexcept { return true; }

 private:
  struct Kept {
    Kept* next;
  };
  // Enough for the groups of any of our expressions.
  static constexpr std::size_t kCount = 12;
  static inline Kept* kept = nullptr;
};

using WholeMatch = std::match_results<const wchar_t*, KeepingAllocator<std::sub_match<const wchar_t*>>>;

inline bool matchesWhole(std::wstring_view text, const std::wregex& expression, WholeMatch& match) {
  return std::regex_match(text.data(), text.data() + text.size(), match, expression);
}

inline bool matchesWhole(std::wstring_view text, const std::wregex& expression) {
  WholeMatch match;
  return matchesWhole(text, expression, match);
}

}  // namespace kiv::test
