// Tests of what every C function is made of: where exceptions stop, and how handles are made, copied and moved.
#include "support/border.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/loaded_module.h"
#include "unit/support/allocation_sweep.h"
#include "unit/support/heap_test.h"

namespace kiv::test {
namespace {

struct ProbeHandle;

// Something whose copies and constructions can be made to fail, and which shows whether it was moved from.
class Probe {
 public:
  explicit Probe(int value) : value_(value) {
    if (value < 0) throw std::invalid_argument("negative");
  }
  Probe(const Probe& other) : value_(other.value_) {
    if (failCopies) throw std::runtime_error("no copy");
  }
  Probe& operator=(const Probe&) = delete;
  Probe(Probe&& other) noexcept : value_(std::exchange(other.value_, 0)) {}
  Probe& operator=(Probe&& other) noexcept {
    value_ = std::exchange(other.value_, 0);
    return *this;
  }
  ~Probe() { ++destroyed; }

  int value() const { return value_; }

  static inline bool failCopies = false;
  static inline int destroyed = 0;

 private:
  int value_;
};

}  // namespace
}  // namespace kiv::test

template <>
struct kiv::support::ObjectOf<kiv::test::ProbeHandle> {
  using Type = kiv::test::Probe;
};

namespace kiv::test {
namespace {

using namespace kiv::support;

class BorderTest : public HeapTest {
 protected:
  BorderTest() {
    Probe::failCopies = false;
    Probe::destroyed = 0;
  }
};

int throwing(const char* what) { throw std::out_of_range(what); }

TEST_F(BorderTest, AnExceptionThatItStopsKeepsTheLibraryLoaded) {
  const std::size_t before = timesKeptLoaded();
  guarded(7, [] { return 1; });
  onException<std::logic_error>(7, [] { return 1; });
  EXPECT_EQ(timesKeptLoaded(), before) << "there was no exception";
  guarded(7, [] { return throwing("too much"); });
  guarded([] { throwing("too much"); });
  onException<std::logic_error>(7, [] { return throwing("too much"); });
  EXPECT_EQ(timesKeptLoaded(), before + 3);
}

TEST_F(BorderTest, GuardedGivesWhatTheBodyReturns) {
  EXPECT_EQ(guarded(7, [] { return 1; }), 1);
  int runs = 0;
  guarded([&] { ++runs; });
  EXPECT_EQ(runs, 1);
  static_assert(noexcept(guarded(7, [] { return throwing(""); })));
  static_assert(noexcept(guarded([] { throwing(""); })));
}

TEST_F(BorderTest, GuardedTurnsEveryExceptionIntoTheFallback) {
  struct Unrelated {};
  EXPECT_EQ(guarded(7, [] { return throwing("standard"); }), 7);
  EXPECT_EQ(guarded(7, []() -> int { throw 5; }), 7);
  EXPECT_EQ(guarded(7, []() -> int { throw Unrelated(); }), 7);
  EXPECT_EQ(guarded(7, []() -> int { throw std::bad_alloc(); }), 7);
}

TEST_F(BorderTest, GuardedProcedureEndsAtItsException) {
  int steps = 0;
  guarded([&] {
    ++steps;
    if (steps == 1) throw steps;
    ++steps;
  });
  EXPECT_EQ(steps, 1);
}

TEST_F(BorderTest, OnExceptionCatchesItsTypeAlone) {
  EXPECT_EQ(onException<std::logic_error>(7, [] { return 1; }), 1);
  EXPECT_EQ(onException<std::logic_error>(7, [] { return throwing("derived from it"); }), 7);
  EXPECT_THROW(onException<std::logic_error>(7, []() -> int { throw std::runtime_error("another"); }),
               std::runtime_error);
  EXPECT_THROW(onException<std::logic_error>(7, []() -> int { throw 5; }), int);
}

TEST_F(BorderTest, HandleIsTheAddressOfItsObject) {
  Probe probe(1);
  const Probe& constant = probe;
  EXPECT_EQ(static_cast<void*>(toHandle<ProbeHandle>(&probe)), &probe);
  EXPECT_EQ(toObject(toHandle<ProbeHandle>(&probe)), &probe);
  EXPECT_EQ(toObject(toHandle<ProbeHandle>(&constant)), &constant);
  EXPECT_EQ(toObject(static_cast<ProbeHandle*>(nullptr)), nullptr);
}

TEST_F(BorderTest, NewHandleIsNullIfTheConstructionFails) {
  EXPECT_EQ(newHandle<ProbeHandle>(-1), nullptr);
  EXPECT_EQ(Probe::destroyed, 0);
}

TEST_F(BorderTest, NewHandleIsNullWithoutMemory) {
  const auto create = [] {
    const auto release = [](ProbeHandle* handle) { destruct(handle); };
    return std::unique_ptr<ProbeHandle, decltype(release)>(newHandle<ProbeHandle>(1));
  };
  EXPECT_EQ(expectNullWithoutMemory(create), 1U);
}

TEST_F(BorderTest, DestructDestroysAndIgnoresNull) {
  destruct(newHandle<ProbeHandle>(1));
  EXPECT_EQ(Probe::destroyed, 1);
  destruct(static_cast<ProbeHandle*>(nullptr));
  EXPECT_EQ(Probe::destroyed, 1);
}

TEST_F(BorderTest, CopyConstructAndMoveConstructOfNullAreNull) {
  EXPECT_EQ(copyConstruct(static_cast<const ProbeHandle*>(nullptr)), nullptr);
  EXPECT_EQ(moveConstruct(static_cast<ProbeHandle*>(nullptr)), nullptr);
}

TEST_F(BorderTest, CopyConstructCopiesAndMoveConstructMoves) {
  Probe source(5);
  ProbeHandle* const copied = copyConstruct(toHandle<ProbeHandle>(static_cast<const Probe*>(&source)));
  EXPECT_EQ(toObject(copied)->value(), 5);
  EXPECT_EQ(source.value(), 5);
  ProbeHandle* const moved = moveConstruct(toHandle<ProbeHandle>(&source));
  EXPECT_EQ(toObject(moved)->value(), 5);
  EXPECT_EQ(source.value(), 0);
  destruct(copied);
  destruct(moved);
}

TEST_F(BorderTest, CopyConstructIsNullIfTheCopyFails) {
  const Probe source(5);
  Probe::failCopies = true;
  EXPECT_EQ(copyConstruct(toHandle<ProbeHandle>(&source)), nullptr);
}

TEST_F(BorderTest, CopyAndMoveDoNothingIfEitherIsNull) {
  Probe probe(5);
  ProbeHandle* const handle = toHandle<ProbeHandle>(&probe);
  ProbeHandle* const null = nullptr;
  copy<ProbeHandle>(handle, null);
  copy<ProbeHandle>(null, handle);
  copy<ProbeHandle>(null, null);
  support::move(handle, null);
  support::move(null, handle);
  support::move(null, null);
  EXPECT_EQ(probe.value(), 5);
}

TEST_F(BorderTest, CopyChangesTheTargetAlone) {
  Probe source(5), target(6);
  copy<ProbeHandle>(toHandle<ProbeHandle>(&source), toHandle<ProbeHandle>(&target));
  EXPECT_EQ(source.value(), 5);
  EXPECT_EQ(target.value(), 5);
}

TEST_F(BorderTest, CopyThatFailsLeavesTheTargetUnchanged) {
  Probe source(5), target(6);
  Probe::failCopies = true;
  copy<ProbeHandle>(toHandle<ProbeHandle>(&source), toHandle<ProbeHandle>(&target));
  EXPECT_EQ(target.value(), 6);
}

TEST_F(BorderTest, MoveEmptiesTheSource) {
  Probe source(5), target(6);
  support::move(toHandle<ProbeHandle>(&source), toHandle<ProbeHandle>(&target));
  EXPECT_EQ(source.value(), 0);
  EXPECT_EQ(target.value(), 5);
}

TEST_F(BorderTest, CopyAndMoveOntoItselfChangeNothing) {
  Probe probe(5);
  ProbeHandle* const handle = toHandle<ProbeHandle>(&probe);
  copy<ProbeHandle>(handle, handle);
  EXPECT_EQ(probe.value(), 5);
  support::move(handle, handle);
  EXPECT_EQ(probe.value(), 5);
}

}  // namespace
}  // namespace kiv::test
