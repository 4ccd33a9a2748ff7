// How much of what new handed out was in use at most, by standing in for new.
#include "peak_memory.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

std::size_t inUse = 0;
std::size_t most = 0;

void* counted(void* block) {
  if (block) most = std::max(most, inUse += malloc_usable_size(block));
  return block;
}

}  // namespace

std::size_t kiv::bench::peakBytesOf(const std::function<void()>& work) {
  const std::size_t before = inUse;
  most = before;
  work();
  return most - before;
}

void* operator new(std::size_t size) {
  if (void* const block = counted(std::malloc(size))) return block;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return counted(std::malloc(size)); }
void operator delete(void* block) noexcept {
  if (block) inUse -= malloc_usable_size(block);
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
