// Where a report was made: the account, the computer and the versions of what took part.
#pragma once

#include <string>

namespace kiv::tool {

struct Machine {
  std::wstring user;  // DOMAIN\name
  bool elevated = false;
  std::wstring computer;
  std::wstring windows;
  std::wstring winHttp;
  std::wstring kiv;  // kiv.dll
};

Machine thisMachine();

}  // namespace kiv::tool
