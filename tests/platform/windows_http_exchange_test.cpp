// What WinHTTP does of its own.
#include <gtest/gtest.h>

#include "platform/http_client.h"
#include "platform/raw_http_server.h"

namespace velmora {
namespace {

using surroundings::long_wait_ms;
using surroundings::open_exchange;
using surroundings::send_and_wait;
using surroundings::short_wait_ms;

class WindowsHttp : public surroundings::ArrangedSockets {};

// A listener whose queue is full: Windows refuses a connection to it, and Wine, which stands on a kernel that
// drops it, waits.
TEST_F(WindowsHttp, WaitsForTheConnectionAsLongAsItMay) {
  const std::uint16_t port = surroundings::find_free_port();
  const surroundings::OtherListener listener = surroundings::listen_elsewhere(port);
  const surroundings::Peer first = surroundings::connect_to(port);
  const surroundings::Peer second = surroundings::connect_to(port);
  const HttpExchange exchange =
      open_exchange(port, {long_wait_ms, short_wait_ms, long_wait_ms, long_wait_ms});
  const std::int64_t begin_ns = steady_now_ns();
  EXPECT_EQ(send_and_wait(exchange), surroundings::runs_under_wine() ? 12002u : 12029u);
  if (surroundings::runs_under_wine()) surroundings::expect_short_wait(begin_ns);
}

}  // namespace
}  // namespace velmora
