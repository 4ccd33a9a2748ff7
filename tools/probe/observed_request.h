// An asynchronous WinHTTP request of the probe, with a limit, that keeps what the status callback reported.
#pragma once

#include <windows.h>
#include <winhttp.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <span>
#include <vector>

#include "probe/certificates.h"
#include "probe/phases.h"
#include "support/owners.h"

namespace kiv::tool {

// Whether to close the request as soon as the server's certificate can be read, before anything is sent.
enum class Purpose : std::uint8_t { Answer, CertificateAlone };

// Stays until the handle has reported that it closed, so it must not move. What it keeps may be read between its calls:
// there are no notifications then.
class ObservedRequest {
 public:
  ObservedRequest(support::UniqueInternet request, std::chrono::milliseconds limit, Purpose purpose);
  ObservedRequest(const ObservedRequest&) = delete;
  ObservedRequest& operator=(const ObservedRequest&) = delete;
  ~ObservedRequest() { close(); }

  HINTERNET handle() const { return request_.get(); }

  // Each starts its call and waits until it is finished, for as long as the limit allows for all of them together.
  // Returns a Windows error code, 0 if there is none.
  DWORD send();
  DWORD receive();
  DWORD read(std::span<char> buffer, std::size_t& count);  // none at the end

  const std::vector<Notice>& notices() const { return notices_; }
  // Of the first server that was connected to with TLS; null if there was none.
  const UniqueCertificate& certificate() const { return certificate_; }
  DWORD tlsFailure() const { return tlsFailure_; }  // WINHTTP_CALLBACK_STATUS_FLAG_ values
  microseconds sinceBegin() const;

 private:
  static void CALLBACK onStatus(HINTERNET request, DWORD_PTR context, DWORD status, LPVOID information, DWORD length);
  void heard(HINTERNET request, DWORD status, LPVOID information, DWORD length) noexcept;
  void keep(HINTERNET request, DWORD status, LPVOID information, DWORD length);
  void finish(DWORD error) noexcept;
  DWORD finished(BOOL started);
  // For failures that are not reported.
  DWORD failed(DWORD error);
  void closeHandle() noexcept;
  void close();

  std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point deadline_;
  Purpose purpose_;
  support::UniqueInternet request_;
  std::atomic_flag closed_;  // by whichever thread is first
  bool willReport_ = false;  // that the handle has closed
  support::UniqueEvent finishedEvent_{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  support::UniqueEvent closedEvent_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  DWORD error_ = 0;
  DWORD read_ = 0;
  DWORD tlsFailure_ = 0;
  std::vector<Notice> notices_;
  UniqueCertificate certificate_;
};

}  // namespace kiv::tool
