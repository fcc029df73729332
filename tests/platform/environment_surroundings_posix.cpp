#include <gtest/gtest.h>

#include <cstdlib>

#include "base/text.h"
#include "platform/environment_surroundings.h"

namespace velmora::surroundings {

void set_environment(std::u16string_view name, std::u16string_view text) {
  const std::string variable = utf8_from_wide_replacing(name);
  EXPECT_EQ(text.empty() ? unsetenv(variable.c_str())
                         : setenv(variable.c_str(), utf8_from_wide_replacing(text).c_str(), 1),
            0);
}

void set_unix_clock() {}

}  // namespace velmora::surroundings
