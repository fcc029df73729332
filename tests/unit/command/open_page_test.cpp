#include "command/open_page.h"

#include "unit/command/support/command_machine.h"

namespace velmora {
namespace {

class OpenPage : public CommandMachine {};

TEST_F(OpenPage, OpensThePageOfAServiceThatAnswers) {
  hold_some_run();
  answer_at(17831, {{"/api/v1/status", expected_document("{}")}});
  EXPECT_FALSE(open_running_page().failed());
  EXPECT_EQ(memory::system().browser_addresses,
            std::vector<std::string>{"http://127.0.0.1:17831/?token=secret"});
}

TEST_F(OpenPage, OpensNothingOtherwise) {
  EXPECT_EQ(open_running_page().code, CommandCode::not_running);
  hold_some_run();
  EXPECT_EQ(open_running_page().code, CommandCode::service_lost);
  answer_at(17831, {{"/api/v1/status", token_refusal()}});
  EXPECT_EQ(open_running_page().code, CommandCode::port_taken);
  answer_at(17831, {{"/api/v1/status", "garbage"}});
  EXPECT_EQ(open_running_page().code, CommandCode::senseless_answer);
  answer_at(17831, {});
  EXPECT_EQ(open_running_page().code, CommandCode::held_by_client);
  EXPECT_TRUE(memory::system().browser_addresses.empty());
}

TEST_F(OpenPage, ReportsABrowserThatCannotBeOpened) {
  hold_some_run();
  answer_at(17831, {{"/api/v1/status", expected_document("{}")}});
  memory::system().browser_result = 32;
  const Outcome outcome = open_running_page();
  EXPECT_EQ(outcome.code, CommandCode::no_browser);
  EXPECT_EQ(outcome.sentence,
            "The browser cannot be opened: copy the address from the window in which Velmora runs into one.");
  memory::system().com_result = -1;
  EXPECT_EQ(open_page(some_run()).code, CommandCode::no_browser);
}

}  // namespace
}  // namespace velmora
