#include "platform/files.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/windows/native.h"

namespace velmora {
namespace {

bool is_separator(char byte) { return byte == '\\' || byte == '/'; }

// Whether the running Windows treats the path as a device: NUL, CON, COM1 and the like, even with a directory
// or an extension. Check this before opening anything: merely opening a serial port affects it.
bool names_device(const std::wstring& path) {
  constexpr std::wstring_view devices = L"\\\\.\\";
  // A device's full path is short. If the path does not fit, the call returns the required size, and
  // it is no device.
  std::array<wchar_t, MAX_PATH> full{};
  const DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  return length < full.size() && std::wstring_view(full.data(), length).starts_with(devices);
}

FileKind kind_of_attributes(DWORD attributes) {
  return attributes & FILE_ATTRIBUTE_DIRECTORY ? FileKind::directory : FileKind::regular;
}

// Requires a handle opened with FILE_FLAG_BACKUP_SEMANTICS, which resolves links and accepts directories.
FileKind kind_of_open(HANDLE handle) {
  if (GetFileType(handle) != FILE_TYPE_DISK) return FileKind::other;
  BY_HANDLE_FILE_INFORMATION information;
  if (!GetFileInformationByHandle(handle, &information)) return FileKind::missing;
  return kind_of_attributes(information.dwFileAttributes);
}

constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Maps the error of a failed listing. The root of an empty drive lacks even `.` and `..`. Systems differ in
// the error for a file.
DWORD listing_error(std::string_view path, DWORD error) {
  const FileKind kind = query_file_kind(path);
  if (kind == FileKind::directory) return error == ERROR_FILE_NOT_FOUND ? 0 : error;
  return kind == FileKind::missing ? error : ERROR_DIRECTORY;
}

// Succeeds if the directory exists, even if somebody else created it meanwhile. The error for an existing
// directory differs: 5 for the root of a drive, otherwise 183.
std::uint32_t make_directory(std::string_view path) {
  const std::wstring wide = wide_path(path);
  if (CreateDirectoryW(wide.c_str(), nullptr)) return 0;
  const DWORD error = last_error();
  return query_file_kind(path) == FileKind::directory ? 0 : error;
}

}  // namespace

FileKind query_file_kind(std::string_view path) {
  const std::wstring wide = wide_path(path);
  if (names_device(wide)) return FileKind::other;
  // Attributes are readable even if an access list denies opening the file.
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(wide.c_str(), GetFileExInfoStandard, &data)) return FileKind::missing;
  if (!(data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT))
    return kind_of_attributes(data.dwFileAttributes);
  const HANDLE handle = CreateFileW(wide.c_str(), FILE_READ_ATTRIBUTES, share_all, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return FileKind::missing;
  const FileKind kind = kind_of_open(handle);
  CloseHandle(handle);
  return kind;
}

std::uint32_t query_file_size(std::string_view path, std::uint64_t& out) {
  const std::wstring wide = wide_path(path);
  const HANDLE handle = CreateFileW(wide.c_str(), FILE_READ_ATTRIBUTES, share_all, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return last_error();
  LARGE_INTEGER size;
  const DWORD error = GetFileSizeEx(handle, &size) ? 0 : last_error();
  CloseHandle(handle);
  if (error == 0) out = static_cast<std::uint64_t>(size.QuadPart);
  return error;
}

std::string join_path(std::string_view directory, std::string_view name) {
  std::string joined(directory);
  const bool bare_drive = directory.size() == 2 && directory[1] == ':';
  if (!directory.empty() && !is_separator(directory.back()) && !bare_drive) joined += '\\';
  return joined += name;
}

std::string parent_path(std::string_view path) {
  const std::size_t last = path.find_last_of("\\/");
  const bool has_drive = path.size() >= 2 && path[1] == ':';
  if (last == std::string_view::npos) return std::string(path.substr(0, has_drive ? 2 : 0));
  const bool is_root = last == 0 || (last == 2 && has_drive);
  return std::string(path.substr(0, is_root ? last + 1 : last));
}

void InputFileKind::release(Native native) noexcept { CloseHandle(handle_of(native)); }

std::uint32_t open_for_reading(std::string_view path, InputFile& out) {
  const std::wstring wide = wide_path(path);
  const HANDLE handle = CreateFileW(wide.c_str(), GENERIC_READ, share_all, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return last_error();
  out = InputFile(native_of(handle));
  return 0;
}

FileRead read_file_piece(const InputFile& file, char* buffer, std::size_t capacity) {
  const DWORD wanted = static_cast<DWORD>(std::min<std::size_t>(capacity, 0x7fffffff));
  DWORD count = 0;
  if (!ReadFile(handle_of(file.native()), buffer, wanted, &count, nullptr)) return {0, last_error()};
  return {count, 0};
}

std::uint32_t write_whole_file(std::string_view path, std::string_view bytes) {
  const std::wstring wide = wide_path(path);
  if (names_device(wide)) return ERROR_ACCESS_DENIED;
  const HANDLE handle = CreateFileW(wide.c_str(), GENERIC_WRITE, share_all, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return last_error();
  const InputFile file(native_of(handle));
  if (GetFileType(handle) != FILE_TYPE_DISK) return ERROR_ACCESS_DENIED;
  while (!bytes.empty()) {
    const DWORD wanted = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), 0x7fffffff));
    DWORD written = 0;
    if (!WriteFile(handle, bytes.data(), wanted, &written, nullptr)) return last_error();
    bytes.remove_prefix(written);
  }
  return 0;
}

std::uint32_t remove_file(std::string_view path) {
  const std::wstring wide = wide_path(path);
  return DeleteFileW(wide.c_str()) ? 0 : last_error();
}

std::uint32_t list_directory(std::string_view path, std::vector<std::string>& names) {
  names.clear();
  // Without this check the pattern would list the current directory.
  if (path.empty()) return ERROR_PATH_NOT_FOUND;
  WIN32_FIND_DATAW entry;
  const std::wstring pattern = wide_path(join_path(path, "*"));
  const HANDLE search = FindFirstFileW(pattern.c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return listing_error(path, last_error());
  do {
    const std::wstring_view name = entry.cFileName;
    if (name != L"." && name != L"..") {
      names.push_back(utf8_from_wide_replacing(std::u16string(name.begin(), name.end())));
    }
  } while (FindNextFileW(search, &entry));
  const DWORD error = GetLastError();
  FindClose(search);
  if (error == ERROR_NO_MORE_FILES) return 0;
  names.clear();
  return error;
}

std::uint32_t make_directories(std::string_view path) {
  const std::uint32_t error = make_directory(path);
  const std::string parent = parent_path(path);
  if (error != ERROR_PATH_NOT_FOUND || parent.size() >= path.size() || parent.empty()) return error;
  if (const std::uint32_t above = make_directories(parent); above != 0) return above;
  return make_directory(path);
}

}  // namespace velmora
