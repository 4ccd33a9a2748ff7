// What every C function is made of: the one place that stops exceptions, and the conversion of handles to objects.
#pragma once

#include <exception>
#include <new>
#include <utility>

#include "support/module.h"

namespace kiv::support {

// Runs `body`; an exception of type `Caught` becomes `fallback`.
template <class Caught, class Result, class Body>
Result onException(Result fallback, Body&& body) noexcept(false) {
  try {
    return std::forward<Body>(body)();
  } catch (const Caught&) {
    keepLoaded();
    return fallback;
  }
}

// Runs `body`; no exception leaves it, whatever its type.
template <class Result, class Body>
Result guarded(Result fallback, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    keepLoaded();
    return fallback;
  }
}

template <class Body>
void guarded(Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {  // a procedure that fails has no other result than not to have happened
    keepLoaded();
  }
}

// Names the class behind a handle; each family specialises it once. The handle is the object's own address.
template <class Handle>
struct ObjectOf;

template <class Handle>
using Object = typename ObjectOf<Handle>::Type;

template <class Handle>
Object<Handle>* toObject(Handle* handle) noexcept {
  return reinterpret_cast<Object<Handle>*>(handle);
}

template <class Handle>
const Object<Handle>* toObject(const Handle* handle) noexcept {
  return reinterpret_cast<const Object<Handle>*>(handle);
}

template <class Handle>
Handle* toHandle(Object<Handle>* object) noexcept {
  return reinterpret_cast<Handle*>(object);
}

template <class Handle>
const Handle* toHandle(const Object<Handle>* object) noexcept {
  return reinterpret_cast<const Handle*>(object);
}

// Makes a new handle; null when memory runs out, in the allocation of the object or in its construction.
template <class Handle, class... Arguments>
Handle* newHandle(Arguments&&... arguments) noexcept {
  return guarded<Handle*>(nullptr, [&] {
    return toHandle<Handle>(new (std::nothrow) Object<Handle>(std::forward<Arguments>(arguments)...));
  });
}

// The exports that are the same for every family.

template <class Handle>
void destruct(Handle* handle) noexcept {
  delete toObject(handle);
}

template <class Handle>
Handle* copyConstruct(const Handle* source) noexcept {
  return source ? newHandle<Handle>(*toObject(source)) : nullptr;
}

template <class Handle>
Handle* moveConstruct(Handle* source) noexcept {
  return source ? newHandle<Handle>(std::move(*toObject(source))) : nullptr;
}

// Copies aside first, so that a copy that fails leaves the target as it was.
template <class Handle>
void copy(const Handle* source, Handle* target) noexcept {
  if (!source || !target) return;
  guarded([&] {
    Object<Handle> copied(*toObject(source));
    *toObject(target) = std::move(copied);
  });
}

// Moves through a temporary, so that moving onto itself changes nothing.
template <class Handle>
void move(Handle* source, Handle* target) noexcept {
  if (!source || !target) return;
  Object<Handle> moved(std::move(*toObject(source)));
  *toObject(target) = std::move(moved);
}

}  // namespace kiv::support
