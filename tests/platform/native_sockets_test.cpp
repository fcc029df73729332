// What only real sockets do: block, and meet each other on a port.
#include "platform/sockets.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

#include "platform/clock.h"
#include "platform/socket_exchange.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::listen_on;

class NativeSockets : public surroundings::ArrangedSockets {};

TEST_F(NativeSockets, LetsOneOfTwoThatBindTogetherListen) {
  constexpr int error_in_use = 10048;
  const std::uint16_t port = surroundings::find_free_port();
  Socket first;
  Socket second;
  ASSERT_EQ(open_tcp_socket(first), std::nullopt);
  ASSERT_EQ(open_tcp_socket(second), std::nullopt);
  ASSERT_EQ(bind_loopback(first, port), std::nullopt);
  const std::optional<int> bound = bind_loopback(second, port);
  ASSERT_EQ(listen_at_maximum(first), std::nullopt);
  EXPECT_EQ(bound ? bound : listen_at_maximum(second), error_in_use);
}

TEST_F(NativeSockets, IsReachedOnTheLoopbackAddress) {
  const std::uint16_t port = surroundings::find_free_port();
  const Socket listener = listen_on(port);
  const surroundings::Peer peer = surroundings::connect_to(port);
  EXPECT_EQ(wait_readable(listener, 10'000'000).count, 1);
}

TEST_F(NativeSockets, WaitsUntilTheTimeIsUp) {
  const Socket listener = listen_on(surroundings::find_free_port());
  const std::int64_t before = steady_now_ns();
  EXPECT_EQ(wait_readable(listener, 30'000).count, 0);
  // Windows counts in milliseconds of its own clock.
  EXPECT_GE(steady_now_ns() - before, 28'000'000);
}

TEST_F(NativeSockets, BlocksInAReceiveUntilThePeerSends) {
  surroundings::Exchange exchange;
  std::thread late([&] {
    sleep_ms(30);
    surroundings::send_all(exchange.peer, "late");
  });
  std::array<char, 16> buffer{};
  const SocketCount got = receive_bytes(exchange.service, buffer.data(), buffer.size());
  late.join();
  EXPECT_EQ(got.count, 4);
  EXPECT_EQ(got.error, 0);
}

TEST_F(NativeSockets, BlocksInASendUntilThePeerReads) {
  surroundings::Exchange exchange;
  // More than the system buffers for one connection.
  std::string answer(24'000'000, '\0');
  for (std::size_t index = 0; index < answer.size(); ++index) answer[index] = static_cast<char>(index % 253);
  std::string received;
  std::thread reader([&] { received = surroundings::receive_until_end(exchange.peer); });
  const std::size_t sent = surroundings::send_whole(exchange.service, answer);
  exchange.service.close();
  reader.join();
  EXPECT_EQ(sent, answer.size());
  EXPECT_TRUE(received == answer) << received.size() << " bytes came";
}

}  // namespace
}  // namespace velmora
