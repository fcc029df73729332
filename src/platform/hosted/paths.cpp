// Paths as POSIX writes them, and those of a machine with drives. Pure text, so that the machine in memory
// writes them alike on every system.
#include "platform/hosted/paths.h"

#include "base/ascii.h"
#include "platform/files.h"

namespace velmora {
namespace {

std::size_t last_separator(std::string_view path) {
  return has_drive(path) ? path.find_last_of("\\/") : path.rfind('/');
}

}  // namespace

bool has_drive(std::string_view path) {
  return !path.empty() && is_ascii_letter(path[0]) && path.substr(1).starts_with(":\\");
}

std::string join_path(std::string_view directory, std::string_view name) {
  std::string joined(directory);
  const char separator = has_drive(directory) ? '\\' : '/';
  if (!directory.empty() && directory.back() != '/' && directory.back() != separator) joined += separator;
  return joined += name;
}

std::string parent_path(std::string_view path) {
  constexpr std::size_t drive_root_bytes = 3;
  const std::size_t last = last_separator(path);
  if (last == std::string_view::npos) return {};
  if (has_drive(path)) return std::string(path.substr(0, last < drive_root_bytes ? drive_root_bytes : last));
  return std::string(path.substr(0, last == 0 ? 1 : last));
}

}  // namespace velmora
