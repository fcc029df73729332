#include "platform/posix/drives.h"

#include <algorithm>
#include <cstdlib>

#include "base/ascii.h"
#include "platform/hosted/paths.h"

namespace velmora {
namespace {

// Returns the variable if it is an absolute path, otherwise an empty string.
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
  const bool on_a_drive = has_drive(path);
  if (!on_a_drive && !has_share(path)) return std::string(path);
  const std::string root = on_a_drive ? std::string(1, ascii_lower(path[0])) : "unc";
  std::string below(path.substr(on_a_drive ? 2 : 1));
  std::replace(below.begin(), below.end(), '\\', '/');
  return drives_directory().append("/").append(root).append(below);
}

}  // namespace velmora
