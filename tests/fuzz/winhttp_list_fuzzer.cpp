// Proxy lists as WinHTTP and the settings hold them: any text is read to an end, and what is read comes from it.
#include "discovery/proxy_list.h"
#include "fuzz/fuzz_input.h"

using namespace kiv;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text = fuzz::Input(data, size).wideRest();
  std::vector<impl::ProxyListEntry> entries = {{L"left", L"over", 1}};
  const bool whole = impl::ParseWinHttpProxyList(text, entries);
  const std::size_t tokens = impl::TokenizeWinHttpProxyList(text).size();
  fuzz::require(entries.size() <= tokens, "an entry takes at least one token");
  fuzz::require(whole || tokens > 0, "nothing is no error");
  for (const impl::ProxyListEntry& entry : entries) {
    fuzz::require(!entry.host.empty(), "an entry has a host");
    fuzz::require(text.find(entry.type) != std::wstring::npos && text.find(entry.host) != std::wstring::npos,
                  "type and host stand in the text");
  }
  std::vector<impl::ProxyListEntry> again;
  fuzz::require(impl::ParseWinHttpProxyList(text, again) == whole && again == entries, "a text always reads the same");
  return 0;
}
