#include "service/self_test.h"

#include <gtest/gtest.h>

#include <sstream>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using SelfTest = FreshMachine;

TEST_F(SelfTest, PassesOnAMachineThatIsInOrderAndLeavesNothing) {
  std::ostringstream out;
  EXPECT_TRUE(run_self_test(out));
  EXPECT_EQ(out.str(), "Velmora control self-test passed\n");
  EXPECT_TRUE(standin::system().handles.empty());
  EXPECT_EQ(
      calls_of("CoInitializeEx") + calls_of("WSAStartup") + calls_of("socket") + calls_of("CreateFileW"), 0);
}

TEST_F(SelfTest, UsesAMappingThatIsPrivateToItsProcess) {
  std::ostringstream out;
  EXPECT_TRUE(run_self_test(out));
  ASSERT_EQ(standin::system().regions.size(), 1u);
  EXPECT_EQ(standin::system().regions.begin()->first, u"Local\\VelmoraSelfTest-4711");
}

TEST_F(SelfTest, FailsWithoutRandomBytes) {
  standin::system().random_available = false;
  std::ostringstream out;
  EXPECT_FALSE(run_self_test(out));
  EXPECT_EQ(out.str(), "Velmora control self-test failed\n");
}

TEST_F(SelfTest, FailsInOneLineWhereAnyCallForItsMappingFails) {
  const struct {
    std::string operation;
    std::deque<std::int64_t> faults;
  } rows[] = {
      {"ConvertStringSecurityDescriptorToSecurityDescriptorW", {1336}},
      {"CreateFileMappingW", {5}},
      {"MapViewOfFile", {8}},
      {"MapViewOfFile", {0, 8}},
      {"OpenFileMappingW", {0, 5}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.operation);
    standin::reset();
    standin::system().faults[row.operation] = row.faults;
    std::ostringstream out;
    EXPECT_FALSE(run_self_test(out));
    EXPECT_EQ(out.str(), "Velmora control self-test failed\n");
    EXPECT_TRUE(standin::system().handles.empty());
  }
}

}  // namespace
}  // namespace velmora
