// The command line of kiv-resolve.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "display.h"
#include "handles.h"
#include "targets.h"

namespace kiv::tool {

enum class Method { Head, Get };

// What to find out: a way that works, or only what there is to try, without a request.
enum class Task : std::uint8_t { Resolve, ShowSettings, ListCandidates };

struct Options {
  std::vector<Target> targets;
  bool targetsFromInput = false;
  std::wstring userAgent;
  std::optional<std::wstring> bypass;  // given, it replaces the system's list, also when empty
  UniqueProxyConfig preferred;         // null if not given
  UniqueProxyConfig fallback;          // null if not given
  UniqueCred proxyCred;                // null if not given
  UniqueCred serverCred;               // null if not given
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

// `arguments` in UTF-8, without the program's name. Reads standard input if the URLs stand there.
std::variant<Options, Exit> parseCommandLine(std::vector<std::string> arguments);

}  // namespace kiv::tool
