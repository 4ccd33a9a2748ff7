// A request of WinHTTP's, without kiv: for what the system itself does.
#pragma once

#include <string>

#include "support/owners.h"

namespace selfcheck {

class WinHttpRequest {
 public:
  // A GET request for `object`, sent as it is written, to a port of `host`; through `proxy` unless that is empty.
  // Throws kiv::session::SystemError.
  WinHttpRequest(const std::wstring& host, std::uint16_t port, const std::wstring& object,
                 const std::wstring& proxy = {});

  HINTERNET handle() const { return request_.get(); }
  // Sends it, and waits for the head of the answer. The status; 0 if the system gave an error instead.
  DWORD send();
  // Of the last send().
  DWORD error() const { return error_; }

 private:
  kiv::support::UniqueInternet session_;
  kiv::support::UniqueInternet connection_;
  kiv::support::UniqueInternet request_;
  DWORD error_ = ERROR_SUCCESS;
};

}  // namespace selfcheck
