#include "platform/files.h"

#include <algorithm>

#include "platform/windows/native.h"

namespace velmora {
namespace {

bool is_separator(char byte) { return byte == '\\' || byte == '/'; }

// FILE_FLAG_BACKUP_SEMANTICS lets a directory be opened to be looked at, links followed.
FileKind kind_of_open(HANDLE handle) {
  if (GetFileType(handle) != FILE_TYPE_DISK) return FileKind::other;
  BY_HANDLE_FILE_INFORMATION information;
  if (!GetFileInformationByHandle(handle, &information)) return FileKind::missing;
  return information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY ? FileKind::directory : FileKind::regular;
}

constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

}  // namespace

FileKind query_file_kind(std::string_view path) {
  const HANDLE handle = CreateFileW(wide_path(path).c_str(), FILE_READ_ATTRIBUTES, share_all, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return FileKind::missing;
  const FileKind kind = kind_of_open(handle);
  CloseHandle(handle);
  return kind;
}

std::string join_path(std::string_view directory, std::string_view name) {
  std::string joined(directory);
  const bool bare_drive = directory.size() == 2 && directory[1] == ':';
  if (!directory.empty() && !is_separator(directory.back()) && !bare_drive) joined += '\\';
  return joined += name;
}

std::string parent_path(std::string_view path) {
  const std::size_t last = path.find_last_of("\\/");
  if (last == std::string_view::npos) return {};
  const bool is_root = last == 0 || (last == 2 && path[1] == ':');
  return std::string(path.substr(0, is_root ? last + 1 : last));
}

void InputFileKind::release(Native native) noexcept { CloseHandle(handle_of(native)); }

std::uint32_t open_for_reading(std::string_view path, InputFile& out) {
  const HANDLE handle = CreateFileW(wide_path(path).c_str(), GENERIC_READ, share_all, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return GetLastError();
  out = InputFile(native_of(handle));
  return 0;
}

FileRead read_file_piece(const InputFile& file, char* buffer, std::size_t capacity) {
  const DWORD wanted = static_cast<DWORD>(std::min<std::size_t>(capacity, 0x7fffffff));
  DWORD count = 0;
  if (!ReadFile(handle_of(file.native()), buffer, wanted, &count, nullptr)) return {0, GetLastError()};
  return {count, 0};
}

}  // namespace velmora
