// Secrets: the transformation that protects memory, and the system's credential prompt.
#include <algorithm>
#include <cstring>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

// A byte of a fixed stream that is never 0, so that no byte of a protected buffer is as it was.
unsigned char streamByte(std::size_t at) {
  std::uint64_t mixed = (at + 1) * 0x9E3779B97F4A7C15U;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
  return static_cast<unsigned char>((mixed >> 40) | 1);
}

BOOL transform(Entry& call, LPVOID data, DWORD size, DWORD flags) {
  call.number(L"size", size).number(L"flags", flags);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  if (!data || size == 0 || size % CRYPTPROTECTMEMORY_BLOCK_SIZE != 0) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  auto* bytes = static_cast<unsigned char*>(data);
  for (std::size_t at = 0; at < size; ++at) bytes[at] ^= streamByte(at);
  return call.succeed(TRUE);
}

// User and password, one after the other, each with its terminator; zeros behind them.
std::vector<std::byte> pack(const CredentialPrompt& prompt) {
  std::wstring text = prompt.user;
  text.append(1, L'\0').append(prompt.password).append(1, L'\0');
  std::vector<std::byte> packed(std::max(text.size() * sizeof(wchar_t), prompt.packedSize));
  std::memcpy(packed.data(), text.data(), text.size() * sizeof(wchar_t));
  return packed;
}

// Complains unless the buffer is the one that the prompt handed out, whole.
bool checkPacked(Entry& call, PVOID buffer, DWORD size) {
  State& state = call.state();
  if (!state.check(buffer, Kind::TaskBlock, call.name())) return false;
  if (state.resources.at(buffer).size == size) return true;
  state.complaints.push_back(call.name() + " was given a wrong size of the packed credentials");
  return false;
}

void hand(const std::wstring& text, LPWSTR buffer) {
  std::ranges::copy(text, buffer);
  buffer[text.size()] = L'\0';
}

}  // namespace
}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

BOOL WINAPI CryptProtectMemory(LPVOID data, DWORD size, DWORD flags) {
  Entry call("CryptProtectMemory");
  call.state().protections.push_back({size, flags});
  return transform(call, data, size, flags);
}

BOOL WINAPI CryptUnprotectMemory(LPVOID data, DWORD size, DWORD flags) {
  Entry call("CryptUnprotectMemory");
  return transform(call, data, size, flags);
}

DWORD WINAPI CredUIPromptForWindowsCredentialsW(PCREDUI_INFOW info, DWORD authError, ULONG* authPackage,
                                                LPCVOID inBuffer, ULONG inSize, LPVOID* outBuffer, ULONG* outSize,
                                                BOOL* save, DWORD flags) {
  Entry call("CredUIPromptForWindowsCredentialsW");
  if (info) {
    call.number(L"size", info->cbSize).flags(L"parent", reinterpret_cast<std::uintptr_t>(info->hwndParent));
    call.text(L"message", info->pszMessageText).text(L"caption", info->pszCaptionText);
    call.text(L"banner", info->hbmBanner ? L"set" : L"null");
  }
  call.number(L"authError", authError);
  if (authPackage) call.number(L"package", *authPackage);
  call.text(L"in", inBuffer ? L"set" : L"null").number(L"inSize", inSize);
  if (save) call.number(L"save", *save ? 1 : 0);
  call.flags(L"flags", flags);
  if (call.fault()) return call.failWith<DWORD>(*call.fault());
  if (!info || info->cbSize != sizeof(CREDUI_INFOW) || !authPackage || !outBuffer || !outSize) {
    return call.failWith<DWORD>(ERROR_INVALID_PARAMETER);
  }
  const CredentialPrompt& prompt = call.windows().prompt;
  if (prompt.result) return call.failWith<DWORD>(prompt.result);
  std::vector<std::byte> packed = pack(prompt);
  *outBuffer = call.state().newBlock(Kind::TaskBlock, packed.data(), packed.size());
  *outSize = static_cast<ULONG>(packed.size());
  return call.succeed(DWORD{0});
}

BOOL WINAPI CredUnPackAuthenticationBufferW(DWORD flags, PVOID buffer, DWORD size, LPWSTR user, DWORD* userSize,
                                            LPWSTR domain, DWORD* domainSize, LPWSTR password, DWORD* passwordSize) {
  Entry call("CredUnPackAuthenticationBufferW");
  call.flags(L"flags", flags).handle(L"buffer", buffer).number(L"size", size);
  const auto recordText = [&](const wchar_t* label, const wchar_t* text, const wchar_t* sizeLabel, const DWORD* count) {
    call.text(label, text ? L"set" : L"null");
    call.text(sizeLabel, count ? std::to_wstring(*count).c_str() : L"null");
  };
  recordText(L"user", user, L"userSize", userSize);
  recordText(L"domain", domain, L"domainSize", domainSize);
  recordText(L"password", password, L"passwordSize", passwordSize);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  if (!checkPacked(call, buffer, size) || !userSize || !passwordSize) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  const CredentialPrompt& prompt = call.windows().prompt;
  const auto userNeeded = static_cast<DWORD>(prompt.user.size() + 1);
  const auto passwordNeeded = static_cast<DWORD>(prompt.password.size() + 1);
  const DWORD userRoom = std::exchange(*userSize, userNeeded);
  const DWORD passwordRoom = std::exchange(*passwordSize, passwordNeeded);
  if (domainSize) *domainSize = 1;  // the terminator of an empty text
  if (!user || !password) {
    return prompt.unpackQueryError ? call.fail(prompt.unpackQueryError, FALSE) : call.succeed(TRUE);
  }
  if (userRoom < userNeeded || passwordRoom < passwordNeeded) return call.fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  if (prompt.unpackError) return call.fail(prompt.unpackError, FALSE);
  hand(prompt.user, user);
  hand(prompt.password, password);
  return call.succeed(TRUE);
}
