#include "service/loop.h"

#include <gtest/gtest.h>

#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

constexpr std::uint16_t port = 17831;
const std::string token(32, 't');
const UiPages pages{"<index>", "<advanced>", "script()", "<help>"};
const std::string get_index = "GET / HTTP/1.1\r\nHost: localhost:17831\r\n\r\n";
const std::string index_page = expected_response("200 OK", "text/html; charset=utf-8", "<index>");

class Loop : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    state_.port = port;
    state_.session_token = token;
    state_.pages = pages;
    ASSERT_EQ(open_tcp_socket(listener_), 0);
    ASSERT_EQ(bind_loopback(listener_, port), 0);
    ASSERT_EQ(listen_at_maximum(listener_), 0);
    standin::system().log.clear();
    standin::system().on_idle = [] { stop_requested = true; };
  }
  void TearDown() override {
    listener_.close();
    FreshMachine::TearDown();
  }

  void serve() { serve_until_stopped(listener_, state_); }

  Socket listener_;
  ServiceState state_;
};

TEST_F(Loop, IsNotEnteredWhenAStopWasAskedForBefore) {
  const auto client = standin::connect_client({get_index});
  stop_requested = true;
  serve();
  EXPECT_TRUE(standin::system().log.empty());
  EXPECT_EQ(client->from_service, "");
  standin::system().backlog.clear();
}

TEST_F(Loop, AnswersThenShutsDownThenCloses) {
  const auto client = standin::connect_client({get_index});
  serve();
  EXPECT_EQ(client->from_service, index_page);
  EXPECT_TRUE(client->shut_down);
  EXPECT_TRUE(client->closed);
  EXPECT_EQ(standin::system().log,
            (std::vector<std::string>{"select", "accept", "send", "shutdown", "closesocket", "select"}));
}

TEST_F(Loop, ServesOneConnectionAfterAnother) {
  std::vector<std::shared_ptr<standin::Connection>> clients;
  for (int number = 0; number < 20; ++number) clients.push_back(standin::connect_client({get_index}));
  serve();
  for (const auto& client : clients) {
    EXPECT_EQ(client->from_service, index_page);
    EXPECT_TRUE(client->closed);
  }
  EXPECT_EQ(standin::system().handles.size(), 1u);
}

TEST_F(Loop, WaitsAQuarterOfASecondAtATime) {
  EXPECT_EQ(select_timeout_us, 250'000);
  int waits = 0;
  standin::system().on_idle = [&] {
    if (++waits == 3) stop_requested = true;
  };
  const std::int64_t start_ns = standin::system().now_ns;
  serve();
  EXPECT_EQ(calls_of("select"), 3);
  EXPECT_EQ(standin::system().now_ns - start_ns, 750'000'000);
}

TEST_F(Loop, GoesOnAfterAWaitOrAnAcceptThatFails) {
  const auto client = standin::connect_client({get_index});
  standin::system().faults["select"] = {10004, 10038, 0, 0};
  standin::system().faults["accept"] = {10024, 0};
  serve();
  EXPECT_EQ(client->from_service, index_page);
  EXPECT_EQ(standin::system().log,
            (std::vector<std::string>{"select", "select", "select", "accept", "select", "accept", "send",
                                      "shutdown", "closesocket", "select"}));
}

TEST_F(Loop, ClosesAConnectionThatFailsAndServesTheNext) {
  const auto reset = standin::connect_client({});
  reset->client_gone = true;
  const auto half_closed = standin::connect_client({"GET / HTTP/1.1\r\n"});
  half_closed->client_done = true;
  const auto no_reader = standin::connect_client({get_index});
  no_reader->send_stalls = true;
  const auto bad = standin::connect_client({"\r\n\r\n"});
  const auto good = standin::connect_client({get_index});
  serve();
  const std::string bad_request = expected_error("400 Bad Request", "invalid request");
  EXPECT_EQ(reset->from_service, "");
  EXPECT_EQ(half_closed->from_service, bad_request);
  EXPECT_EQ(no_reader->from_service, "");
  EXPECT_EQ(bad->from_service, bad_request);
  EXPECT_EQ(good->from_service, index_page);
  for (const auto& client : {reset, half_closed, no_reader, bad, good}) {
    EXPECT_TRUE(client->shut_down);
    EXPECT_TRUE(client->closed);
  }
}

TEST_F(Loop, AnswersARequestThatComesByteByByte) {
  std::deque<std::string> bytes;
  for (const char byte : get_index) bytes.emplace_back(1, byte);
  const auto client = standin::connect_client(bytes);
  serve();
  EXPECT_EQ(client->from_service, index_page);
}

TEST_F(Loop, EndsARunningExchangeBeforeItStops) {
  const auto client = standin::connect_client({get_index});
  const auto waiting = standin::connect_client({get_index});
  client->send_limit = 1;
  // The stop comes while the first answer is under way: nothing of it is lost, and no second is begun.
  standin::system().on_idle = nullptr;
  standin::system().on_send = [] { stop_requested = true; };
  serve();
  EXPECT_EQ(client->from_service, index_page);
  EXPECT_TRUE(client->closed);
  EXPECT_EQ(waiting->from_service, "");
  standin::system().backlog.clear();
}

}  // namespace
}  // namespace velmora
