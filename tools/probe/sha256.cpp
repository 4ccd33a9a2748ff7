// SHA-256 of bytes, with Windows' own implementation.
#include "probe/sha256.h"

#include <array>

namespace kiv::tool {

Sha256::Sha256() {
  good_ = BCryptOpenAlgorithmProvider(algorithm_.put(), BCRYPT_SHA256_ALGORITHM, nullptr, 0) == 0 &&
          BCryptCreateHash(algorithm_.get(), hash_.put(), nullptr, 0, nullptr, 0, 0) == 0;
}

// The function takes a pointer that is not to const, and by its documentation only reads.
void Sha256::add(std::span<const std::uint8_t> bytes) {
  good_ = good_ && BCryptHashData(hash_.get(), const_cast<std::uint8_t*>(bytes.data()),
                                  static_cast<ULONG>(bytes.size()), 0) == 0;
}

std::wstring Sha256::finish() {
  constexpr const wchar_t* kDigits = L"0123456789abcdef";
  std::array<std::uint8_t, 32> digest{};
  if (!good_ || BCryptFinishHash(hash_.get(), digest.data(), static_cast<ULONG>(digest.size()), 0) != 0) return {};
  std::wstring text;
  for (const std::uint8_t byte : digest) (text += kDigits[byte >> 4]) += kDigits[byte & 15];
  return text;
}

std::wstring sha256Of(std::span<const std::uint8_t> bytes) {
  Sha256 hash;
  hash.add(bytes);
  return hash.finish();
}

}  // namespace kiv::tool
