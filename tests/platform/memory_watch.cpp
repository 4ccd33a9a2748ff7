// The test executable's operator new and delete, and what is known about the blocks that went through them.
#include "platform/memory_watch.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>

#ifdef _WIN32
#include <malloc.h>
#endif

namespace kiv::test {
namespace {

constexpr unsigned char kFreshByte = 0xA5;
constexpr unsigned char kDisguise = 0x5A;

// The bookkeeping must not call operator new again.
template <class T>
struct PlainAllocator {
  using value_type = T;
  PlainAllocator() = default;
  template <class Other>
  PlainAllocator(const PlainAllocator<Other>&) noexcept {}  // NOLINT(google-explicit-constructor): allocators convert
  T* allocate(std::size_t count) {
    void* memory = std::malloc(count * sizeof(T));
    if (!memory) std::abort();
    return static_cast<T*>(memory);
  }
  void deallocate(T* memory, std::size_t) noexcept { std::free(memory); }
  bool operator==(const PlainAllocator&) const noexcept { return true; }
};

template <class T>
using PlainVector = std::vector<T, PlainAllocator<T>>;
using Bytes = PlainVector<unsigned char>;

struct Block {
  std::size_t size;
  std::uint64_t sequence;
};

struct Pattern {
  const char* encoding;
  Bytes disguised;
};

struct Finding {
  const char* encoding;
  std::size_t size;
  std::size_t offset;
};

struct Watch {
  std::mutex mutex;
  std::unordered_map<void*, Block, std::hash<void*>, std::equal_to<>, PlainAllocator<std::pair<void* const, Block>>>
      blocks;
  std::uint64_t nextSequence = 0;
  std::size_t bytes = 0;  // of all blocks
  std::size_t mostBytes = 0;
  PlainVector<Pattern> patterns;
  PlainVector<Finding> findings;
};

std::atomic<int> scopes{0};
std::atomic<std::size_t> trackedBlocks{0};

thread_local bool counting = false;
thread_local std::size_t counted = 0;
thread_local std::size_t failing = 0;

// The same for all threads.
std::atomic<bool> countingAll{false};
std::atomic<std::size_t> countedOfAll{0};
std::atomic<std::size_t> failingOfAll{0};

// The sizes of the blocks that were allocated while a Recycling is alive, and those of them that wait to be used again.
struct Recycled {
  template <class Key, class Value>
  using Map =
      std::unordered_map<Key, Value, std::hash<Key>, std::equal_to<>, PlainAllocator<std::pair<const Key, Value>>>;

  std::mutex mutex;
  Map<void*, std::size_t> sizes;
  Map<std::size_t, PlainVector<void*>> waiting;
};

std::atomic<Recycled*> recycled{nullptr};

void* allocateRecycled(Recycled& blocks, std::size_t size) {
  const std::lock_guard lock(blocks.mutex);
  PlainVector<void*>& waiting = blocks.waiting[size];
  if (!waiting.empty()) {
    void* const block = waiting.back();
    waiting.pop_back();
    return block;
  }
  void* const block = std::malloc(size);
  if (block) blocks.sizes[block] = size;
  return block;
}

// Keeps a block for later if it is one of these.
bool recycle(Recycled& blocks, void* block) {
  const std::lock_guard lock(blocks.mutex);
  const auto found = blocks.sizes.find(block);
  if (found == blocks.sizes.end()) return false;
  blocks.waiting[found->second].push_back(block);
  return true;
}

// Never destroyed: blocks are released until the very end of the process.
Watch& watch() {
  alignas(Watch) static unsigned char memory[sizeof(Watch)];
  static Watch* const instance = new (memory) Watch;
  return *instance;
}

std::size_t find(const unsigned char* data, std::size_t size, const Bytes& disguised) {
  const std::size_t length = disguised.size();
  for (std::size_t at = 0; at + length <= size; ++at) {
    std::size_t same = 0;
    while (same < length && static_cast<unsigned char>(data[at + same] ^ kDisguise) == disguised[same]) ++same;
    if (same == length) return at;
  }
  return size;
}

void scan(const Watch& state, const void* block, std::size_t size, PlainVector<Finding>& findings) {
  for (const Pattern& pattern : state.patterns) {
    const std::size_t at = find(static_cast<const unsigned char*>(block), size, pattern.disguised);
    if (at != size) findings.push_back({pattern.encoding, size, at});
  }
}

bool mustFail() {
  if (MemoryWatch::isPaused()) return false;
  if (counting && ++counted == failing) return true;
  return countingAll && ++countedOfAll == failingOfAll;
}

void track(void* block, std::size_t size) {
  if (scopes.load(std::memory_order_relaxed) == 0 || MemoryWatch::isPaused()) return;
  std::memset(block, kFreshByte, size);
  Watch& state = watch();
  const std::lock_guard lock(state.mutex);
  state.blocks[block] = {size, state.nextSequence++};
  state.bytes += size;
  state.mostBytes = std::max(state.mostBytes, state.bytes);
  trackedBlocks.fetch_add(1, std::memory_order_relaxed);
}

void untrack(void* block) noexcept {
  if (!block || trackedBlocks.load(std::memory_order_relaxed) == 0) return;
  Watch& state = watch();
  const std::lock_guard lock(state.mutex);
  const auto found = state.blocks.find(block);
  if (found == state.blocks.end()) return;
  scan(state, block, found->second.size, state.findings);
  state.bytes -= found->second.size;
  state.blocks.erase(found);
  trackedBlocks.fetch_sub(1, std::memory_order_relaxed);
}

void* allocate(std::size_t size) noexcept {
  if (mustFail()) return nullptr;
  Recycled* const blocks = recycled;
  void* block = blocks ? allocateRecycled(*blocks, size ? size : 1) : std::malloc(size ? size : 1);
  if (block) track(block, size);
  return block;
}

void* allocateAligned(std::size_t size, std::align_val_t alignment) noexcept {
  if (mustFail()) return nullptr;
  const auto boundary = static_cast<std::size_t>(alignment);
#ifdef _WIN32
  void* block = _aligned_malloc(size ? size : 1, boundary);
#else
  void* block = std::aligned_alloc(boundary, (size + boundary - 1) / boundary * boundary + (size ? 0 : boundary));
#endif
  if (block) track(block, size);
  return block;
}

void release(void* block) noexcept {
  untrack(block);
  Recycled* const blocks = recycled;
  if (!blocks || !recycle(*blocks, block)) std::free(block);
}

void releaseAligned(void* block) noexcept {
  untrack(block);
#ifdef _WIN32
  _aligned_free(block);
#else
  std::free(block);
#endif
}

void* orThrow(void* block) {
  if (!block) throw std::bad_alloc();
  return block;
}

std::vector<std::string> describe(const PlainVector<Finding>& findings, const char* kind) {
  std::vector<std::string> lines;
  for (const Finding& finding : findings) {
    lines.push_back(std::string(kind) + " block of " + std::to_string(finding.size) + " bytes holds the secret as " +
                    finding.encoding + " at offset " + std::to_string(finding.offset));
  }
  return lines;
}

void appendUtf16(Bytes& bytes, char32_t point) {
  const auto unit = [&](unsigned value) {
    bytes.push_back(static_cast<unsigned char>(value & 0xFF));
    bytes.push_back(static_cast<unsigned char>(value >> 8));
  };
  if (point < 0x10000) return unit(static_cast<unsigned>(point));
  unit(0xD800U + static_cast<unsigned>((point - 0x10000) >> 10));
  unit(0xDC00U + static_cast<unsigned>((point - 0x10000) & 0x3FF));
}

void appendUtf8(Bytes& bytes, char32_t point) {
  const auto byte = [&](char32_t value) { bytes.push_back(static_cast<unsigned char>(value)); };
  const auto tail = [&](int shift) { byte(0x80 | ((point >> shift) & 0x3F)); };
  if (point < 0x80) return byte(point);
  if (point < 0x800) {
    byte(0xC0 | (point >> 6));
  } else {
    if (point < 0x10000) {
      byte(0xE0 | (point >> 12));
    } else {
      byte(0xF0 | (point >> 18));
      tail(12);
    }
    tail(6);
  }
  tail(0);
}

void addPattern(Watch& state, const char* encoding, Bytes bytes) {
  for (unsigned char& byte : bytes) byte ^= kDisguise;
  state.patterns.push_back({encoding, std::move(bytes)});
}

}  // namespace

MemoryWatch::Scope::Scope() : first_(0), before_(0) {
  Watch& state = watch();
  const std::lock_guard lock(state.mutex);
  first_ = state.nextSequence;
  before_ = state.mostBytes = state.bytes;
  ++scopes;
}

MemoryWatch::Scope::~Scope() { --scopes; }

std::size_t MemoryWatch::Scope::liveBlocks() const {
  Watch& state = watch();
  const std::lock_guard lock(state.mutex);
  std::size_t live = 0;
  for (const auto& [address, block] : state.blocks) live += block.sequence >= first_ ? 1 : 0;
  return live;
}

std::size_t MemoryWatch::Scope::liveBytes() const {
  Watch& state = watch();
  const std::lock_guard lock(state.mutex);
  std::size_t bytes = 0;
  for (const auto& [address, block] : state.blocks) bytes += block.sequence >= first_ ? block.size : 0;
  return bytes;
}

std::size_t MemoryWatch::Scope::mostBytes() const {
  Watch& state = watch();
  const std::lock_guard lock(state.mutex);
  return state.mostBytes - std::min(state.mostBytes, before_);
}

MemoryWatch::SecretGuard::SecretGuard(std::wstring_view secret) {
  if (secret.size() < 4) std::abort();
  Watch& state = watch();
  const std::lock_guard lock(state.mutex);
  Bytes wide(secret.size() * sizeof(wchar_t)), utf16, utf8;
  std::memcpy(wide.data(), secret.data(), wide.size());
  for (std::size_t at = 0; at < secret.size(); ++at) {
    auto point = static_cast<char32_t>(secret[at]);
    if (point >= 0xD800 && point < 0xDC00 && at + 1 < secret.size()) {
      point = 0x10000 + ((point - 0xD800) << 10) + (static_cast<char32_t>(secret[++at]) - 0xDC00);
    }
    appendUtf16(utf16, point);
    appendUtf8(utf8, point);
  }
  state.findings.clear();
  state.patterns.clear();
  addPattern(state, "wide characters", std::move(wide));
  if constexpr (sizeof(wchar_t) != 2) addPattern(state, "UTF-16", std::move(utf16));
  addPattern(state, "UTF-8", std::move(utf8));
}

MemoryWatch::SecretGuard::~SecretGuard() {
  Watch& state = watch();
  const std::lock_guard lock(state.mutex);
  state.patterns.clear();
  state.findings.clear();
}

std::vector<std::string> MemoryWatch::SecretGuard::violations() const {
  const Pause pause;
  PlainVector<Finding> findings;
  {
    Watch& state = watch();
    const std::lock_guard lock(state.mutex);
    findings = state.findings;
  }
  return describe(findings, "a released");
}

std::vector<std::string> MemoryWatch::SecretGuard::scanLiveBlocks() const {
  const Pause pause;
  PlainVector<Finding> findings;
  {
    Watch& state = watch();
    const std::lock_guard lock(state.mutex);
    for (const auto& [address, block] : state.blocks) scan(state, address, block.size, findings);
  }
  return describe(findings, "a live");
}

MemoryWatch::Recycling::Recycling() { recycled = new (PlainAllocator<Recycled>().allocate(1)) Recycled; }

MemoryWatch::Recycling::~Recycling() {
  Recycled* const blocks = recycled.exchange(nullptr);
  for (const auto& [size, waiting] : blocks->waiting) {
    for (void* const block : waiting) std::free(block);
  }
  blocks->~Recycled();
  std::free(blocks);
}

MemoryWatch::AllocationFailure::AllocationFailure(std::size_t nth, Threads threads) : nth_(nth), threads_(threads) {
  if (threads_ == Threads::All) {
    countedOfAll = 0;
    failingOfAll = nth;
    countingAll = true;
  } else {
    counted = 0;
    failing = nth;
    counting = true;
  }
}

MemoryWatch::AllocationFailure::~AllocationFailure() {
  if (threads_ == Threads::All) {
    countingAll = false;
  } else {
    counting = false;
  }
}

std::size_t MemoryWatch::AllocationFailure::count() const {
  return threads_ == Threads::All ? countedOfAll.load() : counted;
}
bool MemoryWatch::AllocationFailure::happened() const { return nth_ != 0 && count() >= nth_; }

}  // namespace kiv::test

using kiv::test::allocate;
using kiv::test::allocateAligned;
using kiv::test::orThrow;
using kiv::test::release;
using kiv::test::releaseAligned;

void* operator new(std::size_t size) { return orThrow(allocate(size)); }
void* operator new[](std::size_t size) { return orThrow(allocate(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new(std::size_t size, std::align_val_t to) { return orThrow(allocateAligned(size, to)); }
void* operator new[](std::size_t size, std::align_val_t to) { return orThrow(allocateAligned(size, to)); }
void* operator new(std::size_t size, std::align_val_t to, const std::nothrow_t&) noexcept {
  return allocateAligned(size, to);
}
void* operator new[](std::size_t size, std::align_val_t to, const std::nothrow_t&) noexcept {
  return allocateAligned(size, to);
}

void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { releaseAligned(block); }
void operator delete[](void* block, std::align_val_t) noexcept { releaseAligned(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { releaseAligned(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { releaseAligned(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { releaseAligned(block); }
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept { releaseAligned(block); }
