#include "service/self_test.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using SelfTest = FreshMachine;

TEST_F(SelfTest, PassesOnAMachineThatIsInOrderAndLeavesNothing) {
  EXPECT_TRUE(run_self_test());
  EXPECT_EQ(standin::system().standard_output, "Velmora control self-test passed\n");
  EXPECT_TRUE(standin::system().handles.empty());
  EXPECT_EQ(
      calls_of("CoInitializeEx") + calls_of("WSAStartup") + calls_of("socket") + calls_of("CreateFileW"), 0);
}

TEST_F(SelfTest, UsesAMappingThatIsPrivateToItsProcess) {
  EXPECT_TRUE(run_self_test());
  ASSERT_EQ(standin::system().regions.size(), 1u);
  EXPECT_EQ(standin::system().regions.begin()->first, u"Local\\VelmoraSelfTest-4711");
}

TEST_F(SelfTest, FailsWithoutRandomBytes) {
  standin::system().random_available = false;
  EXPECT_FALSE(run_self_test());
  EXPECT_EQ(standin::system().standard_output, "Velmora control self-test failed\n");
}

TEST_F(SelfTest, FailsInOneLineWhereAnyCallFails) {
  const struct {
    std::string operation;
    std::deque<std::int64_t> faults;
  } rows[] = {
      {"ConvertStringSecurityDescriptorToSecurityDescriptorW", {1336}},
      {"CreateFileMappingW", {5}},
      {"MapViewOfFile", {8}},
      {"MapViewOfFile", {0, 8}},
      {"OpenFileMappingW", {0, 5}},
      {"StringFromGUID2", {1}},
      {"StringFromGUID2", {0, 1}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.operation);
    standin::reset();
    standin::system().faults[row.operation] = row.faults;
    EXPECT_FALSE(run_self_test());
    EXPECT_EQ(standin::system().standard_output, "Velmora control self-test failed\n");
    EXPECT_TRUE(standin::system().handles.empty());
  }
}

}  // namespace
}  // namespace velmora
