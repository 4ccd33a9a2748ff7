// The registry, as far as readers of settings need it. Unit tests give its contents as data.
#include "sources/registry.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "support/owners.h"

namespace kiv::tool {
namespace {

struct CloseRegistryKey {
  void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};
using UniqueRegistryKey = support::Unique<HKEY, CloseRegistryKey>;

HKEY rootOf(Hive hive) {
  switch (hive) {
    case Hive::LocalMachine:
      return HKEY_LOCAL_MACHINE;
    case Hive::Users:
      return HKEY_USERS;
    default:
      return HKEY_CURRENT_USER;
  }
}

REGSAM accessTo(View view) {
  constexpr std::array<REGSAM, 3> kViews = {0, KEY_WOW64_64KEY, KEY_WOW64_32KEY};
  return KEY_QUERY_VALUE | kViews[static_cast<std::size_t>(view)];
}

std::vector<std::uint8_t> bytesOf(std::wstring_view text) {
  std::vector<std::uint8_t> bytes(text.size() * sizeof(wchar_t));
  std::memcpy(bytes.data(), text.data(), bytes.size());
  return bytes;
}

std::wstring charactersOf(const std::vector<std::uint8_t>& data) {
  std::wstring text(data.size() / sizeof(wchar_t), L'\0');
  std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
  return text.substr(0, text.find(L'\0'));
}

// Windows replaces the variables when it makes a program's environment.
RegistryValue expanded(RegistryValue value) {
  const std::wstring text = charactersOf(value.data);
  const DWORD size = ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
  std::wstring result(size, L'\0');
  result.resize(ExpandEnvironmentStringsW(text.c_str(), result.data(), size));
  return {std::move(value.name), REG_SZ, bytesOf(result)};
}

// The values of an open key. Somebody can change them while they are read: what does not fit any more ends the list.
std::vector<RegistryValue> valuesOf(HKEY key) {
  DWORD longestName = 0;
  DWORD longestData = 0;
  RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &longestName, &longestData,
                   nullptr, nullptr);
  std::wstring name(longestName + 1, L'\0');
  std::vector<std::uint8_t> data(longestData);
  std::vector<RegistryValue> values;
  for (DWORD index = 0;; ++index) {
    auto nameLength = static_cast<DWORD>(name.size());
    auto dataLength = static_cast<DWORD>(data.size());
    DWORD type = REG_NONE;
    if (RegEnumValueW(key, index, name.data(), &nameLength, nullptr, &type, data.data(), &dataLength) != ERROR_SUCCESS)
      return values;
    RegistryValue value = {name.substr(0, nameLength), type, {data.begin(), data.begin() + dataLength}};
    values.push_back(type == REG_EXPAND_SZ ? expanded(std::move(value)) : std::move(value));
  }
}

}  // namespace

const RegistryValue* KeyContents::find(std::wstring_view name) const {
  const auto found = std::ranges::find_if(values, [&](const auto& value) { return sameName(value.name, name); });
  return found == values.end() ? nullptr : &*found;
}

KeyContents WindowsRegistry::read(const RegistryKey& key) const {
  UniqueRegistryKey open;
  const LSTATUS status = RegOpenKeyExW(rootOf(key.hive), key.path.c_str(), 0, accessTo(key.view), open.put());
  if (status != ERROR_SUCCESS) return {status, {}};
  return {ERROR_SUCCESS, valuesOf(open.get())};
}

std::wstring textOf(const RegistryKey& key) {
  constexpr std::array<const wchar_t*, 3> kHives = {L"HKCU\\", L"HKLM\\", L"HKU\\"};
  constexpr std::array<const wchar_t*, 3> kViews = {L"", L" (64-bit)", L" (32-bit)"};
  return kHives[static_cast<std::size_t>(key.hive)] + key.path + kViews[static_cast<std::size_t>(key.view)];
}

std::wstring textOf(const RegistryValue& value) {
  if (value.type == REG_SZ) return charactersOf(value.data);
  if (const auto number = numberOf(&value)) return std::to_wstring(*number);
  return L"(type " + std::to_wstring(value.type) + L", " + std::to_wstring(value.data.size()) + L" bytes)";
}

std::optional<DWORD> numberOf(const RegistryValue* value) {
  DWORD number = 0;
  if (!value || value->type != REG_DWORD || value->data.size() != sizeof(number)) return std::nullopt;
  std::memcpy(&number, value->data.data(), sizeof(number));
  return number;
}

std::wstring stringOf(const RegistryValue* value) {
  return value && value->type == REG_SZ ? charactersOf(value->data) : std::wstring();
}

bool sameName(std::wstring_view left, std::wstring_view right) {
  return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(), static_cast<int>(right.size()),
                              TRUE) == CSTR_EQUAL;
}

}  // namespace kiv::tool
