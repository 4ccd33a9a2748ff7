// An asynchronous WinHTTP request of the probe, with a limit, that keeps what the status callback reported.
#include "probe/observed_request.h"

#include <algorithm>
#include <new>
#include <utility>

namespace kiv::tool {
namespace {

constexpr std::size_t kMostNotices = 512;  // more than any request has that ends within its limit and is not hostile

// The text that comes with a notice; the length counts the terminator in some, and not in others.
std::wstring textOf(DWORD status, LPVOID information, DWORD length) {
  const bool hasText = status == WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER ||
                       status == WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER ||
                       status == WINHTTP_CALLBACK_STATUS_REDIRECT;
  if (!hasText || !information) return {};
  const std::wstring_view text(static_cast<const wchar_t*>(information), length);
  return std::wstring(text.substr(0, text.find(L'\0')));
}

}  // namespace

// By the documentation of WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT it is a limit beside that of WinHttpSetTimeouts. Wine
// has no other, and aborts nothing when a request is closed.
ObservedRequest::ObservedRequest(support::UniqueInternet request, std::chrono::milliseconds limit, Purpose purpose)
    : deadline_(began_ + limit), purpose_(purpose) {
  if (!request || !finishedEvent_ || !closedEvent_) return;
  DWORD answerLimit = static_cast<DWORD>(limit.count());
  WinHttpSetOption(request.get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &answerLimit, sizeof(answerLimit));
  auto context = reinterpret_cast<DWORD_PTR>(this);
  if (!WinHttpSetOption(request.get(), WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof(context)) ||
      WinHttpSetStatusCallback(request.get(), onStatus, WINHTTP_CALLBACK_FLAG_ALL_NOTIFICATIONS, 0) ==
          WINHTTP_INVALID_STATUS_CALLBACK) {
    return;
  }
  willReport_ = true;
  request_ = std::move(request);
}

microseconds ObservedRequest::sinceBegin() const {
  return std::chrono::duration_cast<microseconds>(std::chrono::steady_clock::now() - began_);
}

DWORD ObservedRequest::send() {
  return finished(WinHttpSendRequest(handle(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0,
                                     reinterpret_cast<DWORD_PTR>(this)));
}

DWORD ObservedRequest::receive() { return finished(WinHttpReceiveResponse(handle(), nullptr)); }

DWORD ObservedRequest::read(std::span<char> buffer, std::size_t& count) {
  const DWORD error = finished(WinHttpReadData(handle(), buffer.data(), static_cast<DWORD>(buffer.size()), nullptr));
  count = error ? 0 : read_;
  return error;
}

DWORD ObservedRequest::finished(BOOL started) {
  if (!started) return failed(GetLastError());
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - std::chrono::steady_clock::now());
  const DWORD patience = static_cast<DWORD>(std::max<long long>(left.count(), 0));
  if (WaitForSingleObject(finishedEvent_.get(), patience) == WAIT_OBJECT_0) return error_;
  close();
  return failed(ERROR_WINHTTP_TIMEOUT);
}

DWORD ObservedRequest::failed(DWORD error) {
  notices_.push_back({.status = WINHTTP_CALLBACK_STATUS_REQUEST_ERROR, .at = sinceBegin()});
  return error;
}

void ObservedRequest::closeHandle() noexcept {
  if (!closed_.test_and_set()) request_ = support::UniqueInternet();
}

void ObservedRequest::close() {
  closeHandle();
  if (std::exchange(willReport_, false)) WaitForSingleObject(closedEvent_.get(), INFINITE);
}

void CALLBACK ObservedRequest::onStatus(HINTERNET request, DWORD_PTR context, DWORD status, LPVOID information,
                                        DWORD length) {
  if (auto* const self = reinterpret_cast<ObservedRequest*>(context)) self->heard(request, status, information, length);
}

// Setting an event is the last thing done with this object: whoever waits for it may destroy it at once.
void ObservedRequest::heard(HINTERNET request, DWORD status, LPVOID information, DWORD length) noexcept {
  try {
    keep(request, status, information, length);
  } catch (const std::bad_alloc&) {
    // A probe that lacks a notice is better than none.
  }
  switch (status) {
    case WINHTTP_CALLBACK_STATUS_SECURE_FAILURE:
      tlsFailure_ = *static_cast<const DWORD*>(information);
      return;
    case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
      read_ = length;
      return finish(ERROR_SUCCESS);
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
      return finish(ERROR_SUCCESS);
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      return finish(static_cast<const WINHTTP_ASYNC_RESULT*>(information)->dwError);
    case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
      finish(ERROR_WINHTTP_OPERATION_CANCELLED);
      SetEvent(closedEvent_.get());
      return;
    default:
      return;
  }
}

void ObservedRequest::keep(HINTERNET request, DWORD status, LPVOID information, DWORD length) {
  if (notices_.size() >= kMostNotices) return;
  Notice notice{.status = status, .at = sinceBegin(), .text = textOf(status, information, length)};
  if (status == WINHTTP_CALLBACK_STATUS_SENDING_REQUEST) {
    UniqueCertificate certificate = certificateOf(request);
    notice.hasCertificate = static_cast<bool>(certificate);
    if (!certificate_) certificate_ = std::move(certificate);
  }
  const bool enough = purpose_ == Purpose::CertificateAlone && notice.hasCertificate;
  notices_.push_back(std::move(notice));
  // WinHTTP allows this in its callback, and sends nothing then.
  if (enough) closeHandle();
}

void ObservedRequest::finish(DWORD error) noexcept {
  error_ = error;
  SetEvent(finishedEvent_.get());
}

}  // namespace kiv::tool
