#include "service/loop.h"

#include <gtest/gtest.h>

#include <functional>

#include "unit/account/support/account_service.h"
#include "unit/api/support/routes.h"
#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

constexpr std::uint16_t port = 17831;
const std::string token(32, 't');
const std::string get_index = "GET / HTTP/1.1\r\nHost: localhost:17831\r\n\r\n";
const std::string index_page = expected_response("200 OK", "text/html; charset=utf-8", "<index>");

class Loop : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    state_.port = port;
    state_.session_token = token;
    state_.pages = pages_with("<index>", "<advanced>", "script()", "<help>");
    ASSERT_EQ(open_tcp_socket(listener_), std::nullopt);
    ASSERT_EQ(bind_loopback(listener_, port), std::nullopt);
    ASSERT_EQ(listen_at_maximum(listener_), std::nullopt);
    memory::system().log.clear();
    memory::system().on_idle = [] { stop_requested = true; };
  }
  void TearDown() override {
    listener_.close();
    FreshMachine::TearDown();
  }

  void serve() { serve_until_stopped(listener_, state_); }

  Socket listener_;
  ServiceState state_;
};

TEST_F(Loop, AcceptsNothingAfterAStopRequest) {
  const auto client = memory::connect_client({get_index});
  stop_requested = true;
  serve();
  EXPECT_TRUE(memory::system().log.empty());
  EXPECT_EQ(client->from_service, "");
  memory::system().backlog.clear();
}

TEST_F(Loop, ClosesAConnectionAfterTheAnswer) {
  const auto client = memory::connect_client({get_index});
  serve();
  EXPECT_EQ(client->from_service, index_page);
  EXPECT_TRUE(client->shut_down);
  EXPECT_TRUE(client->closed);
  EXPECT_EQ(memory::system().handles.size(), 1u);
}

TEST_F(Loop, ServesOneConnectionAfterAnother) {
  std::vector<std::shared_ptr<memory::Connection>> clients;
  for (int number = 0; number < 20; ++number) clients.push_back(memory::connect_client({get_index}));
  serve();
  for (const auto& client : clients) {
    EXPECT_EQ(client->from_service, index_page);
    EXPECT_TRUE(client->closed);
  }
  EXPECT_EQ(memory::system().handles.size(), 1u);
}

TEST_F(Loop, WaitsAQuarterOfASecondAtATime) {
  EXPECT_EQ(select_timeout_us, 250'000);
  int waits = 0;
  memory::system().on_idle = [&] {
    if (++waits == 3) stop_requested = true;
  };
  const std::int64_t start_ns = memory::system().now_ns;
  serve();
  EXPECT_EQ(calls_of("select"), 3);
  EXPECT_EQ(memory::system().now_ns - start_ns, 750'000'000);
}

TEST_F(Loop, ContinuesAfterAFailedWaitOrAccept) {
  const auto client = memory::connect_client({get_index});
  memory::system().faults["select"] = {10004, 10038, 0, 0};
  memory::system().faults["accept"] = {10024, memory::failure_without_number, 0};
  serve();
  EXPECT_EQ(client->from_service, index_page);
  EXPECT_EQ(calls_of("accept"), 3);
}

TEST_F(Loop, ClosesAFailedConnectionAndServesTheNext) {
  const auto reset = memory::connect_client({});
  reset->client_gone = true;
  const auto half_closed = memory::connect_client({"GET / HTTP/1.1\r\n"});
  half_closed->client_done = true;
  const auto no_reader = memory::connect_client({get_index});
  no_reader->send_stalls = true;
  const auto bad = memory::connect_client({"\r\n\r\n"});
  const auto good = memory::connect_client({get_index});
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

TEST_F(Loop, FinishesARunningExchangeBeforeItStops) {
  const auto client = memory::connect_client({get_index});
  const auto waiting = memory::connect_client({get_index});
  client->send_limit = 1;
  // The stop arrives during the first answer, which is still sent completely. No second one starts.
  memory::system().on_idle = nullptr;
  memory::system().on_send = [] { stop_requested = true; };
  serve();
  EXPECT_EQ(client->from_service, index_page);
  EXPECT_TRUE(client->closed);
  EXPECT_EQ(waiting->from_service, "");
  memory::system().backlog.clear();
}

constexpr std::int64_t ns_per_ms = 1'000'000;
const std::string signed_out_line =
    "The account has signed in on another device. This machine is now signed out.\n";
const std::string check_request = R"(POST /api/v1/session/check {"account_hash":"h","token":"t"})";

class AccountLoop : public Loop {
 protected:
  void SetUp() override {
    Loop::SetUp();
    state_.account.service_url = service_url;
    sign_in();
  }
  void TearDown() override {
    EXPECT_TRUE(wait_for_check(cells()));
    Loop::TearDown();
  }

  void sign_in() {
    state_.account.session.account_hash = "h";
    state_.account.session.token = "t";
  }
  SessionCheckCells& cells() { return *state_.account.check; }
  AccountSession& session() { return state_.account.session; }

  // Serves, pass by pass a quarter of a second apart, the pass at `last_ms` included. `after_pass` gets when
  // the pass was, milliseconds after the beginning, and is called when a check that it started has ended.
  void serve_until(std::int64_t last_ms, const std::function<void(std::int64_t at_ms)>& after_pass = {}) {
    const std::int64_t start_ns = memory::system().now_ns;
    std::int64_t at_ms = 0;
    memory::system().on_idle = [&] {
      if (!lets_checks_fly_) {
        ASSERT_TRUE(wait_for_check(cells()));
      }
      if (const std::size_t checks = count_calls("WinHttpOpen"); checks != seen_checks_) {
        seen_checks_ = checks;
        checked_at_ms_.push_back(at_ms);
      }
      if (after_pass) after_pass(at_ms);
      if (at_ms >= last_ms) stop_requested = true;
      at_ms = (memory::system().now_ns - start_ns) / ns_per_ms;
    };
    serve();
  }

  bool lets_checks_fly_ = false;
  std::size_t seen_checks_ = 0;
  std::vector<std::int64_t> checked_at_ms_;
};

using Times = std::vector<std::int64_t>;

TEST_F(AccountLoop, CountsUsageEveryThirtySeconds) {
  EXPECT_EQ(tick_period_s, 30);
  const std::pair<std::int64_t, std::int64_t> rows[] = {{29'750, 0},  {30'000, 30}, {59'750, 30},
                                                        {60'000, 60}, {89'750, 60}, {90'000, 90}};
  std::size_t seen = 0;
  serve_until(90'000, [&](std::int64_t at_ms) {
    for (const auto& [row_ms, usage_seconds] : rows) {
      if (row_ms != at_ms) continue;
      EXPECT_EQ(session().usage_seconds, usage_seconds) << at_ms;
      ++seen;
    }
  });
  EXPECT_EQ(seen, std::size(rows));
}

TEST_F(AccountLoop, DropsTheFractionOfASecondAtEachTick) {
  std::vector<std::int64_t> usage_seconds;
  const std::int64_t start_ns = memory::system().now_ns;
  // Each wait is as long as an exchange that takes its time.
  serve_until(3 * 30'900, [&](std::int64_t) {
    usage_seconds.push_back(session().usage_seconds);
    memory::system().now_ns = start_ns + static_cast<std::int64_t>(usage_seconds.size()) * 30'900 * ns_per_ms;
  });
  EXPECT_EQ(usage_seconds, (std::vector<std::int64_t>{0, 30, 60, 90}));
}

TEST_F(AccountLoop, CountsNoUsageWhileSignedOut) {
  session() = AccountSession();
  serve_until(60'000, [&](std::int64_t at_ms) {
    // The tick without a user has passed, and the next one counts from there.
    if (at_ms == 45'000) sign_in();
  });
  EXPECT_EQ(session().usage_seconds, 30);
}

TEST_F(AccountLoop, SignsOutASupersededSessionAndReportsItOnce) {
  session().usage_seconds = 7;
  session().public_id = "P1";
  session().primary_known = true;
  cells().session_superseded = true;
  serve_until(1'000);
  AccountSession expected;
  expected.usage_seconds = 7;
  expected.public_id = "P1";
  EXPECT_EQ(session(), expected);
  EXPECT_FALSE(cells().session_superseded);
  EXPECT_EQ(memory::system().standard_output, signed_out_line);
  EXPECT_EQ(calls_of("stdout"), 1);
  EXPECT_TRUE(http_log().empty());
}

// The answer may concern a session that has ended meanwhile.
TEST_F(AccountLoop, ReportsASupersededSessionEvenAfterASignOut) {
  session() = AccountSession();
  cells().session_superseded = true;
  serve_until(1'000);
  EXPECT_EQ(session(), AccountSession());
  EXPECT_EQ(memory::system().standard_output, signed_out_line);
}

TEST_F(AccountLoop, CountsUsageBeforeTheSignOutAndChecksAfterIt) {
  cells().session_check_interval = 30;
  serve_until(60'000, [&](std::int64_t at_ms) {
    if (at_ms == 29'750) cells().session_superseded = true;
  });
  EXPECT_EQ(session().usage_seconds, 30);
  EXPECT_EQ(session().account_hash, "");
  EXPECT_TRUE(http_log().empty());
}

TEST_F(AccountLoop, SignsOutBeforeItServesTheNextRequest) {
  cells().session_superseded = true;
  const auto client =
      memory::connect_client({"GET /api/v1/status HTTP/1.1\r\nHost: localhost:17831\r\n"
                              "X-Velmora-Token: " +
                              token + "\r\n\r\n"});
  serve_until(0);
  EXPECT_NE(client->from_service.find("\"signed_in\":false"), std::string::npos);
}

TEST_F(AccountLoop, ChecksEveryTwoMinutes) {
  for (int round = 0; round < 3; ++round) answer_next(200, R"({"active":true})");
  serve_until(361'000);
  EXPECT_EQ(checked_at_ms_, (Times{120'000, 240'000, 360'000}));
  EXPECT_EQ(take_requests(), Requests(3, check_request));
  EXPECT_EQ(session().account_hash, "h");
  EXPECT_EQ(memory::system().standard_output, "");
}

TEST_F(AccountLoop, ChecksAtTheSameIntervalAfterAFailure) {
  fail_next("WinHttpSendRequest", {12029});
  answer_next(500, R"({"active":false,"next_check_seconds":5})");
  answer_next(401, R"({"active":false,"next_check_seconds":5})");
  serve_until(361'000);
  EXPECT_EQ(checked_at_ms_, (Times{120'000, 240'000, 360'000}));
  EXPECT_EQ(cells().session_check_interval, 120u);
  EXPECT_EQ(session().account_hash, "h");
  EXPECT_EQ(memory::system().standard_output, "");
}

TEST_F(AccountLoop, AppliesANewIntervalImmediately) {
  answer_next(200, R"({"next_check_seconds":30})");
  answer_next(200, R"({"next_check_seconds":0})");
  answer_next(200, R"({"next_check_seconds":1})");
  serve_until(182'500);
  EXPECT_EQ(checked_at_ms_, (Times{120'000, 150'000, 180'000, 181'000, 182'000}));
}

TEST_F(AccountLoop, MeasuresAChangedIntervalFromTheLastDecision) {
  serve_until(175'000, [&](std::int64_t at_ms) {
    if (at_ms == 99'750) cells().session_check_interval = 30;  // more than that has passed: at once
    if (at_ms == 140'000) cells().session_check_interval = 45;
  });
  EXPECT_EQ(checked_at_ms_, (Times{100'000, 130'000, 175'000}));
}

TEST_F(AccountLoop, KeepsItsCheckScheduleWhileSignedOut) {
  session() = AccountSession();
  serve_until(241'000, [&](std::int64_t at_ms) {
    if (at_ms == 121'000) sign_in();
  });
  EXPECT_EQ(checked_at_ms_, (Times{240'000}));
}

TEST_F(AccountLoop, ChecksNothingWithoutAServiceAHashOrAToken) {
  cells().session_check_interval = 1;
  const std::function<void()> takings[] = {[&] { state_.account.service_url.clear(); },
                                           [&] { session().account_hash.clear(); },
                                           [&] { session().token.clear(); }};
  for (const auto& take_away : takings) {
    stop_requested = false;
    state_.account.service_url = service_url;
    sign_in();
    take_away();
    serve_until(3'000);
    EXPECT_FALSE(cells().session_check_running);
    EXPECT_TRUE(http_log().empty());
  }
}

TEST_F(AccountLoop, RunsOneCheckAtATime) {
  HeldBackService held_back;
  lets_checks_fly_ = true;
  cells().session_check_interval = 1;
  serve_until(10'000, [&](std::int64_t at_ms) {
    if (at_ms == 1'000) {
      ASSERT_TRUE(wait_until([] { return count_calls("WinHttpReceiveResponse") == 1; }));
    }
    if (at_ms == 8'000) {
      EXPECT_TRUE(cells().session_check_running);
      EXPECT_EQ(take_requests(), (Requests{check_request}));
      seen_checks_ = 0;
      answer_next(200, R"({"next_check_seconds":2})");
      held_back.let_go();
      ASSERT_TRUE(wait_for_check(cells()));
      seen_checks_ = count_calls("WinHttpOpen");
      lets_checks_fly_ = false;
    }
  });
  // The decisions at 2 s to 8 s started nothing, and the last of them is what the next interval counts from.
  EXPECT_EQ(take_requests(), (Requests{check_request}));
  EXPECT_EQ(checked_at_ms_.back(), 10'000);
}

TEST_F(AccountLoop, SignsOutInThePassAfterTheAnswer) {
  answer_next(200, R"({"active":false})");
  serve_until(600'000, [&](std::int64_t at_ms) {
    if (at_ms == 120'000) {
      EXPECT_EQ(session().account_hash, "h");
    }
    if (at_ms == 120'250) {
      EXPECT_EQ(session().account_hash, "");
    }
  });
  EXPECT_EQ(checked_at_ms_, (Times{120'000}));
  EXPECT_EQ(session().token, "");
  EXPECT_EQ(memory::system().standard_output, signed_out_line);
}

TEST_F(AccountLoop, AcceptsAnIntervalOfMoreThanACentury) {
  constexpr std::int64_t interval_ms = 4'000'000'000'000;
  cells().session_check_interval = 4'000'000'000u;
  const std::int64_t start_ns = memory::system().now_ns;
  serve_until(interval_ms, [&](std::int64_t at_ms) {
    if (at_ms == 1'000) memory::system().now_ns = start_ns + (interval_ms - 1'000) * ns_per_ms;
  });
  EXPECT_EQ(checked_at_ms_, (Times{interval_ms}));
}

// Only the cells remain.
TEST_F(AccountLoop, MayEndBeforeACheckDoes) {
  HeldBackService held_back;
  lets_checks_fly_ = true;
  cells().session_check_interval = 1;
  serve_until(1'000);
  const std::shared_ptr<SessionCheckCells> cells = state_.account.check;
  state_.account = AccountState();
  EXPECT_TRUE(cells->session_check_running);
  answer_next(200, R"({"active":false})");
  held_back.let_go();
  ASSERT_TRUE(wait_for_check(*cells));
  EXPECT_TRUE(cells->session_superseded);
  EXPECT_FALSE(state_.account.check->session_superseded);
}

}  // namespace
}  // namespace velmora
