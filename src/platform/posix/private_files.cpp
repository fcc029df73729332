// A private file is held by an exclusive flock. It is unlinked only by a process that has this lock, or that
// has found nobody with it, and only while its name leads to it. So a newer file is never removed by mistake.
#include "platform/private_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/drives.h"
#include "platform/posix/errors.h"

namespace velmora {
namespace {

constexpr mode_t private_mode = 0600;
constexpr mode_t mode_of_others = 077;
constexpr std::size_t read_limit = 65536;
// A reader's look takes microseconds, and so does a lost race.
constexpr int rounds = 200;
constexpr std::uint32_t round_pause_ms = 1;

struct Held {
  Descriptor file;
  std::string path;
};

Held& held_of(const HeldFile& file) { return *reinterpret_cast<Held*>(file.native()); }

// An absolute path in the environment, or an empty text.
std::string directory_variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value == '/' ? value : std::string();
}

// Maps an errno of this path: 2 if only its last component is missing, otherwise 3.
std::uint32_t error_about(const std::string& path, int error) {
  if (error != ENOENT) return win32_from_errno(error);
  return query_file_kind(parent_path(path)) == FileKind::directory ? error_file_not_found
                                                                   : error_path_not_found;
}

bool belongs_to_other(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && status.st_uid != geteuid();
}

// O_NONBLOCK: a pipe in place of the file must not block.
Descriptor open_file(const std::string& path, int flags) {
  return Descriptor(open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, private_mode));
}

bool lock_at_once(const Descriptor& file, int kind) { return flock(file.native(), kind | LOCK_NB) == 0; }

bool is_held_by_other(const Descriptor& file) {
  if (!lock_at_once(file, LOCK_SH)) return true;
  flock(file.native(), LOCK_UN);
  return false;
}

bool leads_to(const std::string& path, const Descriptor& file) {
  struct stat named {};
  struct stat opened {};
  return lstat(path.c_str(), &named) == 0 && fstat(file.native(), &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

// Makes a file that does not exist yet. The umask does not change its mode.
Descriptor create_file(const std::string& path, int& error) {
  Descriptor file = open_file(path, O_RDWR | O_CREAT | O_EXCL);
  error = file.is_open() ? 0 : errno;
  if (file.is_open() && fchmod(file.native(), private_mode) != 0) {
    error = errno;
    unlink(path.c_str());
    file.close();
  }
  return file;
}

std::uint32_t write_all(const Descriptor& file, std::string_view bytes) {
  off_t position = 0;
  while (!bytes.empty()) {
    const ssize_t count = pwrite(file.native(), bytes.data(), bytes.size(), position);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return win32_from_errno(errno);
    bytes.remove_prefix(static_cast<std::size_t>(count));
    position += count;
  }
  return 0;
}

// The result of one attempt to get an old file out of the way.
enum class Clearing { done, again, failed };

// Removes whatever is at the path and nobody holds.
Clearing clear_path(const std::string& path, std::uint32_t& error) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return Clearing::done;
    error = win32_from_errno(errno);
    return Clearing::failed;
  }
  Descriptor file;
  if (S_ISREG(status.st_mode)) {
    file = open_file(path, O_RDONLY);
    if (!file.is_open()) {
      if (errno == ENOENT || errno == ELOOP) return Clearing::again;
      error = belongs_to_other(path) ? error_invalid_owner : win32_from_errno(errno);
      return Clearing::failed;
    }
    if (!lock_at_once(file, LOCK_EX)) {
      error = error_sharing_violation;
      return is_held_by_other(file) ? Clearing::failed : Clearing::again;
    }
    if (!leads_to(path, file)) return Clearing::again;
  }
  if (unlink(path.c_str()) == 0 || errno == ENOENT) return Clearing::done;
  error = win32_from_errno(errno);
  return Clearing::failed;
}

// What is wrong with an open file, or 0.
std::uint32_t examine(const Descriptor& file) {
  struct stat status {};
  if (fstat(file.native(), &status) != 0) return win32_from_errno(errno);
  if (!S_ISREG(status.st_mode)) return error_access_denied;
  const bool is_private = status.st_uid == geteuid() && (status.st_mode & mode_of_others) == 0;
  return is_private ? 0 : error_invalid_owner;
}

std::uint32_t read_all(const Descriptor& file, std::string& bytes) {
  std::array<char, 4096> buffer;
  while (bytes.size() < read_limit) {
    const std::size_t wanted = std::min(buffer.size(), read_limit - bytes.size());
    const ssize_t count = read(file.native(), buffer.data(), wanted);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return win32_from_errno(errno);
    if (count == 0) return 0;
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return 0;
}

// Removes a private file of this user that nobody holds.
std::uint32_t remove_former(const std::string& path) {
  if (belongs_to_other(path)) return error_invalid_owner;
  for (int round = 0; round < rounds; ++round) {
    std::uint32_t error = 0;
    const Clearing clearing = clear_path(path, error);
    if (clearing != Clearing::again) return error;
    sleep_ms(round_pause_ms);
  }
  return error_sharing_violation;
}

// Writes a new file under another name, so that readers see nothing or all of it.
std::uint32_t write_and_rename(const std::string& path, std::string_view bytes) {
  const std::string unfinished = path + ".part";
  unlink(unfinished.c_str());
  int error = 0;
  const Descriptor file = create_file(unfinished, error);
  if (!file.is_open()) return error_about(path, error);
  std::uint32_t result = write_all(file, bytes);
  if (result == 0 && rename(unfinished.c_str(), path.c_str()) != 0) result = win32_from_errno(errno);
  if (result != 0) unlink(unfinished.c_str());
  return result;
}

}  // namespace

std::string private_directory() {
  std::string state = directory_variable("XDG_STATE_HOME");
  if (state.empty()) {
    const std::string home = directory_variable("HOME");
    if (home.empty()) return {};
    state = home + "/.local/state";
  }
  return state + "/velmora/control";
}

std::uint32_t make_private_directory(std::string_view path) {
  const std::string whole = native_path(path);
  if (whole.empty()) return error_path_not_found;
  const std::string parent = parent_path(whole);
  if (!parent.empty()) {
    if (const std::uint32_t error = make_directories(parent); error != 0) return error;
  }
  if (mkdir(whole.c_str(), 0700) != 0 && errno != EEXIST) return error_about(whole, errno);
  const Descriptor directory(open(whole.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const int error = errno;
  struct stat status {};
  if (lstat(whole.c_str(), &status) != 0) return error_about(whole, errno);
  if (S_ISLNK(status.st_mode)) return error_cant_resolve_filename;
  if (!S_ISDIR(status.st_mode)) return error_already_exists;
  if (status.st_uid != geteuid()) return error_invalid_owner;
  if (!directory.is_open()) return win32_from_errno(error);
  return fchmod(directory.native(), 0700) == 0 ? 0 : win32_from_errno(errno);
}

void HeldFileKind::release(Native native) noexcept {
  const std::unique_ptr<Held> held(reinterpret_cast<Held*>(native));
  if (leads_to(held->path, held->file)) unlink(held->path.c_str());
}

std::uint32_t hold_private_file(std::string_view path, HeldFile& out) {
  const std::string native = native_path(path);
  std::uint32_t error = error_sharing_violation;
  for (int round = 0; round < rounds; ++round) {
    if (round > 0) sleep_ms(round_pause_ms);
    int failure = 0;
    Descriptor file = create_file(native, failure);
    if (!file.is_open()) {
      if (failure != EEXIST) return error_about(native, failure);
      if (clear_path(native, error) == Clearing::failed) return error;
      continue;
    }
    // Another process may have taken the new file for one that nobody holds.
    if (!lock_at_once(file, LOCK_EX) || !leads_to(native, file)) continue;
    out = HeldFile(reinterpret_cast<HeldFile::Native>(new Held{std::move(file), native}));
    return 0;
  }
  return error_sharing_violation;
}

std::uint32_t write_held_file(const HeldFile& file, std::string_view bytes) {
  const Descriptor& descriptor = held_of(file).file;
  if (ftruncate(descriptor.native(), 0) != 0) return win32_from_errno(errno);
  const std::uint32_t error = write_all(descriptor, bytes);
  if (error != 0) static_cast<void>(!ftruncate(descriptor.native(), 0));
  return error;
}

PrivateFileRead read_private_file(std::string_view path) {
  const std::string native = native_path(path);
  const Descriptor file = open_file(native, O_RDONLY);
  PrivateFileRead result;
  if (!file.is_open()) {
    const int error = errno;
    result.error =
        error == EACCES && belongs_to_other(native) ? error_invalid_owner : error_about(native, error);
    return result;
  }
  result.error = examine(file);
  if (result.error != 0) return result;
  result.is_held = is_held_by_other(file);
  result.error = read_all(file, result.bytes);
  if (result.error != 0) return {result.error, false, {}};
  return result;
}

std::uint32_t write_private_file(std::string_view path, std::string_view bytes) {
  const std::string native = native_path(path);
  if (const std::uint32_t error = remove_former(native); error != 0) return error;
  return write_and_rename(native, bytes);
}

}  // namespace velmora
