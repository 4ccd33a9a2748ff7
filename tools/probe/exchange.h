// One request of the probe in a WinHTTP session of its own.
#pragma once

#include <optional>
#include <string>

#include "probe/observed_request.h"

namespace kiv::tool {

struct Location {
  std::wstring host;  // in lower case
  INTERNET_PORT port = 0;
  std::wstring object;  // path and query
  bool isHttps = false;
};

// Nothing if WinHTTP cannot read the URL.
std::optional<Location> locate(const std::wstring& url);

struct ExchangePlan {
  Location target;
  std::wstring proxy{};  // host:port; empty for a direct connection
  std::wstring userAgent{};
  const wchar_t* method = L"HEAD";
  bool ignoreCertErrors = false;
  std::chrono::milliseconds limit{};
  Purpose purpose = Purpose::Answer;
};

// The proxy is that of a session, so that every version of WinHTTP uses it, and no connection is shared with another
// route. Windows logs on to nobody, unless mayLogOn() allows it.
class Exchange {
 public:
  explicit Exchange(const ExchangePlan& plan);

  ObservedRequest& request() { return *request_; }
  // Sends and receives. Returns a Windows error code, 0 if there is a status.
  DWORD run();
  int status() const;
  bool mayLogOn();
  std::wstring contentType() const;
  std::wstring finalHost() const;

 private:
  support::UniqueInternet open(const ExchangePlan& plan);

  DWORD error_ = 0;  // of opening
  support::UniqueInternet session_;
  support::UniqueInternet connection_;
  std::optional<ObservedRequest> request_;
};

}  // namespace kiv::tool
