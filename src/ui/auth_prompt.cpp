// The system's credential prompt.
#include "ui/auth_prompt.h"

#include <string>

#include "config/secure_string.h"
#include "support/format.h"
#include "support/text.h"

namespace kiv::impl {

using support::format;

const PromptTexts kServerPrompt = {L"サーバー認証", L"下記サーバーの認証情報を入力してください。\n\n%ls"};
const PromptTexts kProxyPrompt = {L"プロキシ認証", L"下記プロキシサーバーの認証情報を入力してください。\n\n%ls"};

namespace {

// The prompt's answer: user name and password in one block, which is wiped before it goes back to the system.
class PackedCredentials {
 public:
  PackedCredentials() = default;
  PackedCredentials(const PackedCredentials&) = delete;
  PackedCredentials& operator=(const PackedCredentials&) = delete;
  ~PackedCredentials() {
    if (!block_) return;
    SecureZeroMemory(block_, size_);
    CoTaskMemFree(block_);
  }

  LPVOID* putBlock() { return &block_; }
  ULONG* putSize() { return &size_; }
  std::optional<Cred> unpack() const;

 private:
  LPVOID block_ = nullptr;
  ULONG size_ = 0;
};

// The text in a buffer, which its terminator ends.
std::wstring_view textIn(const SecureWideBuffer& buffer) {
  return support::upToNul(std::wstring_view(buffer.data(), buffer.size()));
}

std::optional<Cred> PackedCredentials::unpack() const {
  DWORD userSize = 0;
  DWORD domainSize = 0;
  DWORD passwordSize = 0;
  // Asked for the sizes alone, the call fails with just this error. The domain stays part of the user name.
  if (CredUnPackAuthenticationBufferW(CRED_PACK_PROTECTED_CREDENTIALS, block_, size_, nullptr, &userSize, nullptr,
                                      &domainSize, nullptr, &passwordSize) ||
      GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
    return std::nullopt;
  }
  SecureWideBuffer user(userSize);
  SecureWideBuffer password(passwordSize);
  if (!CredUnPackAuthenticationBufferW(CRED_PACK_PROTECTED_CREDENTIALS, block_, size_, user.data(), &userSize, nullptr,
                                       &domainSize, password.data(), &passwordSize)) {
    return std::nullopt;
  }
  return Cred::create(textIn(user), textIn(password));
}

std::wstring captionOf(const PromptTexts& texts, const wchar_t* detail) {
  std::wstring caption = texts.caption;
  if (*detail) caption += format(L"（%ls）", detail);
  return caption;
}

}  // namespace

std::optional<Cred> promptForCredentials(const PromptTexts& texts, const wchar_t* target, const wchar_t* detail,
                                         HWND parent) {
  const std::wstring caption = captionOf(texts, detail);
  const std::wstring message = format(texts.message, target);
  CREDUI_INFOW description{};
  description.cbSize = sizeof(description);
  description.hwndParent = parent;
  description.pszMessageText = message.c_str();
  description.pszCaptionText = caption.c_str();

  PackedCredentials packed;
  ULONG package = 0;
  BOOL save = FALSE;
  if (CredUIPromptForWindowsCredentialsW(&description, 0, &package, nullptr, 0, packed.putBlock(), packed.putSize(),
                                         &save, CREDUIWIN_GENERIC) != ERROR_SUCCESS) {
    return std::nullopt;
  }
  return packed.unpack();
}

}  // namespace kiv::impl
