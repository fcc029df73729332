#include "account/machine_id.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

constexpr const char* identifier = "6f3a2b1c-0d4e-4f5a-8b6c-7d8e9fa0b1c2";

TEST(MachineId, HashesTheIdentifier) {
  // printf 'velmora machine 1\nid:6f3a2b1c-0d4e-4f5a-8b6c-7d8e9fa0b1c2' | sha256sum
  const std::string digest = "916dc0fb2a6fdf428a497de41ba29dd01134921ad1da31c35de3fbbb637f6dfe";
  for (const char* name : {"machine", "another", ""}) EXPECT_EQ(machine_id_of(identifier, name), digest);
}

TEST(MachineId, HashesTheNameWithoutAnIdentifier) {
  // printf 'velmora machine 1\nname:machine' | sha256sum
  EXPECT_EQ(machine_id_of("", "machine"), "90ebb67f48cee603f310d91b9a2ad9f9e6934294a7ca0610703454e5b7e55919");
  // printf 'velmora machine 1\nname:' | sha256sum
  EXPECT_EQ(machine_id_of("", ""), "697fbc93167c0e3d249e2d66b61ce590b0b424285ca3632554c1312730254d54");
  // A name equal to the identifier of another machine gives another digest.
  EXPECT_NE(machine_id_of("", identifier), machine_id_of(identifier, ""));
}

TEST(MachineId, DoesNotRevealTheIdentifier) {
  const std::string id = machine_id_of("6f3a2b1c", "machine");
  EXPECT_EQ(id.size(), 64u);
  EXPECT_EQ(id.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(id.find("6f3a2b1c"), std::string::npos);
  EXPECT_NE(id, machine_id_of("6f3a2b1d", "machine"));
}

class CurrentMachineId : public FreshMachine {};

// The process reads it once, so no other test may call it first.
TEST_F(CurrentMachineId, IsReadOnceAndKept) {
  const std::string first = current_machine_id();
  memory::system().machine_identifier = "another";
  EXPECT_EQ(current_machine_id(), first);
  EXPECT_EQ(first, machine_id_of(identifier, "machine"));
}

}  // namespace
}  // namespace velmora
