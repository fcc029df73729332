#include "platform/posix/drives.h"

#include <algorithm>
#include <cstdlib>

#include "base/ascii.h"
#include "platform/hosted/paths.h"

namespace velmora {
namespace {

// A variable that holds an absolute path, or nothing.
std::string read_directory_variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value == '/' ? value : std::string();
}

std::string drives_directory() {
  std::string directory = read_directory_variable("VELMORA_DRIVES");
  if (!directory.empty()) return directory;
  directory = read_directory_variable("XDG_STATE_HOME");
  if (directory.empty()) directory = read_directory_variable("HOME") + "/.local/state";
  return directory + "/velmora/drives";
}

}  // namespace

std::string native_path(std::string_view path) {
  if (!has_drive(path)) return std::string(path);
  std::string below(path.substr(2));
  std::replace(below.begin(), below.end(), '\\', '/');
  const char letter = ascii_lower(path[0]);
  return drives_directory().append("/").append(1, letter).append(below);
}

}  // namespace velmora
