#include "platform/sockets.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "platform/socket_exchange.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::connect_to;
using surroundings::Exchange;
using surroundings::find_free_port;
using surroundings::listen_on;
using surroundings::Peer;

constexpr int error_in_use = 10048;

class SocketsContract : public surroundings::ArrangedSockets {};

// Receives exactly `size` bytes, or fewer when the connection ends.
std::string receive_exactly(const Socket& socket, std::size_t size) {
  std::string received;
  std::array<char, 4096> buffer;
  while (received.size() < size) {
    const SocketCount got =
        receive_bytes(socket, buffer.data(), std::min(buffer.size(), size - received.size()));
    if (got.count <= 0) break;
    received.append(buffer.data(), static_cast<std::size_t>(got.count));
  }
  return received;
}

bool is_end_of_connection(int error) { return error == 10053 || error == 10054; }

TEST_F(SocketsContract, StartsMoreThanOnce) {
  EXPECT_EQ(start_sockets(), std::nullopt);
  stop_sockets();
  Socket socket;
  EXPECT_EQ(open_tcp_socket(socket), std::nullopt);
  EXPECT_TRUE(socket.is_open());
}

TEST_F(SocketsContract, LeavesTheFormerSocketInPlaceWhenNoneCanBeOpened) {
  Socket socket;
  ASSERT_EQ(open_tcp_socket(socket), std::nullopt);
  const auto former = socket.native();
  {
    const surroundings::SocketShortage shortage = surroundings::run_out_of_sockets();
    EXPECT_EQ(open_tcp_socket(socket), shortage.native());
  }
  EXPECT_TRUE(socket.is_open());
  EXPECT_EQ(socket.native(), former);
}

TEST_F(SocketsContract, RefusesAPortThatAnotherProgramListensOnWith10048) {
  const std::uint16_t port = find_free_port();
  const surroundings::OtherListener other = surroundings::listen_elsewhere(port);
  Socket socket;
  ASSERT_EQ(open_tcp_socket(socket), std::nullopt);
  EXPECT_EQ(bind_loopback(socket, port), error_in_use);
}

TEST_F(SocketsContract, BindsAPortThatTheOtherProgramHasLeftOrTheSystemChooses) {
  const std::uint16_t port = find_free_port();
  surroundings::OtherListener other = surroundings::listen_elsewhere(port);
  other.close();
  EXPECT_TRUE(listen_on(port).is_open());
  EXPECT_TRUE(listen_on(0).is_open());
}

TEST_F(SocketsContract, BindsAgainAtOnceWhileFormerConnectionsFade) {
  Exchange exchange;
  surroundings::send_all(exchange.peer, "request");
  EXPECT_EQ(receive_exactly(exchange.service, 7), "request");
  // This side ends first, so the port is left with a connection that fades.
  exchange.service.close();
  EXPECT_EQ(surroundings::receive_until_end(exchange.peer), "");
  exchange.peer.close();
  exchange.listener.close();

  Socket listener;
  ASSERT_EQ(open_tcp_socket(listener), std::nullopt);
  EXPECT_EQ(bind_loopback(listener, exchange.port), std::nullopt);
  EXPECT_EQ(listen_at_maximum(listener), std::nullopt);
}

TEST_F(SocketsContract, WaitsInVainWhenNobodyConnects) {
  const Socket listener = listen_on(find_free_port());
  for (const std::int64_t timeout_us : {std::int64_t{0}, std::int64_t{1}, std::int64_t{20'000}}) {
    SCOPED_TRACE(timeout_us);
    const SocketCount ready = wait_readable(listener, timeout_us);
    EXPECT_EQ(ready.count, 0);
    EXPECT_EQ(ready.error, 0);
  }
}

TEST_F(SocketsContract, FindsAPendingConnectionWithoutWaiting) {
  const std::uint16_t port = find_free_port();
  const Socket listener = listen_on(port);
  const Peer peer = connect_to(port);
  for (const std::int64_t timeout_us : {std::int64_t{3'600'000'000}, std::int64_t{0}}) {
    SCOPED_TRACE(timeout_us);
    const SocketCount ready = wait_readable(listener, timeout_us);
    EXPECT_EQ(ready.count, 1);
    EXPECT_EQ(ready.error, 0);
  }
}

TEST_F(SocketsContract, AcceptsPendingConnectionsInTheirOrder) {
  const std::uint16_t port = find_free_port();
  const Socket listener = listen_on(port);
  const Peer first = connect_to(port);
  surroundings::send_all(first, "1");
  const Peer second = connect_to(port);
  surroundings::send_all(second, "2");
  for (const std::string_view expected : {"1", "2"}) {
    SCOPED_TRACE(expected);
    Socket accepted;
    ASSERT_EQ(accept_connection(listener, accepted), std::nullopt);
    EXPECT_EQ(receive_exactly(accepted, 1), expected);
  }
  EXPECT_EQ(wait_readable(listener, 0).count, 0);
}

TEST_F(SocketsContract, LeavesTheFormerSocketInPlaceWhenNothingCanBeAccepted) {
  Socket not_listening;
  ASSERT_EQ(open_tcp_socket(not_listening), std::nullopt);
  Socket accepted;
  ASSERT_EQ(open_tcp_socket(accepted), std::nullopt);
  const auto former = accepted.native();
  EXPECT_NE(accept_connection(not_listening, accepted), std::nullopt);
  EXPECT_TRUE(accepted.is_open());
  EXPECT_EQ(accepted.native(), former);
}

TEST_F(SocketsContract, ReceivesBytesAsTheyWereSent) {
  const Exchange exchange;
  const std::string sent("GET \0\r\n\xff\x1a\x00", 10);
  surroundings::send_all(exchange.peer, sent);
  EXPECT_EQ(receive_exactly(exchange.service, sent.size()), sent);
}

TEST_F(SocketsContract, ReceivesNoMoreThanTheBufferHolds) {
  const Exchange exchange;
  surroundings::send_all(exchange.peer, "abcdef");
  std::array<char, 8> buffer;
  buffer.fill('#');
  const SocketCount got = receive_bytes(exchange.service, buffer.data(), 4);
  EXPECT_EQ(got.count, 4);
  EXPECT_EQ(got.error, 0);
  EXPECT_EQ(std::string_view(buffer.data(), buffer.size()), "abcd####");
  EXPECT_EQ(receive_exactly(exchange.service, 2), "ef");
}

TEST_F(SocketsContract, ReceivesNothingMoreAfterAHalfCloseAndStillAnswers) {
  Exchange exchange;
  surroundings::send_all(exchange.peer, "abc");
  surroundings::end_sending(exchange.peer);
  EXPECT_EQ(receive_exactly(exchange.service, 3), "abc");
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    char byte = '#';
    const SocketCount got = receive_bytes(exchange.service, &byte, 1);
    EXPECT_EQ(got.count, 0);
    EXPECT_EQ(got.error, 0);
    EXPECT_EQ(byte, '#');
  }
  const SocketCount sent = send_bytes(exchange.service, "answer", 6);
  EXPECT_EQ(sent.count, 6);
  EXPECT_EQ(sent.error, 0);
  exchange.service.close();
  EXPECT_EQ(surroundings::receive_until_end(exchange.peer), "answer");
}

TEST_F(SocketsContract, SendsAnAnswerOf65536BytesWhole) {
  Exchange exchange;
  std::string answer(65536, '\0');
  for (std::size_t index = 0; index < answer.size(); ++index) answer[index] = static_cast<char>(index * 7);
  EXPECT_EQ(surroundings::send_whole(exchange.service, answer), answer.size());
  exchange.service.close();
  EXPECT_EQ(surroundings::receive_until_end(exchange.peer), answer);
}

// Which of the two it is differs under Wine, whose server may take the socket's error before the call does.
TEST_F(SocketsContract, ReportsAResetAsAnErrorOrAsTheEndOfReceiving) {
  Exchange exchange;
  surroundings::reset_connection(exchange.peer);
  char byte = '#';
  const SocketCount got = receive_bytes(exchange.service, &byte, 1);
  EXPECT_LE(got.count, 0);
  EXPECT_TRUE(got.count == 0 ? got.error == 0 : is_end_of_connection(got.error)) << got.error;
  EXPECT_EQ(byte, '#');
}

TEST_F(SocketsContract, ReportsAPeerThatIsGoneAsAnErrorOfSendingAndServesTheNext) {
  Exchange exchange;
  surroundings::reset_connection(exchange.peer);
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    const SocketCount sent = send_bytes(exchange.service, "answer", 6);
    EXPECT_LT(sent.count, 0);
    EXPECT_TRUE(is_end_of_connection(sent.error)) << sent.error;
  }
  shutdown_both(exchange.service);
  shutdown_both(exchange.service);
  EXPECT_LT(send_bytes(exchange.service, "more", 4).count, 0);
  exchange.service.close();
  const Peer next = connect_to(exchange.port);
  surroundings::send_all(next, "next");
  EXPECT_EQ(receive_exactly(exchange.accept(), 4), "next");
}

TEST_F(SocketsContract, EndsTheConnectionForThePeerByShutdownBeforeTheClose) {
  const Exchange exchange;
  EXPECT_EQ(send_bytes(exchange.service, "answer", 6).count, 6);
  shutdown_both(exchange.service);
  EXPECT_EQ(surroundings::receive_until_end(exchange.peer), "answer");
  EXPECT_LT(send_bytes(exchange.service, "more", 4).count, 0);
}

}  // namespace
}  // namespace velmora
