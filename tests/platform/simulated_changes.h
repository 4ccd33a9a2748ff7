// What can change under a running program, as tests set it: registry keys, addresses, the modules that have the
// functions which tell of it.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "platform/simulated_headers.h"

namespace kiv::test {

struct Registry {
  // Keys that do not exist, and nothing below them: "HKLM\\SOFTWARE\\Policies\\X", in any case.
  std::vector<std::wstring> missing = {};
};

// The modules and functions that are looked up at run time: iphlpapi.dll, ntdll.dll, powrprof.dll, secur32.dll and
// winhttp.dll. All are there unless they are named here.
struct Modules {
  std::set<std::wstring> absent = {};                              // modules, in lower case: not on this Windows
  std::set<std::string> absentFunctions = {};                      // "NotifyUnicastIpAddressChange"
  std::set<std::wstring> loaded = {L"ntdll.dll", L"winhttp.dll"};  // from the start and for ever
  // If not, to register for changes of addresses succeeds, with a null handle, and nothing is ever told, as in Wine.
  bool addressNotifications = true;
};

struct UnicastAddress {
  std::string address;    // "10.0.0.1", "fe80::1"
  ULONG interfaceId = 1;  // its index, and its LUID
  BYTE prefix = 24;
  bool preferred = true;  // if not, it is being checked for duplicates still
};

}  // namespace kiv::test
