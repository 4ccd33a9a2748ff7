// The URLs to reach, and the credentials in them.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "kiv/kiv.hpp"

namespace kiv::tool {

struct Target {
  std::wstring url;  // without user name and password: the library logs it unchanged
  Credential cred;   // those of the URL; none if it has none
};

// What is wrong with a URL; empty if nothing is. Does not quote the text, which can hold a password.
std::string problemOfUrl(std::wstring_view url);

// From a URL that has no problem.
Target readTarget(std::wstring_view url);

// From "user:password"; none for a text without a colon.
Credential readCred(std::wstring_view userAndPassword);

// One URL per line, without blank lines and lines that begin with "#"; or what is wrong, and where.
std::variant<std::vector<Target>, std::string> readTargetList(std::wstring_view lines);

}  // namespace kiv::tool
