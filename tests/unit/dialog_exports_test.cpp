// Tests of the C functions of the two credential prompts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "kiv/dialog_auth_ui.h"
#include "platform/platform_test.h"
#include "unit/support/handles.h"
#include "unit/support/transcript.h"

namespace kiv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const wchar_t* kPassword = L"a-password-that-is-typed";

struct Prompt {
  const char* name;
  KivCred* (*show)(const wchar_t*, const wchar_t*, void*);
  const wchar_t* caption;
  const wchar_t* message;
};
constexpr Prompt kPrompts[] = {
    {"Server", KivDialogAuthUi_ServerAuthUi, L"サーバー認証", L"下記サーバーの認証情報を入力してください。\n\n"},
    {"Proxy", KivDialogAuthUi_ProxyAuthUi, L"プロキシ認証", L"下記プロキシサーバーの認証情報を入力してください。\n\n"}};

class DialogExportsTest : public PlatformTest, public ::testing::WithParamInterface<Prompt> {
 protected:
  DialogExportsTest() { windows.prompt.password = kPassword; }

  static UniqueCred show(const wchar_t* target = L"h", const wchar_t* detail = L"", void* parent = nullptr) {
    return UniqueCred(GetParam().show(target, detail, parent));
  }
};

INSTANTIATE_TEST_SUITE_P(Prompts, DialogExportsTest, ::testing::ValuesIn(kPrompts),
                         [](const auto& info) { return info.param.name; });

std::wstring promptCall(std::wstring_view parent, const std::wstring& message, const std::wstring& caption) {
  return L"CredUIPromptForWindowsCredentialsW(size=" + std::to_wstring(sizeof(CREDUI_INFOW)) + L", parent=" +
         std::wstring(parent) + L", message=" + message + L", caption=" + caption +
         L", banner=null, authError=0, package=0, in=null, inSize=0, save=0, flags=0x1)";
}

TEST_P(DialogExportsTest, GivesNullForANullTargetWithoutShowingAnything) {
  EXPECT_EQ(show(nullptr), nullptr);
  EXPECT_EQ(show(nullptr, L"detail", this), nullptr);
  EXPECT_THAT(windows.callNames(Transcript::Everything), IsEmpty());
}

TEST_P(DialogExportsTest, ShowsItsOwnTextsAndGivesTheCaptionAloneWithoutADetail) {
  show(L"http://target.test/%ls");
  EXPECT_EQ(transcriptOf(windows).at(0),
            promptCall(L"0x0", std::wstring(GetParam().message) + L"http://target.test/%ls", GetParam().caption));
}

TEST_P(DialogExportsTest, ShowsTheDetailInFullWidthBrackets) {
  show(L"target", L"detail 100%d");
  EXPECT_EQ(transcriptOf(windows).at(0), promptCall(L"0x0", std::wstring(GetParam().message) + L"target",
                                                    std::wstring(GetParam().caption) + L"（detail 100%d）"));
}

TEST_P(DialogExportsTest, PassesTheParentWindowOn) {
  show(L"target", L"", reinterpret_cast<void*>(0xABCD0));
  EXPECT_EQ(transcriptOf(windows).at(0),
            promptCall(L"0xABCD0", std::wstring(GetParam().message) + L"target", GetParam().caption));
}

TEST_P(DialogExportsTest, GivesTheCredentialsThatWereTyped) {
  windows.prompt.user = L"DOMAIN\\sam";
  const UniqueCred cred = show();
  EXPECT_FALSE(KivCred_IsNone(cred.get()));
  EXPECT_STREQ(KivCred_Username(cred.get()), L"DOMAIN\\sam");
  const UniqueSecStr password(KivCred_Password(cred.get()));
  EXPECT_STREQ(KivSecStr_CStr(password.get()), kPassword);
}

TEST_P(DialogExportsTest, GivesACredentialWithAnEmptyPasswordForAnEmptyPassword) {
  windows.prompt.password = L"";
  const UniqueCred cred = show();
  EXPECT_FALSE(KivCred_IsNone(cred.get()));
  const UniqueSecStr password(KivCred_Password(cred.get()));
  EXPECT_EQ(KivSecStr_Size(password.get()), 0U);
  EXPECT_STREQ(KivSecStr_CStr(password.get()), L"");
}

TEST_P(DialogExportsTest, GivesAHandleWithoutACredentialWhenTheUserCancels) {
  windows.prompt.result = ERROR_CANCELLED;
  const UniqueCred cred = show();
  ASSERT_NE(cred, nullptr);
  EXPECT_TRUE(KivCred_IsNone(cred.get()));
}

TEST_P(DialogExportsTest, GivesAHandleWithoutACredentialWhateverCallFails) {
  std::size_t runs = 0;
  forEachFault([&](SimulatedWindows& inner) {
    const UniqueCred cred = show();
    ASSERT_NE(cred, nullptr);
    EXPECT_EQ(KivCred_IsNone(cred.get()), runs++ > 0);
    for (const ReleasedBlock& block : inner.releasedBlocks()) EXPECT_TRUE(block.isZero());
  });
  EXPECT_EQ(runs, 1U + 4U);
}

TEST_P(DialogExportsTest, GivesNullWhereverMemoryRunsOutAndWipesTheAnswer) {
  std::vector<bool> given;
  forEachAllocation([&](SimulatedWindows& inner, const auto& armed) {
    {
      const MemoryWatch::Pause pause;
      std::wstring(L"a user name of some length").swap(inner.prompt.user);
      std::wstring(kPassword).swap(inner.prompt.password);
    }
    UniqueCred cred;
    armed([&] { cred = show(L"target", L"detail"); });
    for (const ReleasedBlock& block : inner.releasedBlocks()) EXPECT_TRUE(block.isZero());
    const MemoryWatch::Pause pause;
    given.push_back(cred != nullptr);
    inner.prompt = {};
  });
  ASSERT_GT(given.size(), 5U);
  EXPECT_TRUE(given.back());
  given.pop_back();
  EXPECT_THAT(given, ::testing::Each(false));
}

TEST_P(DialogExportsTest, LeavesNoTraceOfThePassword) {
  const MemoryWatch::SecretGuard guard(kPassword);
  {
    const UniqueCred cred = show();
    EXPECT_FALSE(KivCred_IsNone(cred.get()));
    EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
  }
  EXPECT_THAT(guard.violations(), IsEmpty());
  ASSERT_THAT(windows.releasedBlocks(), SizeIs(1));
  EXPECT_TRUE(windows.releasedBlocks()[0].isZero());
}

TEST_P(DialogExportsTest, KeepsNothingFromOnePromptToTheNext) {
  show();
  windows.prompt.result = ERROR_CANCELLED;
  EXPECT_TRUE(KivCred_IsNone(show().get()));
  windows.prompt = {.result = 0, .user = L"other", .password = L"word"};
  EXPECT_STREQ(KivCred_Username(show().get()), L"other");
}

}  // namespace
}  // namespace kiv::test
