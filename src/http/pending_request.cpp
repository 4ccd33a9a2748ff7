// A WinHTTP request whose calls read as if they were synchronous.
#include "http/pending_request.h"

#include <utility>

#include "support/module.h"

namespace kiv::impl {
namespace {

constexpr DWORD kNotifications = WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES;

support::UniqueEvent makeEvent() { return support::UniqueEvent(CreateEventW(nullptr, FALSE, FALSE, nullptr)); }

}  // namespace

PendingRequest::PendingRequest(support::UniqueInternet request)
    : finishedEvent_(makeEvent()), closedEvent_(makeEvent()), request_(std::move(request)) {
  if (!finishedEvent_ || !closedEvent_) return;
  support::keepLoaded();
  notified_ = installCallback();
}

// The context is set along with the callback, not only when the request is sent: WinHTTP reports that a handle has
// closed only to a callback with a context, and whether it takes over that of a send which fails to start is not
// documented.
bool PendingRequest::installCallback() {
  const auto previous = WinHttpSetStatusCallback(request_.get(), onStatus, kNotifications, 0);
  if (previous == WINHTTP_INVALID_STATUS_CALLBACK) {  // NOLINT(performance-no-int-to-ptr): the platform's constant
    return false;
  }
  auto context = reinterpret_cast<DWORD_PTR>(this);
  if (WinHttpSetOption(request_.get(), WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof(context))) return true;
  WinHttpSetStatusCallback(request_.get(), nullptr, kNotifications, 0);
  return false;
}

PendingRequest::~PendingRequest() {
  request_ = support::UniqueInternet();
  if (notified_) WaitForSingleObject(closedEvent_.get(), INFINITE);
}

CallResult PendingRequest::send() {
  expectNotification();
  if (!WinHttpSendRequest(request_.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0,
                          notified_ ? reinterpret_cast<DWORD_PTR>(this) : 0)) {
    return CallResult::failed(GetLastError());
  }
  return waitFor(WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE);
}

CallResult PendingRequest::receive() {
  expectNotification();
  if (!WinHttpReceiveResponse(request_.get(), nullptr)) return CallResult::failed(GetLastError());
  return waitFor(WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE);
}

void PendingRequest::expectNotification() noexcept {
  status_ = 0;
  if (notified_) ResetEvent(finishedEvent_.get());
}

CallResult PendingRequest::waitFor(DWORD status) const {
  if (!notified_) return {};
  while (WaitForSingleObject(finishedEvent_.get(), INFINITE) == WAIT_OBJECT_0) {
    if (status_ == status) return {};
    if (status_ == WINHTTP_CALLBACK_STATUS_REQUEST_ERROR) return CallResult::failed(error_);
  }
  return CallResult::failed(GetLastError());
}

// Setting an event is the last thing done here: whoever waits for it may destroy this object at once.
void PendingRequest::finished(DWORD status, DWORD error) noexcept {
  error_ = error;
  status_ = status;
  SetEvent(finishedEvent_.get());
}

void CALLBACK PendingRequest::onStatus(HINTERNET /*request*/, DWORD_PTR context, DWORD status, LPVOID information,
                                       DWORD /*length*/) {
  auto* const self =
      reinterpret_cast<PendingRequest*>(context);  // NOLINT(performance-no-int-to-ptr): as WinHTTP has it
  if (!self) return;
  switch (status) {
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
      self->finished(status, ERROR_SUCCESS);
      break;
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      self->finished(status, static_cast<const WINHTTP_ASYNC_RESULT*>(information)->dwError);
      break;
    case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
      SetEvent(self->closedEvent_.get());
      break;
    default:
      break;
  }
}

}  // namespace kiv::impl
