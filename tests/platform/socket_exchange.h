// What the tests of sockets begin with.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>

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

// Sends until all is sent or a send fails; how many bytes were sent.
inline std::size_t send_whole(const Socket& socket, std::string_view bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const SocketCount count = send_bytes(socket, bytes.data() + sent, bytes.size() - sent);
    if (count.count <= 0) break;
    EXPECT_EQ(count.error, 0);
    sent += static_cast<std::size_t>(count.count);
  }
  return sent;
}

}  // namespace velmora::surroundings
