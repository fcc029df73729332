#include "service/token.h"

#include <array>
#include <string_view>

#include "platform/machine.h"

namespace velmora {

std::string generate_session_token() {
  constexpr std::string_view digits = "0123456789abcdef";
  std::array<unsigned char, 24> bytes{};
  if (!fill_random(bytes.data(), bytes.size())) return {};
  std::string token;
  for (const unsigned char byte : bytes) {
    token += digits[byte >> 4];
    token += digits[byte & 0xF];
  }
  return token;
}

}  // namespace velmora
