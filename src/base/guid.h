// A GUID in the layout of Windows (guiddef.h).
#pragma once

#include <array>
#include <cstdint>

namespace velmora {

struct Guid {
  std::uint32_t data1;
  std::uint16_t data2;
  std::uint16_t data3;
  std::array<std::uint8_t, 8> data4;
};

}  // namespace velmora
