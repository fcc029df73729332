// Shared by the unit tests: a new memory machine for each test, which must release everything by its end.
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

#include "capture/capture_directory.h"
#include "capture/preset_directory.h"
#include "engine/algorithm_version.h"
#include "memory/http_service.h"
#include "memory/system.h"
#include "platform/sockets.h"
#include "service/console.h"

namespace velmora {

// Starts each test of a derived suite on a new machine, with no stop requested and no global option set.
class FreshMachine : public ::testing::Test {
 protected:
  void SetUp() override {
    renew();
    memory::reset_http_service();
  }
  void TearDown() override {
    {
      // A session check in flight would reach the service of the next test.
      const std::lock_guard lock(memory::http_service().guard);
      EXPECT_TRUE(memory::http_service().open.empty());
    }
    EXPECT_TRUE(memory::system().handles.empty());
    EXPECT_TRUE(memory::system().state.open_keys.empty());
    EXPECT_TRUE(memory::system().state.audio_objects.empty());
    EXPECT_TRUE(memory::system().state.open_services.empty());
    EXPECT_EQ(memory::system().com_started, 0);
    EXPECT_EQ(memory::system().sockets_started, 0);
    renew();
  }

 private:
  static void renew() {
    memory::reset();
    stop_requested = false;
    capture_directory_override.clear();
    preset_directory_override.clear();
    algorithm_version.clear();
  }
};

// How often the machine executed an operation.
inline std::ptrdiff_t calls_of(std::string_view operation) {
  const auto& log = memory::system().log;
  return std::count(log.begin(), log.end(), operation);
}

// A connection accepted by the service.
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

// A copy of bytes in a heap block of their exact size, so that a sanitizer reports any read beyond it.
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
