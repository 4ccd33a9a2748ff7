// Proxy configurations: what is parsed and formatted parses to the same again.
#include "config/proxy_config.h"
#include "fuzz/fuzz_input.h"
#include "platform/simulated_windows.h"

using namespace kiv;

namespace {

std::optional<impl::ProxyConfig> parsed(std::wstring_view text) {
  try {
    return impl::ProxyConfig::parse(text, std::nullopt);
  } catch (const std::logic_error&) {  // a port beyond 32 bits
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const test::SimulatedWindows windows;
  const auto config = parsed(fuzz::Input(data, size).wideRest());
  if (!config) return 0;
  const impl::SecureString text = config->toString(true, true);
  fuzz::require(text.c_str() != nullptr, "the text form is never null");
  if (!config->isValid()) {
    fuzz::require(text.size() == 0, "only proxy servers have a text form");
    return 0;
  }
  // A host that has no ASCII form became empty, and an empty host parses to nothing.
  if (config->host()[0] == L'\0') return 0;
  const auto again = parsed(text.view());
  fuzz::require(again && again->kind() == config->kind(), "the kind is preserved");
  fuzz::require(std::wstring_view(again->host()) == config->host(), "the host is preserved");
  fuzz::require(again->port(false) == config->port(false), "the port is preserved");
  fuzz::require(again->hasCred() == config->hasCred(), "the credentials are preserved");
  fuzz::require(again->toString(true, true).view() == text.view(), "the text is preserved");
  return 0;
}
