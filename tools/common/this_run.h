// Who asks, and where: the account, its rights, the session and the version of Windows.
#pragma once

#include <optional>
#include <string>

#include "common/redaction.h"

namespace kiv::tool {

struct ThisRun {
  std::wstring computer{};
  std::wstring account{};  // "DOMAIN\name"
  std::wstring sid{};
  std::optional<bool> elevated{};
  std::optional<unsigned> session{};
  std::wstring windows{};  // "10.0.19045"
};

ThisRun readThisRun();

// Lets "this-user", "this-domain" and "this-computer" stand for the names, wherever they are.
void learnNames(const ThisRun& run, Redaction& redaction);
void redact(ThisRun& run, Redaction& redaction);

}  // namespace kiv::tool
