// The Proxy-Authenticate headers of a 407.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::session {

// One challenge of a header, as RFC 9110 (11.3) writes it: a scheme with a token or with parameters.
struct HeaderChallenge {
  std::uint32_t scheme = 0;  // a KIV_SCHEME_ value; 0 for one that is not known
  std::wstring token;        // of NTLM and Negotiate, base64; empty if there is none
  std::wstring realm;        // unquoted; at most 1,024 characters, control characters replaced by U+FFFD

  bool operator==(const HeaderChallenge&) const = default;
};

inline constexpr std::size_t kLongestHeader = 65'536;
inline constexpr std::size_t kMostChallenges = 16;
inline constexpr std::size_t kLongestRealm = 1'024;

// Reads the values of all headers, one in each line or separated by commas; what cannot be read is passed over. Nothing
// of a text that is longer than kLongestHeader. Linear in its length. Throws std::bad_alloc.
std::vector<HeaderChallenge> readChallenges(std::wstring_view headers);

// The strongest scheme of a set that is in `allowed` too: Negotiate, NTLM, Digest, Basic; 0 if there is none.
std::uint32_t strongestScheme(std::uint32_t offered, std::uint32_t allowed) noexcept;

}  // namespace kiv::session
