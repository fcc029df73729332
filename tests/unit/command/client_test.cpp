#include "command/client.h"

#include "command/answer.h"
#include "platform/errors.h"
#include "unit/command/support/command_machine.h"

namespace velmora {
namespace {

using Result = Exchange::Result;

class Client : public CommandMachine {
 protected:
  Exchange ask() { return exchange_with(17831, "GET / HTTP/1.1\r\n\r\n", 5000, 30'000); }
};

TEST_F(Client, AsksAsAPageDoes) {
  EXPECT_EQ(format_request(17831, "/api/v1/status", "a \"token\""),
            "GET /api/v1/status HTTP/1.1\r\nHost: 127.0.0.1:17831\r\nX-Velmora-Token: a \"token\"\r\n"
            "Connection: close\r\n\r\n");
  EXPECT_EQ(format_request(1, "/", ""), "GET / HTTP/1.1\r\nHost: 127.0.0.1:1\r\nConnection: close\r\n\r\n");
}

TEST_F(Client, GetsTheAnswer) {
  answer_at(17831, {{"/", expected_document("{}")}});
  const Exchange exchange = ask();
  EXPECT_EQ(exchange.result, Result::answered);
  EXPECT_EQ(exchange.status, 200u);
  EXPECT_EQ(exchange.body, "{}");
  EXPECT_EQ(requests, std::vector<std::string>{"GET / HTTP/1.1\r\n\r\n"});
}

TEST_F(Client, SendsInPieces) {
  const auto connection = std::make_shared<memory::Connection>();
  connection->send_limit = 3;
  connection->to_service = {"HTTP/1.1 200 OK\r\n", "Content-Length: 2\r\n\r\nh", "i"};
  memory::system().on_connect = [&](std::uint16_t) { return connection; };
  EXPECT_EQ(ask().body, "hi");
  EXPECT_EQ(connection->from_service, "GET / HTTP/1.1\r\n\r\n");
  EXPECT_TRUE(connection->closed);
}

TEST_F(Client, NeverWaitsForLong) {
  const auto silent = std::make_shared<memory::Connection>();
  memory::system().on_connect = [&](std::uint16_t) { return silent; };
  std::int64_t begin_ns = memory::system().now_ns;
  EXPECT_EQ(ask().result, Result::silent);
  EXPECT_EQ(memory::system().now_ns - begin_ns, 5'000'000'000);
  silent->to_service = {"HTTP/1.1 200 OK\r\n"};
  begin_ns = memory::system().now_ns;
  EXPECT_EQ(ask().result, Result::stalled);
  EXPECT_EQ(memory::system().now_ns - begin_ns, 5'000'000'000);
}

TEST_F(Client, GivesUpAPeerThatTrickles) {
  const auto slow = std::make_shared<memory::Connection>();
  slow->to_service = {"H"};
  memory::system().on_connect = [&](std::uint16_t) { return slow; };
  const std::string answer = expected_document("{}");
  std::size_t sent = 1;
  // A byte for every wait that would have found none.
  memory::system().on_idle = [&] { slow->to_service.push_back(answer.substr(sent++, 1)); };
  const std::int64_t begin_ns = memory::system().now_ns;
  EXPECT_EQ(ask().result, Result::stalled);
  EXPECT_EQ(memory::system().now_ns - begin_ns, 5'000'000'000);
}

TEST_F(Client, SaysHowAnExchangeFailed) {
  EXPECT_EQ(ask().result, Result::refused);
  memory::system().faults["socket"] = {wsaemfile};
  EXPECT_EQ(ask().result, Result::refused);
  answer_at(17831, {{"/", ""}});
  EXPECT_EQ(ask().result, Result::closed);
  answer_at(17831, {{"/", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhel"}});
  EXPECT_EQ(ask().result, Result::closed);
  answer_at(17831, {{"/", "220 mail.example ready\r\n"}});
  EXPECT_EQ(ask().result, Result::senseless);
  answer_at(17831, {{"/", "HTTP/1.1 200 OK\r\n\r\n<html>"}});
  EXPECT_EQ(ask().result, Result::senseless);
  memory::system().faults["send"] = {wsaeconnreset};
  EXPECT_EQ(ask().result, Result::closed);
  memory::system().faults["select"] = {wsaeintr};
  EXPECT_EQ(ask().result, Result::closed);
  const auto reset = std::make_shared<memory::Connection>();
  reset->on_sent = [](memory::Connection& peer) { peer.client_gone = true; };
  memory::system().on_connect = [&](std::uint16_t) { return reset; };
  EXPECT_EQ(ask().result, Result::closed);
}

TEST_F(Client, RecognizesARefusalOfTheService) {
  answer_at(17831, {{"/", token_refusal()}});
  EXPECT_TRUE(is_token_refusal(ask()));
  const std::string others[] = {
      expected_document(R"({"error":"missing or invalid session token"})"),
      expected_error("401 Unauthorized", "missing token"),
      expected_error("403 Forbidden", "missing or invalid session token"),
      "missing or invalid session token",
  };
  for (const std::string& other : others) {
    answer_at(17831, {{"/", other}});
    EXPECT_FALSE(is_token_refusal(ask())) << other;
  }
}

TEST_F(Client, AsksAServiceWithItsToken) {
  answer_at(17831, {{"/api/v1/status", expected_document("{}")}});
  std::string body;
  const Outcome outcome = ask_service(some_run(), "/api/v1/status", body);
  EXPECT_EQ(outcome.code, CommandCode::done);
  EXPECT_EQ(outcome.sentence, "");
  EXPECT_EQ(body, "{}");
  EXPECT_EQ(requests, std::vector<std::string>{format_request(17831, "/api/v1/status", "secret")});
}

TEST_F(Client, SaysWhatIsWrongWithAService) {
  const std::string has_ended =
      "The service at http://127.0.0.1:17831/ has ended: start it again with velmora start.";
  const std::string no_sense = "The answer at http://127.0.0.1:17831/ makes no sense";
  const std::string helps = ": end Velmora with velmora stop, then start it again.";
  struct Row {
    std::string answer;
    CommandCode code;
    std::string sentence;
  };
  const Row rows[] = {
      {"", CommandCode::service_lost, has_ended},
      {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n", CommandCode::service_lost, has_ended},
      {"garbage", CommandCode::senseless_answer, no_sense + helps},
      {expected_response("302 Found", "text/html", ""), CommandCode::senseless_answer,
       no_sense + " (status 302)" + helps},
      {expected_error("500 Internal Server Error", "x"), CommandCode::senseless_answer,
       no_sense + " (status 500)" + helps},
      {token_refusal(), CommandCode::port_taken,
       "Another Velmora service, perhaps of another user, answers at http://127.0.0.1:17831/: end it, "
       "then "
       "run velmora start."},
  };
  for (const auto& [answer, code, sentence] : rows) {
    answer_at(17831, {{"/x", answer}});
    std::string body = "unchanged";
    const Outcome outcome = ask_service(some_run(), "/x", body);
    EXPECT_EQ(outcome.code, code) << answer;
    EXPECT_EQ(outcome.sentence, sentence);
    EXPECT_EQ(body, "unchanged");
  }
  answer_at(17831, {});
  std::string body;
  const Outcome held = ask_service(some_run(), "/x", body);
  EXPECT_EQ(held.code, CommandCode::held_by_client);
  EXPECT_EQ(
      held.sentence,
      "The service at http://127.0.0.1:17831/ does not answer, because another program holds it: close that "
      "program or its page, or run velmora stop --force.");
  memory::system().on_connect = nullptr;
  memory::system().ports_of_others.clear();
  EXPECT_EQ(ask_service(some_run(), "/x", body).code, CommandCode::service_lost);
}

}  // namespace
}  // namespace velmora
