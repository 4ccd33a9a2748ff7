// Owners of what the platform hands out: each resource belongs to a type from the line that obtains it.
#pragma once

#include <utility>

#include "support/platform.h"

namespace kiv::support {

// Owns a handle-like value whose null means "nothing" and that `Release` gives back.
template <class Handle, class Release>
class Unique {
 public:
  Unique() = default;
  explicit Unique(Handle handle) noexcept : handle_(handle) {}
  Unique(Unique&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Unique& operator=(Unique&& other) noexcept {
    Unique(std::move(other)).swap(*this);
    return *this;
  }
  Unique(const Unique&) = delete;
  Unique& operator=(const Unique&) = delete;
  ~Unique() {
    if (handle_) Release()(handle_);
  }

  Handle get() const noexcept { return handle_; }
  explicit operator bool() const noexcept { return handle_ != nullptr; }
  // Where a platform call stores what it hands out.
  Handle* put() noexcept {
    *this = Unique();
    return &handle_;
  }
  void swap(Unique& other) noexcept { std::swap(handle_, other.handle_); }

 private:
  Handle handle_ = nullptr;
};

struct CloseInternetHandle {
  void operator()(HINTERNET handle) const noexcept { WinHttpCloseHandle(handle); }
};
struct CloseKernelHandle {
  void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};
struct UnloadModule {
  void operator()(HMODULE module) const noexcept { FreeLibrary(module); }
};
struct FreeGlobalBlock {
  void operator()(HGLOBAL block) const noexcept { GlobalFree(block); }
};

using UniqueInternet = Unique<HINTERNET, CloseInternetHandle>;
using UniqueEvent = Unique<HANDLE, CloseKernelHandle>;
using UniqueModule = Unique<HMODULE, UnloadModule>;
template <class Character>
using UniqueGlobalText = Unique<Character*, FreeGlobalBlock>;

}  // namespace kiv::support
