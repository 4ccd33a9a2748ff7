// Where credentials may stand, and in which form.
#include "resolve/credential_sources.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <wincred.h>

#include <cstdio>
#include <string>

namespace kiv::tool {
namespace {

using Found = std::variant<Credential, std::string>;

std::wstring textOf(const Found& found) {
  const auto* const credential = std::get_if<Credential>(&found);
  if (!credential)
    return L"problem: " + std::wstring(std::get<std::string>(found).begin(), std::get<std::string>(found).end());
  return std::wstring(credential->username()) + L" / " + std::wstring(credential->password().view());
}

TEST(CredentialSources, TellAFilesEncodingByItsMark) {
  struct Case {
    std::string_view bytes;
    std::wstring_view line;
  };
  using namespace std::string_view_literals;
  const Case cases[] = {
      {"", L""},
      {"bob:secret", L"bob:secret"},
      {"bob:secret\nmore", L"bob:secret"},
      {"bob:secret\r\n", L"bob:secret"},
      {"b\xC3\xB6"sv
       "b:p",
       L"b\xF6"
       L"b:p"},
      {"\xEF\xBB\xBF"sv
       "bob:p\n",
       L"bob:p"},
      {"\xFF\xFE"
       "b\0:\0\xAC\x20\r\0\n\0"sv,
       L"b:\x20AC"},
      {"\xFF\xFE", L""},
  };
  for (const auto& [bytes, line] : cases) EXPECT_EQ(viewOf(firstLineOf(bytes)), line);
}

TEST(CredentialSources, AreNamedWithAKindAndAName) {
  for (const wchar_t* const place : {L"env:A", L"file:C:\\a", L"credman:git:https://host"}) {
    EXPECT_EQ(problemOfPlace(place), "");
  }
  for (const wchar_t* const place : {L"", L"env:", L"file:", L"credman:", L"secret", L"ENV:A", L"http://a"}) {
    EXPECT_EQ(problemOfPlace(place), "must be env:NAME, file:PATH or credman:TARGET");
  }
}

TEST(CredentialSources, ReadTheEnvironment) {
  SetEnvironmentVariableW(L"KIV_TEST_CRED", L"bob:sec:ret");
  EXPECT_EQ(textOf(credentialAt(L"env:KIV_TEST_CRED")), L"bob / sec:ret");
  SetEnvironmentVariableW(L"KIV_TEST_CRED", L"secret");
  EXPECT_EQ(textOf(credentialAt(L"env:KIV_TEST_CRED")), L"problem: does not hold USER:PASS");
  SetEnvironmentVariableW(L"KIV_TEST_CRED", nullptr);
  EXPECT_EQ(textOf(credentialAt(L"env:KIV_TEST_CRED")), L"problem: the environment variable does not exist");
}

TEST(CredentialSources, ReadFiles) {
  const std::wstring path = L"kiv-tool-tests-cred.txt";
  std::FILE* const file = _wfopen(path.c_str(), L"wb");
  ASSERT_NE(file, nullptr);
  std::fputs("bob:secret\r\n", file);
  std::fclose(file);
  EXPECT_EQ(textOf(credentialAt(L"file:" + path)), L"bob / secret");
  DeleteFileW(path.c_str());
  EXPECT_EQ(textOf(credentialAt(L"file:" + path)), L"problem: cannot read the file (error 2)");
}

// Stores a credential as other programs do, and removes it.
class StoredCredential {
 public:
  StoredCredential(const wchar_t* user, std::string blob) {
    CREDENTIALW credential{};
    credential.Type = CRED_TYPE_GENERIC;
    credential.TargetName = name_.data();
    credential.UserName = const_cast<wchar_t*>(user);
    credential.CredentialBlob = reinterpret_cast<BYTE*>(blob.data());
    credential.CredentialBlobSize = static_cast<DWORD>(blob.size());
    credential.Persist = CRED_PERSIST_SESSION;
    stored_ = CredWriteW(&credential, 0) != FALSE;
  }
  StoredCredential(const StoredCredential&) = delete;
  StoredCredential& operator=(const StoredCredential&) = delete;
  ~StoredCredential() { CredDeleteW(name_.c_str(), CRED_TYPE_GENERIC, 0); }

  bool stored() const { return stored_; }

 private:
  std::wstring name_ = L"kiv-tool-tests";
  bool stored_ = false;
};

TEST(CredentialSources, ReadCredentialManager) {
  struct Case {
    const wchar_t* user;
    std::string blob;
    const wchar_t* found;
  };
  using namespace std::string_literals;
  const Case cases[] = {
      {L"bob", "p\0w\0"s, L"bob / pw"},         {L"corp\\bob", "secret"s, L"corp\\bob / secret"},
      {L"bob", "abcd"s, L"bob / abcd"},         {L"bob", "\xAC\x20"s, L"bob / \x20AC"},
      {L"bob", "p\xC3\xA4s"s, L"bob / p\xE4s"}, {L"bob", ""s, L"bob / "},
  };
  for (const auto& [user, blob, found] : cases) {
    const StoredCredential stored(user, blob);
    ASSERT_TRUE(stored.stored());
    EXPECT_EQ(textOf(credentialAt(L"credman:kiv-tool-tests")), found);
  }
  EXPECT_EQ(textOf(credentialAt(L"credman:kiv-tool-tests")),
            L"problem: Credential Manager has no generic credential of that name");
}

}  // namespace
}  // namespace kiv::tool
