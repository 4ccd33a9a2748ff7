// A fixture whose tests must leave no block of the heap behind.
#pragma once

#include <gtest/gtest.h>

#include "platform/memory_watch.h"

namespace kiv::test {

// Checks in its destructor: by then the variables of a test and the members of a derived fixture are gone.
class HeapTest : public ::testing::Test {
 protected:
  ~HeapTest() override { EXPECT_EQ(scope_.liveBlocks(), 0U) << "blocks were leaked"; }

 private:
  // GoogleTest never releases the memory of its stack of traces; made before the scope, it is no leak of the test.
  struct MemoryForTraces {
    MemoryForTraces() {
      SCOPED_TRACE("one");
      SCOPED_TRACE("two");
      SCOPED_TRACE("three");
      SCOPED_TRACE("four");
    }
  } memory_;
  MemoryWatch::Scope scope_;
};

}  // namespace kiv::test
