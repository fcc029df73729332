#include <array>
#include <cstdio>

#include "platform/hosted/machine_state.h"
#include "platform/machine.h"

namespace velmora {

std::u16string guid_text(const Guid& guid) {
  if (hosted::enter("StringFromGUID2", u"") != 0) return {};
  std::array<char, 40> text{};
  const auto& last = guid.data4;
  std::snprintf(text.data(), text.size(), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.data1,
                guid.data2, guid.data3, last[0], last[1], last[2], last[3], last[4], last[5], last[6],
                last[7]);
  return {text.begin(), text.end() - 2};
}

}  // namespace velmora
