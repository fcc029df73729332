#include "command/port_choice.h"

#include "command/client.h"
#include "platform/errors.h"
#include "unit/command/support/command_machine.h"

namespace velmora {
namespace {

class PortChoiceTest : public CommandMachine {};

TEST_F(PortChoiceTest, TakesTheFirstPort) {
  const PortChoice choice = choose_port(std::nullopt);
  EXPECT_FALSE(choice.outcome.failed());
  EXPECT_EQ(choice.port, 17831);
  EXPECT_TRUE(requests.empty());
}

TEST_F(PortChoiceTest, SkipsOtherPrograms) {
  answer_at(17831, {{"/api/v1/status", "220 mail.example\r\n"}});
  answer_at(17832, {{"/api/v1/status", expected_response("302 Found", "text/html", "")}});
  answer_at(17833, {{"/api/v1/status", expected_document("{}")}});
  answer_at(17834, {});                            // silent
  memory::system().ports_of_others.insert(17835);  // silent too
  const std::int64_t begin_ns = memory::system().now_ns;
  const PortChoice choice = choose_port(std::nullopt);
  EXPECT_EQ(choice.port, 17836);
  EXPECT_EQ(memory::system().now_ns - begin_ns, 2 * recognition_ms * 1'000'000);
  EXPECT_EQ(requests.front(), format_request(17831, "/api/v1/status", ""));
}

TEST_F(PortChoiceTest, RefusesBesideAVelmoraService) {
  answer_at(17831, {{"/api/v1/status", "garbage"}});
  answer_at(17832, {{"/api/v1/status", token_refusal()}});
  const PortChoice choice = choose_port(std::nullopt);
  EXPECT_EQ(choice.outcome.code, CommandCode::port_taken);
  EXPECT_EQ(choice.outcome.sentence,
            "Another Velmora service, perhaps of another user, answers at http://127.0.0.1:17832/: end it in "
            "its own "
            "window, then start again.");
}

TEST_F(PortChoiceTest, RefusesIfAllPortsAreTaken) {
  for (std::uint16_t port = first_port; port <= last_port; ++port) answer_at(port, {{"/api/v1/status", "x"}});
  const PortChoice choice = choose_port(std::nullopt);
  EXPECT_EQ(choice.outcome.code, CommandCode::port_taken);
  EXPECT_EQ(choice.outcome.sentence,
            "Other programs use all ports from 17831 to 17850: choose another one with velmora start --port "
            "18000.");
}

TEST_F(PortChoiceTest, TakesTheLastPortOfTheRange) {
  for (std::uint16_t port = first_port; port < last_port; ++port) answer_at(port, {{"/api/v1/status", "x"}});
  EXPECT_EQ(choose_port(std::nullopt).port, 17850);
}

TEST_F(PortChoiceTest, SkipsAPortThatWindowsKeeps) {
  memory::system().faults["bind"] = {wsaeacces};
  EXPECT_EQ(choose_port(std::nullopt).port, 17832);
}

TEST_F(PortChoiceTest, LooksAtAPortThatIsGiven) {
  EXPECT_EQ(choose_port("18000").port, 18000);
  EXPECT_FALSE(choose_port("18000").outcome.failed());
  answer_at(18000, {{"/api/v1/status", "x"}});
  const PortChoice other = choose_port("18000");
  EXPECT_EQ(other.outcome.code, CommandCode::port_taken);
  EXPECT_EQ(other.outcome.sentence,
            "Another program uses the port 18000: choose another one, or start without --port.");
  answer_at(18000, {{"/api/v1/status", token_refusal()}});
  EXPECT_EQ(choose_port("18000").outcome.sentence,
            "Another Velmora service, perhaps of another user, answers at http://127.0.0.1:18000/: end it in "
            "its own "
            "window, then start again.");
}

TEST_F(PortChoiceTest, LeavesWhatIsNoPortToTheService) {
  for (const std::string text : {"", "0", "65536", "-1", "x", "17831x"}) {
    const PortChoice choice = choose_port(text);
    EXPECT_FALSE(choice.outcome.failed()) << text;
    EXPECT_EQ(choice.port, 0);
  }
  EXPECT_EQ(calls_of("bind"), 0);
}

}  // namespace
}  // namespace velmora
