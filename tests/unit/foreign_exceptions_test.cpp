// Tests of calls into the application: what passes, what is stopped, and what is destroyed on the way.
#include "support/foreign_exceptions.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "unit/support/heap_test.h"

#ifdef __MINGW64__
// Where the linker puts the program: the system's own function is not to be had here.
extern "C" IMAGE_DOS_HEADER __ImageBase;
#endif

namespace kiv::test {
namespace {

using support::callApplication;
using support::ForeignException;
using support::lend;

class ForeignExceptionsTest : public HeapTest {
 protected:
  ForeignExceptionsTest() { Probe::alive = 0; }

  // Something lent, and something that the frames in between own.
  struct Probe {
    Probe() { ++alive; }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;
    Probe(Probe&& other) noexcept : value(std::exchange(other.value, 0)) { ++alive; }
    Probe& operator=(Probe&&) = delete;
    ~Probe() { --alive; }

    int value = 7;
    static inline int alive = 0;
  };
};

TEST_F(ForeignExceptionsTest, PassesArgumentsAndResults) {
  int seen = 0;
  EXPECT_EQ(callApplication<int>(
                +[](int* to, int value) { return *to = value, value + 1; }, &seen, 41),
            42);
  EXPECT_EQ(seen, 41);
  callApplication<void>(
      +[](int* to) { *to = 5; }, &seen);
  EXPECT_EQ(seen, 5);
}

TEST_F(ForeignExceptionsTest, LetsOurOwnExceptionsPassAsTheyAre) {
  const auto call = [] { callApplication<void>(+[] { throw std::out_of_range("it"); }); };
  EXPECT_THROW(call(), std::out_of_range);
}

TEST_F(ForeignExceptionsTest, LendsAnObjectAndDestroysIt) {
  int seen = 0;
  lend(Probe(), [&](const Probe& probe) {
    EXPECT_GE(Probe::alive, 1);
    seen = probe.value;
  });
  EXPECT_EQ(seen, 7);
  EXPECT_EQ(Probe::alive, 0);
}

TEST_F(ForeignExceptionsTest, DestroysWhatItLentWhenOurOwnExceptionPasses) {
  const auto call = [] { lend(Probe(), [](const Probe&) { throw std::out_of_range("it"); }); };
  EXPECT_THROW(call(), std::out_of_range);
  EXPECT_EQ(Probe::alive, 0);
}

#ifdef __MINGW64__

constexpr DWORD kVisualCThrow = 0xE06D7363;
constexpr ULONG_PTR kLayout = 0x19930520;

int destructions = 0;
int* destroyed = nullptr;
void destroyNumber(void* number) {
  ++destructions;
  destroyed = static_cast<int*>(number);
}

// What Visual C++ keeps of a type that is thrown, as far as it is looked at: where its destructor is.
struct ThrowDescription {
  std::uint32_t attributes;
  std::uint32_t destructor;
};

// Raises as Visual C++ does, or as somebody who only borrows its code; each test sets what is raised.
struct Raised {
  DWORD code = kVisualCThrow;
  DWORD count = 4;
  std::array<ULONG_PTR, 4> parameters{};
} raised;

void raise() { RaiseException(raised.code, 0, raised.count, raised.parameters.data()); }

class VisualCExceptionsTest : public ForeignExceptionsTest {
 public:
  VisualCExceptionsTest() {
    destructions = 0;
    destroyed = nullptr;
    description.destructor = static_cast<std::uint32_t>(reinterpret_cast<ULONG_PTR>(&destroyNumber) - base);
    raised = {kVisualCThrow,
              4,
              {kLayout, reinterpret_cast<ULONG_PTR>(&thrown), reinterpret_cast<ULONG_PTR>(&description), base}};
  }

  // Whether the exception arrived as one of ours, after what the frames in between owned was destroyed.
  static bool isStopped() {
    try {
      const Probe owned;
      callApplication<void>(raise);
    } catch (const ForeignException&) {
      EXPECT_EQ(Probe::alive, 0);
      return true;
    }
    return false;
  }

  const ULONG_PTR base = reinterpret_cast<ULONG_PTR>(&__ImageBase);
  int thrown = 0;
  ThrowDescription description{};
};

TEST_F(VisualCExceptionsTest, BecomeOneOfOursAndAreDestroyed) {
  for (const ULONG_PTR layout : {kLayout, kLayout + 1, kLayout + 2}) {
    destructions = 0;
    raised.parameters[0] = layout;
    EXPECT_TRUE(isStopped());
    EXPECT_EQ(destructions, 1);
    EXPECT_EQ(destroyed, &thrown);
  }
}

TEST_F(VisualCExceptionsTest, AreStoppedButNotTouchedWhereTheirObjectIsNotKnown) {
  const std::pair<const char*, void (*)(VisualCExceptionsTest&)> cases[] = {
      {"rethrown", [](VisualCExceptionsTest&) { raised.parameters[1] = raised.parameters[2] = 0; }},
      {"no object", [](VisualCExceptionsTest&) { raised.parameters[1] = 0; }},
      {"no description", [](VisualCExceptionsTest&) { raised.parameters[2] = 0; }},
      {"nothing to destroy", [](VisualCExceptionsTest& test) { test.description.destructor = 0; }},
      {"no parameters", [](VisualCExceptionsTest&) { raised.count = 0; }},
      {"fewer parameters", [](VisualCExceptionsTest&) { raised.count = 3; }},
      {"a lower layout", [](VisualCExceptionsTest&) { raised.parameters[0] = kLayout - 1; }},
      {"a higher layout", [](VisualCExceptionsTest&) { raised.parameters[0] = kLayout + 3; }},
  };
  const Raised usual = raised;
  const ThrowDescription described = description;
  for (const auto& [what, change] : cases) {
    SCOPED_TRACE(what);
    raised = usual;
    description = described;
    change(*this);
    EXPECT_TRUE(isStopped());
    EXPECT_EQ(destructions, 0);
  }
}

// GCC has no __except. The process's last handler stands in for it: the system asks it about an exception that no frame
// stopped, and it lets the thread go on where the exception was raised.
DWORD passed = 0;
LONG CALLBACK notePassing(EXCEPTION_POINTERS* exception) {
  passed = exception->ExceptionRecord->ExceptionCode;
  return EXCEPTION_CONTINUE_EXECUTION;
}

TEST_F(VisualCExceptionsTest, OtherExceptionsAreNotStopped) {
  const auto before = SetUnhandledExceptionFilter(notePassing);
  for (const DWORD code : {DWORD{EXCEPTION_ACCESS_VIOLATION}, DWORD{EXCEPTION_STACK_OVERFLOW},
                           DWORD{EXCEPTION_BREAKPOINT}, DWORD{0xE0434352}, DWORD{0xE06D7364}}) {
    raised.code = code;
    passed = 0;
    EXPECT_FALSE(isStopped());
    EXPECT_EQ(passed, code);
  }
  EXPECT_EQ(destructions, 0);
  SetUnhandledExceptionFilter(before);
}

#endif

}  // namespace
}  // namespace kiv::test
