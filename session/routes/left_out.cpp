// Candidates that are never used.
#include "routes/left_out.h"

#include <algorithm>

#include "discovery/wildcard.h"
#include "routes/host.h"
#include "support/text.h"

namespace kiv::session {
namespace {

bool matches(std::wstring_view pattern, std::wstring_view text) { return impl::WildcardPattern(pattern).matches(text); }

bool hasStar(std::wstring_view text) { return text.find(L'*') != std::wstring_view::npos; }

}  // namespace

LeftOut::LeftOut(std::wstring_view text) {
  while (!text.empty()) {
    const std::size_t length = std::min(text.find(L';'), text.size());
    if (std::optional<Entry> entry = read(support::trim(text.substr(0, length)))) entries_.push_back(std::move(*entry));
    text.remove_prefix(std::min(length + 1, text.size()));
  }
}

std::optional<LeftOut::Entry> LeftOut::read(std::wstring_view text) {
  constexpr std::wstring_view kSchemeEnd = L"://";
  Entry entry;
  if (const std::size_t end = text.find(kSchemeEnd); end != std::wstring_view::npos) {
    entry.scheme = support::toLower(text.substr(0, end));
    if (entry.scheme.empty()) return std::nullopt;
    if (entry.scheme == L"socks") entry.scheme = L"socks*";
    text.remove_prefix(end + kSchemeEnd.size());
  }
  const std::optional<HostAndPort> parts = splitHostAndPort(text);
  if (!parts || parts->host.empty()) return std::nullopt;
  if (!parts->port.empty()) {
    entry.port = readPort(parts->port, 0);
    if (!entry.port) return std::nullopt;
  }
  if (hasStar(parts->host)) {
    const bool bracketed = parts->host.starts_with(L'[') && parts->host.ends_with(L']');
    entry.host = bracketed ? parts->host.substr(1, parts->host.size() - 2) : parts->host;
    return entry;
  }
  const std::optional<Route> proxy = Route::proxy(RouteKind::Http, parts->host, entry.port);
  if (!proxy) return std::nullopt;
  entry.host = proxy->host;
  return entry;
}

bool LeftOut::names(const Route& proxy) const noexcept {
  if (proxy.isDirect()) return false;
  return std::ranges::any_of(entries_, [&](const Entry& entry) {
    return (!entry.port || entry.port == proxy.port) &&
           (entry.scheme.empty() || matches(entry.scheme, proxy.scheme())) && matches(entry.host, proxy.host);
  });
}

}  // namespace kiv::session
