// A registry and a network whose contents tests give as data.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sources/network.h"
#include "sources/registry.h"

namespace kiv::tool {

inline RegistryValue textValue(std::wstring name, std::wstring_view text) {
  std::vector<std::uint8_t> data(text.size() * sizeof(wchar_t));
  std::memcpy(data.data(), text.data(), data.size());
  return {std::move(name), REG_SZ, std::move(data)};
}

inline RegistryValue numberValue(std::wstring name, DWORD number) {
  std::vector<std::uint8_t> data(sizeof(number));
  std::memcpy(data.data(), &number, sizeof(number));
  return {std::move(name), REG_DWORD, std::move(data)};
}

class FakeRegistry : public Registry {
 public:
  KeyContents read(const RegistryKey& key) const override {
    const auto found = keys.find(key);
    return found == keys.end() ? KeyContents{} : found->second;
  }

  void add(const RegistryKey& key, RegistryValue value) {
    keys[key].status = ERROR_SUCCESS;
    keys[key].values.push_back(std::move(value));
  }

  std::map<RegistryKey, KeyContents> keys;
};

class FakeNetwork : public Network {
 public:
  Detected detect(DetectionBy way) const override { return way == DetectionBy::Dhcp ? byDhcp : byDns; }
  FetchedScript fetch(const std::wstring& /*url*/) const override { return {}; }
  std::optional<std::int64_t> dateOf(const std::wstring& /*host*/, std::uint16_t /*port*/) const override { return {}; }

  Detected byDhcp;
  Detected byDns;
};

}  // namespace kiv::tool
