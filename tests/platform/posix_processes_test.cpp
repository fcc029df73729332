// Processes in a directory laid out as /proc.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "base/text.h"
#include "platform/machine.h"
#include "platform/processes.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class PosixProcesses : public surroundings::Arranged {
 protected:
  void SetUp() override {
    surroundings::Arranged::SetUp();
    setenv("VELMORA_PROC", surroundings::scratch_directory().c_str(), 1);
  }
  void TearDown() override {
    unsetenv("VELMORA_PROC");
    surroundings::Arranged::TearDown();
  }
};

std::string directory_of(std::uint32_t id) {
  return surroundings::scratch_directory() + '/' + std::to_string(id);
}

void put_process(std::uint32_t id, const std::string& program) {
  surroundings::put_directory(directory_of(id));
  ASSERT_EQ(symlink(program.c_str(), (directory_of(id) + "/exe").c_str()), 0);
}

TEST_F(PosixProcesses, GiveTheTargetOfTheirLinkUnchanged) {
  const std::string long_path = "/opt/" + std::string(250, 'a') + '/' + std::string(1000, 'b') + "/player";
  const struct {
    std::string program;
    std::u16string path;
  } rows[] = {{"/usr/bin/player", u"/usr/bin/player"},
              {"/no/such/directory/player", u"/no/such/directory/player"},  // it need not lead anywhere
              {"player", u"player"},
              {"/opt/a player (deleted)", u"/opt/a player"},  // as it was called when it was started
              {"/opt/a (deleted) player", u"/opt/a (deleted) player"},
              {"C:\\Program Files\\player.exe", u"C:\\Program Files\\player.exe"},
              {"/opt/\xC3\xBC\xF0\x9F\x8E\xB5/player", u"/opt/\u00FC\U0001F3B5/player"},
              {long_path, wide_from_ascii(long_path)}};
  std::uint32_t id = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.program);
    put_process(++id, row.program);
    EXPECT_EQ(process_image_path(id), row.path);
  }
}

TEST_F(PosixProcesses, ReplaceEachStretchOfAPathThatIsNoUtf8) {
  put_process(1, "/opt/\xFF/\xE2\x82/player\xC3");
  EXPECT_EQ(process_image_path(1), u"/opt/\uFFFD/\uFFFD/player\uFFFD");
}

TEST_F(PosixProcesses, HaveNoPathWithoutALinkThatCanBeRead) {
  surroundings::put_directory(directory_of(2));  // no link in it
  surroundings::put_directory(directory_of(3));
  surroundings::put_file(directory_of(3) + "/exe", "/usr/bin/player");  // a file
  surroundings::put_directory(directory_of(4));
  surroundings::put_directory(directory_of(4) + "/exe");
  surroundings::put_file(directory_of(5), "");
  for (const std::uint32_t id : {0u, 1u, 2u, 3u, 4u, 5u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(id);
    EXPECT_EQ(process_image_path(id), u"");
  }
}

TEST_F(PosixProcesses, AreLookedForByTheirIdsInUnsignedDecimal) {
  put_process(0, "/zero");
  put_process(10, "/ten");
  put_process(4294967295, "/last");
  EXPECT_EQ(process_image_path(0), u"/zero");
  EXPECT_EQ(process_image_path(10), u"/ten");
  EXPECT_EQ(process_image_path(4294967295), u"/last");
  EXPECT_EQ(process_image_path(1), u"");
}

TEST_F(PosixProcesses, AreThoseOfTheSystemWhereNoOtherPlaceIsNamed) {
  const std::u16string own = wide_from_utf8(own_module_path());
  ASSERT_FALSE(own.empty());
  EXPECT_EQ(process_image_path(own_process_id()), u"");
  setenv("VELMORA_PROC", "", 1);
  EXPECT_EQ(process_image_path(own_process_id()), own);
  setenv("VELMORA_PROC", "/proc", 1);
  EXPECT_EQ(process_image_path(own_process_id()), own);
  unsetenv("VELMORA_PROC");
  EXPECT_EQ(process_image_path(own_process_id()), own);
}

}  // namespace
}  // namespace velmora
