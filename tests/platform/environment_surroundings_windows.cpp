#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "platform/environment_surroundings.h"

namespace velmora::surroundings {

void set_environment(std::u16string_view name, std::u16string_view text) {
  const std::wstring variable(name.begin(), name.end());
  const std::wstring value(text.begin(), text.end());
  EXPECT_TRUE(SetEnvironmentVariableW(variable.c_str(), value.empty() ? nullptr : value.c_str()));
}

void set_unix_clock() {}

}  // namespace velmora::surroundings
