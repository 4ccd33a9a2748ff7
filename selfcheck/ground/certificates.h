// The certificates of the servers with TLS.
#pragma once

#include <cstdint>
#include <span>

namespace selfcheck {

enum class Certificate : std::uint8_t { Expired, OtherName, Untrusted };

// DER. Each is signed with its own key, which is the same for all, and which everybody may know.
std::span<const unsigned char> bytesOf(Certificate certificate);
// Of the curve P-256.
std::span<const unsigned char> keyOfCertificates();

}  // namespace selfcheck
