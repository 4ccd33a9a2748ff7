// The credentials that the command line names: USER:PASS, a question at the console, or a place outside the command
// line.
#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "common/wiped.h"
#include "kiv/kiv.hpp"

namespace kiv::tool {

// From "user:password", or from "user", whose password is typed at the console; or what is wrong.
std::variant<Credential, std::string> credentialOf(std::wstring_view written);

// What is wrong with the form of a place: "env:NAME", "file:PATH" or "credman:TARGET"; empty if nothing is.
std::string problemOfPlace(std::wstring_view place);

// From such a place, or what is wrong with what is there. An environment variable and a file have "user:password" in
// them; Credential Manager has both apart, in a generic credential.
std::variant<Credential, std::string> credentialAt(std::wstring_view place);

// The text of a file: UTF-16 after its byte order mark, else UTF-8. Of a file with several lines, the first.
Wiped<wchar_t> firstLineOf(std::string_view bytes);

}  // namespace kiv::tool
