// What the network says about proxies. Unit tests give its answers as data.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

#include "sources/place.h"

namespace kiv::tool {

// Where automatic detection (WPAD) asks.
enum class DetectionBy : std::uint8_t { Dhcp, Dns };

struct Detected {
  PlaceState state = PlaceState::NothingThere;
  std::wstring scriptUrl{};
  unsigned error = ERROR_SUCCESS;  // if the place is not readable
};

// The answer to a request for a PAC script.
struct FetchedScript {
  int status = -1;                 // negative if there was no response
  unsigned error = ERROR_SUCCESS;  // then
  std::wstring contentType{};
  std::string beginning{};  // of the body
};

class Network {
 public:
  Network() = default;
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;
  virtual ~Network() = default;

  virtual Detected detect(DetectionBy way) const = 0;
  virtual FetchedScript fetch(const std::wstring& url) const = 0;
  // The time in the Date header of a proxy, in seconds since 1601; nothing if it does not tell.
  virtual std::optional<std::int64_t> dateOf(const std::wstring& host, std::uint16_t port) const = 0;
};

// Sends no credentials, not even those of the logged-on user, and uses no proxy.
class WindowsNetwork : public Network {
 public:
  Detected detect(DetectionBy way) const override;
  FetchedScript fetch(const std::wstring& url) const override;
  std::optional<std::int64_t> dateOf(const std::wstring& host, std::uint16_t port) const override;
};

}  // namespace kiv::tool
