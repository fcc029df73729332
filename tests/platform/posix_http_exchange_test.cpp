// What the POSIX answer does of its own: the very bytes of a request, and what it leaves behind.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/http_client.h"
#include "platform/private_mounts.h"
#include "platform/raw_http_server.h"

namespace velmora {
namespace {

using surroundings::expect_short_wait;
using surroundings::HttpRequest;
using surroundings::long_wait_ms;
using surroundings::open_exchange;
using surroundings::RawExchange;
using surroundings::RawHttpServer;
using surroundings::RawReply;
using surroundings::read_whole_body;
using surroundings::reply_head;
using surroundings::reply_with_length;
using surroundings::send_and_wait;
using surroundings::short_wait_ms;
using surroundings::status_of;

class PosixHttp : public surroundings::ArrangedSockets {};

std::ptrdiff_t open_descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

TEST_F(PosixHttp, SendsTheseBytesAndNoOthers) {
  const struct {
    HttpRequest request;
    std::string before_host;
    std::string behind_host;
  } rows[] = {
      {{},
       "POST /api/v1/session/check HTTP/1.1\r\n",
       "User-Agent: Velmora/1.1\r\nContent-Type: application/json\r\nContent-Length: 9\r\n\r\n{\"a\":\"b\"}"},
      {{u"GET", u"/poll?state=abc", u"", ""},
       "GET /poll?state=abc HTTP/1.1\r\n",
       "User-Agent: Velmora/1.1\r\n\r\n"},
      // Nothing of a path is encoded, decoded or put in order.
      {{u"GET", u"/a/../b//c?state=a b\"%41%zz<>\\^`{|}\u4E2D", u"", ""},
       "GET /a/../b//c?state=a b\"%41%zz<>\\^`{|}\xE4\xB8\xAD HTTP/1.1\r\n",
       "User-Agent: Velmora/1.1\r\n\r\n"},
      {{u"GET", u"/a?x=1#top", u"", ""}, "GET /a?x=1#top HTTP/1.1\r\n", "User-Agent: Velmora/1.1\r\n\r\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.before_host);
    RawHttpServer server({{{reply_with_length(200, "{}")}}});
    const HttpExchange exchange = open_exchange(server.port(), surroundings::patient, row.request);
    EXPECT_EQ(send_and_wait(exchange, row.request), 0u);
    EXPECT_EQ(server.finish().at(0), row.before_host + "Host: 127.0.0.1:" + std::to_string(server.port()) +
                                         "\r\n" + row.behind_host);
  }
}

TEST_F(PosixHttp, HoldsNoDescriptorOnceItIsClosed) {
  // The library keeps nothing open for itself from the second exchange on.
  std::ptrdiff_t before = 0;
  for (int round = 0; round < 3; ++round) {
    RawReply reply;
    // The server would keep this connection.
    reply.pieces = {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"};
    reply.stays = true;
    RawHttpServer server({reply});
    HttpExchange exchange = open_exchange(server.port());
    ASSERT_EQ(send_and_wait(exchange), 0u);
    EXPECT_EQ(read_whole_body(exchange).bytes, "{}");
    exchange.close();
    server.finish();
    EXPECT_TRUE(server.client_left(0));
    if (round == 0) before = open_descriptors();
    // Each server has had a listener by then.
    EXPECT_EQ(open_descriptors(), before);
  }
}

TEST_F(PosixHttp, DistinguishesATruncatedBodyFromAWholeOne) {
  for (const std::string& reply : {reply_head(200, "Content-Length: 10\r\n") + "12345",
                                   reply_head(200, "Transfer-Encoding: chunked\r\n") + "5\r\n12345\r\n"}) {
    SCOPED_TRACE(reply);
    const RawExchange raw(reply);
    ASSERT_EQ(raw.error, 0u);
    const surroundings::ReadBody read = read_whole_body(raw.exchange);
    EXPECT_EQ(read.bytes, "12345");
    EXPECT_EQ(read.error, 12030u);
  }
}

TEST_F(PosixHttp, RefusesChunksThatAreNone) {
  const RawExchange raw(reply_head(200, "Transfer-Encoding: chunked\r\n") + "5\r\n12345\r\nzz\r\n");
  ASSERT_EQ(raw.error, 0u);
  const surroundings::ReadBody read = read_whole_body(raw.exchange);
  EXPECT_EQ(read.bytes, "12345");
  EXPECT_NE(read.error, 0u);
}

// Wine limits this wait by another of its settings.
TEST_F(PosixHttp, WaitsForTheHeadAsLongAsItMay) {
  for (const std::string bytes : {"", "HTTP/1.1 200 OK\r\nContent-"}) {
    SCOPED_TRACE(bytes);
    RawReply reply;
    reply.pieces = {bytes};
    reply.stays = true;
    RawHttpServer server({reply});
    HttpExchange exchange =
        open_exchange(server.port(), {long_wait_ms, long_wait_ms, long_wait_ms, short_wait_ms});
    const std::int64_t begin_ns = steady_now_ns();
    EXPECT_EQ(send_and_wait(exchange), 12002u);
    expect_short_wait(begin_ns);
    std::uint32_t status = 77;
    EXPECT_NE(query_http_status(exchange, status), 0u);
    EXPECT_EQ(status, 77u);
    exchange.close();
    server.finish();
    EXPECT_TRUE(server.client_left(0));
  }
}

// Nobody takes the request, once the buffers of both sides are full.
TEST_F(PosixHttp, SendsForAsLongAsItMay) {
  const std::uint16_t port = surroundings::find_free_port();
  const surroundings::OtherListener listener = surroundings::listen_elsewhere(port);
  HttpRequest request;
  request.body = std::string(32 * 1024 * 1024, 'x');
  const HttpExchange exchange =
      open_exchange(port, {long_wait_ms, long_wait_ms, short_wait_ms, long_wait_ms}, request);
  const std::int64_t begin_ns = steady_now_ns();
  EXPECT_EQ(send_and_wait(exchange, request), 12002u);
  expect_short_wait(begin_ns);
}

// A kernel drops what comes to a listener whose queue is full, so that the connection is never made.
TEST_F(PosixHttp, WaitsForTheConnectionAsLongAsItMay) {
  const std::uint16_t port = surroundings::find_free_port();
  const surroundings::OtherListener listener = surroundings::listen_elsewhere(port);
  const surroundings::Peer first = surroundings::connect_to(port);
  const surroundings::Peer second = surroundings::connect_to(port);
  const HttpExchange exchange =
      open_exchange(port, {long_wait_ms, short_wait_ms, long_wait_ms, long_wait_ms});
  const std::int64_t begin_ns = steady_now_ns();
  EXPECT_EQ(send_and_wait(exchange), 12002u);
  expect_short_wait(begin_ns);
}

// A name server that hears every question and answers none, in a network and with a setting that only the
// calling process sees. False, with errno set, on failure.
bool ask_a_silent_name_server(const std::string& settings) {
  if (!surroundings::enter_namespaces(CLONE_NEWNET)) return false;
  const int server = socket(AF_INET, SOCK_DGRAM, 0);  // open until the process ends
  ifreq loopback{};
  loopback.ifr_name[0] = 'l';
  loopback.ifr_name[1] = 'o';
  loopback.ifr_flags = IFF_UP;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(53);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return ioctl(server, SIOCSIFFLAGS, &loopback) == 0 &&
         bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
         mount(settings.c_str(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr) == 0;
}

// Exit codes of the child.
constexpr int refused = 255;
constexpr int no_network = 254;

TEST_F(PosixHttp, LooksForTheNameAsLongAsItMay) {
  const std::string settings = surroundings::scratch_directory() + "/resolv.conf";
  std::ofstream(settings) << "nameserver 127.0.0.1\noptions timeout:30 attempts:2\n";
  const pid_t child = fork();
  if (child == 0) {
    if (!ask_a_silent_name_server(settings)) _exit(surroundings::lacks_right() ? refused : no_network);
    HttpExchange exchange;
    EXPECT_EQ(open_http_session(u"Velmora/1.1", exchange), 0u);
    EXPECT_EQ(set_http_timeouts(exchange, {short_wait_ms, long_wait_ms, long_wait_ms, long_wait_ms}), 0u);
    EXPECT_EQ(connect_http(exchange, u"slow.velmora.test", 80), 0u);
    EXPECT_EQ(open_http_request(exchange, u"GET", u"/", false), 0u);
    const std::int64_t begin_ns = steady_now_ns();
    EXPECT_EQ(send_and_wait(exchange), 12002u);
    exchange.close();
    expect_short_wait(begin_ns);
    _exit(HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == refused) GTEST_SKIP() << surroundings::mounts_refused;
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

// ---- heads and trailers of any size ----

constexpr std::size_t most_header_bytes = 262'144;

// Header lines of so many bytes in all, 5 at least.
std::string header_lines(std::size_t bytes) {
  constexpr std::size_t line_bytes = 1024;
  std::string lines;
  while (bytes > 0) {
    const std::size_t count = bytes < 2 * line_bytes ? bytes : line_bytes;
    lines += "X: " + std::string(count - 5, 'y') + "\r\n";
    bytes -= count;
  }
  return lines;
}

TEST_F(PosixHttp, TakesAHeadUpToItsLimit) {
  const std::string first = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n";
  const std::string interim = "HTTP/1.1 103 Early\r\nX: y\r\n\r\n";
  for (const std::string& ahead : {std::string(), interim, interim + interim}) {
    for (const std::size_t excess : {0u, 1u}) {
      SCOPED_TRACE(std::to_string(ahead.size()) + ' ' + std::to_string(excess));
      const std::size_t rest = most_header_bytes + excess - ahead.size() - first.size() - 2;
      RawHttpServer server({{{ahead + first + header_lines(rest) + "\r\n{}"}}});
      const HttpExchange exchange = open_exchange(server.port());
      EXPECT_EQ(send_and_wait(exchange), excess == 0 ? 0u : 12182u);
      std::uint32_t status = 77;
      EXPECT_EQ(query_http_status(exchange, status) == 0, excess == 0);
      if (excess == 0) {
        EXPECT_EQ(read_whole_body(exchange).bytes, "{}");
      }
    }
  }
}

TEST_F(PosixHttp, TakesNoLineOfAHeadThatTheLibraryDoesNot) {
  RawHttpServer server({{{"HTTP/1.1 200 OK\r\n" + header_lines(100) + "X: " + std::string(150'000, 'y') +
                          "\r\nContent-Length: 2\r\n\r\n{}"}}});
  const HttpExchange exchange = open_exchange(server.port());
  EXPECT_EQ(send_and_wait(exchange), 12182u);
}

TEST_F(PosixHttp, CountsTheHeadOfEachReplyToARedirectionByItself) {
  const std::string lines = header_lines(most_header_bytes * 3 / 4);
  RawHttpServer server({{{reply_head(302, "Location: /moved\r\nContent-Length: 0\r\n" + lines)}},
                        {{reply_head(200, "Content-Length: 2\r\n" + lines) + "{}"}}});
  const HttpExchange exchange = open_exchange(server.port());
  ASSERT_EQ(send_and_wait(exchange), 0u);
  EXPECT_EQ(status_of(exchange), 200u);
  EXPECT_EQ(read_whole_body(exchange).bytes, "{}");
}

TEST_F(PosixHttp, KeepsTheBodyAheadOfTrailersThatAreTooLarge) {
  const std::string head = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  // The empty line behind them may be counted or not.
  constexpr std::size_t end_bytes = 2;
  for (const std::size_t excess : {std::size_t{0}, end_bytes + 1}) {
    SCOPED_TRACE(excess);
    const std::size_t rest = most_header_bytes + excess - head.size() - end_bytes;
    const RawExchange raw(head + "5\r\nabcde\r\n0\r\n" + header_lines(rest) + "\r\n");
    ASSERT_EQ(raw.error, 0u);
    EXPECT_EQ(status_of(raw.exchange), 200u);
    const surroundings::ReadBody read = read_whole_body(raw.exchange);
    EXPECT_EQ(read.bytes, "abcde");
    EXPECT_EQ(read.error, excess == 0 ? 0u : 12182u);
  }
}

// The other answer to these is WinHTTP's own.

TEST_F(PosixHttp, PassesOverRepliesThatAreNotTheLastWord) {
  RawReply reply;
  reply.pieces = {"HTTP/1.1 100 Continue\r\n\r\n", "HTTP/1.1 103 Early\r\nX: y\r\n\r\n",
                  reply_with_length(200, "{}")};
  reply.pause_ms = 50;
  RawHttpServer server({reply});
  const HttpExchange exchange = open_exchange(server.port());
  ASSERT_EQ(send_and_wait(exchange), 0u);
  EXPECT_EQ(status_of(exchange), 200u);
  EXPECT_EQ(read_whole_body(exchange).bytes, "{}");
}

TEST_F(PosixHttp, FindsNoStatusInWhatIsNoHttp) {
  for (const std::string bytes : {"FTP/1.1 200 OK\r\n\r\n", "hello\r\n\r\n", "<html></html>"}) {
    SCOPED_TRACE(bytes);
    const RawExchange raw(bytes);
    EXPECT_EQ(raw.error, 12152u);
    std::uint32_t status = 77;
    EXPECT_NE(query_http_status(raw.exchange, status), 0u);
    EXPECT_EQ(status, 77u);
  }
}

std::string redirection_to(std::uint32_t status, const std::string& location) {
  return reply_head(status, "Location: " + location + "\r\nContent-Length: 0\r\n");
}

TEST_F(PosixHttp, FollowsARedirection) {
  const struct {
    std::uint32_t status;
    bool says_it_again;
  } rows[] = {{301, false}, {302, false}, {303, false}, {307, true}, {308, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.status);
    RawHttpServer server({{{redirection_to(row.status, "/moved?x=1")}}, {{reply_with_length(200, "there")}}});
    const HttpExchange exchange = open_exchange(server.port());
    ASSERT_EQ(send_and_wait(exchange), 0u);
    EXPECT_EQ(status_of(exchange), 200u);
    EXPECT_EQ(read_whole_body(exchange).bytes, "there");
    const std::string host = "Host: 127.0.0.1:" + std::to_string(server.port()) + "\r\n";
    EXPECT_EQ(server.finish().at(1),
              row.says_it_again
                  ? "POST /moved?x=1 HTTP/1.1\r\n" + host +
                        "User-Agent: Velmora/1.1\r\nContent-Type: application/json\r\nContent-Length: 9\r\n"
                        "\r\n{\"a\":\"b\"}"
                  : "GET /moved?x=1 HTTP/1.1\r\n" + host + "User-Agent: Velmora/1.1\r\n\r\n");
  }
}

TEST_F(PosixHttp, RefusesARedirectionWithoutALocation) {
  for (const std::uint32_t status : {301u, 302u, 303u, 307u, 308u}) {
    SCOPED_TRACE(status);
    const RawExchange raw(reply_with_length(status, "nowhere"));
    EXPECT_EQ(raw.error, 12150u);
  }
}

TEST_F(PosixHttp, TakesEveryOtherStatusFrom300UpwardForTheReply) {
  for (const std::uint32_t status : {300u, 304u, 305u, 306u, 309u, 399u}) {
    SCOPED_TRACE(status);
    const std::string reply = status == 304 ? reply_head(status, "Location: /moved\r\n")
                                            : reply_head(status, "Location: /moved\r\nContent-Length: 0\r\n");
    const RawExchange raw(reply);
    ASSERT_EQ(raw.error, 0u);
    EXPECT_EQ(status_of(raw.exchange), status);
  }
}

TEST_F(PosixHttp, FollowsNoRedirectionToAnotherScheme) {
  const RawExchange raw(redirection_to(302, "ftp://127.0.0.1:" + std::to_string(1) + "/x"));
  EXPECT_EQ(raw.error, 12006u);
}

TEST_F(PosixHttp, GivesUpAfterTenRedirections) {
  const RawReply onwards{{reply_head(302, "Location: /again\r\nContent-Length: 0\r\n")}, 0, false, false};
  std::vector<RawReply> replies(10, onwards);
  replies.push_back({{reply_with_length(200, "there")}, 0, false, false});
  {
    RawHttpServer server(replies);
    const HttpExchange exchange = open_exchange(server.port());
    ASSERT_EQ(send_and_wait(exchange), 0u);
    EXPECT_EQ(read_whole_body(exchange).bytes, "there");
  }
  RawHttpServer server(std::vector<RawReply>(11, onwards));
  const HttpExchange exchange = open_exchange(server.port());
  EXPECT_EQ(send_and_wait(exchange), 12156u);
}

}  // namespace
}  // namespace velmora
