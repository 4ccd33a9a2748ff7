// Counts what the program allocates with new, by standing in for it.
#include "allocation_count.h"

#include <cstdlib>
#include <new>

namespace {

std::size_t count = 0;

}  // namespace

std::size_t kiv::bench::allocations() { return count; }

void* operator new(std::size_t size) {
  ++count;
  if (void* const block = std::malloc(size)) return block;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++count;
  return std::malloc(size);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
