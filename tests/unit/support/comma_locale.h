// A locale with a decimal comma, for code that must not depend on the locale.
#pragma once

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace velmora {

// Switch the process to a locale with a decimal comma. Return false if there is none.
[[nodiscard]] bool set_comma_locale();

// Sets a locale with a decimal comma for the lifetime of the object.
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
