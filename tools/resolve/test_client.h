// The client that tests candidates: the library's own, whose requests can be given up after a time.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "kiv/kiv.hpp"

namespace kiv::tool {

class TestClient {
 public:
  using Log = std::function<void(const LogRecord&)>;

  // Without a limit a request lasts as long as WinHTTP lets it.
  TestClient(std::wstring url, std::wstring userAgent, bool ignoreCertErrors,
             std::optional<std::chrono::milliseconds> limit);

  void setServerCred(Credential cred) { client_.set_server_cred(std::move(cred)); }
  void setProxy(const ProxyConfig& proxy) { client_.set_proxy(proxy); }

  // The status, negative if there was no response; nothing if it took longer than the limit. `log` is called while this
  // call lasts, perhaps on another thread.
  std::optional<int> send(Method method, const Log& log);

 private:
  std::optional<int> sendWithin(std::chrono::milliseconds limit, Method method, const Log& log);
  HttpClient made() const { return {url_, userAgent_, ignoreCertErrors_}; }

  std::wstring url_;
  std::wstring userAgent_;
  bool ignoreCertErrors_;
  std::optional<std::chrono::milliseconds> limit_;
  HttpClient client_;
};

}  // namespace kiv::tool
