// The credentials that the command line names: USER:PASS, a question at the console, or a place outside the command
// line.
#include "resolve/credential_sources.h"

#include <windows.h>

#include <wincred.h>

#include <algorithm>
#include <cstring>

#include "common/password_prompt.h"
#include "resolve/targets.h"
#include "support/owners.h"

namespace kiv::tool {
namespace {

using Found = std::variant<Credential, std::string>;

// The system keeps the password in one block with the rest.
struct FreeCredential {
  void operator()(CREDENTIALW* credential) const noexcept {
    SecureZeroMemory(credential->CredentialBlob, credential->CredentialBlobSize);
    CredFree(credential);
  }
};

Wiped<wchar_t> fromUtf8(std::string_view utf8) {
  const auto length = static_cast<int>(utf8.size());
  Wiped<wchar_t> text(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0)));
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, text.data(), static_cast<int>(text.size()));
  return text;
}

Wiped<wchar_t> fromUtf16(std::string_view bytes) {
  Wiped<wchar_t> text(bytes.size() / sizeof(wchar_t));
  std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
  return text;
}

Found credentialIn(const Wiped<wchar_t>& text) {
  Credential credential = readCred(viewOf(text));
  if (credential.is_none()) return "does not hold USER:PASS";
  return credential;
}

Found fromEnvironment(const std::wstring& name) {
  Wiped<wchar_t> text(GetEnvironmentVariableW(name.c_str(), nullptr, 0));
  if (text.empty()) return "the environment variable does not exist";
  const DWORD length = GetEnvironmentVariableW(name.c_str(), text.data(), static_cast<DWORD>(text.size()));
  text.resize(std::min<std::size_t>(length, text.size()));
  return credentialIn(text);
}

Found fromFile(const std::wstring& path) {
  HANDLE const opened = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return "cannot read the file (error " + std::to_string(GetLastError()) + ")";
  const support::Unique<HANDLE, support::CloseKernelHandle> file(opened);
  constexpr std::size_t kMost = 64 * 1024;
  Wiped<char> bytes(kMost);
  DWORD read = 0;
  if (!ReadFile(opened, bytes.data(), kMost, &read, nullptr)) {
    return "cannot read the file (error " + std::to_string(GetLastError()) + ")";
  }
  return credentialIn(firstLineOf({bytes.data(), read}));
}

// Control Panel and cmdkey store UTF-16; some programs store UTF-8, which has no zero bytes. A password of UTF-16
// without one, all of whose characters are beyond Latin, is an even number of bytes that is no valid UTF-8.
Wiped<wchar_t> passwordIn(std::string_view blob) {
  const bool utf16 =
      blob.size() % sizeof(wchar_t) == 0 &&
      (blob.find('\0') != std::string_view::npos ||
       MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, blob.data(), static_cast<int>(blob.size()), nullptr, 0) == 0);
  return utf16 ? fromUtf16(blob) : fromUtf8(blob);
}

Found fromCredentialManager(const std::wstring& target) {
  support::Unique<CREDENTIALW*, FreeCredential> stored;
  if (!CredReadW(target.c_str(), CRED_TYPE_GENERIC, 0, stored.put())) {
    return GetLastError() == ERROR_NOT_FOUND
               ? "Credential Manager has no generic credential of that name"
               : "cannot read from Credential Manager (error " + std::to_string(GetLastError()) + ")";
  }
  const CREDENTIALW& credential = *stored.get();
  if (!credential.UserName || !*credential.UserName) return "the credential has no user name";
  const Wiped<wchar_t> password =
      passwordIn({reinterpret_cast<const char*>(credential.CredentialBlob), credential.CredentialBlobSize});
  return Credential(credential.UserName, viewOf(password));
}

struct Place {
  std::wstring_view prefix;
  Found (*read)(const std::wstring& name);
};

constexpr Place kPlaces[] = {
    {L"env:", fromEnvironment},
    {L"file:", fromFile},
    {L"credman:", fromCredentialManager},
};

const Place* placeOf(std::wstring_view text) {
  const auto* const place = std::ranges::find_if(kPlaces, [&](const Place& candidate) {
    return text.starts_with(candidate.prefix) && text.size() > candidate.prefix.size();
  });
  return place == std::ranges::end(kPlaces) ? nullptr : place;
}

}  // namespace

Wiped<wchar_t> firstLineOf(std::string_view bytes) {
  constexpr std::string_view kUtf16Mark = "\xFF\xFE";
  constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
  Wiped<wchar_t> text = bytes.starts_with(kUtf16Mark)  ? fromUtf16(bytes.substr(kUtf16Mark.size()))
                        : bytes.starts_with(kUtf8Mark) ? fromUtf8(bytes.substr(kUtf8Mark.size()))
                                                       : fromUtf8(bytes);
  constexpr std::wstring_view kLineEnds = L"\r\n";
  text.resize(std::min(viewOf(text).find_first_of(kLineEnds), text.size()));
  return text;
}

Found credentialOf(std::wstring_view written) {
  if (written.find(L':') != std::wstring_view::npos) return readCred(written);
  const auto password = readPassword(L"Password of " + std::wstring(written) + L": ");
  if (!password) return "without a password (USER:PASS) there must be a console where it can be typed";
  return Credential(written, viewOf(*password));
}

std::string problemOfPlace(std::wstring_view place) {
  return placeOf(place) ? std::string() : "must be env:NAME, file:PATH or credman:TARGET";
}

Found credentialAt(std::wstring_view place) {
  const Place& known = *placeOf(place);
  return known.read(std::wstring(place.substr(known.prefix.size())));
}

}  // namespace kiv::tool
