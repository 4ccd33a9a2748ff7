// Bypass lists against a target: each rule's verdict is that of the regular expressions. First line: the target.
#include <optional>
#include <stdexcept>
#include <variant>
#include <vector>

#include "config/address.h"
#include "discovery/bypass_rules.h"
#include "fuzz/fuzz_input.h"
#include "oracle/bypass_oracle.h"
#include "platform/simulated_windows.h"

using namespace kiv;

namespace {

int portOf(const impl::ParsedAddress& target) {
  if (target.port) return *target.port;
  if (!target.kind) return -1;
  if (*target.kind == impl::AddressScheme::Http) return 80;
  return *target.kind == impl::AddressScheme::Https ? 443 : 1080;
}

std::vector<bool> verdicts(const std::wstring& list, const impl::ParsedAddress& target) {
  std::vector<bool> result;
  for (const impl::BypassRule& rule : impl::BuildBypassRules(list)) {
    const auto* const pattern = std::get_if<impl::BypassPatternRule>(&rule);
    result.push_back(pattern ? impl::MatchesBypassPattern(*pattern, target) : impl::IsPlainHostName(target));
  }
  return result;
}

// Nothing if a port is beyond 32 bits.
template <class Body>
auto unlessTooLong(Body body) -> std::optional<decltype(body())> {
  try {
    return body();
  } catch (const std::out_of_range&) {
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static test::BypassOracle oracle;
  const test::SimulatedWindows windows;
  fuzz::Input input(data, size);
  const std::wstring targetText = input.wideLine();
  const std::wstring list = input.wideRest();
  const auto target = unlessTooLong([&] { return impl::parseAddress(targetText, false); }).value_or(std::nullopt);
  if (!target) return 0;
  const std::wstring scheme = target->scheme.empty() ? L"http" : target->scheme;
  const auto expected = unlessTooLong([&] { return oracle.verdicts(list, {scheme, target->host, portOf(*target)}); });
  const auto actual = unlessTooLong([&] { return verdicts(list, *target); });
  fuzz::require(actual == expected, "the expressions give the same verdicts");
  return 0;
}
