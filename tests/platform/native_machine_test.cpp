// What only a real machine has.
#include "platform/machine.h"

#include <gtest/gtest.h>

#include <array>

namespace velmora {
namespace {

TEST(NativeMachine, FillsBuffersDifferentlyEachTime) {
  std::array<unsigned char, 16> one{};
  std::array<unsigned char, 16> other{};
  ASSERT_TRUE(fill_random(one.data(), one.size()));
  ASSERT_TRUE(fill_random(other.data(), other.size()));
  EXPECT_NE(one, other);
}

}  // namespace
}  // namespace velmora
