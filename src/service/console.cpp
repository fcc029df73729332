#include "service/console.h"

namespace velmora {

bool console_ctrl_handler(std::uint32_t event) {
  if (event != 0 && event != 1 && event != 2 && event != 6) return false;
  stop_requested = true;
  return true;
}

}  // namespace velmora
