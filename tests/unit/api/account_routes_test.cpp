#include "api/account_routes.h"

#include <functional>

#include "account/machine_id.h"
#include "unit/account/support/account_service.h"
#include "unit/api/support/routes.h"

namespace velmora {
namespace {

const std::string credential = "the-credential-of-the-session";
const std::string unreachable = "连接账号服务失败（错误 12030）";
const std::string unreadable = "账号服务返回的内容无法识别";
const std::string credentials = R"({"username":"u","password":"p"})";

AccountSession signed_in() {
  AccountSession session;
  session.account_hash = "h";
  session.signed_in_unix = 5;
  session.usage_seconds = 60;
  session.token = credential;
  session.public_id = "P1";
  session.primary_machine_id = "M1";
  session.primary_known = true;
  session.referral_open = true;
  session.referrer = "";
  session.invite_url = "https://invite";
  return session;
}

struct Route {
  std::string name;
  std::function<void(const Socket&, const ApiRequest&, AccountState&)> serve;
};
const Route register_route = {"register", post_register};
const Route password_route = {"password", post_password};
const Route qrcode_route = {"qrcode", [](const Socket& socket, const ApiRequest&, AccountState& account) {
                              post_qrcode(socket, account);
                            }};
const Route poll_route = {"poll", get_poll};
const Route referrer_route = {"referrer", post_referrer};
const Route unbind_route = {"unbind", [](const Socket& socket, const ApiRequest&, AccountState& account) {
                              post_unbind(socket, account);
                            }};
const Route logout_route = {"logout", [](const Socket& socket, const ApiRequest&, AccountState& account) {
                              post_logout(socket, account);
                            }};

class AccountRoutes : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    account_.service_url = service_url;
  }

  // The whole answer to a request with this body, or for a poll with this target. No answer contains the
  // credential of the session.
  std::string answer(const Route& route, const std::string& body_or_target = "") {
    ApiRequest request;
    request.target = request.body = body_or_target;
    std::string text = answer_of(route.serve, request, account_);
    EXPECT_EQ(text.find(credential), std::string::npos);
    return text;
  }
  // A poll to which the account service replies this.
  std::string poll(const std::string& reply) {
    answer_next(200, reply);
    return answer(poll_route, "/api/v1/account/poll?state=s");
  }

  void expect_cells(std::uint32_t interval_s) const {
    EXPECT_EQ(account_.check->session_check_interval, interval_s);
    EXPECT_FALSE(account_.check->session_check_running);
    EXPECT_FALSE(account_.check->session_superseded);
  }

  AccountState account_;
};

TEST_F(AccountRoutes, ReportsAMissingServiceFirst) {
  account_.service_url.clear();
  const std::string long_text =
      expected_error("501 Not Implemented", "未配置账号服务，请用 --account-service 指定");
  const std::string short_text = expected_error("501 Not Implemented", "未配置账号服务");
  for (const AccountSession& session : {AccountSession(), signed_in()}) {
    account_.session = session;
    for (const std::string& text :
         {std::string(), credentials, std::string(R"({"public_id":"P2"}state=s)")}) {
      for (const Route& route : {register_route, password_route, qrcode_route}) {
        EXPECT_EQ(answer(route, text), long_text) << route.name << text;
      }
      for (const Route& route : {poll_route, referrer_route, unbind_route}) {
        EXPECT_EQ(answer(route, text), short_text) << route.name << text;
      }
    }
    EXPECT_EQ(account_.session, session);
  }
  EXPECT_TRUE(http_log().empty());
}

TEST_F(AccountRoutes, RequiresAUserNameAndAPassword) {
  for (const Route& route : {register_route, password_route}) {
    for (const std::string body :
         {"", R"({"username":"u"})", R"({"password":"p"})", R"({"username":"","password":"p"})",
          R"({"username":"u","password":""})", R"({"username":"u","password":7})"}) {
      SCOPED_TRACE(route.name + ": " + body);
      EXPECT_EQ(answer(route, body), expected_error("400 Bad Request", "请填写用户名和密码"));
    }
  }
  EXPECT_TRUE(http_log().empty());
}

TEST_F(AccountRoutes, SendsTheFieldsOfTheBodyToTheService) {
  account_.session = signed_in();
  const std::string machine = R"("machine_id":")" + current_machine_id() + "\"";
  const std::string plain = R"({"username":"u","password":"p",)" + machine;
  const struct {
    Route route;
    std::string body;
    std::string request;
  } rows[] = {
      {register_route, credentials, "POST /api/v1/auth/register " + plain + "}"},
      {register_route, R"({"password":"p","username":"u","referrer_public_id":"R1"})",
       "POST /api/v1/auth/register " + plain + R"(,"referrer_public_id":"R1"})"},
      {register_route, R"({"username":"u","password":"p","referrer_public_id":""})",
       "POST /api/v1/auth/register " + plain + "}"},
      {password_route, credentials, "POST /api/v1/auth/password " + plain + "}"},
      {qrcode_route, credentials, "POST /api/v1/auth/qrcode {" + machine + "}"},
      {referrer_route, R"({"public_id":"P\/2"})",
       R"(POST /api/v1/session/referrer {"account_hash":"h","token":")" + credential +
           R"(","public_id":"P/2"})"},
      {unbind_route, "", R"(POST /api/v1/session/unbind {"account_hash":"h","token":")" + credential + "\"}"},
  };
  for (const auto& row : rows) {
    static_cast<void>(answer(row.route, row.body));
    EXPECT_EQ(take_requests(), Requests{row.request});
  }
}

TEST_F(AccountRoutes, AnswersWithTheStateOfTheAttempt) {
  const struct {
    Route route;
    std::string reply;
    std::string answer;
  } rows[] = {
      {register_route, R"({"state":"s1","public_id":"P9","referrer_note":"好"})",
       R"({"ok":true,"state":"s1","public_id":"P9","referrer_note":"好"})"},
      {register_route, R"({"state":"s1"})", R"({"ok":true,"state":"s1","public_id":"","referrer_note":""})"},
      {password_route, R"({"state":"s1","public_id":"P9"})", R"({"ok":true,"state":"s1"})"},
      {password_route, R"({"state":"a\"b\\c\nd\u0001"})", R"({"ok":true,"state":"a\"b\\c\nd\u0001"})"},
      {qrcode_route, R"({"state":"s1","qr_data_url":"data:image/png;base64,AA=="})",
       R"({"ok":true,"state":"s1","qr_data_url":"data:image/png;base64,AA=="})"},
  };
  for (const AccountSession& session : {AccountSession(), signed_in()}) {
    for (const auto& row : rows) {
      SCOPED_TRACE(row.route.name + ": " + row.reply);
      account_.session = session;
      answer_next(200, row.reply);
      EXPECT_EQ(answer(row.route, credentials), expected_document(row.answer));
      EXPECT_EQ(account_.session, session);
    }
  }
  expect_cells(120);
}

TEST_F(AccountRoutes, GivesAFailedStartTheStatusOfItsRoute) {
  const struct {
    Route route;
    std::string status;
  } routes[] = {{register_route, "400 Bad Request"},
                {password_route, "401 Unauthorized"},
                {qrcode_route, "502 Bad Gateway"}};
  for (const auto& [route, status] : routes) {
    SCOPED_TRACE(route.name);
    EXPECT_EQ(answer(route, credentials), expected_error(status, unreachable));
    answer_next(200, "{}");
    EXPECT_EQ(answer(route, credentials), expected_error(status, unreadable));
    answer_next(403, R"({"detail":"密码\"错误\""})");
    EXPECT_EQ(answer(route, credentials), expected_error(status, "密码\\\"错误\\\""));
  }
  EXPECT_EQ(account_.session, AccountSession());
}

TEST_F(AccountRoutes, FindsTheStateOfAPollAnywhereInTheTarget) {
  const struct {
    std::string target;
    std::string state;
  } rows[] = {
      {"/api/v1/account/poll?state=abc", "abc"},
      {"/api/v1/account/poll?x=1&state=abc&y=2", "abc"},
      {"/api/v1/account/poll?mystate=abc", "abc"},
      {"/api/v1/account/poll?state=", ""},
      {"/api/v1/account/poll?state=&state=abc", ""},
      {"/api/v1/account/poll?state=a=b?c#d", "a=b?c#d"},
      {"/api/v1/account/poll?state=%41+%zz\"\\\xE4\xB8\xAD", "%41+%zz\"\\\xE4\xB8\xAD"},
      {"/api/v1/account/poll?state=state=abc", "state=abc"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.target);
    answer_next(200, R"({"status":"pending"})");
    EXPECT_EQ(answer(poll_route, row.target),
              expected_document(R"({"status":"pending","detail":"","nickname":"","public_id":""})"));
    EXPECT_EQ(take_requests(), (Requests{"GET /api/v1/auth/poll?state=" + row.state + " "}));
  }
}

TEST_F(AccountRoutes, RequiresAStateForAPoll) {
  for (const std::string query : {"", "?", "?state", "?State=abc", "?state%3Dabc"}) {
    EXPECT_EQ(answer(poll_route, "/api/v1/account/poll" + query),
              expected_error("400 Bad Request", "缺少 state"))
        << query;
  }
  EXPECT_TRUE(http_log().empty());
}

TEST_F(AccountRoutes, KeepsTheSessionWhenAPollFails) {
  for (const AccountSession& session : {AccountSession(), signed_in()}) {
    account_.session = session;
    EXPECT_EQ(answer(poll_route, "state=s"), expected_error("502 Bad Gateway", unreachable));
    EXPECT_EQ(poll(R"({"account_hash":"h2","public_id":"P2","session_check_seconds":5})"),
              expected_error("502 Bad Gateway", unreadable));
    EXPECT_EQ(account_.session, session);
  }
  expect_cells(120);
}

TEST_F(AccountRoutes, ForwardsEveryStatusThatDoesNotSignIn) {
  for (const std::string status : {"", "pending", "Issued", "issued ", "error", "expired", "被拒绝"}) {
    SCOPED_TRACE(status);
    for (const AccountSession& session : {AccountSession(), signed_in()}) {
      account_.session = session;
      EXPECT_EQ(poll(R"({"status":")" + status +
                     R"(","detail":"d\"","nickname":"昵称","account_hash":"h2","session_token":"t2",)"
                     R"("displaced_machine":"D","primary_machine_id":"M2","referrer":"R2",)"
                     R"("referral_open":true,"invite_url":"i2","session_check_seconds":5})"),
                expected_document(R"({"status":")" + status +
                                  R"(","detail":"d\"","nickname":"昵称","public_id":""})"));
      EXPECT_EQ(account_.session, session);
    }
  }
  expect_cells(120);
}

TEST_F(AccountRoutes, StoresAPublicIdWithAnyStatus) {
  EXPECT_EQ(poll(R"({"status":"pending","public_id":"P2"})"),
            expected_document(R"({"status":"pending","detail":"","nickname":"","public_id":"P2"})"));
  AccountSession expected;
  expected.public_id = "P2";
  EXPECT_EQ(account_.session, expected);
  // An empty id changes nothing.
  EXPECT_EQ(poll(R"({"status":"pending","public_id":""})"),
            expected_document(R"({"status":"pending","detail":"","nickname":"","public_id":""})"));
  EXPECT_EQ(account_.session, expected);
}

TEST_F(AccountRoutes, SignsInWhenTheServiceIssuesASession) {
  EXPECT_EQ(
      poll(R"({"status":"issued","detail":"欢迎","account_hash":"h2","nickname":"昵称","session_token":")" +
           credential +
           R"(","public_id":"P2","referrer":"R2","invite_url":"i2","primary_machine_id":"M2",)"
           R"("session_check_seconds":30,"referral_open":true})"),
      expected_document(R"({"status":"issued","detail":"欢迎","nickname":"昵称","public_id":"P2"})"));
  AccountSession expected;
  expected.account_hash = "h2";
  expected.signed_in_unix = 1'700'000'000;
  expected.token = credential;
  expected.public_id = "P2";
  expected.primary_machine_id = "M2";
  expected.primary_known = true;
  expected.referral_open = true;
  expected.referrer = "R2";
  expected.invite_url = "i2";
  EXPECT_EQ(account_.session, expected);
  expect_cells(30);
}

TEST_F(AccountRoutes, ReplacesTheWholeSessionWhenAnotherUserSignsIn) {
  account_.session = signed_in();
  EXPECT_EQ(poll(R"({"status":"issued","account_hash":"h2"})"),
            expected_document(R"({"status":"issued","detail":"","nickname":"","public_id":""})"));
  // Fields missing from the reply are cleared.
  AccountSession expected;
  expected.account_hash = "h2";
  expected.signed_in_unix = 1'700'000'000;
  expected.primary_known = true;
  EXPECT_EQ(account_.session, expected);
  expect_cells(120);
}

TEST_F(AccountRoutes, DoesNotSignInWithoutAnAccountHash) {
  const std::string answered = R"({"status":"error","detail":"账号服务未返回账号标识，无法完成登录",)"
                               R"("nickname":"n","public_id":"P2"})";
  for (const std::string hash : {"", R"("account_hash":"",)", R"("account_hash":null,)"}) {
    for (const AccountSession& session : {AccountSession(), signed_in()}) {
      SCOPED_TRACE(hash);
      account_.session = session;
      EXPECT_EQ(poll(R"({"status":"issued",)" + hash +
                     R"("detail":"d","nickname":"n","session_token":"t2","displaced_machine":"D",)"
                     R"("public_id":"P2","referral_open":true,"referrer":"R2","invite_url":"i2",)"
                     R"("primary_machine_id":"M2","session_check_seconds":5})"),
                expected_document(answered));
      AccountSession expected = session;
      expected.public_id = "P2";
      EXPECT_EQ(account_.session, expected);
    }
  }
  expect_cells(120);
}

TEST_F(AccountRoutes, NamesTheDeviceThatLosesItsSession) {
  EXPECT_EQ(poll(R"({"status":"issued","detail":"d","account_hash":"h","displaced_machine":"书房\"PC\""})"),
            expected_document(R"({"status":"issued","detail":"已登录。另一台设备（书房\"PC\"）上的 Velmora )"
                              R"(将在两分钟内自动退出。","nickname":"","public_id":""})"));
  EXPECT_EQ(poll(R"({"status":"issued","detail":"d","account_hash":"h","displaced_machine":""})"),
            expected_document(R"({"status":"issued","detail":"d","nickname":"","public_id":""})"));
}

TEST_F(AccountRoutes, ContinuesTheUsageCountWhenTheSameUserSignsInAgain) {
  account_.session = signed_in();
  static_cast<void>(poll(R"({"status":"issued","account_hash":"h"})"));
  EXPECT_EQ(account_.session.usage_seconds, 60);
}

TEST_F(AccountRoutes, ChangesTheCheckIntervalOnlyIfTheServiceNamesOne) {
  for (const auto& [value, interval_s] : {std::pair("0", 77u), {"1", 1u}, {"4000000000", 4'000'000'000u}}) {
    account_.check->session_check_interval = 77;
    static_cast<void>(
        poll(R"({"status":"issued","account_hash":"h","session_check_seconds":)" + std::string(value) + "}"));
    expect_cells(interval_s);
  }
}

TEST_F(AccountRoutes, ChecksTheReferrerIdBeforeTheSession) {
  for (const AccountSession& session : {AccountSession(), signed_in()}) {
    for (const std::string body : {"", R"({"public_id":""})", R"({"public_id":7})"}) {
      account_.session = session;
      EXPECT_EQ(answer(referrer_route, body), expected_error("400 Bad Request", "请填写推荐人的用户 ID"))
          << body;
      EXPECT_EQ(account_.session, session);
    }
  }
  EXPECT_TRUE(http_log().empty());
}

TEST_F(AccountRoutes, RequiresASessionForTheReferrerAndTheUnbinding) {
  AccountSession without_hash = signed_in();
  without_hash.account_hash.clear();
  AccountSession without_token = signed_in();
  without_token.token.clear();
  for (const AccountSession& session : {AccountSession(), without_hash, without_token}) {
    account_.session = session;
    EXPECT_EQ(answer(referrer_route, R"({"public_id":"P2"})"),
              expected_error("400 Bad Request", "请先扫码登录"));
    EXPECT_EQ(answer(unbind_route), expected_error("400 Bad Request", "请先扫码登录，再更换常用电脑"));
    EXPECT_EQ(account_.session, session);
  }
  EXPECT_TRUE(http_log().empty());
}

TEST_F(AccountRoutes, StoresTheReferrerThatTheServiceAccepts) {
  account_.session = signed_in();
  answer_next(200, R"({"detail":"好\n"})");
  EXPECT_EQ(answer(referrer_route, R"({"public_id":"P2"})"),
            expected_document(R"({"ok":true,"detail":"好\n"})"));
  AccountSession expected = signed_in();
  expected.referrer = "P2";
  expected.referral_open = false;
  EXPECT_EQ(account_.session, expected);
}

TEST_F(AccountRoutes, ClearsThePrimaryMachineWhenItIsUnbound) {
  account_.session = signed_in();
  account_.session.primary_known = false;
  answer_next(200, R"({"detail":"好\n"})");
  EXPECT_EQ(answer(unbind_route), expected_document(R"({"ok":true,"detail":"好\n"})"));
  AccountSession expected = signed_in();
  expected.primary_machine_id.clear();
  EXPECT_EQ(account_.session, expected);
}

TEST_F(AccountRoutes, ReportsARefusedActionInADocument) {
  for (const auto& [route, body] : {std::pair(referrer_route, R"({"public_id":"P2"})"), {unbind_route, ""}}) {
    SCOPED_TRACE(route.name);
    account_.session = signed_in();
    answer_next(403, R"({"detail":"不行"})");
    EXPECT_EQ(answer(route, body), expected_document(R"({"ok":false,"detail":"不行"})"));
    EXPECT_EQ(answer(route, body), expected_document(R"({"ok":false,"detail":")" + unreachable + "\"}"));
    EXPECT_EQ(account_.session, signed_in());
  }
}

TEST_F(AccountRoutes, SignsOutWithoutARequest) {
  for (const std::string& url : {service_url, std::string()}) {
    account_.service_url = url;
    account_.session = signed_in();
    AccountSession expected = signed_in();
    expected.account_hash.clear();
    expected.token.clear();
    expected.primary_machine_id.clear();
    expected.signed_in_unix = 0;
    expected.primary_known = false;
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(answer(logout_route), expected_document(R"({"ok":true})"));
      EXPECT_EQ(account_.session, expected);
    }
  }
  account_.session = AccountSession();
  EXPECT_EQ(answer(logout_route), expected_document(R"({"ok":true})"));
  EXPECT_EQ(account_.session, AccountSession());
  EXPECT_TRUE(http_log().empty());
  expect_cells(120);
}

}  // namespace
}  // namespace velmora
