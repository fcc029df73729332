// Paths as POSIX writes them. Pure text, so that the machine in memory writes them alike on every system.
#include "platform/files.h"

namespace velmora {

std::string join_path(std::string_view directory, std::string_view name) {
  std::string joined(directory);
  if (!directory.empty() && directory.back() != '/') joined += '/';
  return joined += name;
}

std::string parent_path(std::string_view path) {
  const std::size_t last = path.rfind('/');
  if (last == std::string_view::npos) return {};
  return std::string(path.substr(0, last == 0 ? 1 : last));
}

}  // namespace velmora
