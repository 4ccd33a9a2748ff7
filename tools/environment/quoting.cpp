// Texts as values for the shells of Windows, exactly as they are: nothing in them is read as a part of a command.
#include "environment/quoting.h"

#include <algorithm>

namespace kiv::tool {
namespace {

using std::wstring_view;

// Controls, the separators of lines, what changes the direction of text, and halves of pairs.
bool isHidden(wchar_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || (c >= 0x200B && c <= 0x200F) || (c >= 0x2028 && c <= 0x202E) ||
         (c >= 0x2060 && c <= 0x206F) || (c >= 0xD800 && c <= 0xDFFF) || c == 0xFEFF;
}

bool isAscii(wchar_t c) { return c < 0x80; }

bool canStand(wstring_view text, wstring_view refused) {
  return std::ranges::none_of(text, isHidden) && text.find_first_of(refused) == wstring_view::npos;
}

// Each of the characters is written as often as `replacement` says.
std::wstring replaced(wstring_view text, wstring_view characters, std::wstring (*replacement)(wchar_t)) {
  std::wstring result;
  for (const wchar_t c : text) {
    result += characters.find(c) == wstring_view::npos ? std::wstring(1, c) : replacement(c);
  }
  return result;
}

std::wstring doubled(wchar_t c) { return std::wstring(2, c); }

std::wstring inQuotes(wchar_t quote, const std::wstring& text) { return quote + text + quote; }

}  // namespace

// Within the quotes & | < > ^ and brackets are plain. "!" is not, where delayed expansion is on.
std::optional<std::wstring> quotedForCmd(wstring_view text) {
  if (!canStand(text, L"\"!%")) return std::nullopt;
  return std::wstring(text);
}

std::optional<std::wstring> quotedForBatch(wstring_view text) {
  if (!canStand(text, L"\"!") || !std::ranges::all_of(text, isAscii)) return std::nullopt;
  return replaced(text, L"%", doubled);
}

// PowerShell takes the typographic quotes for the plain one, and any two in a row for one: the first of them.
std::optional<std::wstring> quotedForPowerShell(wstring_view text) {
  if (!canStand(text, L"")) return std::nullopt;
  return inQuotes(L'\'', replaced(text, L"'\x2018\x2019\x201A\x201B", doubled));
}

std::optional<std::wstring> quotedForBash(wstring_view text) {
  if (!canStand(text, L"")) return std::nullopt;
  return inQuotes(L'\'', replaced(text, L"'", [](wchar_t) { return std::wstring(L"'\\''"); }));
}

// The typographic double quotes are quotes for PowerShell.
std::optional<std::wstring> quotedForAllShells(wstring_view text) {
  if (!canStand(text, L"\"\x201C\x201D\x201E$`\\%!")) return std::nullopt;
  return inQuotes(L'"', std::wstring(text));
}

std::optional<std::wstring> quotedForScripts(wstring_view text) {
  if (!canStand(text, L"&|<>^()'; \t")) return std::nullopt;
  return quotedForAllShells(text);
}

}  // namespace kiv::tool
