// Counted objects and the references that own them.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace kiv::session {

// Begins with one reference, which belongs to whoever made it; the last release deletes it. Any thread may do both.
class RefCounted {
 public:
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;

  void retain() const noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
  void release() const noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

 protected:
  RefCounted() = default;
  virtual ~RefCounted() = default;

 private:
  mutable std::atomic<std::uint32_t> references_{1};
};

template <class Object>
class Ref {
 public:
  Ref() = default;
  // One more owner; null stays null.
  explicit Ref(Object* object) noexcept : object_(object) {
    if (object_) object_->retain();
  }
  Ref(const Ref& other) noexcept : Ref(other.object_) {}
  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class Derived>
  Ref(Ref<Derived> other) noexcept : object_(other.detach()) {}  // NOLINT(google-explicit-constructor): as pointers do
  Ref& operator=(Ref other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Ref() {
    if (object_) object_->release();
  }

  // Takes over a reference that is counted already.
  static Ref adopt(Object* object) noexcept {
    Ref ref;
    ref.object_ = object;
    return ref;
  }
  // Hands the reference on to somebody who releases it.
  Object* detach() noexcept { return std::exchange(object_, nullptr); }

  Object* get() const noexcept { return object_; }
  Object& operator*() const noexcept { return *object_; }
  Object* operator->() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  bool operator==(const Ref&) const = default;

 private:
  Object* object_ = nullptr;
};

template <class Object, class... Arguments>
Ref<Object> makeRef(Arguments&&... arguments) {
  return Ref<Object>::adopt(new Object(std::forward<Arguments>(arguments)...));
}

}  // namespace kiv::session
