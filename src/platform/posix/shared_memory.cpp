// A POSIX shared memory object with the lifetime of a Windows mapping.
//
// Every process with the object open holds a shared flock on it. The last holder removes it on close. An
// object without holders was left by a killed process: it counts as missing, and whoever finds it removes it.
//
// A process unlinks the name only while it holds the exclusive lock on the inode, and after checking
// that the name still leads to it. So two processes never unlink it at once, and a newer object is
// never removed by mistake.
#include "platform/shared_memory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/text.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errors.h"

namespace velmora {
namespace {

// Each lost race costs one round. Creators and removers hold their exclusive lock for microseconds. A lock
// held for 200 rounds belongs to a stopped process, and our start must not hang on it.
constexpr int rounds = 200;
constexpr std::uint32_t round_pause_ms = 1;

// An open mapping: its descriptor, and the name for removing it.
struct HeldObject {
  Descriptor descriptor;
  std::string name;
};

HeldObject* object_of(SharedMapping::Native native) { return reinterpret_cast<HeldObject*>(native); }

// `Local\NAME` becomes `/Local.NAME`.
std::string object_name(std::u16string_view name) {
  std::string text = "/" + utf8_from_wide_replacing(name);
  for (char& byte : text) {
    if (byte == '\\') byte = '.';
  }
  return text;
}

// A new object is accessible to every local process from its first moment, whatever the umask. The effect
// runs under another account and must be able to open a half-made object, to wait for it.
Descriptor open_object(const std::string& name, int flags) {
  const mode_t former_mask = umask(0);
  Descriptor descriptor(shm_open(name.c_str(), O_RDWR | O_CLOEXEC | flags, 0666));
  const int error = errno;
  umask(former_mask);
  errno = error;
  return descriptor;
}

bool lock_at_once(const Descriptor& descriptor, int kind) {
  return flock(descriptor.native(), kind | LOCK_NB) == 0;
}

bool name_leads_to(const std::string& name, const Descriptor& descriptor) {
  const Descriptor again(shm_open(name.c_str(), O_RDONLY | O_CLOEXEC, 0));
  struct stat held {};
  struct stat named {};
  if (!again.is_open() || fstat(descriptor.native(), &held) != 0 || fstat(again.native(), &named) != 0) {
    return false;
  }
  return held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

// Whether nobody has removed the object since it was opened or created.
bool is_named(const Descriptor& descriptor) {
  struct stat held {};
  return fstat(descriptor.native(), &held) == 0 && held.st_nlink > 0;
}

bool is_named_and_sized(const Descriptor& descriptor) {
  struct stat held {};
  return fstat(descriptor.native(), &held) == 0 && held.st_nlink > 0 && held.st_size > 0;
}

// Requires the exclusive lock on `descriptor`. Does nothing if the name now leads to another object.
std::uint32_t remove_locked(const std::string& name, const Descriptor& descriptor) {
  if (!name_leads_to(name, descriptor)) return 0;
  if (shm_unlink(name.c_str()) == 0 || errno == ENOENT) return 0;
  return win32_from_errno(errno);
}

SharedMapping hold(Descriptor&& descriptor, const std::string& name) {
  return SharedMapping(reinterpret_cast<SharedMapping::Native>(new HeldObject{std::move(descriptor), name}));
}

enum class Attempt { done, failed, again };

// One attempt to open an existing object.
Attempt try_open(const std::string& name, SharedMapping& out, std::uint32_t& error) {
  Descriptor descriptor = open_object(name, 0);
  if (!descriptor.is_open()) {
    error = win32_from_errno(errno);
    return Attempt::failed;
  }
  if (lock_at_once(descriptor, LOCK_EX)) {
    error = remove_locked(name, descriptor);
    return error == 0 ? Attempt::again : Attempt::failed;
  }
  if (!lock_at_once(descriptor, LOCK_SH)) {
    descriptor.close();
    sleep_ms(round_pause_ms);
    return Attempt::again;
  }
  if (!is_named_and_sized(descriptor)) return Attempt::again;
  out = hold(std::move(descriptor), name);
  return Attempt::done;
}

// One attempt to create the object. It is sized before the exclusive lock becomes shared, so nobody can hold
// it unsized. (Accessing a page beyond the end raises SIGBUS.)
Attempt try_create(const std::string& name, std::size_t size, SharedMapping& out, std::uint32_t& error) {
  Descriptor descriptor = open_object(name, O_CREAT | O_EXCL);
  if (!descriptor.is_open()) {
    error = win32_from_errno(errno);
    return Attempt::failed;
  }
  if (!lock_at_once(descriptor, LOCK_EX) || !is_named(descriptor)) return Attempt::again;
  if (const int failure = posix_fallocate(descriptor.native(), 0, static_cast<off_t>(size)); failure != 0) {
    error = win32_from_errno(failure);
    static_cast<void>(remove_locked(name, descriptor));
    return Attempt::failed;
  }
  if (!lock_at_once(descriptor, LOCK_SH) || !is_named(descriptor)) return Attempt::again;
  out = hold(std::move(descriptor), name);
  return Attempt::done;
}

}  // namespace

void SharedMappingKind::release(Native native) noexcept {
  HeldObject* object = object_of(native);
  if (lock_at_once(object->descriptor, LOCK_EX)) {
    static_cast<void>(remove_locked(object->name, object->descriptor));
  }
  delete object;
}

void SharedViewKind::release(Native native) noexcept { munmap(native.data, native.size); }

std::optional<std::uint32_t> open_shared_mapping(std::u16string_view name, SharedMapping& out) {
  const std::string object = object_name(name);
  for (int round = 0; round < rounds; ++round) {
    std::uint32_t error = 0;
    const Attempt attempt = try_open(object, out, error);
    if (attempt == Attempt::done) return std::nullopt;
    if (attempt == Attempt::failed) return error;
  }
  return error_busy;
}

CreatedMapping create_shared_mapping(std::u16string_view name, std::size_t size, SharedMapping& out) {
  const std::string object = object_name(name);
  for (int round = 0; round < rounds; ++round) {
    std::uint32_t error = 0;
    Attempt attempt = try_create(object, size, out, error);
    if (attempt == Attempt::done) return {std::nullopt, std::nullopt, false};
    if (attempt == Attempt::failed && error != error_already_exists) return {std::nullopt, error, false};
    if (attempt == Attempt::again) continue;
    error = 0;
    attempt = try_open(object, out, error);
    if (attempt == Attempt::done) return {std::nullopt, std::nullopt, true};
    if (attempt == Attempt::failed && error != error_file_not_found) return {std::nullopt, error, false};
  }
  return {std::nullopt, error_busy, false};
}

std::optional<std::uint32_t> map_shared_view(const SharedMapping& mapping, std::size_t size,
                                             SharedView& out) {
  const Descriptor& descriptor = object_of(mapping.native())->descriptor;
  struct stat held {};
  if (fstat(descriptor.native(), &held) != 0) return win32_from_errno(errno);
  if (static_cast<std::uint64_t>(held.st_size) < size) return error_access_denied;
  void* data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor.native(), 0);
  if (data == MAP_FAILED) return win32_from_errno(errno);
  out = SharedView({data, size});
  return std::nullopt;
}

}  // namespace velmora
