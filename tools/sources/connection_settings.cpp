// The two binary forms in which Windows stores proxy settings. Anybody can write them: nothing in them is trusted.
#include "sources/connection_settings.h"

#include <windows.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>

namespace kiv::tool {
namespace {

constexpr std::uint32_t kManualList = 2;
constexpr std::uint32_t kScript = 4;
constexpr std::uint32_t kDetection = 8;

std::wstring wideOf(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  const int length = static_cast<int>(text.size());
  const int size = MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_ACP, 0, text.data(), length, wide.data(), size);
  return wide;
}

// Reads from the beginning to the end, and remembers the first thing that is wrong.
class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> data) : rest_(data) {}

  std::uint32_t number(const wchar_t* name) {
    if (!has(sizeof(std::uint32_t))) return fail(std::wstring(L"it ends before ") + name), 0;
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < sizeof(value); ++i) value |= std::uint32_t{rest_[i]} << (8 * i);
    rest_ = rest_.subspan(sizeof(value));
    return value;
  }

  std::wstring text(const wchar_t* name) {
    const std::uint32_t length = number(name);
    if (!has(length)) return fail(name + std::wstring(L" is longer than the value")), std::wstring();
    const auto bytes = rest_.first(length);
    rest_ = rest_.subspan(length);
    return wideOf({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }

  void mustBeOneOf(std::uint32_t version, std::initializer_list<std::uint32_t> known) {
    if (std::ranges::find(known, version) == known.end())
      fail(L"its form is unknown (version " + std::to_wstring(version) + L")");
  }

  const std::wstring& problem() const { return problem_; }

 private:
  bool has(std::size_t count) const { return problem_.empty() && rest_.size() >= count; }

  void fail(std::wstring problem) {
    if (problem_.empty()) problem_ = std::move(problem);
  }

  std::span<const std::uint8_t> rest_;
  std::wstring problem_;
};

std::variant<ConnectionSettings, std::wstring> resultOf(const Reader& reader, ConnectionSettings settings) {
  if (!reader.problem().empty()) return L"malformed: " + reader.problem();
  return settings;
}

}  // namespace

Naming ConnectionSettings::naming() const {
  Naming naming = {.automaticDetection = (flags & kDetection) != 0};
  if (flags & kScript) naming.scriptUrl = scriptUrl;
  if (flags & kManualList) {
    naming.manualList = manualList;
    naming.bypassList = bypassList;
  }
  return naming;
}

std::variant<ConnectionSettings, std::wstring> readConnectionSettings(std::span<const std::uint8_t> data) {
  Reader reader(data);
  ConnectionSettings settings;
  reader.mustBeOneOf(reader.number(L"its version"), {0x46});
  reader.number(L"the counter");
  settings.flags = reader.number(L"the flags");
  settings.manualList = reader.text(L"the manual list");
  settings.bypassList = reader.text(L"the bypass list");
  settings.scriptUrl = reader.text(L"the script URL");
  return resultOf(reader, std::move(settings));
}

std::variant<ConnectionSettings, std::wstring> readWinHttpSettings(std::span<const std::uint8_t> data) {
  Reader reader(data);
  ConnectionSettings settings;
  reader.mustBeOneOf(reader.number(L"its version"), {0x18, 0x28});
  reader.number(L"the counter");
  settings.flags = reader.number(L"the flags");
  settings.manualList = reader.text(L"the manual list");
  settings.bypassList = reader.text(L"the bypass list");
  return resultOf(reader, std::move(settings));
}

}  // namespace kiv::tool
