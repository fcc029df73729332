#include "account/session_check.h"

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "unit/account/support/account_service.h"

namespace velmora {
namespace {

class SessionCheck : public FreshMachine {};

const std::string check_request = R"(POST /api/v1/session/check {"account_hash":"h\"1","token":"t\\1"})";
const std::string release_request = R"(POST /api/v1/session/release {"account_hash":"h\"1","token":"t\\1"})";

SessionCheckResult check() { return account_session_check(service_url, "h\"1", "t\\1"); }

void expect_nothing_completed(const SessionCheckResult& result) {
  EXPECT_FALSE(result.completed);
  EXPECT_FALSE(result.active);
  EXPECT_EQ(result.next_check_seconds, 0u);
  EXPECT_EQ(result.detail, "");
}

TEST_F(SessionCheck, SendsTheHashAndTheToken) {
  static_cast<void>(check());
  EXPECT_EQ(take_requests(), (Requests{check_request}));
}

TEST_F(SessionCheck, EndsASessionOnlyOnTheExactBytes) {
  const struct {
    std::string body;
    bool active;
  } rows[] = {
      {R"({"active":false})", false},
      {R"({"x":{"active":false}})", false},
      {R"("active":falsehood)", false},
      {R"({"active":true,"active":false})", false},
      {R"({"active": false})", true},
      {R"({"active" :false})", true},
      {R"({"active":true})", true},
      {R"({"active":null})", true},
      {R"({"active":0})", true},
      {R"({"active":"false"})", true},
      {R"({"Active":false})", true},
      {R"({active:false})", true},
      {R"({"inactive":false})", true},
      {"{}", true},
      {"", true},
      {"<html>", true},
      {R"({"active":fals)", true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    answer_next(200, row.body);
    const SessionCheckResult result = check();
    EXPECT_TRUE(result.completed);
    EXPECT_EQ(result.active, row.active);
  }
}

TEST_F(SessionCheck, ReadsTheNextIntervalAndTheDetail) {
  const struct {
    std::string body;
    std::uint32_t next_check_seconds;
    std::string detail;
  } rows[] = {
      {"", 0, ""},
      {R"({"next_check_seconds":0})", 0, ""},
      {R"({"next_check_seconds":30,"detail":"好"})", 30, "好"},
      {R"({"next_check_seconds":1})", 1, ""},
      {R"({"next_check_seconds":4000000000})", 4'000'000'000u, ""},
      {R"({"next_check_seconds":4294967296})", 0, ""},
      {R"({"next_check_seconds":-30})", 0, ""},
      {R"({"next_check_seconds":"30"})", 0, ""},
      {R"({"active":false,"next_check_seconds":60,"detail":null})", 60, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    answer_next(200, row.body);
    const SessionCheckResult result = check();
    EXPECT_TRUE(result.completed);
    EXPECT_EQ(result.next_check_seconds, row.next_check_seconds);
    EXPECT_EQ(result.detail, row.detail);
  }
}

TEST_F(SessionCheck, FailsOnEveryOtherStatus) {
  for (const std::uint32_t status : {0u, 201u, 204u, 302u, 401u, 403u, 404u, 500u, 503u}) {
    SCOPED_TRACE(status);
    answer_next(status, R"({"active":false,"next_check_seconds":30,"detail":"d"})");
    expect_nothing_completed(check());
  }
}

TEST_F(SessionCheck, FailsIfTheServiceIsUnreachable) {
  expect_nothing_completed(check());
  answer_next(200, R"({"active":false})" + std::string(2'097'152, ' '));
  expect_nothing_completed(check());
  expect_nothing_completed(account_session_check("", "h", "t"));
  expect_nothing_completed(account_session_check("account.example", "h", "t"));
}

TEST_F(SessionCheck, SendsNothingWithoutAHashOrAToken) {
  expect_nothing_completed(account_session_check(service_url, "", "t"));
  expect_nothing_completed(account_session_check(service_url, "h", ""));
  expect_nothing_completed(account_session_check(service_url, "", ""));
  EXPECT_TRUE(http_log().empty());
}

TEST_F(SessionCheck, ReadsAPartialReply) {
  memory::HttpReply reply;
  reply.body = R"({"active":false,"next)";
  reply.end_error = 12030;
  memory::http_service().replies.push_back(reply);
  const SessionCheckResult result = check();
  EXPECT_TRUE(result.completed);
  EXPECT_FALSE(result.active);
}

class SessionRelease : public FreshMachine {};

TEST_F(SessionRelease, SendsOneRequestWhateverTheAnswer) {
  for (const std::uint32_t status : {200u, 401u, 500u}) {
    answer_next(status, R"({"detail":"d"})");
    account_session_release(service_url, "h\"1", "t\\1");
    EXPECT_EQ(take_requests(), (Requests{release_request}));
  }
  account_session_release(service_url, "h\"1", "t\\1");
  EXPECT_EQ(take_requests(), (Requests{release_request}));
  EXPECT_EQ(memory::system().standard_output + memory::system().standard_error, "");
}

TEST_F(SessionRelease, SendsNothingWithoutAServiceAHashOrAToken) {
  account_session_release("", "h", "t");
  account_session_release(service_url, "", "t");
  account_session_release(service_url, "h", "");
  EXPECT_TRUE(http_log().empty());
}

class SessionCheckThread : public FreshMachine {
 protected:
  void TearDown() override {
    EXPECT_TRUE(wait_for_check(*cells_));
    FreshMachine::TearDown();
  }
  bool start() { return start_session_check(cells_, service_url, "h\"1", "t\\1"); }

  std::shared_ptr<SessionCheckCells> cells_ = std::make_shared<SessionCheckCells>();
};

TEST_F(SessionCheckThread, StartsIdleWithTwoMinutes) {
  EXPECT_FALSE(cells_->session_check_running);
  EXPECT_FALSE(cells_->session_superseded);
  EXPECT_EQ(cells_->session_check_interval, 120u);
}

TEST_F(SessionCheckThread, StoresItsAnswerInTheCells) {
  const struct {
    std::uint32_t status;
    std::string body;
    bool superseded;
    std::uint32_t interval_s;
  } rows[] = {
      {200, R"({"active":true})", false, 77},
      {200, "", false, 77},
      {200, R"({"active":true,"next_check_seconds":0})", false, 77},
      {200, R"({"active":true,"next_check_seconds":30})", false, 30},
      {200, R"({"active":true,"next_check_seconds":4000000000})", false, 4'000'000'000u},
      {200, R"({"active": false,"next_check_seconds":1})", false, 1},
      {200, R"({"active":false})", true, 77},
      {200, R"({"active":false,"next_check_seconds":60})", true, 60},
      {401, R"({"active":false,"next_check_seconds":60})", false, 77},
      {500, "", false, 77},
      {0, "", false, 77},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.status) + ' ' + row.body);
    cells_->session_superseded = false;
    cells_->session_check_interval = 77;
    answer_next(row.status, row.body);
    ASSERT_TRUE(start());
    ASSERT_TRUE(wait_for_check(*cells_));
    EXPECT_EQ(cells_->session_superseded, row.superseded);
    EXPECT_EQ(cells_->session_check_interval, row.interval_s);
    EXPECT_EQ(take_requests(), (Requests{check_request}));
  }
}

// The loop clears the flag. A later answer does not.
TEST_F(SessionCheckThread, NeverRevertsTheEndOfASession) {
  cells_->session_superseded = true;
  answer_next(200, R"({"active":true})");
  ASSERT_TRUE(start());
  ASSERT_TRUE(wait_for_check(*cells_));
  EXPECT_TRUE(cells_->session_superseded);
}

TEST_F(SessionCheckThread, IsRefusedWhileAnotherIsInFlight) {
  HeldBackService held_back;
  ASSERT_TRUE(start());
  EXPECT_TRUE(cells_->session_check_running);
  ASSERT_TRUE(wait_until([] { return count_calls("WinHttpReceiveResponse") == 1; }));
  for (int attempt = 0; attempt < 3; ++attempt) {
    EXPECT_FALSE(start());
    EXPECT_TRUE(cells_->session_check_running);
  }
  answer_next(200, R"({"next_check_seconds":5})");
  held_back.let_go();
  ASSERT_TRUE(wait_for_check(*cells_));
  EXPECT_EQ(cells_->session_check_interval, 5u);
  EXPECT_EQ(take_requests(), (Requests{check_request}));
  answer_next(200, R"({"active":false})");
  EXPECT_TRUE(start());
  ASSERT_TRUE(wait_for_check(*cells_));
  EXPECT_TRUE(cells_->session_superseded);
  EXPECT_EQ(take_requests(), (Requests{check_request}));
}

TEST_F(SessionCheckThread, OwnsCopiesOfItsArguments) {
  HeldBackService held_back;
  std::weak_ptr<SessionCheckCells> left;
  {
    auto cells = std::make_shared<SessionCheckCells>();
    left = cells;
    std::string url = service_url;
    std::string hash = "h\"1";
    std::string token = "t\\1";
    ASSERT_TRUE(start_session_check(std::move(cells), url, hash, token));
    for (std::string* text : {&url, &hash, &token}) std::fill(text->begin(), text->end(), 'x');
  }
  ASSERT_TRUE(wait_until([] { return count_calls("WinHttpReceiveResponse") == 1; }));
  EXPECT_EQ(take_requests(), (Requests{check_request}));
  // Only the thread owns the cells now.
  EXPECT_FALSE(left.expired());
  answer_next(200, R"({"active":false,"next_check_seconds":5})");
  held_back.let_go();
  EXPECT_TRUE(wait_until([&] { return left.expired(); }));
}

TEST_F(SessionCheckThread, RunsOnceAtATime) {
  constexpr int rounds = 200;
  int started = 0;
  for (int round = 0; round < rounds; ++round) {
    if (start()) ++started;
  }
  ASSERT_TRUE(wait_for_check(*cells_));
  EXPECT_EQ(take_requests(), Requests(static_cast<std::size_t>(started), check_request));
  EXPECT_GE(started, 1);
}

// With several threads a check may end before its starter continues.
TEST_F(SessionCheckThread, MayEndBeforeItsStarterContinues) {
  std::atomic<int> finished = 0;
  std::vector<std::thread> starters;
  for (int starter = 0; starter < 4; ++starter) {
    starters.emplace_back([&finished] {
      const auto cells = std::make_shared<SessionCheckCells>();
      for (int round = 0; round < 100; ++round) {
        if (!start_session_check(cells, service_url, "h", "t") || !wait_for_check(*cells)) return;
        ++finished;
      }
    });
  }
  for (std::thread& starter : starters) starter.join();
  EXPECT_EQ(finished, 400);
}

}  // namespace
}  // namespace velmora
