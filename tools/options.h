// The command line of kiv-resolve.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "choices.h"
#include "kiv/kiv.hpp"
#include "targets.h"

namespace kiv::tool {

struct Options {
  std::vector<Target> targets;
  bool targetsFromInput = false;
  std::wstring userAgent;
  std::optional<std::wstring> bypass;  // replaces the user's bypass list, also when empty
  ProxyConfig preferred;               // none if not given
  ProxyConfig fallback;                // none if not given
  Credential proxyCred;                // none if not given
  Credential serverCred;               // none if not given
  Method method = Method::Head;
  bool ignoreCertErrors = false;
  bool prompt = false;
  Task task = Task::Resolve;
  Detail detail = Detail::Log;
  bool json = false;
  std::wstring traceFile;   // empty if not given
  std::wstring reportFile;  // empty if not given
};

// What to do when there is nothing to resolve: print a text and end with a code.
struct Exit {
  int code = 0;
  std::string text;
};

constexpr int kBadUsage = 64;

// `arguments` without the program's name; they must outlive the call. Reads standard input if the URLs are there.
std::variant<Options, Exit> parseCommandLine(std::span<const wchar_t* const> arguments);

}  // namespace kiv::tool
