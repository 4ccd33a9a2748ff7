// Texts made at random, but the same in every run, from the pieces that the library's grammars tell apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

namespace kiv::test {

class RandomText {
 public:
  explicit RandomText(std::uint32_t seed) : random_(seed) {}

  std::size_t below(std::size_t limit) { return random_() % limit; }
  bool oneIn(std::size_t chances) { return below(chances) == 0; }

  std::wstring_view digits();
  // At most so many pieces of any kind.
  std::wstring any(std::size_t mostPieces);
  // The same, but at least one piece, and none that divides the parts of an address.
  std::wstring plain(std::size_t mostPieces);
  std::wstring blanks(std::size_t mostPieces);

  // A text that is an address, or nearly one, or a jumble of what addresses are made of.
  std::wstring address();
  // A pattern of a bypass rule, and a text that it covers, or nearly covers.
  std::wstring pattern();
  std::wstring coveredBy(std::wstring_view pattern);

  // Takes a character out, puts a piece in, or replaces a character by a piece.
  void mutate(std::wstring& text);

 private:
  std::mt19937 random_;
};

}  // namespace kiv::test
