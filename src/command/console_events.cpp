#include "command/console_events.h"

namespace velmora {

bool count_console_event(std::uint32_t event) {
  if (event > 2 && event != 5 && event != 6) return false;
  ++console_events;
  return true;
}

}  // namespace velmora
