#include "base/status.h"

namespace velmora {

std::int32_t hresult_from_win32(std::int32_t error) {
  if (error <= 0) return error;
  return static_cast<std::int32_t>((static_cast<std::uint32_t>(error) & 0xFFFFu) | 0x80070000u);
}

}  // namespace velmora
