// Tests of credentials, through their C functions and as the rest of the library uses them.
#include "config/cred.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "platform/memory_watch.h"
#include "platform/platform_test.h"
#include "unit/support/allocation_sweep.h"
#include "unit/support/ciphertext.h"
#include "unit/support/handles.h"

namespace kiv::test {
namespace {

using impl::Cred;
using ::testing::IsEmpty;

static_assert(sizeof(KivCred_IsNone(nullptr)) == 1, "predicates return one byte");

// Both are too long for a text's own buffer, so that they take blocks of the heap.
constexpr const wchar_t* kUser = L"the long name of a user, in clear";
constexpr const wchar_t* kPassword = L"correct horse battery staple";
constexpr const wchar_t* kOtherUser = L"somebody else with a long name";
constexpr const wchar_t* kOtherPassword = L"hunter2hunter2hunter2";

UniqueCred make(const wchar_t* user = kUser, const wchar_t* password = kPassword) {
  return UniqueCred(KivCred_Create(user, password));
}

void expectCred(const KivCred* cred, const wchar_t* user, const wchar_t* password) {
  EXPECT_FALSE(KivCred_IsNone(cred));
  EXPECT_STREQ(KivCred_Username(cred), user);
  const UniqueSecStr clear(KivCred_Password(cred));
  EXPECT_STREQ(KivSecStr_CStr(clear.get()), password);
  EXPECT_EQ(KivSecStr_Size(clear.get()), std::wcslen(password));
}

void expectNone(const KivCred* cred) {
  ASSERT_NE(cred, nullptr);
  EXPECT_TRUE(KivCred_IsNone(cred));
  EXPECT_EQ(KivCred_Username(cred), nullptr);
  const UniqueSecStr clear(KivCred_Password(cred));
  ASSERT_NE(clear, nullptr);
  EXPECT_EQ(KivSecStr_CStr(clear.get()), nullptr);
  EXPECT_EQ(KivSecStr_Size(clear.get()), 0U);
}

class CredTest : public PlatformTest {};

TEST_F(CredTest, TreatsANullHandleAsNone) {
  EXPECT_TRUE(KivCred_IsNone(nullptr));
  EXPECT_EQ(KivCred_Username(nullptr), nullptr);
  EXPECT_EQ(KivCred_Password(nullptr), nullptr);
  KivCred_Destruct(nullptr);
}

TEST_F(CredTest, NoneIsARealHandleWithoutUserNameAndWithAnEmptyPassword) {
  expectNone(UniqueCred(KivCred_None()).get());
}

TEST_F(CredTest, PasswordOfANoneCredentialIsAnEmptyStringAndNotNull) {
  const UniqueCred none(KivCred_None());
  const UniqueSecStr password(KivCred_Password(none.get()));
  ASSERT_NE(password, nullptr);
  EXPECT_EQ(KivSecStr_CStr(password.get()), nullptr);
  EXPECT_EQ(KivSecStr_Size(password.get()), 0U);
  EXPECT_EQ(windows.count("CryptUnprotectMemory"), 0U);
}

TEST_F(CredTest, CreatingWithANullTextGivesANoneCredentialAndProtectsNothing) {
  expectNone(make(L"user", nullptr).get());
  expectNone(make(nullptr, L"password").get());
  expectNone(make(nullptr, nullptr).get());
  EXPECT_EQ(windows.count("CryptProtectMemory"), 0U);
}

TEST_F(CredTest, EmptyUserNameAndEmptyPasswordMakeARealCredential) {
  const UniqueCred cred = make(L"", L"");
  EXPECT_FALSE(KivCred_IsNone(cred.get()));
  EXPECT_STREQ(KivCred_Username(cred.get()), L"");
  const UniqueSecStr password(KivCred_Password(cred.get()));
  ASSERT_NE(KivSecStr_CStr(password.get()), nullptr);
  EXPECT_STREQ(KivSecStr_CStr(password.get()), L"");
  EXPECT_EQ(KivSecStr_Size(password.get()), 0U);
}

TEST_F(CredTest, GivesBackUserNameAndPasswordAsTheyWere) {
  const std::wstring longText(100'000, L'p');
  const wchar_t* const texts[] = {
      L"",       L"x",      L"seven77",      L"eight888", L"with : and @ and %41", L" blank ", L"\x65E5\xFFFF",
      L"\xD83D", kPassword, longText.c_str()};
  for (const wchar_t* user : texts) {
    for (const wchar_t* password : texts) expectCred(make(user, password).get(), user, password);
  }
}

TEST_F(CredTest, CopiesTheTextsThatItIsGiven) {
  wchar_t user[] = L"user";
  wchar_t password[] = L"password";
  const UniqueCred cred = make(user, password);
  user[0] = password[0] = L'X';
  expectCred(cred.get(), L"user", L"password");
}

struct SizeCase {
  std::size_t length;
  DWORD bytes;
};

TEST_F(CredTest, ProtectsCharactersAndTerminatorRoundedUpToWholeBlocksOf16Bytes) {
  for (std::size_t length = 0; length < 70; ++length) {
    const auto needed = static_cast<DWORD>((length + 1) * sizeof(wchar_t));
    const DWORD expected = (needed + 15) / 16 * 16;
    make(L"user", std::wstring(length, L'p').c_str());
    ASSERT_EQ(windows.protections().back().size, expected) << length;
    ASSERT_EQ(windows.protections().back().flags, 0U) << "same process";
  }
}

#ifdef _WIN32
TEST_F(CredTest, PasswordOf7CharactersTakes16BytesAndOneOf8Takes32) {
  const SizeCase cases[] = {{0, 16}, {1, 16}, {6, 16}, {7, 16}, {8, 32}, {15, 32}, {16, 48}, {1000, 2016}};
#else
TEST_F(CredTest, PasswordOf3WideCharactersTakes16BytesAndOneOf4Takes32) {
  const SizeCase cases[] = {{0, 16}, {1, 16}, {2, 16}, {3, 16}, {4, 32}, {7, 32}, {8, 48}, {1000, 4016}};
#endif
  for (const auto& [length, bytes] : cases) {
    const UniqueCred cred = make(L"user", std::wstring(length, L'p').c_str());
    EXPECT_EQ(windows.protections().back().size, bytes) << length;
    const UniqueSecStr clear(KivCred_Password(cred.get()));
    EXPECT_EQ(windows.arguments("CryptUnprotectMemory", windows.count("CryptUnprotectMemory")),
              L"size=" + std::to_wstring(bytes) + L", flags=0");
  }
}

TEST_F(CredTest, FailedProtectionGivesANoneCredential) {
  windows.failOnce("CryptProtectMemory", ERROR_NOT_SUPPORTED);
  expectNone(make().get());
  expectCred(make().get(), kUser, kPassword);
}

TEST_F(CredTest, FailedUnprotectionGivesAnEmptyPasswordAndLeavesTheCredentialUsable) {
  const UniqueCred cred = make();
  windows.failOnce("CryptUnprotectMemory", ERROR_INVALID_PARAMETER);
  const UniqueSecStr password(KivCred_Password(cred.get()));
  ASSERT_NE(password, nullptr);
  EXPECT_EQ(KivSecStr_CStr(password.get()), nullptr);
  EXPECT_EQ(KivSecStr_Size(password.get()), 0U);
  expectCred(cred.get(), kUser, kPassword);
}

TEST_F(CredTest, DecryptsACopyAndLeavesTheStoredPasswordEncrypted) {
  const std::wstring encrypted = ciphertextOf(kPassword);
  const MemoryWatch::SecretGuard guard(encrypted);
  const UniqueCred cred = make();
  ASSERT_EQ(guard.scanLiveBlocks().size(), 1U);
  UniqueSecStr first(KivCred_Password(cred.get()));
  EXPECT_EQ(guard.scanLiveBlocks().size(), 1U) << "the stored bytes were decrypted in place";
  const UniqueSecStr second(KivCred_Password(cred.get()));
  EXPECT_STREQ(KivSecStr_CStr(first.get()), kPassword);
  EXPECT_STREQ(KivSecStr_CStr(second.get()), kPassword);
  first.reset();
  EXPECT_STREQ(KivSecStr_CStr(second.get()), kPassword);
  EXPECT_EQ(guard.scanLiveBlocks().size(), 1U);
}

TEST_F(CredTest, PasswordOutlivesItsCredential) {
  UniqueCred cred = make();
  const UniqueSecStr password(KivCred_Password(cred.get()));
  cred.reset();
  EXPECT_STREQ(KivSecStr_CStr(password.get()), kPassword);
}

TEST_F(CredTest, DecryptedPasswordIsFollowedByZerosUpToTheProtectedSize) {
  const UniqueCred cred = make(L"user", L"p");
  const UniqueSecStr password(KivCred_Password(cred.get()));
  const std::wstring block(KivSecStr_CStr(password.get()), 16 / sizeof(wchar_t));
  EXPECT_EQ(block, L"p" + std::wstring(16 / sizeof(wchar_t) - 1, L'\0'));
}

TEST_F(CredTest, CopyConstructAndMoveConstructOfNullAreNull) {
  EXPECT_EQ(KivCred_CopyConstruct(nullptr), nullptr);
  EXPECT_EQ(KivCred_MoveConstruct(nullptr), nullptr);
}

TEST_F(CredTest, CopyConstructCopiesTheEncryptedBytesAndDoesNotEncryptAgain) {
  UniqueCred source = make();
  const UniqueCred copied(KivCred_CopyConstruct(source.get()));
  EXPECT_EQ(windows.count("CryptProtectMemory"), 1U);
  EXPECT_EQ(windows.count("CryptUnprotectMemory"), 0U);
  expectCred(source.get(), kUser, kPassword);
  EXPECT_NE(KivCred_Username(source.get()), KivCred_Username(copied.get()));
  source.reset();
  expectCred(copied.get(), kUser, kPassword);
}

TEST_F(CredTest, CopyAndMoveOfANoneCredentialAreNone) {
  const UniqueCred none(KivCred_None());
  expectNone(UniqueCred(KivCred_CopyConstruct(none.get())).get());
  expectNone(UniqueCred(KivCred_MoveConstruct(none.get())).get());
  expectNone(none.get());
}

TEST_F(CredTest, MoveConstructLeavesTheSourceANoneCredential) {
  for (const wchar_t* text : {L"", L"x", kPassword}) {
    const UniqueCred source = make(text, text);
    const UniqueCred moved(KivCred_MoveConstruct(source.get()));
    expectCred(moved.get(), text, text);
    expectNone(source.get());
  }
}

TEST_F(CredTest, CopyAndMoveDoNothingIfEitherIsNull) {
  const UniqueCred cred = make();
  KivCred_Copy(nullptr, cred.get());
  KivCred_Copy(cred.get(), nullptr);
  KivCred_Copy(nullptr, nullptr);
  KivCred_Move(nullptr, cred.get());
  KivCred_Move(cred.get(), nullptr);
  KivCred_Move(nullptr, nullptr);
  expectCred(cred.get(), kUser, kPassword);
}

TEST_F(CredTest, CopyReplacesTheTargetWhateverItWas) {
  const UniqueCred source = make();
  const UniqueCred other = make(kOtherUser, kOtherPassword);
  const UniqueCred none(KivCred_None());
  for (KivCred* target : {other.get(), none.get()}) {
    KivCred_Copy(source.get(), target);
    expectCred(target, kUser, kPassword);
    expectCred(source.get(), kUser, kPassword);
  }
}

TEST_F(CredTest, CopyOfANoneCredentialMakesTheTargetNone) {
  const UniqueCred none(KivCred_None());
  const UniqueCred target = make();
  KivCred_Copy(none.get(), target.get());
  expectNone(target.get());
}

TEST_F(CredTest, MoveReplacesTheTargetAndLeavesTheSourceNone) {
  const UniqueCred source = make();
  const UniqueCred target = make(kOtherUser, kOtherPassword);
  KivCred_Move(source.get(), target.get());
  expectCred(target.get(), kUser, kPassword);
  expectNone(source.get());
  KivCred_Move(source.get(), target.get());
  expectNone(target.get());
  expectNone(source.get());
}

TEST_F(CredTest, CopyAndMoveOntoItselfLeaveACredentialUnchanged) {
  const UniqueCred cred = make();
  KivCred_Copy(cred.get(), cred.get());
  expectCred(cred.get(), kUser, kPassword);
  KivCred_Move(cred.get(), cred.get());
  expectCred(cred.get(), kUser, kPassword);
}

TEST_F(CredTest, MovedFromCredentialCanBeUsedAgain) {
  const UniqueCred cred = make();
  const UniqueCred moved(KivCred_MoveConstruct(cred.get()));
  KivCred_Copy(moved.get(), cred.get());
  expectCred(cred.get(), kUser, kPassword);
}

TEST_F(CredTest, CopyDecryptsOnAnyThread) {
  const UniqueCred cred = make();
  std::thread([&] {
    const UniqueCred copied(KivCred_CopyConstruct(cred.get()));
    expectCred(copied.get(), kUser, kPassword);
  }).join();
}

TEST_F(CredTest, CreatingAndCopyingAndDecryptingAreNullWithoutMemory) {
  const UniqueCred source = make();
  EXPECT_GE(expectNullWithoutMemory([&] { return make(); }), 3U);
  EXPECT_GE(expectNullWithoutMemory([&] { return make(nullptr, nullptr); }), 1U);
  EXPECT_GE(expectNullWithoutMemory([&] { return UniqueCred(KivCred_None()); }), 1U);
  EXPECT_GE(expectNullWithoutMemory([&] { return UniqueCred(KivCred_CopyConstruct(source.get())); }), 3U);
  EXPECT_GE(expectNullWithoutMemory([&] { return UniqueSecStr(KivCred_Password(source.get())); }), 2U);
  expectCred(source.get(), kUser, kPassword);
}

TEST_F(CredTest, MoveConstructWithoutMemoryIsNullAndLeavesTheSource) {
  const UniqueCred source = make();
  UniqueCred moved;
  const auto check = [&](bool failed) {
    EXPECT_EQ(moved == nullptr, failed);
    failed ? expectCred(source.get(), kUser, kPassword) : expectNone(source.get());
  };
  EXPECT_EQ(forEachAllocationOf([&] { moved.reset(KivCred_MoveConstruct(source.get())); }, check), 1U);
}

TEST_F(CredTest, CopyWithoutMemoryLeavesTheTargetUnchanged) {
  const UniqueCred source = make();
  const UniqueCred target = make(kOtherUser, kOtherPassword);
  const auto check = [&](bool failed) {
    expectCred(target.get(), failed ? kOtherUser : kUser, failed ? kOtherPassword : kPassword);
    expectCred(source.get(), kUser, kPassword);
  };
  EXPECT_GE(forEachAllocationOf([&] { KivCred_Copy(source.get(), target.get()); }, check), 2U);
}

TEST_F(CredTest, MoveNeedsNoMemory) {
  const UniqueCred source = make();
  const UniqueCred target = make(kOtherUser, kOtherPassword);
  const MemoryWatch::AllocationFailure counter(0);
  KivCred_Move(source.get(), target.get());
  EXPECT_EQ(counter.count(), 0U);
}

TEST_F(CredTest, InternalCredentialHasValueSemantics) {
  std::optional<Cred> cred = Cred::create(L"user", L"password");
  ASSERT_TRUE(cred);
  std::optional<Cred> copied = cred;
  EXPECT_EQ(copied->username(), L"user");
  EXPECT_EQ(copied->password().view(), L"password");
  const std::optional<Cred> taken = take(cred);
  EXPECT_FALSE(cred);
  EXPECT_EQ(taken->password().view(), L"password");
  copied = Cred::create(std::wstring_view(L"other user").substr(0, 5), std::wstring_view(L"secret!").substr(0, 6));
  EXPECT_EQ(copied->username(), L"other");
  EXPECT_EQ(copied->password().c_str(), std::wstring_view(L"secret"));
  windows.failAlways("CryptProtectMemory", ERROR_GEN_FAILURE);
  EXPECT_FALSE(Cred::create(L"user", L"password"));
}

// What can be done with a credential, each leaving nothing behind.
struct Deed {
  const char* name;
  void (*run)();
};

const Deed kDeeds[] = {
    {"create", [] { make(); }},
    {"copy construct",
     [] {
       const UniqueCred cred = make();
       UniqueCred(KivCred_CopyConstruct(cred.get()));
     }},
    {"move construct",
     [] {
       const UniqueCred cred = make();
       UniqueCred(KivCred_MoveConstruct(cred.get()));
     }},
    {"copy over it",
     [] {
       const UniqueCred cred = make(), other = make(kOtherUser, kOtherPassword);
       KivCred_Copy(other.get(), cred.get());
     }},
    {"copy it over another",
     [] {
       const UniqueCred cred = make(), other = make(kOtherUser, kOtherPassword);
       KivCred_Copy(cred.get(), other.get());
     }},
    {"copy none over it",
     [] {
       const UniqueCred cred = make(), none(KivCred_None());
       KivCred_Copy(none.get(), cred.get());
     }},
    {"move over it",
     [] {
       const UniqueCred cred = make(), other = make(kOtherUser, kOtherPassword);
       KivCred_Move(other.get(), cred.get());
     }},
    {"move it over another",
     [] {
       const UniqueCred cred = make(), other = make(kOtherUser, kOtherPassword);
       KivCred_Move(cred.get(), other.get());
     }},
    {"decrypt",
     [] {
       const UniqueCred cred = make();
       UniqueSecStr(KivCred_Password(cred.get()));
     }},
    {"decrypt and move",
     [] {
       const UniqueCred cred = make();
       const UniqueSecStr clear(KivCred_Password(cred.get()));
       UniqueSecStr(KivSecStr_MoveConstruct(clear.get()));
     }},
};

// Neither in clear nor encrypted is the password to be found after it was released, whatever went wrong on the way.
class CredSecretTest : public ::testing::TestWithParam<Deed> {
 protected:
  static void expectWiped(std::wstring_view secret) {
    const MemoryWatch::SecretGuard guard(secret);
    forEachFault([](SimulatedWindows&) { GetParam().run(); });
    forEachAllocation([](SimulatedWindows&, const auto& armed) { armed([] { GetParam().run(); }); });
    EXPECT_THAT(guard.violations(), IsEmpty());
    EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
  }
};

TEST_P(CredSecretTest, LeavesNoPasswordInMemory) { expectWiped(kPassword); }

TEST_P(CredSecretTest, LeavesNoEncryptedPasswordInMemory) {
  std::wstring encrypted;
  {
    const SimulatedWindows windows;
    encrypted = ciphertextOf(kPassword);
  }
  expectWiped(encrypted);
}

INSTANTIATE_TEST_SUITE_P(Deeds, CredSecretTest, ::testing::ValuesIn(kDeeds), [](const auto& info) {
  std::string name = info.param.name;
  std::ranges::replace(name, ' ', '_');
  return name;
});

TEST_F(CredTest, PasswordIsInClearJustAsLongAsAProtectedStringHoldsIt) {
  const MemoryWatch::SecretGuard guard(kPassword);
  const UniqueCred cred = make();
  const UniqueCred copied(KivCred_CopyConstruct(cred.get()));
  EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
  UniqueSecStr clear(KivCred_Password(cred.get()));
  EXPECT_EQ(guard.scanLiveBlocks().size(), 1U);
  clear.reset();
  EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
  EXPECT_THAT(guard.violations(), IsEmpty());
}

TEST_F(CredTest, ReplacedCredentialIsWipedAtOnce) {
  const std::wstring encrypted = ciphertextOf(kPassword);
  const MemoryWatch::SecretGuard guard(encrypted);
  const UniqueCred other = make(kOtherUser, kOtherPassword);
  const UniqueCred target = make();
  EXPECT_EQ(guard.scanLiveBlocks().size(), 1U);
  KivCred_Copy(other.get(), target.get());
  EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
  EXPECT_THAT(guard.violations(), IsEmpty());
}

}  // namespace
}  // namespace kiv::test
