// What is said to a SOCKS proxy before it passes bytes on to the target: bytes in, bytes out.
#include "network/socks_dialogue.h"

#include "network/sockets.h"

namespace kiv::session {
namespace {

constexpr std::uint8_t kVersion4 = 4;
constexpr std::uint8_t kVersion5 = 5;
constexpr std::uint8_t kConnect = 1;

constexpr std::uint8_t kNoAuthentication = 0x00;
constexpr std::uint8_t kUserAndPassword = 0x02;
constexpr std::uint8_t kNoMethod = 0xFF;
constexpr std::uint8_t kLogOnVersion = 1;

constexpr std::uint8_t kIpv4 = 1;
constexpr std::uint8_t kName = 3;
constexpr std::uint8_t kIpv6 = 4;

constexpr std::uint8_t kGranted4 = 90;
constexpr std::uint8_t kLastRefusal4 = 93;

constexpr std::size_t kLongestWord = 255;  // a length is one byte

// Its length and its UTF-8; false if that is longer than `kLongestWord`.
bool putWord(std::wstring_view text, SecureBytes& bytes) {
  SecureBytes utf8;
  if (!text.empty()) {
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    if (size <= 0 || static_cast<std::size_t>(size) > kLongestWord) return false;
    utf8.resize(static_cast<std::size_t>(size));
    if (WideCharToMultiByte(CP_UTF8, 0, text.data(), length, reinterpret_cast<char*>(utf8.data()), size, nullptr,
                            nullptr) != size) {
      return false;
    }
  }
  bytes.push_back(static_cast<std::uint8_t>(utf8.size()));
  bytes.insert(bytes.end(), utf8.begin(), utf8.end());
  return true;
}

}  // namespace

SocksDialogue::SocksDialogue(RouteKind version, SocksTarget target, std::optional<impl::Cred> cred)
    : isSocks4_(version == RouteKind::Socks4), target_(std::move(target)), cred_(std::move(cred)) {
  isSocks4_ ? openSocks4() : openSocks5();
}

// The address 0.0.0.1 says that a name follows the (empty) user.
void SocksDialogue::openSocks4() {
  if (target_.address.size() > 4) {
    finish(WSAEAFNOSUPPORT);
    return;
  }
  put(kVersion4);
  put(kConnect);
  putPort();
  const bool isNamed = target_.address.empty();
  if (isNamed) target_.address = {0, 0, 0, 1};
  output_.insert(output_.end(), target_.address.begin(), target_.address.end());
  put(0);
  if (isNamed) {
    output_.insert(output_.end(), target_.name.begin(), target_.name.end());
    put(0);
  }
  expect(Stage::Status, 2);
}

void SocksDialogue::openSocks5() {
  put(kVersion5);
  put(cred_ ? 2 : 1);
  put(kNoAuthentication);
  if (cred_) put(kUserAndPassword);
  expect(Stage::Method, 2);
}

void SocksDialogue::receive(const std::uint8_t* bytes, std::size_t count) {
  for (std::size_t i = 0; i < count && !isFinished(); ++i) {
    answer_[length_++] = bytes[i];
    if (length_ == expected_) answered();
  }
}

void SocksDialogue::answered() {
  switch (stage_) {
    case Stage::Method:
      chooseMethod();
      break;
    case Stage::LogOn:
      if (answer_[0] != kLogOnVersion) {
        finish(ERROR_INVALID_DATA);
      } else if (answer_[1] != 0) {
        finish(ERROR_LOGON_FAILURE);
      } else {
        connect();
      }
      break;
    case Stage::Status:
      readStatus();
      break;
    case Stage::AddressType:
      readAddressType();
      break;
    case Stage::Rest:
    case Stage::Finished:
      finish(ERROR_SUCCESS);
      break;
  }
}

void SocksDialogue::chooseMethod() {
  const std::uint8_t method = answer_[1];
  const bool isKnown = method == kNoAuthentication || method == kNoMethod || (method == kUserAndPassword && cred_);
  if (answer_[0] != kVersion5 || !isKnown) {
    finish(ERROR_INVALID_DATA);
  } else if (method == kNoAuthentication) {
    connect();
  } else if (method == kNoMethod) {
    finish(ERROR_LOGON_FAILURE);
  } else if (const DWORD error = logOn()) {
    finish(error);
  }
}

// ERROR_LOGON_FAILURE if the words are too long to be said. A password that cannot be decrypted is not said to be
// empty: the proxy would refuse it.
DWORD SocksDialogue::logOn() {
  const impl::SecureString password = cred_->password();
  if (!password.c_str()) return GetLastError();
  // As long as it can get, so that no block that holds a password is outgrown.
  SecureBytes words;
  words.reserve(1 + 2 * (1 + kLongestWord));
  words.push_back(kLogOnVersion);
  if (!putWord(cred_->username(), words) || !putWord(password.view(), words)) return ERROR_LOGON_FAILURE;
  output_ = std::move(words);
  expect(Stage::LogOn, 2);
  return ERROR_SUCCESS;
}

void SocksDialogue::connect() {
  put(kVersion5);
  put(kConnect);
  put(0);
  if (target_.address.empty()) {
    put(kName);
    put(static_cast<std::uint8_t>(target_.name.size()));
    output_.insert(output_.end(), target_.name.begin(), target_.name.end());
  } else {
    put(target_.address.size() == 4 ? kIpv4 : kIpv6);
    output_.insert(output_.end(), target_.address.begin(), target_.address.end());
  }
  putPort();
  expect(Stage::Status, 2);
}

// A proxy that refuses may close the connection before it has said the rest.
void SocksDialogue::readStatus() {
  const std::uint8_t status = answer_[1];
  const bool isKnown = !isSocks4_ || (status >= kGranted4 && status <= kLastRefusal4);
  if (answer_[0] != (isSocks4_ ? 0 : kVersion5) || !isKnown) {
    finish(ERROR_INVALID_DATA);
  } else if (status != (isSocks4_ ? kGranted4 : 0)) {
    finish(WSAECONNREFUSED);
  } else if (isSocks4_) {
    expect(Stage::Rest, 6);
  } else {
    expect(Stage::AddressType, 3);
  }
}

// The address to which the proxy is bound, a byte of which has been read, and its port.
void SocksDialogue::readAddressType() {
  switch (answer_[1]) {
    case kIpv4:
      expect(Stage::Rest, 4 - 1 + 2);
      break;
    case kIpv6:
      expect(Stage::Rest, 16 - 1 + 2);
      break;
    case kName:
      expect(Stage::Rest, answer_[2] + std::size_t{2});
      break;
    default:
      finish(ERROR_INVALID_DATA);
      break;
  }
}

void SocksDialogue::expect(Stage stage, std::size_t size) noexcept {
  stage_ = stage;
  expected_ = size;
  length_ = 0;
}

void SocksDialogue::finish(DWORD error) noexcept {
  stage_ = Stage::Finished;
  error_ = error;
}

void SocksDialogue::putPort() {
  put(static_cast<std::uint8_t>(target_.port >> 8));
  put(static_cast<std::uint8_t>(target_.port));
}

}  // namespace kiv::session
