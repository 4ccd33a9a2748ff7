// Tests of memory for passwords in clear, and of the C functions of protected strings.
#include "config/secure_string.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>

#include "platform/memory_watch.h"
#include "platform/platform_test.h"
#include "unit/support/allocation_sweep.h"
#include "unit/support/handles.h"

namespace kiv::test {
namespace {

using impl::SecureString;
using impl::SecureWideBuffer;
using ::testing::IsEmpty;

static_assert(!std::is_copy_constructible_v<SecureString>, "a password in clear is never duplicated by accident");
static_assert(std::is_nothrow_move_constructible_v<SecureString>);
static_assert(std::is_same_v<decltype(KivSecStr_Size(nullptr)), std::uint32_t>);

constexpr std::wstring_view kPassword = L"correct horse";
// Any four characters of a buffer that is filled with dots are found.
constexpr std::wstring_view kDots = L"....";

SecureWideBuffer bufferOf(std::wstring_view text) {
  SecureWideBuffer buffer(text.size() + 1);
  std::ranges::copy(text, buffer.begin());
  return buffer;
}

SecureString stringOf(std::wstring_view text) { return {bufferOf(text), text.size()}; }

UniqueSecStr handleOf(std::wstring_view text) { return UniqueSecStr(support::newHandle<KivSecStr>(stringOf(text))); }

TEST(SecureWideBufferTest, WipesItsWholeCapacityWhenReleasedNotOnlyThePartInUse) {
  const MemoryWatch::SecretGuard guard(kDots);
  {
    SecureWideBuffer buffer(64, L'.');
    buffer.resize(1);
    ASSERT_GE(buffer.capacity(), 64U);
    ASSERT_THAT(guard.scanLiveBlocks(), Not(IsEmpty())) << "the characters behind the end are still in the block";
  }
  EXPECT_THAT(guard.violations(), IsEmpty());
}

TEST(SecureWideBufferTest, WipesTheOldBlockWhenItGrows) {
  const MemoryWatch::SecretGuard guard(kDots);
  SecureWideBuffer buffer;
  for (int i = 0; i < 100; ++i) buffer.push_back(L'.');
  EXPECT_THAT(guard.violations(), IsEmpty());
  EXPECT_EQ(guard.scanLiveBlocks().size(), 1U);
  buffer.clear();
  buffer.shrink_to_fit();
  EXPECT_THAT(guard.violations(), IsEmpty());
  EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
}

TEST(SecureWideBufferTest, WipesWhatItHeldWhenItIsAssigned) {
  const MemoryWatch::SecretGuard guard(kDots);
  const SecureWideBuffer large(100, L'x');
  SecureWideBuffer copiedOver(50, L'.');
  copiedOver = large;
  SecureWideBuffer movedOver(50, L'.');
  movedOver = SecureWideBuffer(10, L'y');
  EXPECT_THAT(guard.violations(), IsEmpty());
  EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
}

TEST(SecureWideBufferTest, CopyHoldsTheBytesAsTheyAre) {
  const SecureWideBuffer buffer = {L'a', L'\0', L'\xFFFF', L'b'};
  const SecureWideBuffer copied = buffer;
  EXPECT_EQ(copied, buffer);
  EXPECT_NE(copied.data(), buffer.data());
}

TEST(SecureStringTest, EmptyStringHasNoCharactersAtAll) {
  const SecureString text;
  EXPECT_EQ(text.c_str(), nullptr);
  EXPECT_EQ(text.size(), 0U);
  EXPECT_TRUE(text.view().empty());
}

TEST(SecureStringTest, GivesItsCharactersTerminated) {
  for (const std::wstring_view expected : {std::wstring_view(L""), std::wstring_view(L"x"), kPassword}) {
    const SecureString text = stringOf(expected);
    ASSERT_NE(text.c_str(), nullptr);
    EXPECT_EQ(text.c_str(), expected);
    EXPECT_EQ(text.view(), expected);
    EXPECT_EQ(text.size(), expected.size());
  }
}

TEST(SecureStringTest, MovingLeavesTheSizeButNoCharacters) {
  SecureString source = stringOf(kPassword);
  SecureString moved = std::move(source);
  EXPECT_EQ(moved.c_str(), kPassword);
  EXPECT_EQ(source.c_str(), nullptr);  // NOLINT(bugprone-use-after-move): the state is documented
  EXPECT_EQ(source.size(), kPassword.size());
  EXPECT_TRUE(source.view().empty());
  SecureString assigned;
  assigned = std::move(moved);
  EXPECT_EQ(assigned.c_str(), kPassword);
  EXPECT_EQ(moved.c_str(), nullptr);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(moved.size(), kPassword.size());
}

TEST(SecureStringTest, WipesItsCharactersWhenDestroyedAndWhenAssigned) {
  const MemoryWatch::SecretGuard guard(kPassword);
  {
    SecureString text = stringOf(kPassword);
    EXPECT_EQ(guard.scanLiveBlocks().size(), 1U);
    text = stringOf(L"other");
    EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
    text = stringOf(kPassword);
  }
  EXPECT_THAT(guard.violations(), IsEmpty());
  EXPECT_THAT(guard.scanLiveBlocks(), IsEmpty());
}

TEST(SecureStringTest, BlocksOfOneAllocatorCanBeReleasedByAnother) {
  EXPECT_EQ(impl::WipingAllocator<wchar_t>(), impl::WipingAllocator<wchar_t>(impl::WipingAllocator<char>()));
}

TEST(SecStrTest, NullHandleHasNoCharactersAndSizeZero) {
  EXPECT_EQ(KivSecStr_CStr(nullptr), nullptr);
  EXPECT_EQ(KivSecStr_Size(nullptr), 0U);
  EXPECT_EQ(KivSecStr_MoveConstruct(nullptr), nullptr);
  KivSecStr_Destruct(nullptr);
}

TEST(SecStrTest, MoveConstructTakesTheCharactersAndLeavesTheSourceItsSizeAndANullText) {
  const UniqueSecStr source = handleOf(kPassword);
  const wchar_t* const characters = KivSecStr_CStr(source.get());
  const UniqueSecStr moved(KivSecStr_MoveConstruct(source.get()));
  EXPECT_EQ(KivSecStr_CStr(moved.get()), characters) << "the block itself changes hands";
  EXPECT_EQ(KivSecStr_CStr(moved.get()), kPassword);
  EXPECT_EQ(KivSecStr_Size(moved.get()), kPassword.size());
  EXPECT_EQ(KivSecStr_CStr(source.get()), nullptr);
  EXPECT_EQ(KivSecStr_Size(source.get()), kPassword.size());
}

TEST(SecStrTest, MovedFromStringCanBeMovedAgain) {
  const UniqueSecStr source = handleOf(kPassword);
  const UniqueSecStr moved(KivSecStr_MoveConstruct(source.get()));
  const UniqueSecStr again(KivSecStr_MoveConstruct(source.get()));
  EXPECT_EQ(KivSecStr_CStr(again.get()), nullptr);
  EXPECT_EQ(KivSecStr_Size(again.get()), kPassword.size());
}

TEST(SecStrTest, MoveConstructWithoutMemoryIsNullAndLeavesTheSource) {
  const MemoryWatch::SecretGuard guard(kPassword);
  {
    const UniqueSecStr source = handleOf(kPassword);
    UniqueSecStr moved;
    const auto check = [&](bool failed) {
      EXPECT_EQ(moved == nullptr, failed);
      EXPECT_STREQ(KivSecStr_CStr(source.get()), failed ? kPassword.data() : nullptr);
      EXPECT_EQ(KivSecStr_Size(source.get()), kPassword.size());
    };
    EXPECT_EQ(forEachAllocationOf([&] { moved.reset(KivSecStr_MoveConstruct(source.get())); }, check), 1U);
    EXPECT_EQ(guard.scanLiveBlocks().size(), 1U);
  }
  EXPECT_THAT(guard.violations(), IsEmpty());
}

TEST(SecStrTest, DestructWipesTheCharacters) {
  const MemoryWatch::SecretGuard guard(kPassword);
  UniqueSecStr text = handleOf(kPassword);
  const UniqueSecStr moved(KivSecStr_MoveConstruct(text.get()));
  text = handleOf(kPassword);
  EXPECT_EQ(guard.scanLiveBlocks().size(), 2U);
  text.reset();
  EXPECT_EQ(guard.scanLiveBlocks().size(), 1U);
  EXPECT_THAT(guard.violations(), IsEmpty());
}

}  // namespace
}  // namespace kiv::test
