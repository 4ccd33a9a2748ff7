// The notifications that the system sends by callbacks: of addresses, of WinHTTP's settings, of resuming from sleep.
#pragma once

#include "changes/system_functions.h"

namespace kiv::session {

// Registers for those that this Windows has. Not to be ended from a callback, nor under a lock that one takes.
class SystemNotifications {
 public:
  // The contexts of three Notices. Loads libraries, which may block.
  SystemNotifications(void* settings, void* addresses, void* resume) noexcept;
  SystemNotifications(const SystemNotifications&) = delete;
  SystemNotifications& operator=(const SystemNotifications&) = delete;

 private:
  // Each is ended by a function of the same shape.
  using End = DWORD(WINAPI*)(HANDLE);
  class Registration {
   public:
    Registration() = default;
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    ~Registration() {
      if (handle_) end_(handle_);
    }
    // `begin(&handle)` registers, and returns 0 if it could. A handle of null needs no end.
    template <class Begin>
    void begin(End end, Begin&& begin) noexcept {
      if (end && begin(&handle_) == ERROR_SUCCESS) end_ = end;
      if (!end_) handle_ = nullptr;
    }

   private:
    HANDLE handle_ = nullptr;
    End end_ = nullptr;
  };
  // DEVICE_NOTIFY_SUBSCRIBE_PARAMETERS, which not every toolchain has.
  struct ResumeSubscription {
    ULONG(CALLBACK* callback)(PVOID context, ULONG type, PVOID setting);
    PVOID context;
  };

  void watchSettings(void* context) noexcept;
  void watchAddresses(void* context) noexcept;
  void watchResume(void* context) noexcept;

  support::UniqueModule ipHelper_;
  support::UniqueModule power_;
  ResumeSubscription resumed_{};
  Registration settingsRegistration_;
  Registration addressesRegistration_;
  Registration resumeRegistration_;
};

}  // namespace kiv::session
