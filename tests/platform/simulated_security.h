// The simulated security packages: what a handshake says, and what the library gave to it.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/simulated_headers.h"

namespace kiv::test {

// The outcome of one InitializeSecurityContextW in place of the usual one. A token is handed out only if it is set.
struct Leg {
  LONG status = 0;
  std::optional<std::string> token = std::nullopt;
};

struct SecurityPackages {
  std::vector<std::wstring> present = {L"NTLM", L"Negotiate"};
  ULONG maxToken = 2888;
  std::deque<Leg> legs = {};  // consumed from the front; when there are none, the packages do what they do
  std::wstring loggedOnUser = L"logged-on";  // whose credentials are used when none are given
};

// One credentials handle: who it stands for.
struct IdentityRecord {
  std::wstring package;
  bool loggedOn = false;  // no identity was given
  std::wstring user = {};
  std::wstring domain = {};
  std::wstring password = {};
  bool released = false;

  bool passwordWas(std::wstring_view expected) const { return password == expected; }
};

// One security context: the call that began it, and how far it came.
struct HandshakeRecord {
  std::size_t identity = 0;  // its place among the identities
  std::wstring targetName;
  ULONG requirements = 0;
  std::size_t legs = 0;
  LONG status = 0;  // of the last leg
  bool completed = false;
  bool released = false;
};

// The usual handshake's second token, as a server makes it: a challenge, with eight characters that must come back.
std::string ntlmChallenge(std::string_view nonce);

// What the handshake's third token says.
struct NtlmAnswer {
  std::string nonce;
  std::wstring user;
};
std::optional<NtlmAnswer> readNtlmAnswer(std::string_view token);

}  // namespace kiv::test
