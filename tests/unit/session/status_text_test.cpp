// Tests of the texts of statuses and reasons.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "kiv/session.h"

namespace kiv::test {
namespace {

std::vector<std::uint32_t> statusesAndReasons() {
  std::vector<std::uint32_t> all = {KIV_STATUS_TOO_MANY};
  for (std::uint32_t status = KIV_STATUS_OK; status <= KIV_STATUS_REJECTED; ++status) all.push_back(status);
  for (std::uint32_t reason = KIV_REASON_BYPASSED; reason <= KIV_REASON_MAKESHIFT; ++reason) all.push_back(reason);
  for (std::uint32_t reason = KIV_REASON_NO_CANDIDATE; reason <= KIV_REASON_SCHEME_UNSUPPORTED; ++reason) {
    all.push_back(reason);
  }
  return all;
}

TEST(StatusTextTest, IsAnotherForEveryStatusAndReason) {
  std::set<std::wstring> texts = {KivStatus_Text(KIV_STATUS_SYSTEM), KivStatus_Text(0x8009030C),
                                  KivStatus_Text(0xFFFFFFFF)};
  for (const std::uint32_t value : statusesAndReasons()) {
    const wchar_t* const text = KivStatus_Text(value);
    ASSERT_NE(text, nullptr);
    EXPECT_FALSE(std::wstring(text).empty()) << value;
    EXPECT_TRUE(texts.insert(text).second) << text;
    EXPECT_EQ(KivStatus_Text(value), text) << "not a static text";
  }
  EXPECT_EQ(texts.size(), 3 + 15 + 9U);
}

TEST(StatusTextTest, IsOneForAllErrorsOfTheSystem) {
  for (const std::uint32_t status : {0x80070000U, 0x80070005U, 0x8007FFFFU}) {
    EXPECT_STREQ(KivStatus_Text(status), L"system error");
  }
}

TEST(StatusTextTest, IsOneForAllErrorsOfSecurityPackages) {
  for (const std::uint32_t status : {0x80090000U, 0x8009030CU, 0x8009FFFFU}) {
    EXPECT_STREQ(KivStatus_Text(status), L"error of a security package");
  }
}

TEST(StatusTextTest, IsOneForAllThatIsNotKnown) {
  for (const std::uint32_t status : {14U, 0x100U, 0x106U, 0x110U, 0x115U, 0x7FFFFFFFU, 0x80060718U, 0x80080000U,
                                     0x800A0000U, 0x00090000U, 0xFFFFFFFFU}) {
    EXPECT_STREQ(KivStatus_Text(status), L"unknown status");
  }
}

}  // namespace
}  // namespace kiv::test
