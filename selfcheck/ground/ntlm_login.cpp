// NTLM on the server's side, as the system checks it.
#define SECURITY_WIN32
#include "ground/ntlm_login.h"

#include <array>
#include <cstdio>
#include <vector>

#include "support/platform.h"
// Behind the system's other headers.
#include <security.h>
#include <wincrypt.h>

namespace selfcheck {
namespace {

std::vector<BYTE> fromBase64(std::string_view text) {
  DWORD size = 0;
  const auto length = static_cast<DWORD>(text.size());
  if (text.empty() || !CryptStringToBinaryA(text.data(), length, CRYPT_STRING_BASE64, nullptr, &size, nullptr, nullptr))
    return {};
  std::vector<BYTE> bytes(size);
  CryptStringToBinaryA(text.data(), length, CRYPT_STRING_BASE64, bytes.data(), &size, nullptr, nullptr);
  return bytes;
}

std::string toBase64(const std::vector<BYTE>& bytes) {
  constexpr DWORD kForm = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
  DWORD size = 0;
  const auto length = static_cast<DWORD>(bytes.size());
  if (bytes.empty() || !CryptBinaryToStringA(bytes.data(), length, kForm, nullptr, &size)) return {};
  std::string text(size, '\0');
  CryptBinaryToStringA(bytes.data(), length, kForm, text.data(), &size);
  text.resize(size);
  return text;
}

SecBufferDesc describing(SecBuffer& buffer) { return {SECBUFFER_VERSION, 1, &buffer}; }

}  // namespace

class NtlmLogin::System {
 public:
  System() {
    wchar_t package[] = L"NTLM";
    acquired_ = AcquireCredentialsHandleW(nullptr, package, SECPKG_CRED_INBOUND, nullptr, nullptr, nullptr, nullptr,
                                          &credentials_, nullptr);
  }
  System(const System&) = delete;
  System& operator=(const System&) = delete;
  ~System() {
    forget();
    if (acquired_ == SEC_E_OK) FreeCredentialsHandle(&credentials_);
  }

  Step step(std::string_view token) {
    if (acquired_ != SEC_E_OK) return {Result::Refused, {}, acquired_};
    std::vector<BYTE> in = fromBase64(token);
    std::vector<BYTE> out(kLongestToken);
    SecBuffer inBuffer{static_cast<ULONG>(in.size()), SECBUFFER_TOKEN, in.data()};
    SecBuffer outBuffer{static_cast<ULONG>(out.size()), SECBUFFER_TOKEN, out.data()};
    SecBufferDesc inList = describing(inBuffer);
    SecBufferDesc outList = describing(outBuffer);
    ULONG attributes = 0;
    const SECURITY_STATUS status =
        AcceptSecurityContext(&credentials_, begun_ ? &context_ : nullptr, &inList, 0, SECURITY_NATIVE_DREP, &context_,
                              &outList, &attributes, nullptr);
    begun_ = begun_ || status >= 0;
    if (status == SEC_E_OK) return {Result::Accepted};
    out.resize(outBuffer.cbBuffer);
    if (status == SEC_I_CONTINUE_NEEDED) return {Result::Continues, toBase64(out)};
    forget();
    return {Result::Refused, {}, status};
  }

 private:
  static constexpr std::size_t kLongestToken = 12'000;  // as the system says of NTLM's

  void forget() {
    if (begun_) DeleteSecurityContext(&context_);
    begun_ = false;
  }

  SECURITY_STATUS acquired_;
  CredHandle credentials_{};
  CtxtHandle context_{};
  bool begun_ = false;
};

NtlmLogin::NtlmLogin() : system_(std::make_unique<System>()) {}

NtlmLogin::~NtlmLogin() = default;

NtlmLogin::Step NtlmLogin::step(std::string_view token) { return system_->step(token); }

std::string ntlmMissing() {
  // A first message that asks for NTLM with Unicode and says nothing else ([MS-NLMP] 2.2.1.1).
  const NtlmLogin::Step step = NtlmLogin().step("TlRMTVNTUAABAAAAB4IIogAAAAAAAAAAAAAAAAAAAAAGAbEdAAAADw==");
  if (step.result == NtlmLogin::Result::Continues) return {};
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "the system checks no NTLM here (0x%08lX)",
                static_cast<unsigned long>(step.error));
  return text.data();
}

}  // namespace selfcheck
