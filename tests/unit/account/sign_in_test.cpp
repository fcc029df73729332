#include "account/sign_in.h"

#include "unit/account/support/account_service.h"

namespace velmora {
namespace {

class SignIn : public FreshMachine {};

const std::string unreadable = "账号服务返回的内容无法识别";

LoginStart register_plainly() { return account_register(service_url, "u", "p", "m", "").start; }
LoginStart log_in() { return account_password_login(service_url, "u", "p", "m"); }
LoginStart begin_qr() { return account_qrcode(service_url, "m").start; }

struct StartFlow {
  std::string name;
  LoginStart (*start)();
};
const StartFlow start_flows[] = {{"register", register_plainly}, {"password", log_in}, {"qrcode", begin_qr}};

TEST_F(SignIn, SendsTheFieldsOfEachRequestInOrder) {
  static_cast<void>(account_register(service_url, "u", "p", "m", ""));
  static_cast<void>(account_register(service_url, "u", "p", "m", "R1"));
  static_cast<void>(account_password_login(service_url, "u", "p", "m"));
  static_cast<void>(account_qrcode(service_url, "m"));
  static_cast<void>(account_poll(service_url, "s"));
  static_cast<void>(account_bind_referrer(service_url, "h", "t", "P1"));
  static_cast<void>(account_unbind(service_url, "h", "t"));
  EXPECT_EQ(
      take_requests(),
      (Requests{
          R"(POST /api/v1/auth/register {"username":"u","password":"p","machine_id":"m"})",
          R"(POST /api/v1/auth/register {"username":"u","password":"p","machine_id":"m","referrer_public_id":"R1"})",
          R"(POST /api/v1/auth/password {"username":"u","password":"p","machine_id":"m"})",
          R"(POST /api/v1/auth/qrcode {"machine_id":"m"})",
          "GET /api/v1/auth/poll?state=s ",
          R"(POST /api/v1/session/referrer {"account_hash":"h","token":"t","public_id":"P1"})",
          R"(POST /api/v1/session/unbind {"account_hash":"h","token":"t"})",
      }));
}

TEST_F(SignIn, EscapesQuotesAndBackslashesInEveryValue) {
  const std::string odd = "\"\\\n\xE4\xB8\xAD";
  const std::string escaped = "\"\\\"\\\\\n\xE4\xB8\xAD\"";
  static_cast<void>(account_register(service_url, odd, odd, odd, odd));
  static_cast<void>(account_password_login(service_url, odd, odd, odd));
  static_cast<void>(account_qrcode(service_url, odd));
  static_cast<void>(account_bind_referrer(service_url, odd, odd, odd));
  static_cast<void>(account_unbind(service_url, odd, odd));
  EXPECT_EQ(take_requests(),
            (Requests{
                "POST /api/v1/auth/register {\"username\":" + escaped + ",\"password\":" + escaped +
                    ",\"machine_id\":" + escaped + ",\"referrer_public_id\":" + escaped + "}",
                "POST /api/v1/auth/password {\"username\":" + escaped + ",\"password\":" + escaped +
                    ",\"machine_id\":" + escaped + "}",
                "POST /api/v1/auth/qrcode {\"machine_id\":" + escaped + "}",
                "POST /api/v1/session/referrer {\"account_hash\":" + escaped + ",\"token\":" + escaped +
                    ",\"public_id\":" + escaped + "}",
                "POST /api/v1/session/unbind {\"account_hash\":" + escaped + ",\"token\":" + escaped + "}",
            }));
}

TEST_F(SignIn, PutsTheStateIntoThePathUnchanged) {
  for (const std::string state : {"", "a b", "%41%zz", "a/b?c=d", "\xE4\xB8\xAD", "\"\\+"}) {
    static_cast<void>(account_poll(service_url, state));
    EXPECT_EQ(take_requests(), (Requests{"GET /api/v1/auth/poll?state=" + state + " "}));
  }
}

// The three requests that start an attempt read the reply in the same way.
TEST_F(SignIn, StartsAnAttemptFromAReplyWithAState) {
  const struct {
    std::string body;
    std::string state;
  } rows[] = {
      {R"({"state":"abc","qr_data_url":"q"})", "abc"},
      {R"({"qr_data_url":"","state":""})", ""},
      {R"({"data":{"state" : "a\n\"b\u4e2d","qr_data_url":"q"},"detail":"unread"})", "a\n\"b中"},
      {R"({"qr_data_url":"q","state":"cut off)", "cut off"},
  };
  for (const auto& flow : start_flows) {
    for (const auto& row : rows) {
      SCOPED_TRACE(flow.name + ": " + row.body);
      answer_next(200, row.body);
      const LoginStart start = flow.start();
      EXPECT_TRUE(start.ok);
      EXPECT_EQ(start.state, row.state);
      EXPECT_EQ(start.error, "");
    }
  }
}

TEST_F(SignIn, ReportsWhyThereIsNoAttempt) {
  const struct {
    std::uint32_t status;
    std::string body;
    std::string error;
  } rows[] = {
      {200, "", unreadable},
      {200, "{}", unreadable},
      {200, R"({"state":null,"qr_data_url":"q"})", unreadable},
      {200, R"({"state":12,"qr_data_url":"q"})", unreadable},
      {200, R"({"detail":"not of a refusal"})", unreadable},
      {200, "<html>state</html>", unreadable},
      {403, R"({"detail":"密码错误"})", "密码错误"},
      {403, R"({"state":"abc","qr_data_url":"q","detail":"no"})", "no"},
      {403, R"({"detail":""})", ""},
      {403, R"({"detail":"a\"b"})", "a\"b"},
      {403, "", "账号服务返回 403"},
      {403, R"({"detail":null})", "账号服务返回 403"},
      {403, R"({"detail":7})", "账号服务返回 403"},
      {500, R"({"state":"abc","qr_data_url":"q"})", "账号服务返回 500"},
      {201, R"({"state":"abc","qr_data_url":"q"})", "账号服务返回 201"},
      {0, "", "账号服务返回 0"},
  };
  for (const auto& flow : start_flows) {
    for (const auto& row : rows) {
      SCOPED_TRACE(flow.name + ": " + std::to_string(row.status) + ' ' + row.body);
      answer_next(row.status, row.body);
      const LoginStart start = flow.start();
      EXPECT_FALSE(start.ok);
      EXPECT_EQ(start.state, "");
      EXPECT_EQ(start.error, row.error);
    }
    SCOPED_TRACE(flow.name);
    const LoginStart start = flow.start();
    EXPECT_FALSE(start.ok);
    EXPECT_EQ(start.error, "连接账号服务失败（错误 12030）");
  }
}

TEST_F(SignIn, RefusesAReplyThatIsTooLarge) {
  answer_next(200, R"({"state":"abc"})" + std::string(2'097'152, ' '));
  const LoginStart start = log_in();
  EXPECT_FALSE(start.ok);
  EXPECT_EQ(start.error, "账号服务返回内容过大");
}

TEST_F(SignIn, ReadsTheIdAndTheNoteOfARegistration) {
  const struct {
    std::string body;
    std::string public_id;
    std::string referrer_note;
  } rows[] = {
      {R"({"state":"s","public_id":"P1","referrer_note":"推荐人已记录"})", "P1", "推荐人已记录"},
      {R"({"state":"s"})", "", ""},
      {R"({"state":"s","public_id":7,"referrer_note":null})", "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    answer_next(200, row.body);
    const RegisterResult result = account_register(service_url, "u", "p", "m", "");
    EXPECT_TRUE(result.start.ok);
    EXPECT_EQ(result.public_id, row.public_id);
    EXPECT_EQ(result.referrer_note, row.referrer_note);
  }
  // These fields of a refusal are ignored.
  answer_next(409, R"({"public_id":"P1","referrer_note":"n"})");
  const RegisterResult refused = account_register(service_url, "u", "p", "m", "");
  EXPECT_FALSE(refused.start.ok);
  EXPECT_EQ(refused.public_id, "");
  EXPECT_EQ(refused.referrer_note, "");
}

TEST_F(SignIn, RequiresAStateAndAnImageForAQrCode) {
  answer_next(200, R"({"state":"s","qr_data_url":"data:image\/png;base64,AA=="})");
  const QrStart result = account_qrcode(service_url, "m");
  EXPECT_TRUE(result.start.ok);
  EXPECT_EQ(result.start.state, "s");
  EXPECT_EQ(result.qr_data_url, "data:image/png;base64,AA==");
  for (const std::string body :
       {R"({"state":"s"})", R"({"state":"s","qr_data_url":null})", R"({"qr_data_url":"q"})"}) {
    SCOPED_TRACE(body);
    answer_next(200, body);
    const QrStart refused = account_qrcode(service_url, "m");
    EXPECT_FALSE(refused.start.ok);
    EXPECT_EQ(refused.start.state, "");
    EXPECT_EQ(refused.start.error, unreadable);
    EXPECT_EQ(refused.qr_data_url, "");
  }
}

TEST_F(SignIn, ReadsEveryFieldOfAPoll) {
  answer_next(200,
              R"({"status":"issued","detail":"d","account_hash":"h","nickname":"昵称","session_token":"t",)"
              R"("displaced_machine":"D","public_id":"P","referrer":"R","invite_url":"https:\/\/i",)"
              R"("primary_machine_id":"M","session_check_seconds":30,"referral_open":true})");
  const PollResult poll = account_poll(service_url, "s");
  EXPECT_TRUE(poll.ok);
  EXPECT_EQ(poll.error, "");
  EXPECT_EQ(poll.status, "issued");
  EXPECT_EQ(poll.detail, "d");
  EXPECT_EQ(poll.account_hash, "h");
  EXPECT_EQ(poll.nickname, "昵称");
  EXPECT_EQ(poll.session_token, "t");
  EXPECT_EQ(poll.displaced_machine, "D");
  EXPECT_EQ(poll.public_id, "P");
  EXPECT_EQ(poll.referrer, "R");
  EXPECT_EQ(poll.invite_url, "https://i");
  EXPECT_EQ(poll.primary_machine_id, "M");
  EXPECT_EQ(poll.session_check_seconds, 30u);
  EXPECT_TRUE(poll.referral_open);
}

TEST_F(SignIn, UsesADefaultForEachMissingFieldOfAPoll) {
  answer_next(200, R"({"status":""})");
  const PollResult poll = account_poll(service_url, "s");
  EXPECT_TRUE(poll.ok);
  EXPECT_EQ(poll.error + poll.status + poll.detail + poll.account_hash + poll.nickname + poll.session_token,
            "");
  EXPECT_EQ(
      poll.displaced_machine + poll.public_id + poll.referrer + poll.invite_url + poll.primary_machine_id,
      "");
  EXPECT_EQ(poll.session_check_seconds, 0u);
  EXPECT_FALSE(poll.referral_open);
}

TEST_F(SignIn, IgnoresTheHttpStatusOfAPoll) {
  for (const std::uint32_t status : {0u, 200u, 204u, 401u, 404u, 500u}) {
    SCOPED_TRACE(status);
    answer_next(status, R"({"status":"pending","detail":"d"})");
    const PollResult poll = account_poll(service_url, "s");
    EXPECT_TRUE(poll.ok);
    EXPECT_EQ(poll.status, "pending");
    EXPECT_EQ(poll.detail, "d");
  }
}

TEST_F(SignIn, ReportsAFailedPoll) {
  for (const std::string body : {"", "{}", R"({"status":null,"detail":"d"})", R"({"status":5})", "<html>"}) {
    SCOPED_TRACE(body);
    answer_next(200, body);
    const PollResult poll = account_poll(service_url, "s");
    EXPECT_FALSE(poll.ok);
    EXPECT_EQ(poll.error, unreadable);
  }
  const PollResult poll = account_poll(service_url, "s");
  EXPECT_FALSE(poll.ok);
  EXPECT_EQ(poll.error, "连接账号服务失败（错误 12030）");
  const PollResult nowhere = account_poll("", "s");
  EXPECT_FALSE(nowhere.ok);
  EXPECT_EQ(nowhere.error, "账号服务未配置");
}

TEST_F(SignIn, OpensAReferralOnlyOnTheExactBytes) {
  const std::pair<std::string, bool> rows[] = {
      {R"("referral_open":true)", true},    {R"("x":{"referral_open":trueish})", true},
      {R"("referral_open": true)", false},  {R"("referral_open" :true)", false},
      {R"("referral_open":false)", false},  {R"("referral_open":1)", false},
      {R"("referral_open":"true")", false}, {R"("referral_open":True)", false},
      {R"("Referral_open":true)", false},   {R"("referral_open":false,"referral_open":true)", true},
  };
  for (const auto& [member, is_open] : rows) {
    SCOPED_TRACE(member);
    answer_next(200, R"({"status":"x",)" + member + "}");
    EXPECT_EQ(account_poll(service_url, "s").referral_open, is_open);
  }
}

TEST_F(SignIn, ReadsTheCheckInterval) {
  const std::pair<std::string, std::uint32_t> rows[] = {
      {"0", 0},     {"1", 1},   {"4294967295", 4294967295u}, {"4294967296", 0}, {"-1", 0}, {"\"30\"", 0},
      {"30.9", 30}, {"null", 0}};
  for (const auto& [value, seconds] : rows) {
    SCOPED_TRACE(value);
    answer_next(200, R"({"status":"x","session_check_seconds":)" + value + "}");
    EXPECT_EQ(account_poll(service_url, "s").session_check_seconds, seconds);
  }
}

SessionActionResult bind_referrer() { return account_bind_referrer(service_url, "h", "t", "P1"); }
SessionActionResult release_machine() { return account_unbind(service_url, "h", "t"); }

TEST_F(SignIn, ReportsTheResultOfASessionAction) {
  const struct {
    std::uint32_t status;
    std::string body;
    bool ok;
    std::string referrer_detail;
    std::string unbind_detail;
  } rows[] = {
      {200, "{}", true, "已绑定推荐人", "已解绑，请重新扫码登录"},
      {200, "", true, "已绑定推荐人", "已解绑，请重新扫码登录"},
      {200, R"({"detail":null})", true, "已绑定推荐人", "已解绑，请重新扫码登录"},
      {200, R"({"detail":"好"})", true, "好", "好"},
      {200, R"({"detail":""})", true, "", ""},
      {409, "{}", false, "绑定失败（409）", "解绑失败（409）"},
      {409, R"({"detail":"已有推荐人"})", false, "已有推荐人", "已有推荐人"},
      {409, R"({"detail":""})", false, "", ""},
      {201, "", false, "绑定失败（201）", "解绑失败（201）"},
      {0, "", false, "绑定失败（0）", "解绑失败（0）"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.status) + ' ' + row.body);
    answer_next(row.status, row.body);
    answer_next(row.status, row.body);
    const SessionActionResult referrer = bind_referrer();
    EXPECT_EQ(referrer.ok, row.ok);
    EXPECT_EQ(referrer.detail, row.referrer_detail);
    const SessionActionResult unbind = release_machine();
    EXPECT_EQ(unbind.ok, row.ok);
    EXPECT_EQ(unbind.detail, row.unbind_detail);
  }
  for (const auto action : {bind_referrer, release_machine}) {
    const SessionActionResult result = action();
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.detail, "连接账号服务失败（错误 12030）");
  }
}

TEST_F(SignIn, SendsNothingWithoutASession) {
  for (const auto& [hash, token] : {std::pair("", "t"), std::pair("h", ""), std::pair("", "")}) {
    for (const auto& result :
         {account_bind_referrer(service_url, hash, token, "P1"), account_unbind(service_url, hash, token)}) {
      EXPECT_FALSE(result.ok);
      EXPECT_EQ(result.detail, "请先登录账号");
    }
  }
  EXPECT_TRUE(http_log().empty());
}

}  // namespace
}  // namespace velmora
