// URLs: any text is read to an end, and what an origin says of itself reads as that origin.
#include "fuzz/fuzz_input.h"
#include "platform/simulated_windows.h"
#include "routes/origin.h"

using namespace kiv;

namespace {

bool belongsInHost(wchar_t c) {
  return c > L' ' && c < 0x7F && std::wstring_view(L"/?#@%\\").find(c) == std::wstring_view::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const test::SimulatedWindows windows;
  const std::wstring text = fuzz::Input(data, size).wideRest();
  const std::optional<session::Origin> origin = session::Origin::parse(text);
  if (!origin) return 0;
  const std::wstring_view host = origin->host();
  fuzz::require(!host.empty() && host.size() <= session::kLongestHost, "a host has 1 to 255 characters");
  fuzz::require(origin->port() != 0, "a port is not 0");
  const bool bracketed = host.front() == L'[' && host.back() == L']';
  for (const wchar_t c : bracketed ? host.substr(1, host.size() - 2) : host) {
    fuzz::require(belongsInHost(c) && (bracketed || c != L':'), "a host has no delimiter and no blank");
    fuzz::require(c < L'A' || c > L'Z', "a host is in lower case");
  }
  const std::optional<session::Origin> again = session::Origin::parse(origin->url());
  fuzz::require(again == origin && again->hash() == origin->hash(), "an origin's URL reads as the origin");
  const std::size_t end = text.find_first_of(L"/?#", text.find(L"://") + 3);
  fuzz::require(session::Origin::parse(text.substr(0, end)) == origin, "nothing behind the port matters");
  return 0;
}
