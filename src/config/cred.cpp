// A credential: a user name in clear and a password that is kept encrypted.
#include "config/cred.h"

#include <algorithm>
#include <utility>

#include "support/platform.h"

namespace kiv::impl {
namespace {

DWORD byteSize(const SecureWideBuffer& buffer) { return static_cast<DWORD>(buffer.size() * sizeof(wchar_t)); }

// Memory protection works on whole blocks; the zeros behind the characters are their terminator and the padding.
SecureWideBuffer paddedToBlocks(std::wstring_view text) {
  constexpr std::size_t kBlock = CRYPTPROTECTMEMORY_BLOCK_SIZE;
  std::size_t bytes = (text.size() + 1) * sizeof(wchar_t);
  if (bytes % kBlock != 0) bytes += kBlock - bytes % kBlock;
  SecureWideBuffer buffer(bytes / sizeof(wchar_t));
  std::ranges::copy(text, buffer.begin());
  return buffer;
}

}  // namespace

Cred::Cred(std::wstring_view username, SecureWideBuffer&& password, std::uint64_t length)
    : username_(username), password_(std::move(password)), length_(length) {}

std::optional<Cred> Cred::create(std::wstring_view username, std::wstring_view password) {
  SecureWideBuffer buffer = paddedToBlocks(password);
  if (!CryptProtectMemory(buffer.data(), byteSize(buffer), CRYPTPROTECTMEMORY_SAME_PROCESS)) return std::nullopt;
  return Cred(username, std::move(buffer), password.size());
}

SecureString Cred::password() const {
  SecureWideBuffer clear = password_;
  if (!CryptUnprotectMemory(clear.data(), byteSize(clear), CRYPTPROTECTMEMORY_SAME_PROCESS)) return {};
  return {std::move(clear), length_};
}

}  // namespace kiv::impl
