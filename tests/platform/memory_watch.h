// Watches the C++ heap of a test: looks for secrets in blocks that are released, makes allocations fail, counts blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kiv::test {

// The test executable's operator new and delete live in memory_watch.cpp; these are the handles on them.
// Blocks are tracked if they were allocated while a Scope (of any thread) was alive and no Pause was held by the
// allocating thread. A tracked block starts out filled with a pattern, so that what it holds was written by its owner.
class MemoryWatch {
 public:
  // Tracks the blocks that any thread allocates during its life. Scopes may nest.
  class Scope {
   public:
    Scope();
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    // Counts the blocks allocated since this scope began and not yet released.
    std::size_t liveBlocks() const;
    // Counts the bytes of these.
    std::size_t liveBytes() const;
    // The most bytes that all tracked blocks had at one time since the newest scope began, beyond those that they had
    // when this one did.
    std::size_t mostBytes() const;

   private:
    std::uint64_t first_;
    std::size_t before_;
  };

  // Exempts the calling thread's allocations: they are not tracked, not counted and do not fail.
  class Pause {
   public:
    Pause() { ++pauses_; }
    ~Pause() { --pauses_; }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
  };

  // Lifts every Pause of the calling thread, for as long as the library's code runs inside the simulator's.
  class Resume {
   public:
    Resume() : suspended_(std::exchange(pauses_, 0)) {}
    ~Resume() { pauses_ = suspended_; }
    Resume(const Resume&) = delete;
    Resume& operator=(const Resume&) = delete;

   private:
    int suspended_;
  };

  // Looks for a secret in every tracked block, just before the block is released; is a Scope as well.
  // The secret is sought as wide characters, as UTF-16 and as UTF-8. One guard at a time.
  class SecretGuard {
   public:
    // The secret has at least four characters; it is kept in a disguise, so that the watch does not find itself.
    explicit SecretGuard(std::wstring_view secret);
    ~SecretGuard();
    SecretGuard(const SecretGuard&) = delete;
    SecretGuard& operator=(const SecretGuard&) = delete;

    // Describes each released block that still held the secret.
    std::vector<std::string> violations() const;
    // Describes each tracked block that holds it now.
    std::vector<std::string> scanLiveBlocks() const;
    std::size_t liveBlocks() const { return scope_.liveBlocks(); }

   private:
    Scope scope_;
  };

  // Hands blocks that any thread allocates and releases during its life out again, so that what is measured is not how
  // long the system takes for memory. One at a time.
  class Recycling {
   public:
    Recycling();
    ~Recycling();
    Recycling(const Recycling&) = delete;
    Recycling& operator=(const Recycling&) = delete;
  };

  // Whose allocations are counted: those of the calling thread, or of all together.
  enum class Threads { This, All };

  // Makes the nth allocation fail, counted from 1 at construction; 0 makes none fail. Throwing and nothrow forms count
  // alike. Disarms itself when it goes. At most one for all threads at a time.
  class AllocationFailure {
   public:
    explicit AllocationFailure(std::size_t nth, Threads threads = Threads::This);
    ~AllocationFailure();
    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;

    // Counts the allocations that were asked for since construction, the failed one included.
    std::size_t count() const;
    bool happened() const;

   private:
    std::size_t nth_;
    Threads threads_;
  };

  static SecretGuard guardSecret(std::wstring_view secret) { return SecretGuard(secret); }
  static AllocationFailure failNth(std::size_t nth) { return AllocationFailure(nth); }

  static bool isPaused() { return pauses_ != 0; }

 private:
  // Defined here, so that the simulator can do without memory_watch.cpp in programs that nobody watches.
  static inline constinit thread_local int pauses_ = 0;
};

}  // namespace kiv::test
