// NTLM on the server's side, as the system checks it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace selfcheck {

class NtlmLogin {
 public:
  NtlmLogin();
  NtlmLogin(const NtlmLogin&) = delete;
  NtlmLogin& operator=(const NtlmLogin&) = delete;
  ~NtlmLogin();

  enum class Result { Continues, Accepted, Refused };
  struct Step {
    Result result = Result::Refused;
    std::string token{};  // for the client, in base64
    long error = 0;       // of a refusal
  };
  // Takes the client's next token, in base64. After a refusal it begins anew.
  Step step(std::string_view token);

 private:
  class System;
  std::unique_ptr<System> system_;
};

// Why this system takes no NTLM; empty if it does.
std::string ntlmMissing();

}  // namespace selfcheck
