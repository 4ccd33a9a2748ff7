// As whom the session works.
#pragma once

#include "support/owners.h"

namespace kiv::session {

// The user that a thread impersonated. Without one it is the process's.
class Identity {
 public:
  Identity() = default;

  // Throws SystemError if the thread impersonates and its token cannot be had.
  static Identity ofThisThread();

  // Works as this user while it exists, on the thread that made it.
  class Scope {
   public:
    explicit Scope(const Identity& identity) noexcept;
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope();

    // False if the system would not let the thread be that user; nothing may be done then.
    bool succeeded() const noexcept { return succeeded_; }

   private:
    bool impersonates_;
    bool succeeded_;
  };

  // The same on a thread of the application, which may impersonate somebody itself: it does so again afterwards.
  class Visit {
   public:
    // Throws SystemError if the thread's present token cannot be had.
    explicit Visit(const Identity& identity);
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;
    ~Visit();

    bool succeeded() const noexcept { return succeeded_; }

   private:
    support::Unique<HANDLE, support::CloseKernelHandle> former_;
    bool succeeded_;
  };

 private:
  support::Unique<HANDLE, support::CloseKernelHandle> token_;
};

}  // namespace kiv::session
