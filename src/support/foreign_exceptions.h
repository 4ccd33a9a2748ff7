// Calls into the application, whose compiler need not be ours.
//
// An application built with Visual C++ throws exceptions that GCC's frames do not see: no catch (...) stops them and no
// destructor of this library runs while they pass. So the library calls the application only through the two functions
// below. Exceptions that are not C++ (access violations, stack overflows, breakpoints) pass both untouched, as crash
// reporters and debuggers need.
#pragma once

#include <type_traits>
#include <utility>

namespace kiv::support {

// What a C++ exception of another compiler becomes inside the library.
struct ForeignException {};

#ifdef __MINGW64__
namespace detail {

// Calls `call`. False if another compiler's C++ exception came out of it; the exception object is then destroyed.
bool stopForeignExceptions(void (*call)(void*), void* argument);

// Calls `call` and then `cleanUp`, with the same argument. An exception that leaves `call`, of any kind and compiler,
// continues after `cleanUp`.
extern "C" void kivCallThenCleanUp(void (*call)(void*), void (*cleanUp)(void*), void* argument);

// Runs `body`, whose frame must own nothing: no destructor in it runs when a foreign exception passes.
template <class Body>
void runStoppingForeign(Body& body) {
  if (!stopForeignExceptions([](void* self) { (*static_cast<Body*>(self))(); }, &body)) throw ForeignException();
}

}  // namespace detail

// Calls one of the application's functions. Whatever compiler built it, a C++ exception that it throws is one of ours
// here: a foreign one is destroyed and becomes a ForeignException.
template <class Result, class... Parameters>
Result callApplication(Result (*function)(Parameters...), std::type_identity_t<Parameters>... arguments) {
  if constexpr (std::is_void_v<Result>) {
    auto body = [&] { function(arguments...); };
    detail::runStoppingForeign(body);
  } else {
    Result result{};
    auto body = [&] { result = function(arguments...); };
    detail::runStoppingForeign(body);
    return result;
  }
}

// Lends `object` to `call` and destroys it afterwards, also when an exception of any compiler passes. The exception
// goes on as it was thrown.
template <class Object, class Call>
void lend(Object object, Call call) {
  // The union keeps GCC from destroying the object as well.
  struct Loan {
    Call& call;
    union {
      Object object;
    };
    Loan(Call& borrower, Object&& lent) : call(borrower), object(std::move(lent)) {}
    ~Loan() {}
  } loan(call, std::move(object));
  detail::kivCallThenCleanUp(
      [](void* self) { static_cast<Loan*>(self)->call(std::as_const(static_cast<Loan*>(self)->object)); },
      [](void* self) { static_cast<Loan*>(self)->object.~Object(); }, &loan);
}
#else
template <class Result, class... Parameters>
Result callApplication(Result (*function)(Parameters...), std::type_identity_t<Parameters>... arguments) {
  return function(arguments...);
}

template <class Object, class Call>
void lend(const Object& object, Call call) {
  call(object);
}
#endif

}  // namespace kiv::support
