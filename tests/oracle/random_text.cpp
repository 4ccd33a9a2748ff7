// Texts made at random, but the same in every run, from the pieces that the library's grammars tell apart.
#include "oracle/random_text.h"

#include <array>
#include <cwctype>
#include <span>

namespace kiv::test {
namespace {

using Pieces = std::span<const std::wstring_view>;

constexpr std::array<std::wstring_view, 7> kDelimiterPieces = {L"/", L":", L"@", L"?", L"://", L":80", L"u:p@"};
// No-break space, next line, ideographic space, line and paragraph separator are white space to some C libraries and
// locales; some of them end a line.
constexpr std::array<std::wstring_view, 11> kBlankPieces = {L" ",      L"  ",     L"\t",     L"\n",     L"\r",    L"\v",
                                                            L"\x00A0", L"\x0085", L"\x3000", L"\x2028", L"\x2029"};
// Arabic-Indic, Devanagari, full-width, superscript.
constexpr std::array<std::wstring_view, 9> kDigitPieces = {L"0",      L"1",      L"80",     L"443",   L"65537",
                                                           L"\x0663", L"\x0967", L"\xFF15", L"\x00B2"};
// With pairs of cases that are unusual: Latin-1, Greek with its final sigma, Cyrillic, the dotted and the dotless i,
// the digraph with a title case, the signs that are capitals of letters (Kelvin, Ohm), full-width.
constexpr std::array<std::wstring_view, 30> kLetterPieces = {
    L"a",      L"A",      L"b",      L"B",      L"h",      L"http",   L"HTTP",   L"socks5", L"i",      L"I",
    L"\x00E4", L"\x00C4", L"\x00DF", L"\x1E9E", L"\x03C3", L"\x03A3", L"\x03C2", L"\x0436", L"\x0416", L"\x0130",
    L"\x0131", L"\x01C4", L"\x01C5", L"\x01C6", L"\x212A", L"k",      L"\x2126", L"\x03C9", L"\xFF21", L"\xFF41"};
// Characters with a meaning in regular expressions; some that have none; full-width doubles of the former; a character
// beyond 16 bits, and half of one.
constexpr std::array<std::wstring_view, 34> kOtherPieces = {
    L"*",   L"*", L"**", L".",      L"..",     L"-",      L"_",      L"\\",         L"\\d",  L"+",  L"{", L"}",
    L"{2}", L"(", L")",  L"[",      L"]",      L"[a-z]",  L"^",      L"$",          L"|",    L"#",  L",", L"=",
    L"<",   L">", L"&",  L"\xFF0A", L"\xFF08", L"\xFF0E", L"\xD83D", L"\U0001F600", L"\x7F", L"%41"};

constexpr std::array<Pieces, 5> kAnyKind = {kDelimiterPieces, kBlankPieces, kDigitPieces, kLetterPieces, kOtherPieces};
constexpr std::array<Pieces, 5> kPlainKind = {kLetterPieces, kLetterPieces, kOtherPieces, kDigitPieces, kBlankPieces};

std::wstring_view pick(RandomText& random, Pieces pieces) { return pieces[random.below(pieces.size())]; }
std::wstring_view pick(RandomText& random, std::span<const Pieces> kinds) {
  return pick(random, kinds[random.below(kinds.size())]);
}

wchar_t otherCase(wchar_t c) {
  const auto lower = static_cast<wchar_t>(std::towlower(c));
  return lower != c ? lower : static_cast<wchar_t>(std::towupper(c));
}

}  // namespace

std::wstring_view RandomText::digits() { return pick(*this, kDigitPieces); }

std::wstring RandomText::any(std::size_t mostPieces) {
  std::wstring text;
  for (std::size_t count = below(mostPieces + 1); count > 0; --count) text += pick(*this, kAnyKind);
  return text;
}

std::wstring RandomText::plain(std::size_t mostPieces) {
  std::wstring text(pick(*this, kPlainKind));
  for (std::size_t count = below(mostPieces); count > 0; --count) text += pick(*this, kPlainKind);
  return text;
}

std::wstring RandomText::blanks(std::size_t mostPieces) {
  std::wstring text;
  for (std::size_t count = below(mostPieces + 1); count > 0; --count) text += pick(*this, kBlankPieces);
  return text;
}

std::wstring RandomText::address() {
  if (oneIn(4)) return any(8);
  std::wstring text = blanks(2);
  if (oneIn(2)) text += plain(2) + L"://";
  if (oneIn(3)) text += plain(2) + L":" + plain(2) + L"@";
  text += plain(2);
  if (oneIn(2)) text.append(L":").append(digits());
  if (oneIn(2)) {
    text += L"/";
    if (oneIn(2)) text += plain(2);
    if (oneIn(4)) text += L"/" + plain(2);
    if (oneIn(2)) text += L"?" + plain(2);
  }
  text += blanks(2);
  if (oneIn(2)) mutate(text);
  return text;
}

std::wstring RandomText::pattern() {
  std::wstring text;
  for (std::size_t count = below(6); count > 0; --count) text += oneIn(3) ? L"*" : pick(*this, kAnyKind);
  return text;
}

std::wstring RandomText::coveredBy(std::wstring_view pattern) {
  std::wstring text;
  for (const wchar_t c : pattern) {
    if (c == L'*') {
      text += any(3);
    } else {
      text += oneIn(2) ? c : otherCase(c);
    }
  }
  if (oneIn(3)) mutate(text);
  return text;
}

void RandomText::mutate(std::wstring& text) {
  const std::size_t at = below(text.size() + 1);
  const std::size_t kind = below(3);
  if (kind != 0 && at < text.size()) text.erase(at, 1);
  if (kind != 1) text.insert(at, pick(*this, kAnyKind));
}

}  // namespace kiv::test
