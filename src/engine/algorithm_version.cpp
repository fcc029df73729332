#include "engine/algorithm_version.h"

#include <cstdint>

#include "platform/files.h"
#include "platform/machine.h"

namespace velmora {
namespace {

using GetVersion = void (*)(std::uint32_t* major, std::uint32_t* minor, std::uint32_t* patch);

}  // namespace

std::string probe_algorithm_version() {
  const std::string own_path = own_module_path();
  if (own_path.empty()) return "unknown";
  const std::string library_path = join_path(parent_path(own_path), "fse.dll");
  const FileKind kind = query_file_kind(library_path);
  if (kind == FileKind::missing || kind == FileKind::directory) return "not found";
  // Opening a pipe would block the loader until somebody wrote to it.
  if (kind != FileKind::regular) return "unavailable";
  const DynamicLibrary library = load_library(library_path);
  if (!library.is_open()) return "unavailable";
  const LibraryFunction function = find_library_function(library, "fse_get_version");
  if (function == nullptr) return "unknown";
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::uint32_t patch = 0;
  reinterpret_cast<GetVersion>(function)(&major, &minor, &patch);
  return std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(patch);
}

}  // namespace velmora
