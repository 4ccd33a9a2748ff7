// Tests that are repeated in each locale that there is for them: what is a blank, a digit or a capital depends on it.
#pragma once

#include <gtest/gtest.h>

#include <iterator>
#include <locale>
#include <string>

namespace kiv::test {

// Makes a locale the global one, of C++ and of C, for as long as it lives.
class GlobalLocale {
 public:
  explicit GlobalLocale(const char* name) : before_(std::locale::global(std::locale(name))) {}
  ~GlobalLocale() { std::locale::global(before_); }
  GlobalLocale(const GlobalLocale&) = delete;
  GlobalLocale& operator=(const GlobalLocale&) = delete;

 private:
  std::locale before_;
};

class EachLocaleTest : public ::testing::TestWithParam<const char*> {
 private:
  GlobalLocale locale_{GetParam()};
};

inline std::string nameOfLocale(const ::testing::TestParamInfo<const char*>& info) {
  return std::string(info.param) == "C" ? "C" : "Utf8";
}

// On Windows the C library knows all of Unicode even in the "C" locale, elsewhere only in this other one.
#ifdef _WIN32
inline constexpr const char* kLocales[] = {"C"};
#else
inline constexpr const char* kLocales[] = {"C", "C.UTF-8"};
#endif

// How many texts, in each locale, make two hundred thousand.
inline constexpr int kTextsPerLocale = 200'000 / static_cast<int>(std::size(kLocales));

#define KIV_EACH_LOCALE(Suite) \
  INSTANTIATE_TEST_SUITE_P(Locale, Suite, ::testing::ValuesIn(::kiv::test::kLocales), ::kiv::test::nameOfLocale)

}  // namespace kiv::test
