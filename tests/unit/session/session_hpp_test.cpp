// The C++ layer of the session's interface: what it is made of, and what needs no session.
#include "kiv/session.hpp"

#include <gtest/gtest.h>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using namespace std::chrono_literals;

template <class Object>
constexpr bool isMoveOnly = std::is_nothrow_move_constructible_v<Object>&& std::is_nothrow_move_assignable_v<Object> &&
                            !std::is_copy_constructible_v<Object> && !std::is_copy_assignable_v<Object>;

static_assert(isMoveOnly<Session> && isMoveOnly<Challenge> && isMoveOnly<PendingResolution> && isMoveOnly<ProxyAuth>);
static_assert(isMoveOnly<SecretText> && isMoveOnly<ClearCredentials> && isMoveOnly<SessionEvent>);
static_assert(std::is_nothrow_copy_constructible_v<Decision> && std::is_nothrow_move_constructible_v<Decision>);
static_assert(std::is_copy_constructible_v<CancelToken> && std::is_copy_constructible_v<SessionOptions>);

TEST(CppSessionTimeOut, IsCountedAsTheCInterfaceCounts) {
  struct Case {
    std::chrono::milliseconds timeout;
    std::uint32_t limit;     // where 0 is the option's value
    std::uint32_t patience;  // where 0 only looks
  };
  for (const Case& c :
       {Case{default_timeout, 0, 0}, Case{1ms, 1, 1}, Case{-1ms, 1, 0}, Case{24h, 86'400'000, 86'400'000},
        Case{4'294'967'294ms, 0xFFFFFFFE, 0xFFFFFFFE}, Case{4'294'967'295ms, KIV_NO_TIME_OUT, KIV_NO_TIME_OUT},
        Case{no_timeout, KIV_NO_TIME_OUT, KIV_NO_TIME_OUT}}) {
    EXPECT_EQ(session_detail::limit(c.timeout), c.limit) << c.timeout.count();
    EXPECT_EQ(session_detail::patience(c.timeout), c.patience) << c.timeout.count();
  }
}

TEST(CppSessionError, HasTheStatusAndItsText) {
  const SessionError error(KIV_STATUS_CLOSED);
  EXPECT_EQ(error.status(), KIV_STATUS_CLOSED);
  std::wstring text(L"kiv: ");
  text += KivStatus_Text(KIV_STATUS_CLOSED);
  EXPECT_EQ(std::wstring(error.what(), error.what() + std::string_view(error.what()).size()), text);
}

TEST(CppSessionStatus, BecomesAnException) {
  EXPECT_NO_THROW(session_detail::check(KIV_STATUS_OK));
  EXPECT_THROW(session_detail::check(KIV_STATUS_OUT_OF_MEMORY), std::bad_alloc);
  EXPECT_THROW(session_detail::check(KIV_STATUS_TIMED_OUT), SessionError);
}

using CppSecretTextTest = PlatformTest;

TEST_F(CppSecretTextTest, IsWiped) {
  constexpr std::wstring_view kSecret = L"open-sesame-in-a-block-of-its-own";
  const ExpectSecretWiped wiped(kSecret);
  SecretText text(kSecret);
  EXPECT_EQ(text.view(), kSecret);
  SecretText moved(std::move(text));
  EXPECT_EQ(moved.view(), kSecret);
  text = SecretText(L"another");
  moved = std::move(text);
  EXPECT_EQ(std::wstring(moved.c_str()), L"another");
  EXPECT_EQ(SecretText().view(), L"");
}

TEST(CppSessionText, MustNotContainANul) {
  EXPECT_THROW(session_detail::Text(std::wstring_view(L"a\0b", 3)), std::invalid_argument);
}

TEST(CppSessionCancellation, ForgetsWhatHasEnded) {
  session_detail::Cancellation cancellation;
  const std::uint64_t first = cancellation.enter();
  cancellation.ended(first);
  cancellation.begun(first, PendingResolution());
  EXPECT_FALSE(cancellation.is_cancelled());
  cancellation.cancel();
  EXPECT_TRUE(cancellation.is_cancelled());
}

}  // namespace
}  // namespace kiv::test
