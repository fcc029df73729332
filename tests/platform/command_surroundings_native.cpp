// What the surroundings of both real systems share.
#include <gtest/gtest.h>

#include "platform/child_process.h"
#include "platform/command_surroundings.h"

namespace velmora::surroundings {
namespace {

velmora::ChildProcess& holder_of(Holder::Native native) {
  return *reinterpret_cast<velmora::ChildProcess*>(native);
}

}  // namespace

void HolderKind::release(Native native) noexcept {
  velmora::ChildProcess* child = &holder_of(native);
  EXPECT_TRUE(end_child(*child));
  delete child;
}

Holder hold_elsewhere_file(const std::string& path, const std::string& bytes) {
  auto* child = new velmora::ChildProcess;
  EXPECT_EQ(start_reliably(set_up_children(), {"hold", path, bytes}, *child), 0u);
  EXPECT_EQ(wait_for_child(*child, 20'000).bytes, "ready\n");
  return Holder(reinterpret_cast<Holder::Native>(child));
}

}  // namespace velmora::surroundings
