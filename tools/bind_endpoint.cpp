// Inspects, binds or unbinds one render endpoint, using the service's own library.
//
// Usage: velmora_bind_endpoint look|bind|unbind ENDPOINT_ID
//
// Prints the status and the result; `look` prints the state and the chain. Exit codes: 0: status 0; 1:
// another status; 2: bad usage; 10: the machine named by VELMORA_MACHINE cannot be read (Linux only).
#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include "binding/binding.h"
#include "platform/machine.h"

namespace {

constexpr int exit_done = 0;
constexpr int exit_failed = 1;
constexpr int exit_bad_usage = 2;
constexpr int exit_machine_unreadable = 10;

// As 0x and eight hexadecimal digits.
std::string status_text(std::int32_t status) {
  std::array<char, 8> digits;
  const auto end = std::to_chars(digits.begin(), digits.end(), static_cast<std::uint32_t>(status), 16).ptr;
  const std::string_view written(digits.data(), static_cast<std::size_t>(end - digits.data()));
  return "0x" + std::string(digits.size() - written.size(), '0').append(written);
}

std::string line(std::string_view name, std::string_view value) {
  return std::string(name).append(" ").append(value).append("\n");
}

int look(std::string_view endpoint_id) {
  velmora::EndpointBindingState state;
  const std::int32_t status = velmora::inspect_endpoint_binding(endpoint_id, state);
  std::string text = line("status", status_text(status));
  text += line("fx_key_present", state.fx_key_present ? "true" : "false");
  text += line("bound", state.bound ? "true" : "false");
  for (const std::string& entry : state.chain) text += line("chain", entry);
  velmora::write_standard_output(text);
  return status == 0 ? exit_done : exit_failed;
}

int change(std::string_view endpoint_id, bool bind) {
  std::string detail;
  const std::int32_t status = bind ? velmora::bind_endpoint_effect(endpoint_id, detail)
                                   : velmora::unbind_endpoint_effect(endpoint_id, detail);
  velmora::write_standard_output(line("status", status_text(status)) + line("detail", detail));
  return status == 0 ? exit_done : exit_failed;
}

}  // namespace

int main(int argc, char** argv) {
  velmora::prepare_process();
  const std::string_view action = argc == 3 ? argv[1] : "";
  if (action != "look" && action != "bind" && action != "unbind") {
    velmora::write_standard_error("Usage: velmora_bind_endpoint look|bind|unbind ENDPOINT_ID\n");
    return exit_bad_usage;
  }
  if (const std::string trouble = velmora::load_machine(); !trouble.empty()) {
    velmora::write_standard_error("Unable to read the machine " + trouble + '\n');
    return exit_machine_unreadable;
  }
  return action == "look" ? look(argv[2]) : change(argv[2], action == "bind");
}
