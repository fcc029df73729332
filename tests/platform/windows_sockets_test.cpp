#include <gtest/gtest.h>

#include <winsock2.h>

#include <windows.h>

#include <thread>

#include "platform/http_client.h"
#include "platform/socket_exchange.h"
#include "platform/sockets.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::Exchange;
using surroundings::long_wait_ms;
using surroundings::short_wait_ms;

class WindowsSockets : public surroundings::ArrangedSockets {};

TEST_F(WindowsSockets, AreNotInheritedByProgramsThatWeStart) {
  const Exchange exchange;
  for (const Socket* socket : {&exchange.listener, &exchange.service}) {
    DWORD flags = HANDLE_FLAG_INHERIT;
    ASSERT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(socket->native()), &flags));
    EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);
  }
}

TEST_F(WindowsSockets, AreBoundToTheLoopbackAddressAndThePort) {
  const Exchange exchange;
  sockaddr_in address{};
  int size = sizeof address;
  ASSERT_EQ(getsockname(exchange.listener.native(), reinterpret_cast<sockaddr*>(&address), &size), 0);
  EXPECT_EQ(ntohl(address.sin_addr.s_addr), INADDR_LOOPBACK);
  EXPECT_EQ(ntohs(address.sin_port), exchange.port);
}

TEST_F(WindowsSockets, ReportAResetDuringAReceiveAs10054) {
  Exchange exchange;
  std::thread other([&] {
    Sleep(50);
    surroundings::reset_connection(exchange.peer);
  });
  char byte = '#';
  const SocketCount got = receive_bytes(exchange.service, &byte, 1);
  other.join();
  EXPECT_EQ(got.count, -1);
  EXPECT_EQ(got.error, WSAECONNRESET);
}

// A listener whose queue is full: Windows refuses a connection to it. Wine, on a kernel that
// drops it, waits.
TEST_F(WindowsSockets, LimitTheWaitForAnHttpConnection) {
  const std::uint16_t port = surroundings::find_free_port();
  const surroundings::OtherListener listener = surroundings::listen_elsewhere(port);
  const surroundings::Peer first = surroundings::connect_to(port);
  const surroundings::Peer second = surroundings::connect_to(port);
  const HttpExchange exchange =
      surroundings::open_exchange(port, {long_wait_ms, short_wait_ms, long_wait_ms, long_wait_ms});
  const std::int64_t begin_ns = steady_now_ns();
  EXPECT_EQ(surroundings::send_and_wait(exchange), surroundings::runs_under_wine() ? 12002u : 12029u);
  if (surroundings::runs_under_wine()) surroundings::expect_short_wait(begin_ns);
}

}  // namespace
}  // namespace velmora
