// What the tests of sockets begin with.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "platform/sockets.h"
#include "platform/surroundings.h"

namespace velmora::surroundings {

// Tests between start_sockets and stop_sockets.
class ArrangedSockets : public Arranged {
 protected:
  void SetUp() override {
    Arranged::SetUp();
    ASSERT_EQ(start_sockets(), std::nullopt);
  }
  void TearDown() override {
    stop_sockets();
    Arranged::TearDown();
  }
};

inline Socket listen_on(std::uint16_t port) {
  Socket listener;
  EXPECT_EQ(open_tcp_socket(listener), std::nullopt);
  EXPECT_EQ(bind_loopback(listener, port), std::nullopt);
  EXPECT_EQ(listen_at_maximum(listener), std::nullopt);
  return listener;
}

// A client that is connected, and the service's side of that connection.
struct Exchange {
  std::uint16_t port = find_free_port();
  Socket listener = listen_on(port);
  Peer peer = connect_to(port);
  Socket service = accept();

  // The next connection that waits.
  Socket accept() const {
    Socket accepted;
    EXPECT_EQ(accept_connection(listener, accepted), std::nullopt);
    return accepted;
  }
};

}  // namespace velmora::surroundings
