// Tests of the system's credential prompt: what it is told, what comes of its answer, and that nothing is left of it.
#include "ui/auth_prompt.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform_test.h"
#include "unit/support/transcript.h"

namespace kiv::test {
namespace {

using impl::Cred;
using impl::promptForCredentials;
using impl::PromptTexts;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const wchar_t* kPassword = L"a-password-that-is-typed";

class AuthPromptTest : public PlatformTest {
 protected:
  AuthPromptTest() { windows.prompt.password = kPassword; }

  static std::optional<Cred> prompt(const wchar_t* target = L"http://h", const wchar_t* detail = L"") {
    return promptForCredentials(impl::kServerPrompt, target, detail, nullptr);
  }
  // The packed answer went back to the system once, all zeros.
  void expectWiped() {
    const std::vector<ReleasedBlock> blocks = windows.releasedBlocks();
    ASSERT_EQ(blocks.size(), 1U);
    EXPECT_EQ(blocks[0].releasedBy, "CoTaskMemFree");
    EXPECT_FALSE(blocks[0].contents.empty());
    EXPECT_TRUE(blocks[0].isZero());
  }
};

std::wstring promptCall(std::wstring_view message, std::wstring_view caption, std::wstring_view parent = L"0x0") {
  return L"CredUIPromptForWindowsCredentialsW(size=" + std::to_wstring(sizeof(CREDUI_INFOW)) + L", parent=" +
         std::wstring(parent) + L", message=" + std::wstring(message) + L", caption=" + std::wstring(caption) +
         L", banner=null, authError=0, package=0, in=null, inSize=0, save=0, flags=0x1)";
}

std::size_t protectedSize(std::size_t length) { return ((length + 1) * sizeof(wchar_t) + 15) / 16 * 16; }

TEST_F(AuthPromptTest, AsksForSizesThenForTheTextsAndProtectsThePassword) {
  windows.prompt.user = L"sam";
  const std::optional<Cred> cred = prompt();
  const std::wstring size = std::to_wstring((4 + std::wstring_view(kPassword).size() + 1) * sizeof(wchar_t));
  const std::wstring passwordSize = std::to_wstring(std::wstring_view(kPassword).size() + 1);
  EXPECT_THAT(transcriptOf(windows),
              ElementsAre(promptCall(L"下記サーバーの認証情報を入力してください。\n\nhttp://h", L"サーバー認証"),
                          L"CredUnPackAuthenticationBufferW(flags=0x1, buffer=task block 1, size=" + size +
                              L", user=null, userSize=0, domain=null, domainSize=0, password=null, passwordSize=0) "
                              L"failed: 122",
                          L"CredUnPackAuthenticationBufferW(flags=0x1, buffer=task block 1, size=" + size +
                              L", user=set, userSize=4, domain=null, domainSize=1, password=set, passwordSize=" +
                              passwordSize + L")",
                          L"CryptProtectMemory(size=" +
                              std::to_wstring(protectedSize(std::wstring_view(kPassword).size())) + L", flags=0)",
                          L"CoTaskMemFree(block=task block 1)"));
  ASSERT_TRUE(cred);
  EXPECT_EQ(cred->username(), L"sam");
  EXPECT_EQ(cred->password().view(), kPassword);
}

TEST_F(AuthPromptTest, ShowsTheTargetInTheMessageAsItIs) {
  for (const wchar_t* target : {L"", L"proxy.test:3128", L"100%ls %d %n", L"日本語"}) {
    SimulatedWindows inner;
    prompt(target);
    EXPECT_EQ(transcriptOf(inner).at(0),
              promptCall(std::wstring(L"下記サーバーの認証情報を入力してください。\n\n") + target, L"サーバー認証"));
  }
}

TEST_F(AuthPromptTest, ShowsTheDetailInFullWidthBracketsBehindTheCaption) {
  for (const wchar_t* detail : {L"x", L" ", L"100%ls %d", L"詳細"}) {
    SimulatedWindows inner;
    prompt(L"h", detail);
    EXPECT_EQ(transcriptOf(inner).at(0), promptCall(L"下記サーバーの認証情報を入力してください。\n\nh",
                                                    L"サーバー認証（" + std::wstring(detail) + L"）"));
  }
}

TEST_F(AuthPromptTest, ShowsTheCaptionAloneWithoutADetail) {
  prompt(L"h", L"");
  EXPECT_EQ(transcriptOf(windows).at(0),
            promptCall(L"下記サーバーの認証情報を入力してください。\n\nh", L"サーバー認証"));
}

TEST_F(AuthPromptTest, NamesItsParentWindow) {
  promptForCredentials(impl::kProxyPrompt, L"h", L"", reinterpret_cast<HWND>(0x1234));
  EXPECT_EQ(transcriptOf(windows).at(0),
            promptCall(L"下記プロキシサーバーの認証情報を入力してください。\n\nh", L"プロキシ認証", L"0x1234"));
}

TEST_F(AuthPromptTest, SaysTheTextsThatItIsGiven) {
  const PromptTexts texts = {L"caption", L"message for %ls."};
  promptForCredentials(texts, L"h", L"d", nullptr);
  EXPECT_EQ(transcriptOf(windows).at(0), promptCall(L"message for h.", L"caption（d）"));
}

// What the user typed.

TEST_F(AuthPromptTest, TakesUserAndPasswordUpToTheirFirstNul) {
  windows.prompt.user = std::wstring(L"sam\0rest", 8);
  windows.prompt.password = std::wstring(L"open\0rest", 9);
  const std::optional<Cred> cred = prompt();
  ASSERT_TRUE(cred);
  EXPECT_EQ(cred->username(), L"sam");
  EXPECT_EQ(cred->password().view(), L"open");
  EXPECT_EQ(windows.protections().at(0).size, protectedSize(4));
}

TEST_F(AuthPromptTest, KeepsADomainInTheUserName) {
  windows.prompt.user = L"DOMAIN\\sam";
  const std::optional<Cred> cred = prompt();
  ASSERT_TRUE(cred);
  EXPECT_EQ(cred->username(), L"DOMAIN\\sam");
}

TEST_F(AuthPromptTest, TakesAnEmptyUserName) {
  windows.prompt.user = L"";
  const std::optional<Cred> cred = prompt();
  ASSERT_TRUE(cred);
  EXPECT_EQ(cred->username(), L"");
  EXPECT_EQ(cred->password().view(), kPassword);
}

TEST_F(AuthPromptTest, YieldsACredentialWithAnEmptyPasswordForAnEmptyPassword) {
  windows.prompt.password = L"";
  const std::optional<Cred> cred = prompt();
  ASSERT_TRUE(cred);
  EXPECT_EQ(windows.protections().at(0).size, 16U);
  EXPECT_EQ(windows.protections().at(0).flags, 0U);
  const impl::SecureString password = cred->password();
  EXPECT_EQ(password.size(), 0U);
  ASSERT_NE(password.c_str(), nullptr);
  // The whole protected buffer held zeros.
  EXPECT_TRUE(std::all_of(password.c_str(), password.c_str() + 16 / sizeof(wchar_t), [](wchar_t c) { return c == 0; }));
}

TEST_F(AuthPromptTest, ProtectsThePasswordInWholeBlocks) {
  for (std::size_t length = 0; length < 40; ++length) {
    windows.prompt.password = std::wstring(length, L'x');
    ASSERT_TRUE(prompt());
    EXPECT_EQ(windows.protections().back().size, protectedSize(length));
  }
}

#ifdef _WIN32
TEST_F(AuthPromptTest, ProtectsAPasswordOf7CharactersIn16BytesAndOneOf8In32) {
  windows.prompt.password = L"1234567";
  ASSERT_TRUE(prompt());
  EXPECT_EQ(windows.protections().back().size, 16U);
  windows.prompt.password = L"12345678";
  ASSERT_TRUE(prompt());
  EXPECT_EQ(windows.protections().back().size, 32U);
}
#endif

// What can go wrong.

TEST_F(AuthPromptTest, GivesNothingIfTheUserCancels) {
  windows.prompt.result = ERROR_CANCELLED;
  EXPECT_FALSE(prompt());
  EXPECT_THAT(windows.callNames(), ElementsAre("CredUIPromptForWindowsCredentialsW"));
}

TEST_F(AuthPromptTest, GivesNothingForAnyOtherErrorOfThePrompt) {
  for (const DWORD code : {1U, 87U, 1312U, 0x80070057U}) {
    SimulatedWindows inner;
    inner.prompt.result = code;
    EXPECT_FALSE(prompt());
    EXPECT_THAT(inner.callNames(), ElementsAre("CredUIPromptForWindowsCredentialsW"));
    expectNoComplaints(inner);
  }
}

TEST_F(AuthPromptTest, GivesNothingIfTheSizeQuerySucceeds) {
  windows.prompt.unpackQueryError = 0;
  EXPECT_FALSE(prompt());
  EXPECT_EQ(windows.count("CredUnPackAuthenticationBufferW"), 1U);
  expectWiped();
}

TEST_F(AuthPromptTest, GivesNothingIfTheSizeQueryFailsWithAnotherError) {
  windows.prompt.unpackQueryError = ERROR_INVALID_PARAMETER;
  EXPECT_FALSE(prompt());
  EXPECT_EQ(windows.count("CredUnPackAuthenticationBufferW"), 1U);
  expectWiped();
}

TEST_F(AuthPromptTest, GivesNothingIfTheUnpackingFails) {
  for (const DWORD code : {DWORD{ERROR_INSUFFICIENT_BUFFER}, DWORD{ERROR_NOT_SUPPORTED}}) {
    SimulatedWindows inner;
    inner.failNth("CredUnPackAuthenticationBufferW", 2, code);
    EXPECT_FALSE(prompt());
    EXPECT_EQ(inner.count("CredUnPackAuthenticationBufferW"), 2U);
    EXPECT_EQ(inner.count("CryptProtectMemory"), 0U);
    EXPECT_TRUE(inner.releasedBlocks().at(0).isZero());
    expectNoComplaints(inner);
  }
}

TEST_F(AuthPromptTest, GivesNothingIfThePasswordCannotBeProtected) {
  windows.failOnce("CryptProtectMemory", ERROR_GEN_FAILURE);
  EXPECT_FALSE(prompt());
  expectWiped();
}

TEST_F(AuthPromptTest, GivesNothingWhateverCallFails) {
  for (const DWORD code : {DWORD{ERROR_GEN_FAILURE}, DWORD{ERROR_ACCESS_DENIED}}) {
    std::size_t runs = 0;
    forEachFault(
        [&](SimulatedWindows& inner) {
          EXPECT_EQ(prompt().has_value(), runs == 0);
          ++runs;
          for (const ReleasedBlock& block : inner.releasedBlocks()) EXPECT_TRUE(block.isZero());
        },
        code);
    EXPECT_EQ(runs, 1U + 4U);
  }
}

// Secrets.

TEST_F(AuthPromptTest, WipesThePackedAnswerBeforeItGoesBackToTheSystem) {
  EXPECT_TRUE(prompt());
  expectWiped();
}

TEST_F(AuthPromptTest, WipesTheWholePackedAnswerWhateverItsSize) {
  windows.prompt.packedSize = 4096;
  EXPECT_TRUE(prompt());
  expectWiped();
  EXPECT_EQ(windows.releasedBlocks().at(0).contents.size(), 4096U);
}

class AuthPromptSecretsTest : public ::testing::TestWithParam<const wchar_t*> {};

// Both texts of the prompt are wiped, but the user name stays in the credential.
INSTANTIATE_TEST_SUITE_P(Texts, AuthPromptSecretsTest, ::testing::Values(L"sesame", kPassword),
                         [](const auto& info) { return info.param == kPassword ? "Long" : "Short"; });

TEST_P(AuthPromptSecretsTest, LeaveNoTraceWhateverCallOrAllocationFails) {
  const MemoryWatch::SecretGuard guard(GetParam());
  const auto setUp = [](SimulatedWindows& windows) {
    const MemoryWatch::Pause pause;
    std::wstring(GetParam()).swap(windows.prompt.password);  // not into a block that is watched
  };
  const auto expectNoTrace = [&](SimulatedWindows& windows) {
    EXPECT_THAT(guard.violations(), IsEmpty());
    EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
    const MemoryWatch::Pause pause;
    for (const ReleasedBlock& block : windows.releasedBlocks()) EXPECT_TRUE(block.isZero());
    windows.prompt.password = {};
  };
  forEachFault([&](SimulatedWindows& windows) {
    setUp(windows);
    const std::optional<Cred> cred = promptForCredentials(impl::kProxyPrompt, L"h", L"", nullptr);
    expectNoTrace(windows);
  });
  forEachAllocation([&](SimulatedWindows& windows, const auto& armed) {
    setUp(windows);
    armed([&] {
      try {
        const std::optional<Cred> cred = promptForCredentials(impl::kProxyPrompt, L"h", L"d", nullptr);
      } catch (const std::bad_alloc&) {
        // Documented for this function; the exports stop it.
        return;
      }
    });
    expectNoTrace(windows);
  });
}

TEST_F(AuthPromptTest, WipesThePlainUserNameToo) {
  const MemoryWatch::SecretGuard guard(L"a-user-name-of-some-length");
  {
    SimulatedWindows inner;
    {
      const MemoryWatch::Pause pause;
      std::wstring(L"a-user-name-of-some-length").swap(inner.prompt.user);  // not into a block that is watched
    }
    // With no credential made, nothing may hold it.
    inner.failOnce("CryptProtectMemory", ERROR_GEN_FAILURE);
    EXPECT_FALSE(prompt());
    EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
    const MemoryWatch::Pause pause;
    inner.prompt.user = {};
  }
  EXPECT_THAT(guard.violations(), IsEmpty());
}

}  // namespace
}  // namespace kiv::test
