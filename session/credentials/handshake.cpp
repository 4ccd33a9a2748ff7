// A handshake of NTLM or Negotiate, by the system's security packages.
#include "credentials/handshake.h"

#include "loop/system_error.h"

namespace kiv::session {
namespace {

// The interface's texts are not const, but it only reads them; they are UTF-16, whatever their type is called.
USHORT* mutableText(const wchar_t* text) { return reinterpret_cast<USHORT*>(const_cast<wchar_t*>(text)); }

// "DOMAIN\user" is taken apart; "user@domain" is a user name as a whole.
struct Account {
  explicit Account(const std::wstring& name) {
    const std::size_t separator = name.find(L'\\');
    if (separator != std::wstring::npos) domain = name.substr(0, separator);
    user = separator == std::wstring::npos ? name : name.substr(separator + 1);
  }

  std::wstring domain;
  std::wstring user;
};

}  // namespace

Handshake::~Handshake() {
  if (legs_ > 0) DeleteSecurityContext(&context_);
  if (hasCredentials_) FreeCredentialsHandle(&credentials_);
}

SECURITY_STATUS Handshake::beginWith(const impl::Cred& cred) {
  const Account account(cred.username());
  const impl::SecureString password = clearPassword(cred);
  SEC_WINNT_AUTH_IDENTITY_W identity{};
  identity.User = mutableText(account.user.c_str());
  identity.UserLength = static_cast<ULONG>(account.user.size());
  identity.Domain = account.domain.empty() ? nullptr : mutableText(account.domain.c_str());
  identity.DomainLength = static_cast<ULONG>(account.domain.size());
  identity.Password = mutableText(password.c_str());
  identity.PasswordLength = static_cast<ULONG>(password.size());
  identity.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
  return begin(&identity);
}

SECURITY_STATUS Handshake::beginAsThisUser() noexcept { return begin(nullptr); }

SECURITY_STATUS Handshake::begin(SEC_WINNT_AUTH_IDENTITY_W* identity) noexcept {
  TimeStamp expiry{};
  const SECURITY_STATUS status =
      AcquireCredentialsHandleW(nullptr, const_cast<SEC_WCHAR*>(package_), SECPKG_CRED_OUTBOUND, nullptr, identity,
                                nullptr, nullptr, &credentials_, &expiry);
  hasCredentials_ = status == SEC_E_OK;
  return status;
}

SECURITY_STATUS Handshake::next(std::span<std::uint8_t> answer) noexcept {
  SecBuffer given{static_cast<ULONG>(answer.size()), SECBUFFER_TOKEN, answer.data()};
  SecBufferDesc input{SECBUFFER_VERSION, 1, &given};
  SecBuffer made{0, SECBUFFER_TOKEN, nullptr};
  SecBufferDesc output{SECBUFFER_VERSION, 1, &made};
  const bool first = legs_ == 0;
  ULONG attributes = 0;
  TimeStamp expiry{};
  SECURITY_STATUS status = InitializeSecurityContextW(
      &credentials_, first ? nullptr : &context_, target_.data(), ISC_REQ_ALLOCATE_MEMORY | ISC_REQ_CONNECTION, 0,
      SECURITY_NATIVE_DREP, answer.empty() ? nullptr : &input, 0, &context_, &output, &attributes, &expiry);
  *token_.put() = made.pvBuffer;
  tokenSize_ = made.pvBuffer ? made.cbBuffer : 0;
  if (status < 0) return status;
  ++legs_;
  const bool goesOn = status == SEC_I_CONTINUE_NEEDED || status == SEC_I_COMPLETE_AND_CONTINUE;
  if (status == SEC_I_COMPLETE_NEEDED || status == SEC_I_COMPLETE_AND_CONTINUE) {
    status = CompleteAuthToken(&context_, &output);
    if (status < 0) return status;
  }
  return goesOn ? SEC_I_CONTINUE_NEEDED : SEC_E_OK;
}

std::span<const std::uint8_t> Handshake::token() const noexcept {
  return {static_cast<const std::uint8_t*>(token_.get()), tokenSize_};
}

impl::SecureString clearPassword(const impl::Cred& cred) {
  impl::SecureString password = cred.password();
  if (!password.c_str()) throwLastError();
  return password;
}

}  // namespace kiv::session
