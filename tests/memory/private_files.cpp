#include "platform/private_files.h"

#include <utility>

#include "base/text.h"
#include "memory/system.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/machine.h"

namespace velmora {
namespace {

memory::File* find_file(std::string_view path) {
  const auto file = memory::system().files.find(std::string(path));
  return file == memory::system().files.end() ? nullptr : &file->second;
}

std::uint32_t error_of_missing(std::string_view path) {
  return query_file_kind(parent_path(path)) == FileKind::directory ? error_file_not_found
                                                                   : error_path_not_found;
}

// Why no private file can be made here, or 0.
std::uint32_t error_of_replacing(std::string_view path) {
  const memory::File* former = find_file(path);
  if (former == nullptr) {
    const std::uint32_t error = error_of_missing(path);
    return error == error_file_not_found ? 0 : error;
  }
  if (former->kind == FileKind::directory) return error_access_denied;
  return former->is_held ? error_sharing_violation : 0;
}

memory::File& put_private_file(std::string_view path) {
  memory::File& file = memory::system().files[std::string(path)];
  file = {};
  file.is_private = true;
  return file;
}

const std::string& path_of(const HeldFile& file) { return memory::system().handles.at(file.native()).path; }

std::string variable(std::u16string_view name) {
  std::string text = utf8_from_wide_replacing(environment_variable(name));
  return text.starts_with('/') ? text : std::string();
}

}  // namespace

std::string private_directory() {
  std::string state = variable(u"XDG_STATE_HOME");
  if (state.empty()) {
    const std::string home = variable(u"HOME");
    if (home.empty()) return {};
    state = home + "/.local/state";
  }
  return state + "/velmora/control";
}

std::uint32_t make_private_directory(std::string_view path) {
  if (const std::uint32_t error = make_directories(path); error != 0) return error;
  memory::File& directory = *find_file(path);
  if (directory.is_foreign) return error_invalid_owner;
  directory.is_private = true;
  return 0;
}

void HeldFileKind::release(Native native) noexcept {
  static_cast<void>(memory::enter("CloseHandle"));
  memory::system().files.erase(memory::system().handles.at(native).path);
  memory::system().handles.erase(native);
}

std::uint32_t hold_private_file(std::string_view path, HeldFile& out) {
  if (const auto fault = memory::enter("CreateFileW")) return static_cast<std::uint32_t>(fault);
  if (const std::uint32_t error = error_of_replacing(path); error != 0) return error;
  put_private_file(path).is_held = true;
  memory::Handle handle;
  handle.what = "held file";
  handle.path = path;
  out = HeldFile(memory::add_handle(std::move(handle)));
  return 0;
}

std::uint32_t write_held_file(const HeldFile& file, std::string_view bytes) {
  const auto fault = memory::enter("WriteFile");
  find_file(path_of(file))->bytes = fault == 0 ? bytes : std::string_view();
  return static_cast<std::uint32_t>(fault);
}

PrivateFileRead read_private_file(std::string_view path) {
  constexpr std::size_t limit = 65536;
  if (const auto fault = memory::enter("CreateFileW")) return {static_cast<std::uint32_t>(fault), false, {}};
  const memory::File* file = find_file(path);
  if (file == nullptr) return {error_of_missing(path), false, {}};
  if (file->kind != FileKind::regular) return {error_access_denied, false, {}};
  if (file->is_foreign || !file->is_private) return {error_invalid_owner, false, {}};
  if (file->read_error != 0) return {file->read_error, false, {}};
  return {0, file->is_held, file->bytes.substr(0, limit)};
}

std::uint32_t write_private_file(std::string_view path, std::string_view bytes) {
  if (const auto fault = memory::enter("CreateFileW")) return static_cast<std::uint32_t>(fault);
  if (const std::uint32_t error = error_of_replacing(path); error != 0) return error;
  const memory::File* former = find_file(path);
  if (former != nullptr && former->is_foreign) return error_invalid_owner;
  memory::system().files.erase(std::string(path));
  if (const auto fault = memory::enter("WriteFile")) return static_cast<std::uint32_t>(fault);
  put_private_file(path).bytes = bytes;
  return 0;
}

}  // namespace velmora
