// Numbers with a decimal comma, for code that must not depend on the locale.
#pragma once

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace velmora {

// Changes the process's locale to one with a decimal comma. False where there is none.
[[nodiscard]] bool set_comma_locale();

// The process has a locale with a decimal comma for as long as this lives.
class CommaLocale {
 public:
  CommaLocale() {
    EXPECT_TRUE(set_comma_locale());
    EXPECT_STREQ(std::localeconv()->decimal_point, ",");
  }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;
  ~CommaLocale() { std::setlocale(LC_ALL, "C"); }
};

}  // namespace velmora
