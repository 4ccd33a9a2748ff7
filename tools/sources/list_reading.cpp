// How Windows and kiv.dll read the same manual list and bypass list.
#include "sources/list_reading.h"

#include <algorithm>

#include "discovery/proxy_list.h"
#include "sources/registry.h"

namespace kiv::tool {
namespace {

constexpr std::wstring_view kBlanks = L" \t\r\n";

std::vector<std::wstring_view> split(std::wstring_view list, std::wstring_view separators) {
  std::vector<std::wstring_view> entries;
  while (!list.empty()) {
    const std::size_t length = std::min(list.find_first_of(separators), list.size());
    if (length > 0) entries.push_back(list.substr(0, length));
    list.remove_prefix(std::min(length + 1, list.size()));
  }
  return entries;
}

std::wstring_view trimmed(std::wstring_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::wstring_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

// Takes what is in front of a mark, and the mark, away from a text; empty if the mark is not there.
std::wstring_view takeUpTo(std::wstring_view& text, std::wstring_view mark) {
  const std::size_t at = text.find(mark);
  if (at == std::wstring_view::npos) return {};
  const std::wstring_view taken = text.substr(0, at);
  text.remove_prefix(at + mark.size());
  return taken;
}

std::vector<std::wstring> byWindows(const std::vector<ListEntry>& entries, std::wstring_view urlScheme) {
  std::vector<std::wstring> texts;
  for (const ListEntry& entry : entries) {
    if (!entry.urlScheme.empty() && !sameName(entry.urlScheme, urlScheme)) continue;
    std::wstring text(entry.host);
    if (!entry.port.empty()) text.append(L":").append(entry.port);
    texts.push_back(std::move(text));
  }
  return texts;
}

std::vector<std::wstring> byKiv(const std::vector<impl::ProxyListEntry>& entries) {
  std::vector<std::wstring> texts;
  for (const auto& entry : entries) {
    texts.push_back((entry.type.empty() ? L"http" : entry.type) + L"://" + entry.host + L":" +
                    std::to_wstring(entry.port));
  }
  return texts;
}

void addIf(bool differ, const wchar_t* sentence, std::vector<std::wstring>& differences) {
  if (differ) differences.emplace_back(sentence);
}

void addDifferencesOfBypass(std::wstring_view list, std::vector<std::wstring>& differences) {
  const auto byBoth = bypassEntriesByKiv(list);
  addIf(entriesByWindows(list) != byBoth,
        L"In the bypass list Windows separates entries at \";\" and white space, kiv.dll at \";\" only.", differences);
  addIf(std::ranges::any_of(byBoth, [](auto entry) { return entry.find(L':') != std::wstring_view::npos; }),
        L"In the bypass list Windows documents names only. kiv.dll also compares the scheme and the port.",
        differences);
}

}  // namespace

std::vector<std::wstring_view> entriesByWindows(std::wstring_view list) { return split(list, L"; \t\r\n"); }

std::vector<std::wstring_view> bypassEntriesByKiv(std::wstring_view list) {
  auto entries = split(list, L";");
  for (std::wstring_view& entry : entries) entry = trimmed(entry);
  std::erase(entries, std::wstring_view());
  return entries;
}

ListEntry readEntry(std::wstring_view text) {
  ListEntry entry{};
  entry.urlScheme = takeUpTo(text, L"=");
  entry.proxyScheme = takeUpTo(text, L"://");
  const std::size_t end = std::min(text.find_first_of(L"/?#"), text.size());
  entry.rest = text.substr(end);
  text = text.substr(0, end);
  const std::size_t at = text.rfind(L'@');
  if (at != std::wstring_view::npos) text.remove_prefix(at + 1);
  const std::size_t bracket = text.rfind(L']');
  const std::size_t colon = text.find(L':', bracket == std::wstring_view::npos ? 0 : bracket);
  entry.host = text.substr(0, colon);
  if (colon != std::wstring_view::npos) entry.port = text.substr(colon + 1);
  return entry;
}

ListReading readingOf(std::wstring_view manualList, std::wstring_view bypassList) {
  std::vector<ListEntry> entries;
  for (const std::wstring_view text : entriesByWindows(manualList)) entries.push_back(readEntry(text));
  std::vector<impl::ProxyListEntry> kivs;
  const bool complete = impl::ParseWinHttpProxyList(manualList, kivs);
  ListReading reading = {byWindows(entries, L"http"), byWindows(entries, L"https"), byKiv(kivs), {}};
  const auto any = [&](std::wstring_view ListEntry::*part, bool isEmpty) {
    return std::ranges::any_of(entries, [&](const ListEntry& entry) { return (entry.*part).empty() == isEmpty; });
  };
  addIf(any(&ListEntry::urlScheme, false),
        L"Windows takes the word in front of \"=\" for the scheme of the URL. kiv.dll takes it for the kind of the "
        L"proxy, and tests the entry for every URL.",
        reading.differences);
  addIf(any(&ListEntry::port, true), L"Windows documents the port as optional. kiv.dll tests port 0.",
        reading.differences);
  addIf(!complete, L"kiv.dll stops at the first entry that it cannot read.", reading.differences);
  addDifferencesOfBypass(bypassList, reading.differences);
  return reading;
}

}  // namespace kiv::tool
