#include "account/machine_id.h"

#include "base/sha256.h"
#include "platform/machine.h"

namespace velmora {
namespace {

// Whatever else is made of the machine's identifier comes out differently.
constexpr std::string_view label = "velmora machine 1\n";

std::string find_identifier() {
  const std::string identifier = machine_identifier();
  return identifier.empty() ? "name:" + machine_name() : "id:" + identifier;
}

}  // namespace

std::string machine_id_of(const std::string& identifier) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : sha256(std::string(label) + identifier)) {
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

const std::string& current_machine_id() {
  static const std::string id = machine_id_of(find_identifier());
  return id;
}

}  // namespace velmora
