#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "platform/errors.h"
#include "platform/posix/drives.h"
#include "platform/posix/errors.h"

namespace velmora {
namespace {

// Maps the current errno as Windows would for this path: 2 if only its last component is missing, 3 if a
// directory is missing or the path is empty.
std::uint32_t error_about(std::string_view path) {
  const std::uint32_t error = win32_from_errno(errno);
  if (error != error_file_not_found) return error;
  const std::string above = parent_path(path);
  const bool above_is_there = above.empty() || query_file_kind(above) == FileKind::directory;
  return !path.empty() && above_is_there ? error_file_not_found : error_path_not_found;
}

// Refuses pipes and devices: writing to one could block or raise a signal.
std::uint32_t write_all(int descriptor, std::string_view bytes) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return win32_from_errno(errno);
  if (!S_ISREG(status.st_mode)) return error_access_denied;
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return win32_from_errno(errno);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

// Maps the current errno as Windows would for a failed directory listing.
std::uint32_t listing_error(std::string_view path) {
  const std::uint32_t error = win32_from_errno(errno);
  if (error == error_file_not_found) return error_path_not_found;
  const bool is_there = error == error_path_not_found && query_file_kind(path) != FileKind::missing;
  return is_there ? error_directory : error;
}

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

FileKind query_file_kind(std::string_view path) {
  struct stat status {};
  if (stat(native_path(path).c_str(), &status) != 0) return FileKind::missing;
  if (S_ISREG(status.st_mode)) return FileKind::regular;
  return S_ISDIR(status.st_mode) ? FileKind::directory : FileKind::other;
}

std::uint32_t query_file_size(std::string_view path, std::uint64_t& out) {
  struct stat status {};
  if (stat(native_path(path).c_str(), &status) != 0) return error_about(path);
  if (S_ISDIR(status.st_mode)) return error_access_denied;
  out = static_cast<std::uint64_t>(status.st_size);
  return 0;
}

void InputFileKind::release(Native native) noexcept { ::close(static_cast<int>(native)); }

std::uint32_t open_for_reading(std::string_view path, InputFile& out) {
  // Without O_NONBLOCK, opening a pipe would block until somebody writes to it.
  const int descriptor = open(native_path(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) return error_about(path);
  InputFile file(static_cast<InputFile::Native>(descriptor));
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return win32_from_errno(errno);
  if (S_ISDIR(status.st_mode)) return error_access_denied;
  out = std::move(file);
  return 0;
}

FileRead read_file_piece(const InputFile& file, char* buffer, std::size_t capacity) {
  ssize_t count = 0;
  do {
    count = read(static_cast<int>(file.native()), buffer, capacity);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return {0, win32_from_errno(errno)};
  return {static_cast<std::size_t>(count), 0};
}

std::uint32_t write_whole_file(std::string_view path, std::string_view bytes) {
  // O_NONBLOCK: do not block if a pipe has replaced the file.
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  const int descriptor = open(native_path(path).c_str(), flags, 0666);
  if (descriptor < 0) return error_about(path);
  const std::uint32_t error = write_all(descriptor, bytes);
  // Some file systems report write errors only at close.
  const std::uint32_t close_error = ::close(descriptor) == 0 ? 0 : win32_from_errno(errno);
  return error != 0 ? error : close_error;
}

std::uint32_t remove_file(std::string_view path) {
  return unlink(native_path(path).c_str()) == 0 ? 0 : error_about(path);
}

std::uint32_t list_directory(std::string_view path, std::vector<std::string>& names) {
  names.clear();
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(native_path(path).c_str()));
  if (!directory) return listing_error(path);
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(directory.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno == 0) return 0;
  names.clear();
  return win32_from_errno(errno);
}

std::uint32_t make_directories(std::string_view path) {
  if (path.empty()) return error_path_not_found;
  const std::string whole = native_path(path);
  int error = 0;
  // Ignore errors of the parents: only the last component matters.
  for (std::size_t end = 0; end != std::string::npos;) {
    end = whole.find('/', end + 1);
    error = mkdir(whole.substr(0, end).c_str(), 0777) == 0 ? 0 : errno;
  }
  if (query_file_kind(path) == FileKind::directory) return 0;
  if (error == ENOTDIR) return error_already_exists;
  return error == ENOENT ? error_path_not_found : win32_from_errno(error);
}

}  // namespace velmora
