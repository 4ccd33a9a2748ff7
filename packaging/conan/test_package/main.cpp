// Calls a function of each DLL.
#include <cstdio>
#include <kiv/kiv.hpp>
#include <kiv/session.hpp>

int main() {
  std::printf("%ls\n", kiv::ProxyConfig::parse(L"http://proxy.test:8080").to_string().c_str());
  return kiv::Session::version() >> 16 == 0 ? 1 : 0;
}
