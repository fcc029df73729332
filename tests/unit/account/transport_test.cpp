#include "account/transport.h"

#include "unit/account/support/account_service.h"

namespace velmora {
namespace {

using Log = std::vector<std::string>;

constexpr std::size_t limit_bytes = 2'097'152;
const std::string path = "/api/v1/session/check";
const std::string body = R"({"account_hash":"h"})";

class Transport : public FreshMachine {
 protected:
  static AccountReply post() { return account_request(service_url, "POST", path, body); }
  static void expect_nothing_open() { EXPECT_TRUE(memory::http_service().open.empty()); }
  // A reply in pieces, which may break off.
  static void answer_in_pieces(std::string bytes, std::size_t piece_bytes, std::uint32_t end_error = 0) {
    memory::HttpReply reply;
    reply.body = std::move(bytes);
    reply.piece_bytes = piece_bytes;
    reply.end_error = end_error;
    memory::http_service().replies.push_back(std::move(reply));
  }
};

void expect_reply(const AccountReply& reply, bool ok, std::uint32_t status, const std::string& text,
                  const std::string& error) {
  EXPECT_EQ(reply.ok, ok);
  EXPECT_EQ(reply.status, status);
  EXPECT_EQ(reply.body, text);
  EXPECT_EQ(reply.error, error);
}

TEST_F(Transport, SendsABodyWithItsType) {
  answer_next(200, "{}");
  expect_reply(post(), true, 200, "{}", "");
  EXPECT_EQ(take_requests(), Requests{"POST " + path + " " + body});
  expect_nothing_open();
}

TEST_F(Transport, SendsNoHeaderWithoutABody) {
  answer_next(200, "");
  expect_reply(account_request("http://127.0.0.1:8080/base", "GET", "/poll?state=a b\"", ""), true, 200, "",
               "");
  const Log log = http_log();
  for (const std::string call : {"WinHttpConnect 127.0.0.1 8080",
                                 "WinHttpOpenRequest GET /base/poll?state=a b\"", "WinHttpSendRequest [] "}) {
    EXPECT_EQ(std::count(log.begin(), log.end(), call), 1) << call;
  }
  expect_nothing_open();
}

TEST_F(Transport, SendsABodyUnchanged) {
  const std::string bytes("{\"a\":\"\xE4\xB8\xAD\xFF\x01\0\"}", 14);
  answer_next(200, bytes);
  expect_reply(account_request(service_url, "POST", path, bytes), true, 200, bytes, "");
  EXPECT_EQ(http_log().at(4), "WinHttpSendRequest [Content-Type: application/json] " + bytes);
}

TEST_F(Transport, ReportsTheFailedStep) {
  const struct {
    std::string operation;
    std::uint32_t error;
    std::string message;
  } rows[] = {
      {"WinHttpOpen", 8, "无法初始化网络"},
      {"WinHttpConnect", 12005, "无法连接账号服务"},
      {"WinHttpOpenRequest", 12006, "无法创建请求"},
      {"WinHttpSendRequest", 12029, "连接账号服务失败（错误 12029）"},
      {"WinHttpSendRequest", 4294967295u, "连接账号服务失败（错误 4294967295）"},
      {"WinHttpReceiveResponse", 12002, "连接账号服务失败（错误 12002）"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    memory::reset_http_service();
    answer_next(200, "{}");
    fail_next(row.operation, {row.error});
    expect_reply(post(), false, 0, "", row.message);
    // The failed call is the last one.
    EXPECT_EQ(http_log().back().substr(0, http_log().back().find(' ')), row.operation);
    expect_nothing_open();
  }
}

TEST_F(Transport, ContinuesIfTheTimeoutsCannotBeSet) {
  fail_next("WinHttpSetTimeouts", {87});
  answer_next(200, "{}");
  expect_reply(post(), true, 200, "{}", "");
}

TEST_F(Transport, ReportsAnUnreadableStatusAsZero) {
  fail_next("WinHttpQueryHeaders", {12150});
  answer_next(200, "{}");
  expect_reply(post(), true, 0, "{}", "");
}

TEST_F(Transport, AcceptsEveryStatus) {
  for (const std::uint32_t status : {200u, 204u, 304u, 401u, 404u, 500u, 503u}) {
    answer_next(status, R"({"detail":"x"})");
    expect_reply(post(), true, status, R"({"detail":"x"})", "");
  }
}

TEST_F(Transport, ReturnsAPartialReply) {
  answer_in_pieces("{\"state\":\"ab", 5, 12030);
  expect_reply(post(), true, 200, "{\"state\":\"ab", "");
  expect_nothing_open();

  memory::reset_http_service();
  answer_in_pieces("{\"state\":\"ab", 5);
  fail_next("WinHttpReadData", {0, 12002});
  expect_reply(post(), true, 200, "{\"sta", "");
  EXPECT_EQ(count_calls("WinHttpReadData"), 2u);

  memory::reset_http_service();
  answer_next(500, "{}");
  fail_next("WinHttpReadData", {12030});
  expect_reply(post(), true, 500, "", "");
  EXPECT_EQ(count_calls("WinHttpReadData"), 1u);
}

TEST_F(Transport, AcceptsTwoMebibytesInPiecesOfAnySize) {
  const std::string whole = std::string(limit_bytes - 1, 'a') + 'z';
  for (const std::size_t piece_bytes : {1000u, 4096u, 8191u, 8192u, 65536u}) {
    SCOPED_TRACE(piece_bytes);
    memory::reset_http_service();
    answer_in_pieces(whole, piece_bytes);
    const AccountReply reply = post();
    EXPECT_TRUE(reply.ok);
    EXPECT_EQ(reply.error, "");
    EXPECT_TRUE(reply.body == whole);
  }
}

TEST_F(Transport, DropsThePieceThatExceedsTheLimit) {
  const struct {
    std::size_t size;
    std::size_t piece_bytes;
    std::size_t kept;
  } rows[] = {
      {limit_bytes + 1, 8192, limit_bytes},   // the last piece is one byte
      {limit_bytes + 1, 65536, limit_bytes},  // more than 8192 bytes are never asked for
      {limit_bytes + 1, 8191, 2'096'896},     // 256 pieces; 257 bytes are left
      {limit_bytes + 1, 5000, 2'095'000},     // 419 pieces; 2153 bytes are left
      {3 * limit_bytes, 8192, limit_bytes},   // the rest is not read
      {3 * limit_bytes, 8191, 2'096'896},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.size) + " in pieces of " + std::to_string(row.piece_bytes));
    memory::reset_http_service();
    answer_in_pieces(std::string(row.size, 'a'), row.piece_bytes);
    const AccountReply reply = post();
    EXPECT_FALSE(reply.ok);
    EXPECT_EQ(reply.status, 200u);
    EXPECT_EQ(reply.error, "账号服务返回内容过大");
    EXPECT_EQ(reply.body.size(), row.kept);
    EXPECT_EQ(count_calls("WinHttpReadData"), row.kept / std::min<std::size_t>(row.piece_bytes, 8192) + 1);
    expect_nothing_open();
  }
}

TEST_F(Transport, SendsNothingWithoutAnAddress) {
  expect_reply(account_request("", "POST", path, body), false, 0, "", "账号服务未配置");
  EXPECT_EQ(http_log(), Log());
  EXPECT_TRUE(memory::system().log.empty());
}

TEST_F(Transport, SendsNothingToAnInvalidAddress) {
  for (const std::string url : {"account.example", "//account.example", "ftp://account.example", "http://",
                                "http://:80", "http://account.example:65536", " ", "\xFF"}) {
    SCOPED_TRACE(url);
    expect_reply(account_request(url, "POST", path, body), false, 0, "", "账号服务地址无法解析");
    EXPECT_EQ(http_log(), Log());
  }
}

TEST_F(Transport, KeepsNothingBetweenRequestsAndDoesNotRetry) {
  answer_next(200, "first");
  answer_next(404, "second");
  expect_reply(post(), true, 200, "first", "");
  expect_reply(post(), true, 404, "second", "");
  EXPECT_EQ(take_requests().size(), 2u);
  expect_reply(post(), false, 0, "", "连接账号服务失败（错误 12030）");
  EXPECT_EQ(take_requests().size(), 1u);
}

TEST(AccountUrl, JoinsServiceAndPathUnchanged) {
  const struct {
    std::string service;
    std::string path;
    UrlParts parts;
  } rows[] = {
      {"http://host", "/api", {u"host", 80, u"/api", false}},
      {"https://host", "/api", {u"host", 443, u"/api", true}},
      {"https://host/", "/api", {u"host", 443, u"//api", true}},
      {"https://host:8443/base/", "/api", {u"host", 8443, u"/base//api", true}},
      {"http://host/base", "/api?state=a&b=c", {u"host", 80, u"/base/api?state=a&b=c", false}},
      {"http://host?x=1", "/api", {u"host", 80, u"?x=1/api", false}},
      {"http://host", "/api?state=%41 \"<>\\^`{|}", {u"host", 80, u"/api?state=%41 \"<>\\^`{|}", false}},
      {"http://host/\xE8\xB4\xA6", "/\xE5\x8F\xB7", {u"host", 80, u"/\u8D26/\u53F7", false}},
      {"http://\xE8\xB4\xA6.example", "/a", {u"\u8D26.example", 80, u"/a", false}},
      {"http://host", "/a?state=\xF0\x9F\x98\x80\xFF", {u"host", 80, u"/a?state=\xD83D\xDE00\xFFFD", false}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.service + row.path);
    const auto parts = account_url_parts(row.service, row.path);
    ASSERT_TRUE(parts);
    EXPECT_EQ(parts->host, row.parts.host);
    EXPECT_EQ(parts->port, row.parts.port);
    EXPECT_EQ(parts->path, row.parts.path);
    EXPECT_EQ(parts->secure, row.parts.secure);
  }
}

TEST(AccountUrl, RequiresASchemeAndAHost) {
  for (const std::string service : {"", "host", "host:80", "//host", "ftp://host", "http:/host", "http://"}) {
    SCOPED_TRACE(service);
    EXPECT_FALSE(account_url_parts(service, "/api"));
  }
}

}  // namespace
}  // namespace velmora
