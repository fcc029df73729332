// What the unit tests share: a new machine in memory for each test, which has to be empty again at its end.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "memory/http_service.h"
#include "memory/system.h"
#include "platform/sockets.h"
#include "service/console.h"

namespace velmora {

// Every test of a derived suite starts on a new machine and with no stop asked for.
class FreshMachine : public ::testing::Test {
 protected:
  void SetUp() override {
    memory::reset();
    memory::reset_http_service();
    stop_requested = false;
  }
  void TearDown() override {
    {
      // A session check that is still in flight would come to the next test's service.
      const std::lock_guard lock(memory::http_service().guard);
      EXPECT_TRUE(memory::http_service().open.empty());
    }
    EXPECT_TRUE(memory::system().handles.empty());
    EXPECT_TRUE(memory::system().state.open_keys.empty());
    EXPECT_TRUE(memory::system().state.audio_objects.empty());
    EXPECT_TRUE(memory::system().state.open_services.empty());
    EXPECT_EQ(memory::system().com_started, 0);
    EXPECT_EQ(memory::system().sockets_started, 0);
    memory::reset();
    stop_requested = false;
  }
};

// How often the machine was asked for an operation.
inline std::ptrdiff_t calls_of(std::string_view operation) {
  const auto& log = memory::system().log;
  return std::count(log.begin(), log.end(), operation);
}

// A connection that the service has accepted already.
struct Accepted {
  std::shared_ptr<memory::Connection> client;
  Socket socket;
};

inline Accepted accept_client(std::deque<std::string> to_service) {
  memory::Handle handle;
  handle.what = "socket";
  handle.connection = std::make_shared<memory::Connection>();
  handle.connection->to_service = std::move(to_service);
  Accepted accepted{handle.connection, Socket()};
  accepted.socket = Socket(memory::add_handle(std::move(handle)));
  return accepted;
}

// A copy of some bytes in a heap block of exactly their size, so that a sanitizer sees each read beyond it.
class ExactBlock {
 public:
  explicit ExactBlock(std::string_view bytes) : bytes_(new char[bytes.size()]), size_(bytes.size()) {
    std::copy(bytes.begin(), bytes.end(), bytes_.get());
  }
  [[nodiscard]] std::string_view view() const { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t size_;
};

}  // namespace velmora
