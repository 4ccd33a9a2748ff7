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

// Lets the names of an account (DOMAIN\name) and a computer be replaced by "this-user" and the like.
void learnNames(const std::wstring& account, const std::wstring& computer, Redaction& redaction);

// `redaction` is null if names are shown.
Machine thisMachine(Redaction* redaction);

}  // namespace kiv::tool
