// Addresses: the hand-written grammar is the regular expression, on every text.
#include "config/address.h"
#include "config/address_grammar.h"
#include "fuzz/fuzz_input.h"
#include "oracle/address_oracle.h"
#include "platform/simulated_windows.h"

using namespace kiv;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const test::AddressOracle oracle;
  const std::wstring text = fuzz::Input(data, size).wideRest();
  const auto parts = impl::splitAddress(text);
  const auto expected = oracle.split(text);
  fuzz::require(parts.has_value() == expected.has_value(), "the expression matches the same texts");
  if (!parts) return 0;
  const test::AddressOracle::Groups groups = {parts->scheme, parts->user, parts->password, parts->host,
                                              parts->port,   parts->path, parts->query};
  fuzz::require(groups == *expected, "the expression captures the same groups");

  const test::SimulatedWindows windows;
  try {
    const auto address = impl::parseAddress(text, true);
    fuzz::require(address.has_value(), "a text that matches is an address");
    fuzz::require(address->cred.has_value() == !parts->user.empty(), "credentials come with a user name");
  } catch (const std::logic_error&) {
    fuzz::require(parts->port.size() > 9, "only a long port is unreadable");
  }
  return 0;
}
