// The registry, as far as readers of settings need it. Unit tests give its contents as data.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::tool {

enum class Hive : std::uint8_t { CurrentUser, LocalMachine, Users };
// Windows keeps some keys twice: for 64-bit programs, and for 32-bit programs.
enum class View : std::uint8_t { Own, Bits64, Bits32 };

struct RegistryKey {
  Hive hive = Hive::CurrentUser;
  std::wstring path{};
  View view = View::Own;

  auto operator<=>(const RegistryKey&) const = default;
};

struct RegistryValue {
  std::wstring name{};
  DWORD type = REG_NONE;
  std::vector<std::uint8_t> data{};
};

struct KeyContents {
  LSTATUS status = ERROR_FILE_NOT_FOUND;
  std::vector<RegistryValue> values{};

  // Null if there is none. Names are compared as Windows does, without regard to case.
  const RegistryValue* find(std::wstring_view name) const;
};

class Registry {
 public:
  Registry() = default;
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;
  virtual ~Registry() = default;

  // All values of a key.
  virtual KeyContents read(const RegistryKey& key) const = 0;
};

class WindowsRegistry : public Registry {
 public:
  KeyContents read(const RegistryKey& key) const override;
};

// For people: "HKCU\Software\...", with "(32-bit)" if that view is meant.
std::wstring textOf(const RegistryKey& key);

// A value as text: a text up to its NUL, a number in decimal, for other types what it is.
std::wstring textOf(const RegistryValue& value);
// Nothing if the value is not a number.
std::optional<DWORD> numberOf(const RegistryValue* value);
// Empty if there is no such value, or it is not a text.
std::wstring stringOf(const RegistryValue* value);

bool sameName(std::wstring_view left, std::wstring_view right);

}  // namespace kiv::tool
