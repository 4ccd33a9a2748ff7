// A program in C++17 that has nothing of kiv but the package: resolves past two proxies that exist only here, with a
// client that exists only here, and catches what that throws.
#include <iostream>
#include <kiv/kiv.hpp>
#include <stdexcept>

namespace {

std::string narrow(std::wstring_view text) { return std::string(text.begin(), text.end()); }

// Answers as a network would in which one proxy lives, and wants a password.
class Client {
 public:
  int test() const {
    if (proxy_.host() == L"broken") throw std::runtime_error("the client broke");
    if (proxy_.host() != L"living") return -1;
    return proxy_.cred().password().view() == L"open-sesame" ? 200 : 407;
  }
  void set_proxy(const kiv::ProxyConfig& proxy) { proxy_ = proxy; }

 private:
  kiv::ProxyConfig proxy_;
};

std::string resolve(std::wstring_view preferred) {
  Client client;
  kiv::Request request;
  request.url = L"http://target.example/";
  request.user_agent = L"consumer";
  request.bypass_list = L"";
  request.preferred = kiv::ProxyConfig::parse(preferred);
  request.fallback = kiv::ProxyConfig::http(L"living", 8080);
  request.proxy_cred = [](const kiv::ProxyConfig&) { return kiv::Credential(L"pam", L"open-sesame"); };
  request.test = [&] { return client.test(); };
  request.set_proxy = [&](const kiv::ProxyConfig& proxy) { client.set_proxy(proxy); };
  request.set_server_cred = [](const kiv::Credential&) {};
  const kiv::ProxyConfig found = kiv::resolve(request);
  return narrow(found.to_string()) + " as " + narrow(found.cred().username());
}

}  // namespace

int main() {
  std::cout << resolve(L"dead:3128") << "\n";
  try {
    resolve(L"broken:3128");
  } catch (const std::runtime_error& failure) {
    std::cout << failure.what() << "\n";
    return 0;
  }
  return 1;
}
