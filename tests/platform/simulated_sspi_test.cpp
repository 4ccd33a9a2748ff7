// Proves that the simulated security packages shake hands as scripted, and notice how they are misused.
#include <gtest/gtest.h>

#include <array>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using Lines = std::vector<std::string>;

class SimulatedSspi : public ::testing::Test {
 protected:
  ~SimulatedSspi() override {
    if (SecIsValidHandle(&context_)) DeleteSecurityContext(&context_);
    if (SecIsValidHandle(&credential_)) FreeCredentialsHandle(&credential_);
    EXPECT_EQ(windows.complaints(), complaints_);
  }
  SimulatedSspi() {
    SecInvalidateHandle(&credential_);
    SecInvalidateHandle(&context_);
  }

  SECURITY_STATUS acquire(std::wstring package, SEC_WINNT_AUTH_IDENTITY_W* identity) {
    return AcquireCredentialsHandleW(nullptr, package.data(), SECPKG_CRED_OUTBOUND, nullptr, identity, nullptr, nullptr,
                                     &credential_, nullptr);
  }

  SECURITY_STATUS acquire(std::wstring user, std::wstring password) {
    SEC_WINNT_AUTH_IDENTITY_W identity{};
    identity.User = reinterpret_cast<unsigned short*>(user.data());
    identity.UserLength = static_cast<ULONG>(user.size());
    identity.Password = reinterpret_cast<unsigned short*>(password.data());
    identity.PasswordLength = static_cast<ULONG>(password.size());
    identity.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
    return acquire(L"NTLM", &identity);
  }

  SECURITY_STATUS step(std::string input, ULONG requirements = ISC_REQ_ALLOCATE_MEMORY) {
    SecBuffer in{static_cast<ULONG>(input.size()), SECBUFFER_TOKEN, input.data()};
    SecBufferDesc given{SECBUFFER_VERSION, 1, &in};
    std::array<char, 64> own{};
    const bool allocates = (requirements & ISC_REQ_ALLOCATE_MEMORY) != 0;
    SecBuffer out{allocates ? 0 : room_, SECBUFFER_TOKEN, allocates ? nullptr : own.data()};
    SecBufferDesc made{SECBUFFER_VERSION, 1, &out};
    ULONG attributes = 0;
    CtxtHandle* before = SecIsValidHandle(&context_) ? &context_ : nullptr;
    std::wstring target = L"HTTP/proxy";
    const SECURITY_STATUS status =
        InitializeSecurityContextW(&credential_, before, target.data(), requirements, 0, SECURITY_NATIVE_DREP,
                                   input.empty() ? nullptr : &given, 0, &context_, &made, &attributes, nullptr);
    token_.clear();
    if (status >= 0 && out.pvBuffer) token_.assign(static_cast<char*>(out.pvBuffer), out.cbBuffer);
    if (allocates && out.pvBuffer) FreeContextBuffer(out.pvBuffer);
    return status;
  }

  SimulatedWindows windows;
  CredHandle credential_{};
  CtxtHandle context_{};
  std::string token_;
  ULONG room_ = 64;
  Lines complaints_;
};

TEST_F(SimulatedSspi, AnswersAChallengeInTwoLegs) {
  ASSERT_EQ(acquire(L"user", L"secret"), SEC_E_OK);
  EXPECT_EQ(step(""), SEC_I_CONTINUE_NEEDED);
  EXPECT_EQ(token_.substr(0, 7), "NTLMSSP");
  EXPECT_EQ(readNtlmAnswer(token_), std::nullopt);
  EXPECT_EQ(step(ntlmChallenge("12345678")), SEC_E_OK);
  const auto answer = readNtlmAnswer(token_);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->nonce, "12345678");
  EXPECT_EQ(answer->user, L"user");
}

TEST_F(SimulatedSspi, RecordsIdentityTargetAndRequirements) {
  acquire(L"user", L"secret");
  step("", ISC_REQ_ALLOCATE_MEMORY | ISC_REQ_CONNECTION);
  EXPECT_EQ(windows.arguments("AcquireCredentialsHandleW"),
            L"principal=null, package=NTLM, use=2, user=user, domain=, password=****");
  EXPECT_EQ(windows.arguments("InitializeSecurityContextW"),
            L"credentials=credentials handle 1, context=null, target=HTTP/proxy, requirements=0x900, data=16, input=0");
  ASSERT_EQ(windows.identities().size(), 1U);
  EXPECT_TRUE(windows.identities()[0].passwordWas(L"secret"));
  EXPECT_FALSE(windows.identities()[0].passwordWas(L"Secret"));
  EXPECT_FALSE(windows.identities()[0].loggedOn);
  ASSERT_EQ(windows.handshakes().size(), 1U);
  EXPECT_EQ(windows.handshakes()[0].targetName, L"HTTP/proxy");
  EXPECT_EQ(windows.handshakes()[0].requirements, DWORD{ISC_REQ_ALLOCATE_MEMORY | ISC_REQ_CONNECTION});
  EXPECT_EQ(windows.handshakes()[0].legs, 1U);
}

TEST_F(SimulatedSspi, SpeaksForTheUserWhoIsLoggedOn) {
  ASSERT_EQ(acquire(L"Negotiate", nullptr), SEC_E_OK);
  step("");
  step(ntlmChallenge("12345678"));
  EXPECT_EQ(readNtlmAnswer(token_)->user, L"logged-on");
  EXPECT_TRUE(windows.identities()[0].loggedOn);
}

TEST_F(SimulatedSspi, RefusesWhatIsNoChallenge) {
  acquire(L"user", L"secret");
  step("");
  EXPECT_EQ(step("NTLMSSP"), SEC_E_INVALID_TOKEN);
  EXPECT_EQ(windows.handshakes()[0].status, SEC_E_INVALID_TOKEN);
  EXPECT_EQ(token_, "");
}

TEST_F(SimulatedSspi, MakesNoContextWhenItsFirstLegFails) {
  windows.security.legs = {{.status = SEC_E_LOGON_DENIED}};
  acquire(L"user", L"secret");
  EXPECT_EQ(step(""), SEC_E_LOGON_DENIED);
  EXPECT_FALSE(SecIsValidHandle(&context_));
  EXPECT_EQ(windows.outstanding(), Lines{"credentials handle 1"});
}

TEST_F(SimulatedSspi, FollowsAScript) {
  windows.security.legs = {{.status = SEC_I_COMPLETE_AND_CONTINUE, .token = "one"}, {.status = SEC_E_OK}};
  acquire(L"user", L"secret");
  EXPECT_EQ(step(""), SEC_I_COMPLETE_AND_CONTINUE);
  EXPECT_EQ(token_, "one");
  SecBuffer buffer{3, SECBUFFER_TOKEN, token_.data()};
  SecBufferDesc token{SECBUFFER_VERSION, 1, &buffer};
  EXPECT_EQ(CompleteAuthToken(&context_, &token), SEC_E_OK);
  EXPECT_EQ(step("challenge"), SEC_E_OK);
  EXPECT_EQ(token_, "");
  EXPECT_TRUE(windows.handshakes()[0].completed);
}

TEST_F(SimulatedSspi, ComplainsWhenALegIsNotCompleted) {
  windows.security.legs = {{.status = SEC_I_COMPLETE_AND_CONTINUE}, {.status = SEC_E_OK}};
  acquire(L"user", L"secret");
  step("");
  step("challenge");
  step("again");
  complaints_ = {"InitializeSecurityContextW was called where CompleteAuthToken was needed first",
                 "InitializeSecurityContextW was called after the handshake's end"};
}

TEST_F(SimulatedSspi, WritesIntoTheCallersMemoryIfItIsLargeEnough) {
  acquire(L"user", L"secret");
  EXPECT_EQ(step("", ISC_REQ_CONNECTION), SEC_I_CONTINUE_NEEDED);
  EXPECT_EQ(token_.size(), 12U);
  room_ = 8;
  EXPECT_EQ(step(ntlmChallenge("12345678"), ISC_REQ_CONNECTION), SEC_E_BUFFER_TOO_SMALL);
}

TEST_F(SimulatedSspi, SaysHowLongTokensCanBe) {
  windows.security.maxToken = 4711;
  std::wstring package = L"NTLM", other = L"Kerberos";
  PSecPkgInfoW info = nullptr;
  ASSERT_EQ(QuerySecurityPackageInfoW(package.data(), &info), SEC_E_OK);
  EXPECT_EQ(info->cbMaxToken, 4711U);
  EXPECT_STREQ(info->Name, L"NTLM");
  EXPECT_EQ(FreeContextBuffer(info), SEC_E_OK);
  EXPECT_EQ(QuerySecurityPackageInfoW(other.data(), &info), SEC_E_SECPKG_NOT_FOUND);
}

TEST_F(SimulatedSspi, FailsWithASecurityStatusWhateverTheFaultsCode) {
  windows.failNth("AcquireCredentialsHandleW", 1, static_cast<DWORD>(SEC_E_NO_CREDENTIALS));
  windows.failNth("AcquireCredentialsHandleW", 2, ERROR_GEN_FAILURE);
  EXPECT_EQ(acquire(L"user", L"secret"), SEC_E_NO_CREDENTIALS);
  EXPECT_EQ(acquire(L"user", L"secret"), static_cast<SECURITY_STATUS>(0x8007001FU));
  for (const char* release : {"FreeCredentialsHandle", "DeleteSecurityContext", "FreeContextBuffer"}) {
    EXPECT_FALSE(SimulatedWindows::canFail(release)) << release;
  }
}

TEST(MisusedSspi, IsComplainedAbout) {
  SimulatedWindows windows;
  std::wstring package = L"NTLM";
  CredHandle credential{}, leaked{};
  for (CredHandle* handle : {&credential, &leaked}) {
    AcquireCredentialsHandleW(nullptr, package.data(), SECPKG_CRED_OUTBOUND, nullptr, nullptr, nullptr, nullptr, handle,
                              nullptr);
  }
  FreeCredentialsHandle(&credential);
  EXPECT_EQ(FreeCredentialsHandle(&credential), SEC_E_INVALID_HANDLE);
  EXPECT_EQ(DeleteSecurityContext(&leaked), SEC_E_INVALID_HANDLE);
  EXPECT_EQ(windows.complaints(),
            (Lines{"credentials handle 1 was released twice",
                   "credentials handle 2 was released with the wrong function, DeleteSecurityContext",
                   "credentials handle 2 was never released"}));
}

}  // namespace
}  // namespace kiv::test
