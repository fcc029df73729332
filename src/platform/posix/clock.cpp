#include "platform/clock.h"

#include <chrono>
#include <thread>

namespace velmora {

std::int64_t steady_now_ns() {
  const auto since_origin = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(since_origin).count();
}

bool read_local_time(std::tm& out) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local) == nullptr) return false;
  out = local;
  return true;
}

std::int64_t unix_time_s() { return std::time(nullptr); }

void sleep_ms(std::uint32_t duration_ms) {
  std::this_thread::sleep_for(std::chrono::milliseconds(duration_ms));
}

}  // namespace velmora
