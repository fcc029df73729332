#include "platform/files.h"

#include <algorithm>

#include "memory/system.h"
#include "platform/errors.h"

namespace velmora {
namespace {

// What every real system says of a path that does not lead to a file, or 0.
std::uint32_t error_of_no_file(std::string_view path) {
  const FileKind kind = query_file_kind(path);
  if (kind == FileKind::directory) return error_access_denied;
  if (kind != FileKind::missing) return 0;
  return query_file_kind(parent_path(path)) == FileKind::directory ? error_file_not_found
                                                                   : error_path_not_found;
}

bool is_held(std::string_view path) {
  const auto file = memory::system().files.find(std::string(path));
  return file != memory::system().files.end() && file->second.is_held;
}

}  // namespace

FileKind query_file_kind(std::string_view path) {
  const auto file = memory::system().files.find(std::string(path));
  return file == memory::system().files.end() ? FileKind::missing : file->second.kind;
}

void InputFileKind::release(Native native) noexcept { memory::system().handles.erase(native); }

std::uint32_t open_for_reading(std::string_view path, InputFile& out) {
  if (const auto fault = memory::enter("CreateFileW")) return static_cast<std::uint32_t>(fault);
  if (const std::uint32_t error = error_of_no_file(path); error != 0) return error;
  memory::Handle handle;
  handle.what = "file";
  handle.path = path;
  out = InputFile(memory::add_handle(std::move(handle)));
  return 0;
}

FileRead read_file_piece(const InputFile& file, char* buffer, std::size_t capacity) {
  memory::Handle& handle = memory::system().handles.at(file.native());
  const auto found = memory::system().files.find(handle.path);
  // Removed while it was open: nothing more comes.
  if (found == memory::system().files.end()) return {0, 0};
  const memory::File& data = found->second;
  const std::size_t position = std::min(handle.position, data.bytes.size());
  const std::size_t count = std::min(capacity, data.bytes.size() - position);
  if (count == 0 && data.read_error != 0) return {0, data.read_error};
  std::copy_n(data.bytes.begin() + static_cast<std::ptrdiff_t>(handle.position), count, buffer);
  handle.position += count;
  return {count, 0};
}

std::uint32_t query_file_size(std::string_view path, std::uint64_t& out) {
  if (const auto fault = memory::enter("GetFileSizeEx")) return static_cast<std::uint32_t>(fault);
  if (const std::uint32_t error = error_of_no_file(path); error != 0) return error;
  const memory::File& file = memory::system().files.at(std::string(path));
  out = file.size.value_or(file.bytes.size());
  return 0;
}

std::uint32_t write_whole_file(std::string_view path, std::string_view bytes) {
  const auto fault = memory::enter("CreateFileW");
  if (fault != 0) return static_cast<std::uint32_t>(fault);
  const std::uint32_t error = error_of_no_file(path);
  if (error != 0 && error != error_file_not_found) return error;
  if (query_file_kind(path) == FileKind::other) return error_access_denied;
  if (is_held(path)) return error_sharing_violation;
  memory::File& file = memory::system().files[std::string(path)];
  file = {};
  if (const auto write_fault = memory::enter("WriteFile")) {
    file.bytes = bytes.substr(0, bytes.size() / 2);
    return static_cast<std::uint32_t>(write_fault);
  }
  file.bytes = bytes;
  return 0;
}

std::uint32_t remove_file(std::string_view path) {
  if (const auto fault = memory::enter("DeleteFileW")) return static_cast<std::uint32_t>(fault);
  if (const std::uint32_t error = error_of_no_file(path); error != 0) return error;
  if (is_held(path)) return error_sharing_violation;
  memory::system().files.erase(std::string(path));
  return 0;
}

std::uint32_t list_directory(std::string_view path, std::vector<std::string>& names) {
  names.clear();
  if (const auto fault = memory::enter("FindFirstFileW")) return static_cast<std::uint32_t>(fault);
  const FileKind kind = query_file_kind(path);
  if (kind != FileKind::directory) return kind == FileKind::missing ? error_path_not_found : error_directory;
  for (const auto& [file, data] : memory::system().files) {
    const std::string name = file.substr(parent_path(file).size());
    if (parent_path(file) == path && file != path)
      names.push_back(name.substr(name.find_first_not_of("\\/")));
  }
  return 0;
}

std::uint32_t make_directories(std::string_view path) {
  if (const auto fault = memory::enter("CreateDirectoryW")) return static_cast<std::uint32_t>(fault);
  if (path.empty()) return error_path_not_found;
  std::vector<std::string> missing;
  for (std::string directory(path); !directory.empty(); directory = parent_path(directory)) {
    const FileKind kind = query_file_kind(directory);
    if (kind == FileKind::directory) break;
    if (kind != FileKind::missing) return error_already_exists;
    missing.push_back(directory);
    if (parent_path(directory) == directory) break;
  }
  for (const std::string& directory : missing) memory::system().files[directory].kind = FileKind::directory;
  return 0;
}

}  // namespace velmora
