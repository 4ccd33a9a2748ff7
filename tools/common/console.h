// Text in and out of the process: UTF-8 in files and pipes, the console's own text on a console.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "common/wiped.h"

namespace kiv::tool {

// A surrogate without its pair becomes the replacement character, in both directions.
std::string toUtf8(std::wstring_view text);
std::wstring toWide(std::string_view utf8);

enum class Stream { Output, Error };

// Makes standard error, if it is a console, understand colours and moves of the cursor as long as this object lives.
// A console keeps its mode when a program ends, so the former mode is restored, also after Ctrl-C and when the window
// is closed. There is one such object at a time.
class StyledConsole {
 public:
  StyledConsole();
  StyledConsole(const StyledConsole&) = delete;
  StyledConsole& operator=(const StyledConsole&) = delete;
  ~StyledConsole();

  // False if standard error is no console, or one that cannot do it, as before Windows 10.
  bool understandsMoves() const { return styled_; }
  // False also if the user wants no colours.
  bool showsColours() const { return styled_ && coloursWanted_; }

 private:
  bool styled_;
  bool coloursWanted_;
};

// How many characters fit on a line of the stream's console.
std::size_t consoleWidth(Stream stream);
// False if nobody can read it, as when a pipe's other end is closed.
bool print(Stream stream, std::wstring_view text);

// Standard input to its end. From a console, to a line that begins with Ctrl-Z; empty after Ctrl-C.
Wiped<wchar_t> readInput();

// The window (HWND) that can own a dialog; null if none is shown.
void* windowOfConsole();

}  // namespace kiv::tool
