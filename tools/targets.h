// The URLs to reach, and the credentials that stand in them.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "handles.h"

namespace kiv::tool {

struct Target {
  std::wstring url;  // without user name and password: the library logs it as it is given
  UniqueCred cred;   // those of the URL; null if it has none
};

// What is wrong with a URL; empty if nothing is. Does not quote the text, which can hold a password.
std::string problemOfUrl(const std::string& url);

// Of a URL that has no problem.
Target readTarget(const std::string& url);

// From "user:password"; null for a text without a colon.
UniqueCred readCred(const std::string& userAndPassword);

// One URL per line, blank lines and those that begin with "#" left out; or what is wrong, and where.
std::variant<std::vector<Target>, std::string> readTargetList(std::string_view lines);

}  // namespace kiv::tool
