// The command line of kiv-resolve.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "handles.h"

namespace kiv::tool {

enum class Method { Head, Get };

struct Options {
  std::wstring url;
  std::wstring userAgent;
  std::optional<std::wstring> bypass;  // given, it replaces the system's list, also when empty
  UniqueProxyConfig preferred;         // null if not given
  UniqueProxyConfig fallback;          // null if not given
  UniqueCred proxyCred;                // null if not given
  UniqueCred serverCred;               // null if not given
  Method method = Method::Head;
  bool ignoreCertErrors = false;
  bool prompt = false;
  bool quiet = false;
};

// What to do when there is nothing to resolve: print a text and end with a code.
struct Exit {
  int code = 0;
  std::string text;
};

constexpr int kBadUsage = 64;

// `arguments` in UTF-8, without the program's name.
std::variant<Options, Exit> parseCommandLine(std::vector<std::string> arguments);

}  // namespace kiv::tool
