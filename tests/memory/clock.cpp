#include "platform/clock.h"

#include "memory/system.h"

namespace velmora {

std::int64_t steady_now_ns() { return memory::system().now_ns; }

bool read_local_time(std::tm& out) {
  if (!memory::system().local_time) return false;
  out = *memory::system().local_time;
  return true;
}

std::int64_t unix_time_s() { return memory::system().unix_time_s; }

void sleep_ms(std::uint32_t duration_ms) {
  memory::System& machine = memory::system();
  ++machine.sleeps;
  machine.now_ns += std::int64_t{duration_ms} * 1'000'000;
  if (machine.on_sleep) machine.on_sleep();
}

}  // namespace velmora
