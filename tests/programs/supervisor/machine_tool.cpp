// Writes the built-in machine to a file, and chooses where sound plays on a machine that ./run serves.
//
// Usage: velmora_machine new FILE
//        velmora_machine play none|default|DEVICE
//
// `new` takes a file that does not exist. `play` changes the machine that VELMORA_MACHINE names; DEVICE is an
// id or the beginning of a device's name, and has to be active on it. Exit codes: 0 done, 1 failed, 2 bad
// usage, 10 the machine cannot be read.
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "base/text.h"
#include "platform/hosted/machine_state.h"
#include "platform/machine.h"
#include "sound.h"

namespace {

constexpr int exit_done = 0;
constexpr int exit_failed = 1;
constexpr int exit_bad_usage = 2;
constexpr int exit_machine_unreadable = 10;

int fail(const std::string& why, int code = exit_failed) {
  velmora::write_standard_error(why + '\n');
  return code;
}

int write_new(const char* path) {
  const std::string_view text = velmora::hosted::builtin_machine;
  std::FILE* file = std::fopen(path, "wxe");
  if (file == nullptr) return fail(std::string(path) + " cannot be made");
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  const bool closed = std::fclose(file) == 0;
  return written && closed ? exit_done : fail(std::string(path) + " cannot be written");
}

int play(std::string_view choice) {
  namespace hosted = velmora::hosted;
  namespace supervisor = velmora::supervisor;
  if (const std::string trouble = velmora::load_machine(); !trouble.empty()) {
    return fail("Unable to read the machine " + trouble, exit_machine_unreadable);
  }
  const hosted::RegistryChange change = hosted::begin_registry_change();
  if (hosted::enter("choose the sound", u"") != 0) {
    return fail("The machine cannot be read.", exit_machine_unreadable);
  }
  hosted::RegistryTree& registry = hosted::machine_state().registry;
  const std::u16string wanted = velmora::wide_from_utf8_replacing(choice);
  if (wanted != u"none" && supervisor::find_playing_endpoint(registry, wanted).empty()) {
    return fail("No active device is called " + std::string(choice) + '.');
  }
  hosted::RegistryTree before = registry;
  supervisor::choose_sound(registry, choice);
  const bool kept = hosted::keep_or_undo(std::move(before)) == 0;
  return kept ? exit_done : fail("The machine cannot be written.");
}

}  // namespace

int main(int argc, char** argv) {
  velmora::prepare_process();
  const std::string_view action = argc == 3 ? argv[1] : "";
  if (action == "new") return write_new(argv[2]);
  if (action == "play") return play(argv[2]);
  return fail("Usage: velmora_machine new FILE\n       velmora_machine play none|default|DEVICE",
              exit_bad_usage);
}
