#include "account/machine_id.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

TEST(MachineId, IsTheDigestOfALabelAndTheIdentifier) {
  // printf 'velmora machine 1\nid:6f3a2b1c-0d4e-4f5a-8b6c-7d8e9fa0b1c2' | sha256sum
  EXPECT_EQ(machine_id_of("id:6f3a2b1c-0d4e-4f5a-8b6c-7d8e9fa0b1c2"),
            "916dc0fb2a6fdf428a497de41ba29dd01134921ad1da31c35de3fbbb637f6dfe");
  EXPECT_EQ(machine_id_of("name:machine"),
            "90ebb67f48cee603f310d91b9a2ad9f9e6934294a7ca0610703454e5b7e55919");
}

TEST(MachineId, ShowsNothingOfTheIdentifier) {
  const std::string id = machine_id_of("id:6f3a2b1c");
  EXPECT_EQ(id.size(), 64u);
  EXPECT_EQ(id.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(id.find("6f3a2b1c"), std::string::npos);
  EXPECT_NE(id, machine_id_of("id:6f3a2b1d"));
}

class CurrentMachineId : public FreshMachine {};

// It is asked for once in the life of the process, so this is the one test that may ask first.
TEST_F(CurrentMachineId, IsAskedForOnceAndKept) {
  const std::string first = current_machine_id();
  standin::system().machine_identifier = "another";
  EXPECT_EQ(current_machine_id(), first);
  EXPECT_EQ(first, machine_id_of("id:6f3a2b1c-0d4e-4f5a-8b6c-7d8e9fa0b1c2"));
}

}  // namespace
}  // namespace velmora
