// What is said to a SOCKS proxy before it passes bytes on to the target: bytes in, bytes out.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/cred.h"
#include "config/secure_string.h"
#include "routes/route.h"
#include "support/platform.h"

namespace kiv::session {

using SecureBytes = std::vector<std::uint8_t, impl::WipingAllocator<std::uint8_t>>;

struct SocksTarget {
  std::string name;                   // at most 255 characters
  std::vector<std::uint8_t> address;  // 4 or 16 bytes, which are used in place of the name; or none
  std::uint16_t port = 0;
};

// SOCKS 4 with addresses of IPv4, SOCKS 4a with names, and SOCKS 5 (RFC 1928) without authentication or with user name
// and password (RFC 1929).
class SocksDialogue {
 public:
  // `version` is Socks4 or Socks5. Throws std::bad_alloc.
  SocksDialogue(RouteKind version, SocksTarget target, std::optional<impl::Cred> cred);

  // Takes what is to be sent now, which may be nothing. It can hold the password.
  SecureBytes takeOutput() noexcept { return std::exchange(output_, {}); }
  // Reads what the proxy sent. Whatever follows its last answer is the target's, and passed over. Throws
  // std::bad_alloc.
  void receive(const std::uint8_t* bytes, std::size_t count);

  bool isFinished() const noexcept { return stage_ == Stage::Finished; }
  // Of one that is finished: 0, WSAECONNREFUSED if the proxy refuses the target, ERROR_LOGON_FAILURE if it refuses the
  // credentials or wants some that are not there, WSAEAFNOSUPPORT if SOCKS 4 cannot name the target, or
  // ERROR_INVALID_DATA for anything unexpected.
  DWORD error() const noexcept { return error_; }

 private:
  enum class Stage : std::uint8_t { Method, LogOn, Status, AddressType, Rest, Finished };

  static constexpr std::size_t kLongestAnswer = 4 + 1 + 255 + 2;

  void openSocks4();
  void openSocks5();
  void answered();
  void chooseMethod();
  DWORD logOn();
  void connect();
  void readStatus();
  void readAddressType();
  void expect(Stage stage, std::size_t size) noexcept;
  void finish(DWORD error) noexcept;
  void put(std::uint8_t byte) { output_.push_back(byte); }
  void putPort();

  bool isSocks4_;
  SocksTarget target_;
  std::optional<impl::Cred> cred_;
  SecureBytes output_;
  Stage stage_ = Stage::Method;
  std::size_t expected_ = 0;
  std::array<std::uint8_t, kLongestAnswer> answer_{};
  std::size_t length_ = 0;
  DWORD error_ = ERROR_SUCCESS;
};

}  // namespace kiv::session
