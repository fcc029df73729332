#include "command/status.h"

#include "unit/command/support/command_machine.h"

namespace velmora {
namespace {

class StatusCommand : public CommandMachine {
 protected:
  std::map<std::string, std::string> answers = {
      {"/api/v1/status", expected_document(some_status)},
      {"/api/v1/render/effects/eq", expected_document(R"({"bypass":true,"bands":[]})")},
      {"/api/v1/devices", expected_document(R"({"render":[{"id":"one","name":"Speakers"}]})")},
  };
};

TEST_F(StatusCommand, IsReported) {
  hold_some_run();
  answer_at(17831, answers);
  std::string report;
  EXPECT_FALSE(report_status(false, report).failed());
  EXPECT_TRUE(report.starts_with("Velmora 1.2.0 at http://127.0.0.1:17831/\n\ninstalled    no ")) << report;
  EXPECT_NE(report.find("\ndevice       Speakers\n"), std::string::npos);
  EXPECT_FALSE(report_status(true, report).failed());
  EXPECT_TRUE(report.starts_with(R"({"version":"1.2.0",)"));
  EXPECT_EQ(report.find("secret"), std::string::npos);
}

TEST_F(StatusCommand, LooksTwice) {
  hold_some_run();
  answer_at(17831, answers);
  const std::int64_t begin_ns = memory::system().now_ns;
  std::string report;
  EXPECT_FALSE(report_status(false, report).failed());
  EXPECT_GE(memory::system().now_ns - begin_ns, 500'000'000);
  EXPECT_EQ(requests.size(), 4u);
  EXPECT_EQ(requests.front(), requests.back());
}

TEST_F(StatusCommand, NeedsARun) {
  std::string report = "unchanged";
  EXPECT_EQ(report_status(false, report).code, CommandCode::not_running);
  EXPECT_EQ(report, "unchanged");
}

TEST_F(StatusCommand, IsLostWithTheServiceAtEachRequest) {
  hold_some_run();
  for (const auto& [target, answer] : answers) {
    auto cut = answers;
    cut[target] = answer.substr(0, answer.size() - 1);
    answer_at(17831, cut);
    std::string report = "unchanged";
    EXPECT_EQ(report_status(false, report).code, CommandCode::service_lost) << target;
    EXPECT_EQ(report, "unchanged");
  }
}

TEST_F(StatusCommand, RefusesDocumentsOfOtherPrograms) {
  hold_some_run();
  for (const auto& [target, answer] : answers) {
    for (const std::string_view body : {"", "[]", "{}", "<html>", R"({"bypass":true})", "null"}) {
      auto other = answers;
      other[target] = expected_document(body);
      answer_at(17831, other);
      std::string report = "unchanged";
      const Outcome outcome = report_status(true, report);
      EXPECT_EQ(outcome.code, CommandCode::senseless_answer) << target << ' ' << body;
      EXPECT_EQ(outcome.sentence,
                "The answer at http://127.0.0.1:17831/ makes no sense: end Velmora with velmora stop, then "
                "start it "
                "again.");
      EXPECT_EQ(report, "unchanged");
    }
  }
}

}  // namespace
}  // namespace velmora
