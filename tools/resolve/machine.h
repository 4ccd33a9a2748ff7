// Where a report was made: the account, the computer and the versions of what took part.
#pragma once

#include <string>

#include "common/redaction.h"

namespace kiv::tool {

struct Machine {
  std::wstring user;  // DOMAIN\name
  bool elevated = false;
  std::wstring computer;
  std::wstring windows;
  std::wstring winHttp;
  std::wstring kiv;  // kiv.dll
};

// `redaction` is null if names are shown.
Machine thisMachine(Redaction* redaction);

}  // namespace kiv::tool
