// A WinHTTP request whose calls read as if they were synchronous.
#pragma once

#include <atomic>

#include "http/call_result.h"
#include "support/owners.h"
#include "support/platform.h"

namespace kiv::impl {

// The client's session is asynchronous: a call that started well is finished only when the request's status callback
// says so, on any thread, maybe before the call returned. This object receives those notifications. It must not move,
// and it stays until the handle has reported that it closed, after which no callback can come.
class PendingRequest {
 public:
  // Takes over a request that was just opened. If no callback can be installed, calls count as finished when they
  // return.
  explicit PendingRequest(support::UniqueInternet request);
  PendingRequest(const PendingRequest&) = delete;
  PendingRequest& operator=(const PendingRequest&) = delete;
  ~PendingRequest();

  HINTERNET handle() const noexcept { return request_.get(); }

  // Each starts its call and waits until it is finished.
  CallResult send();
  CallResult receive();

 private:
  bool installCallback();
  static void CALLBACK onStatus(HINTERNET request, DWORD_PTR context, DWORD status, LPVOID information, DWORD length);
  void finished(DWORD status, DWORD error) noexcept;
  void expectNotification() noexcept;
  CallResult waitFor(DWORD status) const;

  support::UniqueEvent finishedEvent_;
  support::UniqueEvent closedEvent_;
  std::atomic<DWORD> status_{0};
  std::atomic<DWORD> error_{0};
  bool notified_ = false;  // WinHTTP knows this object, and will report to it that the handle has closed
  support::UniqueInternet request_;
};

}  // namespace kiv::impl
