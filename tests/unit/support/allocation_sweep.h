// A sweep over functions that create something: each allocation that they need fails once.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "platform/memory_watch.h"

namespace kiv::test {

// Runs `create`, which returns an owner, with its first allocation failing, its second, and so on until it needs no
// more: it must return null each time that one fails, something the last time, and leave no block behind. Returns how
// many allocations it needs, so that a sweep that swept nothing is noticed.
template <class Create>
std::size_t expectNullWithoutMemory(Create create) {
  for (std::size_t nth = 1;; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth) + " fails");
    const MemoryWatch::Scope scope;
    bool happened = false;
    bool isNull = false;
    {
      const MemoryWatch::AllocationFailure failure(nth);
      const auto created = create();
      happened = failure.happened();
      isNull = created == nullptr;
    }
    EXPECT_EQ(isNull, happened);
    EXPECT_EQ(scope.liveBlocks(), 0U) << "blocks were leaked";
    if (!happened) return nth - 1;
  }
}

// Runs `change`, which changes objects in place, likewise; `check` is told whether an allocation failed, and looks at
// the objects. `change` finds them as the run before left them.
template <class Change, class Check>
std::size_t forEachAllocationOf(Change change, Check check) {
  for (std::size_t nth = 1;; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth) + " fails");
    bool happened = false;
    {
      const MemoryWatch::AllocationFailure failure(nth);
      change();
      happened = failure.happened();
    }
    check(happened);
    if (!happened) return nth - 1;
  }
}

}  // namespace kiv::test
