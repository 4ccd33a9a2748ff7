// What tests of the library stand on: a fixture that owns a simulated Windows, and sweeps that make every call fail.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/memory_watch.h"
#include "platform/simulated_windows.h"

namespace kiv::test {

// Adds a failure for each resource that was leaked, released twice or wrongly, or used after its release.
inline void expectNoComplaints(SimulatedWindows& windows) {
  for (const std::string& complaint : windows.complaints()) ADD_FAILURE() << complaint;
}

// Checks in its destructor: by then the members of a derived fixture are gone, and have released what they own.
class PlatformTest : public ::testing::Test {
 protected:
  ~PlatformTest() override { expectNoComplaints(windows); }

  SimulatedWindows windows;
};

// Watches for a secret during its life; adds a failure for each released block that still held it.
class ExpectSecretWiped {
 public:
  explicit ExpectSecretWiped(std::wstring_view secret) : guard_(secret) {}
  ~ExpectSecretWiped() {
    for (const std::string& violation : guard_.violations()) ADD_FAILURE() << violation;
  }
  ExpectSecretWiped(const ExpectSecretWiped&) = delete;
  ExpectSecretWiped& operator=(const ExpectSecretWiped&) = delete;

 private:
  MemoryWatch::SecretGuard guard_;
};

// Runs the scenario undisturbed, then once for each call it made that can fail, with that call failing. Each run has a
// fresh simulated Windows, which the scenario is given to set up first, and must leave nothing behind in it.
template <class Scenario>
void forEachFault(Scenario scenario, DWORD code = ERROR_GEN_FAILURE) {
  std::vector<std::string> names;
  {
    SimulatedWindows windows;
    scenario(windows);
    expectNoComplaints(windows);
    names = windows.callNames();
  }
  for (std::size_t index = 0; index < names.size(); ++index) {
    if (!SimulatedWindows::canFail(names[index])) continue;
    SCOPED_TRACE("call " + std::to_string(index) + ", " + names[index] + ", fails");
    SimulatedWindows windows;
    windows.failCall(index, code);
    scenario(windows);
    expectNoComplaints(windows);
  }
}

// Runs the scenario with its first allocation failing, its second, and so on, until it needs no more. What it is given
// is a fresh simulated Windows and `armed`, to be called with the part in which allocations fail: those of the calling
// thread, or of all. No exception may leave that part, and no block or resource may be left when the scenario ends.
template <class Scenario>
void forEachAllocation(Scenario scenario, MemoryWatch::Threads threads = MemoryWatch::Threads::This) {
  bool happened = true;
  for (std::size_t nth = 1; happened && !::testing::Test::HasFatalFailure(); ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth) + " fails");
    const MemoryWatch::Scope scope;
    happened = false;
    {
      SimulatedWindows windows;
      scenario(windows, [&](auto&& body) {
        const MemoryWatch::AllocationFailure failure(nth, threads);
        body();
        happened = failure.happened();
      });
      expectNoComplaints(windows);
    }
    EXPECT_EQ(scope.liveBlocks(), 0U) << "blocks were leaked";
  }
}

}  // namespace kiv::test
