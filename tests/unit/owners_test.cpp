// Tests of the owners of platform resources: each releases what it owns, once, with the right function.
#include "support/owners.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <vector>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using namespace kiv::support;  // NOLINT(google-build-using-namespace): it is what is tested here

using Lines = std::vector<std::string>;

std::vector<int*> released;

struct Note {
  void operator()(int* handle) const { released.push_back(handle); }
};

using Owner = Unique<int*, Note>;

static_assert(!std::is_copy_constructible_v<Owner> && !std::is_copy_assignable_v<Owner>);
static_assert(std::is_nothrow_move_constructible_v<Owner> && std::is_nothrow_move_assignable_v<Owner>);
static_assert(!std::is_convertible_v<int*, Owner>, "ownership is never taken silently");
static_assert(sizeof(Owner) == sizeof(int*));

class OwnersTest : public ::testing::Test {
 protected:
  OwnersTest() { released.clear(); }
  ~OwnersTest() override { released = {}; }

  using Handles = std::vector<int*>;
  int a = 0;
  int b = 0;
};

TEST_F(OwnersTest, ReleasesWhatItOwnsOnceAtItsEnd) {
  {
    const Owner owner(&a);
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.get(), &a);
    EXPECT_EQ(released, Handles{});
  }
  EXPECT_EQ(released, Handles{&a});
}

TEST_F(OwnersTest, ReleasesNothingIfItOwnsNothing) {
  {
    const Owner empty;
    const Owner null(nullptr);
    EXPECT_FALSE(empty);
    EXPECT_FALSE(null);
    EXPECT_EQ(empty.get(), nullptr);
  }
  EXPECT_EQ(released, Handles{});
}

TEST_F(OwnersTest, HandsOverWhatItOwnsWhenMoved) {
  {
    Owner source(&a);
    const Owner target(std::move(source));
    EXPECT_FALSE(source);  // NOLINT(bugprone-use-after-move): what is left of it is what is tested
    EXPECT_EQ(target.get(), &a);
  }
  EXPECT_EQ(released, Handles{&a});
}

TEST_F(OwnersTest, ReleasesWhatItOwnedWhenAnotherIsMovedIntoIt) {
  {
    Owner target(&a);
    Owner source(&b);
    target = std::move(source);
    EXPECT_EQ(released, Handles{&a});
    EXPECT_EQ(target.get(), &b);
    EXPECT_FALSE(source);  // NOLINT(bugprone-use-after-move): what is left of it is what is tested
  }
  EXPECT_EQ(released, (Handles{&a, &b}));
}

TEST_F(OwnersTest, KeepsWhatItOwnsWhenMovedOntoItself) {
  Owner owner(&a);
  Owner& same = owner;
  owner = std::move(same);
  EXPECT_EQ(owner.get(), &a);
  EXPECT_EQ(released, Handles{});
}

TEST_F(OwnersTest, ExchangesWhatTwoOwn) {
  Owner first(&a);
  Owner second(&b);
  first.swap(second);
  EXPECT_EQ(first.get(), &b);
  EXPECT_EQ(second.get(), &a);
  EXPECT_EQ(released, Handles{});
}

TEST_F(OwnersTest, ReleasesWhatItOwnedBeforeItReceivesAnother) {
  {
    Owner owner(&a);
    int** place = owner.put();
    EXPECT_EQ(released, Handles{&a});
    EXPECT_EQ(*place, nullptr);
    *place = &b;
    EXPECT_EQ(owner.get(), &b);
  }
  EXPECT_EQ(released, (Handles{&a, &b}));
}

class PlatformOwnersTest : public PlatformTest {};

TEST_F(PlatformOwnersTest, CloseInternetHandles) {
  { const UniqueInternet session(WinHttpOpen(L"agent", 0, nullptr, nullptr, 0)); }
  EXPECT_EQ(windows.callNames(), (Lines{"WinHttpOpen", "WinHttpCloseHandle"}));
  EXPECT_EQ(windows.arguments("WinHttpCloseHandle"), L"handle=session 1");
}

TEST_F(PlatformOwnersTest, CloseEvents) {
  { const UniqueEvent event(CreateEventW(nullptr, FALSE, FALSE, nullptr)); }
  EXPECT_EQ(windows.callNames(Transcript::Everything), (Lines{"CreateEventW", "CloseHandle"}));
  EXPECT_EQ(windows.arguments("CloseHandle"), L"event=event 1");
}

TEST_F(PlatformOwnersTest, UnloadModules) {
  {
    const UniqueModule module(LoadLibraryW(L"jsproxy.dll"));
    EXPECT_TRUE(module);
  }
  EXPECT_EQ(windows.callNames(), (Lines{"LoadLibraryW", "FreeLibrary"}));
}

TEST_F(PlatformOwnersTest, FreeGlobalBlocks) {
  windows.user.proxy = L"proxy:1";
  {
    UniqueGlobalText<wchar_t> text;
    WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
    ASSERT_TRUE(WinHttpGetIEProxyConfigForCurrentUser(&config));
    *text.put() = config.lpszProxy;
    EXPECT_STREQ(text.get(), L"proxy:1");
  }
  ASSERT_EQ(windows.releasedBlocks().size(), 1U);
  EXPECT_EQ(windows.releasedBlocks()[0].releasedBy, "GlobalFree");
}

TEST_F(PlatformOwnersTest, MakeNoCallForNothing) {
  {
    const UniqueInternet internet;
    const UniqueEvent event;
    const UniqueModule module;
    const UniqueGlobalText<char> text;
  }
  EXPECT_EQ(windows.callNames(Transcript::Everything), Lines{});
}

}  // namespace
}  // namespace kiv::test
