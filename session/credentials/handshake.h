// A handshake of NTLM or Negotiate, by the system's security packages.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "config/cred.h"
#include "support/owners.h"

// clang-format off
#ifndef SECURITY_WIN32
#define SECURITY_WIN32
#endif
#include <sspi.h>
// clang-format on

namespace kiv::session {

class Handshake {
 public:
  // `package` is L"NTLM" or L"Negotiate", which are the schemes' names too; `target` the service principal name.
  // Throws std::bad_alloc.
  Handshake(const wchar_t* package, std::wstring target) : package_(package), target_(std::move(target)) {}
  Handshake(const Handshake&) = delete;
  Handshake& operator=(const Handshake&) = delete;
  ~Handshake();

  // Once, before the first leg. SEC_E_OK or an error; the credentials may still be wrong.
  SECURITY_STATUS beginWith(const impl::Cred& cred);  // throws std::bad_alloc and SystemError
  SECURITY_STATUS beginAsThisUser() noexcept;
  // The next leg; `answer` is the proxy's token, and empty for the first. SEC_E_OK when nothing more is to be sent
  // after this token, SEC_I_CONTINUE_NEEDED, or an error. May wait for a domain controller.
  SECURITY_STATUS next(std::span<std::uint8_t> answer) noexcept;

  // What to send; may be empty.
  std::span<const std::uint8_t> token() const noexcept;
  // How many succeeded.
  int legs() const noexcept { return legs_; }

 private:
  struct FreeBuffer {
    void operator()(void* buffer) const noexcept { FreeContextBuffer(buffer); }
  };

  SECURITY_STATUS begin(SEC_WINNT_AUTH_IDENTITY_W* identity) noexcept;

  const wchar_t* package_;
  std::wstring target_;
  CredHandle credentials_{};
  bool hasCredentials_ = false;
  CtxtHandle context_{};
  int legs_ = 0;  // the first one gives the context
  support::Unique<void*, FreeBuffer> token_;
  std::size_t tokenSize_ = 0;
};

// The password in clear. Throws SystemError if the system cannot decrypt it, and std::bad_alloc.
impl::SecureString clearPassword(const impl::Cred& cred);

}  // namespace kiv::session
