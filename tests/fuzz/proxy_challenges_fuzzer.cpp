// Proxies' challenges: any text is read to an end, what is read obeys the limits, and lines do not touch each other.
#include <algorithm>

#include "credentials/challenges.h"
#include "fuzz/fuzz_input.h"
#include "kiv/session.h"

using namespace kiv;
using session::HeaderChallenge;
using session::readChallenges;

namespace {

void requireValid(const HeaderChallenge& challenge, std::wstring_view text) {
  constexpr std::uint32_t kWithToken = KIV_SCHEME_NTLM | KIV_SCHEME_NEGOTIATE;
  fuzz::require((challenge.scheme & (challenge.scheme - 1)) == 0, "a challenge has one scheme");
  fuzz::require(challenge.token.empty() || (challenge.scheme & kWithToken) != 0, "only two schemes have a token");
  fuzz::require(text.find(challenge.token) != std::wstring_view::npos, "a token stands in the text");
  fuzz::require(challenge.realm.size() <= session::kLongestRealm, "a realm is short");
  fuzz::require(std::ranges::none_of(challenge.realm, [](wchar_t c) { return c < L' ' || c == 0x7F; }),
                "a realm has no control characters");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text = fuzz::Input(data, size).wideRest();
  const std::vector<HeaderChallenge> challenges = readChallenges(text);
  fuzz::require(challenges.size() <= session::kMostChallenges, "a few challenges");
  for (const HeaderChallenge& challenge : challenges) requireValid(challenge, text);

  std::vector<HeaderChallenge> ofLines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find_first_of(L"\r\n", at), text.size());
    for (HeaderChallenge& challenge : readChallenges(text.substr(at, end - at)))
      ofLines.push_back(std::move(challenge));
    at = end + 1;
  }
  ofLines.resize(std::min(ofLines.size(), session::kMostChallenges));
  if (text.size() <= session::kLongestHeader) fuzz::require(ofLines == challenges, "each line is read for itself");
  return 0;
}
