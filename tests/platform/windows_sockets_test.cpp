#include <gtest/gtest.h>

#include <winsock2.h>

#include <windows.h>

#include <thread>

#include "platform/sockets.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class WindowsSockets : public surroundings::Arranged {
 protected:
  void SetUp() override {
    Arranged::SetUp();
    ASSERT_EQ(start_sockets(), 0);
  }
  void TearDown() override {
    stop_sockets();
    Arranged::TearDown();
  }
};

struct Exchange {
  std::uint16_t port = surroundings::find_free_port();
  Socket listener;
  surroundings::Peer peer;
  Socket service;

  Exchange() {
    EXPECT_EQ(open_tcp_socket(listener), 0);
    EXPECT_EQ(bind_loopback(listener, port), 0);
    EXPECT_EQ(listen_at_maximum(listener), 0);
    peer = surroundings::connect_to(port);
    EXPECT_EQ(accept_connection(listener, service), 0);
  }
};

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

TEST_F(WindowsSockets, TellAResetThatInterruptsAReceiveBy10054) {
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

}  // namespace
}  // namespace velmora
