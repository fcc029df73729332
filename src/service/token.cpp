#include "service/token.h"

#include <array>

#include "base/hex.h"
#include "platform/machine.h"

namespace velmora {

std::string generate_session_token() {
  std::array<unsigned char, 24> bytes{};
  if (!fill_random(bytes.data(), bytes.size())) return {};
  std::string token;
  for (const unsigned char byte : bytes) append_hex(token, byte);
  return token;
}

}  // namespace velmora
