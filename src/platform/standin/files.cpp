#include "platform/files.h"

#include <algorithm>

#include "platform/standin/system.h"

namespace velmora {
namespace {

constexpr std::uint32_t error_missing = 2;
constexpr std::uint32_t error_denied = 5;

}  // namespace

FileKind query_file_kind(std::string_view path) {
  const auto file = standin::system().files.find(std::string(path));
  return file == standin::system().files.end() ? FileKind::missing : file->second.kind;
}

void InputFileKind::release(Native native) noexcept { standin::system().handles.erase(native); }

std::uint32_t open_for_reading(std::string_view path, InputFile& out) {
  if (const auto fault = standin::enter("CreateFileW")) return static_cast<std::uint32_t>(fault);
  const FileKind kind = query_file_kind(path);
  if (kind == FileKind::missing) return error_missing;
  if (kind == FileKind::directory) return error_denied;
  standin::Handle handle;
  handle.what = "file";
  handle.path = path;
  out = InputFile(standin::add_handle(std::move(handle)));
  return 0;
}

FileRead read_file_piece(const InputFile& file, char* buffer, std::size_t capacity) {
  standin::Handle& handle = standin::system().handles.at(file.native());
  const standin::File& data = standin::system().files.at(handle.path);
  const std::size_t count = std::min(capacity, data.bytes.size() - handle.position);
  if (count == 0 && data.read_error != 0) return {0, data.read_error};
  std::copy_n(data.bytes.begin() + static_cast<std::ptrdiff_t>(handle.position), count, buffer);
  handle.position += count;
  return {count, 0};
}

}  // namespace velmora
