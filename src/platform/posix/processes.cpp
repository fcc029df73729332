#include "platform/processes.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <string>

#include "base/text.h"

namespace velmora {
namespace {

// Where the system tells of its processes. Tests give their own.
std::string process_directory(std::uint32_t process_id) {
  const char* root = std::getenv("VELMORA_PROC");
  return (root == nullptr || *root == '\0' ? "/proc" : std::string(root)) + '/' + std::to_string(process_id);
}

}  // namespace

std::u16string process_image_path(std::uint32_t process_id) {
  const std::string link = process_directory(process_id) + "/exe";
  std::array<char, PATH_MAX> path;
  const ssize_t length = readlink(link.c_str(), path.data(), path.size());
  if (length <= 0) return {};
  return wide_from_utf8_replacing({path.data(), static_cast<std::size_t>(length)});
}

}  // namespace velmora
