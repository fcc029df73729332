// Path operations for POSIX paths and for Windows paths with drives. They only handle text, so the machine in
// memory gives the same results on every system.
#include "platform/hosted/paths.h"

#include "base/ascii.h"
#include "platform/files.h"

namespace velmora {
namespace {

bool is_separator(char byte) { return byte == '\\' || byte == '/'; }

// Length of the root of a Windows path, in bytes. 0 if Windows' rules do not apply to the path.
std::size_t windows_root_bytes(std::string_view path) {
  constexpr std::size_t drive_root_bytes = 3;
  constexpr std::size_t share_root_bytes = 2;
  if (has_drive(path)) return drive_root_bytes;
  return has_share(path) ? share_root_bytes : 0;
}

}  // namespace

bool has_drive(std::string_view path) {
  return path.size() > 2 && is_ascii_letter(path[0]) && path[1] == ':' && is_separator(path[2]);
}

bool has_share(std::string_view path) {
  return path.size() > 2 && path[0] == '\\' && is_separator(path[1]) && !is_separator(path[2]);
}

std::string join_path(std::string_view directory, std::string_view name) {
  std::string joined(directory);
  // A drive path written with slashes continues with slashes.
  const bool by_backslash = has_share(directory) || (has_drive(directory) && directory[2] == '\\');
  const char separator = by_backslash ? '\\' : '/';
  if (!directory.empty() && directory.back() != '/' && directory.back() != separator) joined += separator;
  return joined += name;
}

std::string parent_path(std::string_view path) {
  const std::size_t root_bytes = windows_root_bytes(path);
  const std::size_t last = root_bytes != 0 ? path.find_last_of("\\/") : path.rfind('/');
  if (last == std::string_view::npos) return {};
  if (root_bytes != 0) return std::string(path.substr(0, last < root_bytes ? root_bytes : last));
  return std::string(path.substr(0, last == 0 ? 1 : last));
}

}  // namespace velmora
