// The client's description: one text for any URL, and no password in it. Lines: URL, user agent, proxy.
#include "config/proxy_config.h"
#include "fuzz/fuzz_input.h"
#include "http/client_description.h"
#include "platform/simulated_windows.h"

using namespace kiv;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const test::SimulatedWindows windows;
  fuzz::Input input(data, size);
  const std::wstring password = L"\x0001secret\x0002";
  impl::ClientSettings client;
  try {
    client.server = impl::parseAddress(input.wideLine(), false);
    client.userAgent = input.wideLine();
    client.proxy = impl::ProxyConfig::parse(input.wideRest(), impl::Cred::create(L"user", password));
  } catch (const std::logic_error&) {  // a port beyond 32 bits
    return 0;
  }
  if (!client.server) return 0;
  client.serverCred = impl::Cred::create(L"user", password);
  const std::wstring text = impl::describe(client);
  fuzz::require(text.starts_with(L"{\"Server\": {\"URL\": \"") && text.ends_with(client.userAgent + L"\"}"),
                "the description is whole");
  fuzz::require(text.find(password) == std::wstring::npos, "no password is shown");
  fuzz::require(text.find(impl::urlText(*client.server)) != std::wstring::npos, "the URL is shown");
  return 0;
}
