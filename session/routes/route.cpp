// A way to connect: directly, or through one proxy.
#include "routes/route.h"

#include <algorithm>
#include <array>

#include "routes/host.h"
#include "support/text.h"

namespace kiv::session {
namespace {

struct KindWord {
  RouteKind kind;
  const wchar_t* word;
  std::uint16_t port;
};

constexpr std::array kKindWords = {
    KindWord{RouteKind::Direct, L"", 0},          KindWord{RouteKind::Http, L"http", 80},
    KindWord{RouteKind::Https, L"https", 443},    KindWord{RouteKind::Socks4, L"socks4", 1080},
    KindWord{RouteKind::Socks5, L"socks5", 1080},
};

const KindWord& wordOf(RouteKind kind) { return *std::ranges::find(kKindWords, kind, &KindWord::kind); }

std::optional<RouteKind> kindOf(std::wstring_view word, RouteKind socks) {
  const std::wstring lower = support::toLower(word);
  if (lower == L"socks") return socks;
  const auto found = std::ranges::find(kKindWords, std::wstring_view(lower), &KindWord::word);
  if (found == kKindWords.end() || found->kind == RouteKind::Direct) return std::nullopt;
  return found->kind;
}

}  // namespace

std::optional<Route> Route::proxy(RouteKind kind, std::wstring_view host, std::optional<std::uint16_t> port) {
  std::array<wchar_t, kLongestHost> characters;  // not filled
  std::wstring_view name(characters.data(), writeHost(host, characters));
  if (name.empty()) return std::nullopt;
  if (name.front() == L'[') name = name.substr(1, name.size() - 2);
  return Route{kind, std::wstring(name), port.value_or(wordOf(kind).port)};
}

std::optional<Route> Route::parse(std::wstring_view text, RouteKind socks) {
  constexpr std::wstring_view kSchemeEnd = L"://";
  std::optional<RouteKind> kind = RouteKind::Http;
  if (const std::size_t end = text.find(kSchemeEnd); end != std::wstring_view::npos) {
    kind = kindOf(text.substr(0, end), socks);
    text.remove_prefix(end + kSchemeEnd.size());
  }
  const std::optional<HostAndPort> parts = splitHostAndPort(text);
  if (!kind || !parts) return std::nullopt;
  const std::optional<std::uint16_t> port = readPort(parts->port, wordOf(*kind).port);
  return port ? proxy(*kind, parts->host, port) : std::nullopt;
}

const wchar_t* Route::scheme() const noexcept { return wordOf(kind).word; }

std::wstring Route::url() const {
  if (isDirect()) return {};
  const bool bracketed = host.find(L':') != std::wstring::npos;
  std::wstring text(scheme());
  text.append(bracketed ? L"://[" : L"://").append(host).append(bracketed ? L"]:" : L":");
  return text.append(support::Decimal(port).view());
}

}  // namespace kiv::session
