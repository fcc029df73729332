#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/errors.h"

namespace velmora {

FileKind query_file_kind(std::string_view path) {
  struct stat status {};
  if (stat(std::string(path).c_str(), &status) != 0) return FileKind::missing;
  if (S_ISREG(status.st_mode)) return FileKind::regular;
  return S_ISDIR(status.st_mode) ? FileKind::directory : FileKind::other;
}

void InputFileKind::release(Native native) noexcept { ::close(static_cast<int>(native)); }

std::uint32_t open_for_reading(std::string_view path, InputFile& out) {
  constexpr std::uint32_t error_denied = 5;
  // Without O_NONBLOCK a pipe in the file's place would hold the open until somebody writes to it.
  const int descriptor = open(std::string(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return win32_from_errno(errno);
  InputFile file(static_cast<InputFile::Native>(descriptor));
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return win32_from_errno(errno);
  if (S_ISDIR(status.st_mode)) return error_denied;
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

}  // namespace velmora
