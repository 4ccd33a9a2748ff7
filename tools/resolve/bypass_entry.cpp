// Which entry of a bypass list matches a URL. The library only says that one does.
#include "resolve/bypass_entry.h"

#include "config/address.h"
#include "discovery/bypass_rules.h"

namespace kiv::tool {

std::wstring matchingEntry(const std::wstring& list, const std::wstring& url) {
  const std::optional<impl::ParsedAddress> target = impl::parseAddress(url, false);
  if (!target) return {};
  for (const std::wstring_view entry : impl::SplitBypassList(list)) {
    if (impl::anyRuleMatches(impl::BuildBypassRules(entry), *target)) return std::wstring(entry);
  }
  return {};
}

}  // namespace kiv::tool
