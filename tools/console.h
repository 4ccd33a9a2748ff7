// Text in and out of the process: UTF-8 in files and pipes, the console's own text on a console.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kiv::tool {

// Halves of characters that stand alone become the replacement character, in both directions.
std::string toUtf8(std::wstring_view text);
std::wstring toWide(std::string_view utf8);

enum class Stream { Output, Error };

// Whether somebody reads the stream on a console that understands colours and moves of the cursor.
bool showsColours(Stream stream);
// How many characters fit on a line of the stream's console.
std::size_t consoleWidth(Stream stream);
void print(Stream stream, std::wstring_view text);

// Standard input to its end.
std::string readInput();

}  // namespace kiv::tool
