// What the exchanges of both real systems make of what may come over a connection.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

#include "platform/http_client.h"
#include "platform/raw_http_server.h"

namespace velmora {
namespace {

using surroundings::HttpRequest;
using surroundings::open_exchange;
using surroundings::RawExchange;
using surroundings::RawHttpServer;
using surroundings::RawReply;
using surroundings::read_whole_body;
using surroundings::ReadBody;
using surroundings::reply_head;
using surroundings::reply_with_length;
using surroundings::send_and_wait;
using surroundings::status_of;

constexpr std::uint32_t error_timeout = 12002;
constexpr std::uint32_t error_socket_timeout = 10060;  // WSAETIMEDOUT, which Wine passes on
constexpr std::uint32_t error_name_not_resolved = 12007;
constexpr std::uint32_t error_cannot_connect = 12029;
constexpr std::uint32_t error_connection = 12030;
constexpr std::uint32_t error_invalid_response = 12152;

class NativeHttp : public surroundings::ArrangedSockets {};

std::string lower(std::string text) {
  for (char& byte : text) byte = static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
  return text;
}

// The lines of a request's head.
std::vector<std::string> lines_of(const std::string& request) {
  std::vector<std::string> lines;
  std::string_view rest = std::string_view(request).substr(0, request.find("\r\n\r\n"));
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find("\r\n"), rest.size());
    lines.emplace_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 2, rest.size()));
  }
  return lines;
}

std::size_t count_lines(const std::string& request, const std::string& line) {
  const std::vector<std::string> lines = lines_of(lower(request));
  return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), lower(line)));
}

std::string body_of(const std::string& request) { return request.substr(request.find("\r\n\r\n") + 4); }

// One exchange to the end of its reply: what the server got.
std::string request_of(const HttpRequest& request, std::uint16_t& port) {
  RawHttpServer server({{{reply_with_length(200, "{}")}}});
  port = server.port();
  const HttpExchange exchange = open_exchange(port, surroundings::patient, request);
  EXPECT_EQ(send_and_wait(exchange, request), 0u);
  EXPECT_EQ(read_whole_body(exchange).bytes, "{}");
  return server.finish().at(0);
}

TEST_F(NativeHttp, SendsABodyWithItsHeaderAndItsLength) {
  std::uint16_t port = 0;
  const std::string request = request_of(HttpRequest(), port);
  EXPECT_EQ(lines_of(request).at(0), "POST /api/v1/session/check HTTP/1.1");
  EXPECT_EQ(count_lines(request, "Host: 127.0.0.1:" + std::to_string(port)), 1u);
  EXPECT_EQ(count_lines(request, "User-Agent: Velmora/1.1"), 1u);
  EXPECT_EQ(count_lines(request, "Content-Type: application/json"), 1u);
  EXPECT_EQ(count_lines(request, "Content-Length: 9"), 1u);
  EXPECT_EQ(body_of(request), R"({"a":"b"})");
  for (const char* name :
       {"\r\naccept:", "\r\nexpect:", "\r\nreferer:", "\r\ncookie:", "\r\naccept-encoding:"}) {
    EXPECT_EQ(lower(request).find(name), std::string::npos) << name;
  }
}

TEST_F(NativeHttp, SendsNoHeaderAndNoBodyWithAGet) {
  std::uint16_t port = 0;
  const std::string request = request_of({u"GET", u"/poll?state=a&b=%41", u"", ""}, port);
  EXPECT_EQ(lines_of(request).at(0), "GET /poll?state=a&b=%41 HTTP/1.1");
  EXPECT_EQ(count_lines(request, "User-Agent: Velmora/1.1"), 1u);
  EXPECT_EQ(body_of(request), "");
  for (const char* name : {"\r\ncontent-type:", "\r\ncontent-length:", "\r\naccept:", "\r\nexpect:"}) {
    EXPECT_EQ(lower(request).find(name), std::string::npos) << name;
  }
}

TEST_F(NativeHttp, SendsTheBytesOfABodyWhateverTheyAre) {
  HttpRequest request;
  for (int byte = 0; byte < 256; ++byte) request.body += static_cast<char>(byte);
  std::uint16_t port = 0;
  EXPECT_EQ(body_of(request_of(request, port)), request.body);
  request.body = std::string(300'000, 'x');
  EXPECT_TRUE(body_of(request_of(request, port)) == request.body);
}

TEST_F(NativeHttp, AsksForTheRootWhereThePathIsEmpty) {
  std::uint16_t port = 0;
  EXPECT_EQ(lines_of(request_of({u"GET", u"", u"", ""}, port)).at(0), "GET / HTTP/1.1");
}

TEST_F(NativeHttp, CannotConnectWhereNobodyListens) {
  const HttpExchange exchange = open_exchange(surroundings::find_free_port());
  EXPECT_EQ(send_and_wait(exchange), error_cannot_connect);
  std::uint32_t status = 77;
  EXPECT_NE(query_http_status(exchange, status), 0u);
  EXPECT_EQ(status, 77u);
}

// A name that no resolver has to ask anybody about.
TEST_F(NativeHttp, KnowsNoServerOfAnImpossibleName) {
  HttpExchange exchange;
  ASSERT_EQ(open_http_session(u"Velmora/1.1", exchange), 0u);
  ASSERT_EQ(set_http_timeouts(exchange, surroundings::patient), 0u);
  ASSERT_EQ(connect_http(exchange, u"no..such..name", 80), 0u);
  ASSERT_EQ(open_http_request(exchange, u"GET", u"/", false), 0u);
  EXPECT_EQ(send_and_wait(exchange, {u"GET", u"/", u"", ""}), error_name_not_resolved);
}

TEST_F(NativeHttp, LosesAConnectionThatEndsBeforeTheHeadIsWhole) {
  const struct {
    std::string bytes;
    std::uint32_t under_wine;  // which takes each head for a whole one
  } rows[] = {{"", error_invalid_response},
              {"HTTP/1.1 200 OK\r\n", 0},
              {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n", 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.bytes);
    const RawExchange raw(row.bytes);
    EXPECT_EQ(raw.error, surroundings::runs_under_wine() ? row.under_wine : error_connection);
  }
}

TEST_F(NativeHttp, RefusesWhatIsNoHttp) {
  for (const std::string bytes :
       {"what is this\r\n\r\n", "\x16\x03\x01\x02\r\n\r\n", "SSH-2.0-server\r\n\r\n"}) {
    SCOPED_TRACE(bytes);
    const RawExchange raw(bytes);
    EXPECT_EQ(raw.error, error_invalid_response);
  }
}

TEST_F(NativeHttp, GivesWhatCameOfABodyThatBreaksOff) {
  const struct {
    std::string reply;
    std::string body;
  } rows[] = {{reply_head(200, "Content-Length: 10\r\n") + "12345", "12345"},
              {reply_head(200, "Transfer-Encoding: chunked\r\n") + "5\r\n12345\r\n9\r\n678", "12345678"},
              {reply_head(200, "Content-Length: 10\r\n"), ""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.reply);
    const RawExchange raw(row.reply);
    ASSERT_EQ(raw.error, 0u);
    EXPECT_EQ(status_of(raw.exchange), 200u);
    EXPECT_EQ(read_whole_body(raw.exchange).bytes, row.body);
  }
}

TEST_F(NativeHttp, GivesABodyAsItComes) {
  RawHttpServer server({{{reply_head(200, "Content-Length: 6\r\n") + "abc", "de", "f"}, 50, false, false}});
  const HttpExchange exchange = open_exchange(server.port());
  ASSERT_EQ(send_and_wait(exchange), 0u);
  EXPECT_EQ(read_whole_body(exchange).bytes, "abcdef");
}

TEST_F(NativeHttp, LeavesTheConnectionWhenItIsClosed) {
  const std::string half = reply_head(200, "Content-Length: 10\r\n") + "12345";
  for (const bool has_head : {false, true}) {
    // Wine keeps a connection whose reply nobody has asked for.
    if (!has_head && surroundings::runs_under_wine()) continue;
    SCOPED_TRACE(has_head);
    RawReply reply;
    if (has_head) reply.pieces = {half};
    reply.stays = true;
    RawHttpServer server({reply});
    HttpExchange exchange = open_exchange(server.port());
    ASSERT_EQ(send_http_request(exchange, u"", ""), 0u);
    if (has_head) {
      ASSERT_EQ(receive_http_response(exchange), 0u);
    }
    exchange.close();
    server.finish();
    EXPECT_EQ(server.connections(), 1u);
    EXPECT_TRUE(server.client_left(0));
  }
}

TEST_F(NativeHttp, WaitsForTheBodyAsLongAsItMay) {
  RawReply reply;
  reply.pieces = {reply_head(200, "Content-Length: 10\r\n") + "12345"};
  reply.stays = true;
  RawHttpServer server({reply});
  using surroundings::long_wait_ms;
  HttpExchange exchange =
      open_exchange(server.port(), {long_wait_ms, long_wait_ms, long_wait_ms, surroundings::short_wait_ms});
  ASSERT_EQ(send_and_wait(exchange), 0u);
  const std::int64_t begin_ns = steady_now_ns();
  const ReadBody read = read_whole_body(exchange);
  EXPECT_EQ(read.bytes, "12345");
  EXPECT_EQ(read.error, surroundings::runs_under_wine() ? error_socket_timeout : error_timeout);
  surroundings::expect_short_wait(begin_ns);
  exchange.close();
  server.finish();
  EXPECT_TRUE(server.client_left(0));
}

// There is no limit on the whole.
TEST_F(NativeHttp, TakesAReplyThatKeepsComing) {
  constexpr std::int32_t limit_ms = 1500;
  RawReply reply;
  reply.pieces = {"HTTP/1.1 200 OK\r\n", "Content-Length: 4\r\n\r\n", "a", "b", "c", "d"};
  reply.pause_ms = 400;
  RawHttpServer server({reply});
  const HttpExchange exchange = open_exchange(server.port(), {limit_ms, limit_ms, limit_ms, limit_ms});
  const std::int64_t before_ns = steady_now_ns();
  ASSERT_EQ(send_and_wait(exchange), 0u);
  const ReadBody read = read_whole_body(exchange);
  EXPECT_EQ(read.bytes, "abcd");
  EXPECT_EQ(read.error, 0u);
  EXPECT_GT(steady_now_ns() - before_ns, std::int64_t{limit_ms} * 1'000'000);
}

}  // namespace
}  // namespace velmora
