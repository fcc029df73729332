#include "service/token.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using SessionToken = FreshMachine;

TEST_F(SessionToken, Is24RandomBytesInLowerCaseHex) {
  EXPECT_EQ(generate_session_token(), "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff0001020304050607");
}

TEST_F(SessionToken, IsEmptyWithoutRandomBytes) {
  memory::system().random_available = false;
  EXPECT_EQ(generate_session_token(), "");
}

}  // namespace
}  // namespace velmora
