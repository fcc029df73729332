#include "capture/capture_control.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "capture/capture_directory.h"
#include "unit/capture/support/captures.h"
#include "unit/support/fresh_machine.h"
#include "unit/support/split.h"

namespace velmora {
namespace {

constexpr std::string_view action_refused = "action must be start, stop or export";
constexpr std::string_view seconds_refused = "seconds must be between 1 and 300";

TEST(CaptureCommand, KnowsThreeActions) {
  const std::pair<std::string, unsigned> rows[] = {
      {R"({"action":"start"})", 1},
      {R"({"action":"stop"})", 2},
      {R"({"action":"export"})", 3},
      {R"({ "seconds" : 5 , "action" : "stop" , "action" : "start" })", 2},
      {R"({"x":[{"action":"stop"}]})", 2},
  };
  for (const auto& [body, code] : rows) {
    SCOPED_TRACE(body);
    const Parsed<CaptureCommand> parsed = parse_capture_body(body);
    EXPECT_EQ(parsed.error, "");
    EXPECT_EQ(static_cast<unsigned>(parsed.value.action), code);
  }
}

TEST(CaptureCommand, RefusesAnyOtherAction) {
  for (const std::string& body :
       split(R"(|{}|{"seconds":5}|{"action":"Start"}|{"action":"STOP"}|{"action":"Export"}|)"
             R"({"action":""}|{"action":" start"}|{"action":"start "}|{"action":"star"}|)"
             R"({"action":"starts"}|{"action":"start\n"}|{"action":"\u0073tart"}|{"action":1}|)"
             R"({"action":true}|{"action":null}|{"action":["start"]}|{"action":start}|{"action":"start|)"
             R"({"Action":"start"}|{"action""start"})",
             '|')) {
    EXPECT_EQ(parse_capture_body(body).error, action_refused) << body;
  }
  EXPECT_EQ(parse_capture_body(std::string("{\"action\":\"start\0\"}", 19)).error, action_refused);
  EXPECT_EQ(parse_capture_body(R"({"action":"stop\/"})").error, action_refused);
}

TEST(CaptureCommand, ChecksTheActionFirst) {
  EXPECT_EQ(parse_capture_body(R"({"seconds":999,"action":"begin"})").error, action_refused);
  EXPECT_EQ(parse_capture_body(R"({"seconds":0})").error, action_refused);
}

TEST(CaptureCommand, ReadsTheSecondsOfEveryAction) {
  const struct {
    std::string seconds;
    unsigned carried;
  } rows[] = {
      {"1", 1},
      {"300", 300},
      {"300.0", 300},
      {"1.9", 1},
      {"1.0", 1},
      {"299.9", 299},
      {"2e2", 200},
      {"+7", 7},
      {"0x10", 16},
      {"120", 120},
      // As 32-bit floats these equal the bounds.
      {"0.99999999", 1},
      {"300.00001", 300},
  };
  for (const std::string action : {"start", "stop", "export"}) {
    for (const auto& row : rows) {
      SCOPED_TRACE(action + " " + row.seconds);
      const Parsed<CaptureCommand> parsed =
          parse_capture_body("{\"action\":\"" + action + "\",\"seconds\":" + row.seconds + "}");
      EXPECT_EQ(parsed.error, "");
      EXPECT_EQ(parsed.value.seconds, row.carried);
    }
  }
}

TEST(CaptureCommand, RefusesSecondsOutOfRange) {
  for (const std::string action : {"start", "stop", "export"}) {
    for (const std::string seconds :
         {"0", "-0", "0.5", "0.999", "0.9999", "300.5", "300.0001", "301", "999", "-1", "-120", "65537",
          "65656", "4294967416", "1e38", "-1e38", "1e-30"}) {
      EXPECT_EQ(parse_capture_body("{\"action\":\"" + action + "\",\"seconds\":" + seconds + "}").error,
                seconds_refused)
          << action << " " << seconds;
    }
  }
}

TEST(CaptureCommand, Uses120SecondsWithoutANumber) {
  for (const std::string action : {"start", "stop", "export"}) {
    for (const std::string rest :
         {"", R"(,"seconds":"60")", R"(,"seconds":"999")", R"(,"seconds":null)", R"(,"seconds":true)",
          R"(,"seconds":[60])", R"(,"seconds":{})", R"(,"seconds":)", R"(,"seconds")", R"(,"Seconds":60)",
          R"(,"seconds":nan)", R"(,"seconds":inf)", R"(,"seconds":-inf)", R"(,"seconds":1e999)"}) {
      SCOPED_TRACE(action + rest);
      const Parsed<CaptureCommand> parsed = parse_capture_body("{\"action\":\"" + action + "\"" + rest + "}");
      EXPECT_EQ(parsed.error, "");
      EXPECT_EQ(parsed.value.seconds, 120);
    }
  }
}

class CaptureFiles : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    capture_directory_override = "captures";
    put_captures({"1", "22", "333", "4444"});
  }
  void TearDown() override {
    capture_directory_override.clear();
    FreshMachine::TearDown();
  }
};

TEST_F(CaptureFiles, AreCountedUpToTheFirstBadFile) {
  const std::uint64_t sums[] = {0, 1, 3, 6};
  for (std::size_t index = 0; index < 4; ++index) {
    const std::vector<std::function<void()>> ways = {
        [&] { memory::system().files.erase(capture_path(index)); },
        [&] { capture_file(index).kind = FileKind::directory; },
        [&] { capture_file(index).kind = FileKind::other; },
        [&] { capture_file(index).bytes.clear(); },
        [&] {
          memory::system().faults["GetFileSizeEx"] = std::deque<std::int64_t>(index, 0);
          memory::system().faults["GetFileSizeEx"].push_back(5);
        },
    };
    for (std::size_t way = 0; way < ways.size(); ++way) {
      SCOPED_TRACE(std::to_string(index) + " in way " + std::to_string(way));
      memory::reset();
      put_captures({"1", "22", "333", "4444"});
      ways[way]();
      std::uint64_t bytes = 77;
      EXPECT_FALSE(capture_files_ready(bytes));
      EXPECT_EQ(bytes, sums[index]);
    }
  }
}

TEST_F(CaptureFiles, AreReadyWithAnySize) {
  put_captures({"1", "2", "3", "4"});
  std::uint64_t bytes = 0;
  EXPECT_TRUE(capture_files_ready(bytes));
  EXPECT_EQ(bytes, 4u);
  for (std::size_t index = 0; index < 4; ++index) capture_file(index).size = 0x100000000 + index;
  EXPECT_TRUE(capture_files_ready(bytes));
  EXPECT_EQ(bytes, 0x400000006u);
}

TEST_F(CaptureFiles, AreRemovedAndNoOthers) {
  memory::system().files["captures/capture-5.wav"].bytes = "x";
  memory::system().files["other/capture-1-host-in.wav"].bytes = "x";
  remove_capture_files();
  EXPECT_EQ(memory::system().files.size(), 2u);
  EXPECT_TRUE(memory::system().files.contains("captures/capture-5.wav"));
  EXPECT_TRUE(memory::system().files.contains("other/capture-1-host-in.wav"));
}

TEST_F(CaptureFiles, AreRemovedIfPresent) {
  memory::system().files.erase(capture_path(0));
  memory::system().files.erase(capture_path(2));
  remove_capture_files();
  EXPECT_TRUE(memory::system().files.empty());
  remove_capture_files();
  EXPECT_EQ(calls_of("DeleteFileW"), 8);
}

TEST_F(CaptureFiles, AreRemovedDespiteAFailure) {
  for (std::size_t stays = 0; stays < 4; ++stays) {
    put_captures({"1", "22", "333", "4444"});
    memory::system().faults["DeleteFileW"] = std::deque<std::int64_t>(stays, 0);
    memory::system().faults["DeleteFileW"].push_back(32);
    remove_capture_files();
    EXPECT_EQ(memory::system().files.size(), 1u);
    EXPECT_TRUE(memory::system().files.contains(capture_path(stays))) << stays;
  }
}

TEST_F(CaptureFiles, AreNotRemovedIfTheyAreDirectories) {
  capture_file(1).kind = FileKind::directory;
  remove_capture_files();
  EXPECT_EQ(memory::system().files.size(), 1u);
  EXPECT_EQ(capture_file(1).kind, FileKind::directory);
}

TEST_F(CaptureFiles, AreReadFromThePresentDirectory) {
  capture_directory_override = "elsewhere";
  std::uint64_t bytes = 77;
  EXPECT_FALSE(capture_files_ready(bytes));
  remove_capture_files();
  EXPECT_EQ(memory::system().files.size(), 4u);
  capture_directory_override = "captures";
  EXPECT_TRUE(capture_files_ready(bytes));
  EXPECT_EQ(bytes, 10u);
}

}  // namespace
}  // namespace velmora
