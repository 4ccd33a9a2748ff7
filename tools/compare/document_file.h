// Reads a file with a JSON document.
#pragma once

#include <string>
#include <string_view>
#include <variant>

namespace kiv::tool {

struct DocumentProblem {
  std::wstring text;
};

// The file's text as UTF-8, or why it cannot be read.
std::variant<std::string, DocumentProblem> readDocumentFile(const std::wstring& path);

// Windows PowerShell writes what a program prints as UTF-16, and other programs put a byte order mark in front of
// UTF-8.
std::string utf8Of(std::string_view bytes);

}  // namespace kiv::tool
