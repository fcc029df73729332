#include "account/machine_id.h"

#include "base/hex.h"
#include "base/sha256.h"
#include "platform/machine.h"

namespace velmora {
namespace {

// Domain separation: hashes of the identifier for other purposes differ.
constexpr std::string_view label = "velmora machine 1\n";

}  // namespace

std::string machine_id_of(const std::string& identifier, const std::string& name) {
  const std::string origin = identifier.empty() ? "name:" + name : "id:" + identifier;
  std::string text;
  for (const unsigned char byte : sha256(std::string(label) + origin)) append_hex(text, byte);
  return text;
}

const std::string& current_machine_id() {
  static const std::string id = machine_id_of(machine_identifier(), machine_name());
  return id;
}

}  // namespace velmora
