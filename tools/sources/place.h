// A place where Windows or a program keeps proxy settings, and what it holds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::tool {

enum class PlaceState : std::uint8_t { Found, NothingThere, NotReadable, NotOnThisSystem };

// What settings switch on. A list that is switched off is not here.
struct Naming {
  bool automaticDetection = false;
  std::wstring scriptUrl{};
  std::wstring manualList{};
  std::wstring bypassList{};

  // Whether something leads to a proxy. A bypass list alone does not.
  bool namesProxy() const { return automaticDetection || !scriptUrl.empty() || !manualList.empty(); }
  bool operator==(const Naming&) const = default;
};

struct PlaceValue {
  std::wstring name{};
  std::wstring text{};  // with its passwords

  bool operator==(const PlaceValue&) const = default;
};

struct Place {
  std::string id{};         // stable: programs that read the JSON document know it
  std::wstring title{};     // "The user's settings (values)"
  std::wstring location{};  // the registry key, or the function
  PlaceState state = PlaceState::NothingThere;
  std::wstring remark{};  // why the place cannot be read, or what is unusual; may be empty
  std::vector<PlaceValue> values{};
  Naming naming{};
};

}  // namespace kiv::tool
