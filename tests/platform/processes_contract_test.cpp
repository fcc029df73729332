#include "platform/processes.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text.h"
#include "platform/machine.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class ProcessesContract : public surroundings::Arranged {};

TEST_F(ProcessesContract, NamesTheProgramOfThisProcess) {
  const std::u16string path = process_image_path(own_process_id());
  EXPECT_FALSE(path.empty());
  EXPECT_EQ(utf8_from_wide(path), own_module_path());
  EXPECT_EQ(process_image_path(own_process_id()), path);
}

TEST_F(ProcessesContract, NamesTheProgramOfAnotherProcessForAsLongAsItLives) {
  surroundings::ChildProcess child = surroundings::start_child();
  const std::uint32_t id = child.native();
  ASSERT_NE(id, own_process_id());
  EXPECT_EQ(process_image_path(id), surroundings::child_program_path());
  EXPECT_NE(process_image_path(id), process_image_path(own_process_id()));
  child.close();
  EXPECT_EQ(process_image_path(id), u"");
}

// 0 is that of no process that can be asked; the others are above all that systems give out, or below 0 for
// those that take them as signed.
TEST_F(ProcessesContract, GivesNoPathForAnIdThatIsFree) {
  for (const std::uint32_t id : {0u, 0x7FFFFFFCu, 0x80000000u, 0xFFFFFFFCu, 0xFFFFFFFFu}) {
    SCOPED_TRACE(id);
    EXPECT_EQ(process_image_path(id), u"");
  }
}

}  // namespace
}  // namespace velmora
