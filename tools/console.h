// Text in and out of the process: UTF-8 in files and pipes, the console's own text on a console.
#pragma once

#include <string>
#include <string_view>

namespace kiv::tool {

std::string toUtf8(std::wstring_view text);
std::wstring toWide(std::string_view utf8);

enum class Stream { Output, Error };

// Whether somebody reads the stream on a console that understands colours.
bool showsColours(Stream stream);
void print(Stream stream, std::wstring_view text);

}  // namespace kiv::tool
