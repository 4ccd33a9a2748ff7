// Throws and catches C++ exceptions of many kinds. Compiled by GCC, and by clang as Visual C++ would; it uses no
// library.
#include "exceptions.h"

namespace {

// Objects of this file that are alive, on whichever thread: only one of them runs scenarios at a time.
int objects = 0;

struct Counted {
  Counted() { ++objects; }
  Counted(const Counted&) { ++objects; }
  ~Counted() { --objects; }
  Counted& operator=(const Counted&) = delete;
};

constexpr int kNumber = 42;

// Knows whether it is where it was constructed, as a type with a pointer into itself has to.
struct Struct : Counted {
  int number = kNumber;
  const Struct* self = this;
  Struct() = default;
  Struct(const Struct& other) : Counted(other), number(other.number) {}
  Struct& operator=(const Struct&) = delete;
  ~Struct() { number = 0; }
  bool intact() const { return number == kNumber && self == this; }
};

// Caught by a reference to a base that lies behind another one, and whose place only the object itself knows.
struct First : Counted {
  long long first = 1;
};
struct Base : Counted {
  int number = kNumber;
  virtual int twice() const { return number; }
  bool intact() const { return number == kNumber && twice() == 2 * kNumber; }
};
struct Derived : First, virtual Base {
  int twice() const override { return 2 * number; }
};

struct Large : Counted {
  static constexpr int kSize = 20000;
  unsigned char bytes[kSize];
  Large() {
    for (int i = 0; i < kSize; ++i) bytes[i] = static_cast<unsigned char>(i % 251);
  }
  bool intact() const {
    for (int i = 0; i < kSize; ++i) {
      if (bytes[i] != i % 251) return false;
    }
    return true;
  }
};

struct MoveOnly : Counted {
  int number = kNumber;
  MoveOnly() = default;
  MoveOnly(MoveOnly&& other) noexcept : number(other.number) { other.number = 0; }
  MoveOnly& operator=(MoveOnly&&) = delete;
  ~MoveOnly() = default;
  bool intact() const { return number == kNumber; }
};

bool intact(int number) { return number == kNumber; }
template <class Object>
bool intact(const Object& object) {
  return object.intact();
}

using Run = void (*)(void*);

// A call to something that may throw. The pointer keeps the compiler from knowing what.
template <class Caught>
outcome catchAs(Run run, void* context) {
  try {
    const Counted frame;
    run(context);
    return RETURNED;
  } catch (const Caught& caught) {
    return intact(caught) ? ARRIVED : ARRIVED_CHANGED;
  } catch (...) {
    return ARRIVED_CHANGED;
  }
}

// The same from within a handler, while another exception is alive.
outcome catchInHandler(Run run, void* context) {
  try {
    throw Large();
  } catch (const Large& other) {
    const outcome inner = catchAs<Struct>(run, context);
    return other.intact() ? inner : ARRIVED_CHANGED;
  }
}

[[noreturn]] void throwInt() {
  const Counted frame;
  throw kNumber;
}
template <class Object>
[[noreturn]] void throwObject() {
  const Counted frame;
  throw Object();
}
[[noreturn]] void throwAgain() {
  const Counted frame;
  try {
    throw Struct();
  } catch (const Struct&) {
    throw;
  }
}
[[noreturn]] void throwInstead() {
  const Counted frame;
  try {
    throw Large();
  } catch (const Large&) {
    throw Struct();
  }
}

struct Kind {
  const char* name;
  void (*throwIt)();
  outcome (*catchIt)(Run, void*);
};

constexpr Kind kKinds[] = {
    {"an int", throwInt, catchAs<int>},
    {"an object with a destructor", throwObject<Struct>, catchAs<Struct>},
    {"an object caught by its virtual base", throwObject<Derived>, catchAs<Base>},
    {"a large object", throwObject<Large>, catchAs<Large>},
    {"an object that cannot be copied", throwObject<MoveOnly>, catchAs<MoveOnly>},
    {"a rethrown object", throwAgain, catchAs<Struct>},
    {"an object thrown in a handler", throwInstead, catchAs<Struct>},
    {"an object thrown while the application handles another", throwObject<Struct>, catchInHandler},
};

}  // namespace

extern "C" const exceptions cpp_exceptions = {
    sizeof(kKinds) / sizeof(*kKinds),
    [](int kind) { return kKinds[kind].name; },
    [](int kind) { kKinds[kind].throwIt(); },
    [](int kind, Run run, void* context) { return kKinds[kind].catchIt(run, context); },
    [] { return objects; },
};
