// The machine of the native program: the export file named by VELMORA_MACHINE, or the built-in one.
//
// This file uses system calls instead of std::filesystem, which would link locale support. That adds a
// megabyte to the program and a tenth to its start time.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <variant>

#include "base/text.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/hosted/machine_state.h"
#include "platform/hosted/paths.h"
#include "platform/hosted/registry_export.h"
#include "platform/machine.h"

namespace velmora {
namespace hosted {
namespace {

// Identifies a version of the file, to detect changes.
struct FileMark {
  dev_t device = 0;
  ino_t number = 0;
  std::int64_t written_s = 0;
  std::int64_t written_ns = 0;
  std::int64_t size = 0;
  bool operator==(const FileMark&) const = default;
};

struct Hosted {
  MachineState state;
  std::string file;  // empty: the built-in machine, which is never stored
  ExportForm form;
  std::string bytes;  // contents of the file when last read or written
  FileMark mark;
  bool mark_settled = false;  // any later write changes the mark
  bool loaded = false;
};

Hosted& machine() {
  static Hosted hosted;
  return hosted;
}

struct CloseFile {
  void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// All zeros if the file is missing.
FileMark mark_of(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_size};
}

// File times advance in steps of some milliseconds. A write of the same size in the same step does not change
// the mark, so a mark is reliable only after such a step.
bool is_settled(const FileMark& mark) {
  constexpr std::int64_t step_ns = 100'000'000;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return (now.tv_sec - mark.written_s) * 1'000'000'000 + now.tv_nsec - mark.written_ns > step_ns;
}

bool is_regular_file(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// The path is a native one, even if it starts like a drive.
bool read_machine_file(const std::string& path, std::string& bytes) {
  return is_regular_file(path) && read_whole_file(has_drive(path) ? "./" + path : path, bytes) == 0;
}

// Creates a new file with the permissions of the file that it will replace.
bool write_new(const std::string& path, const std::string& bytes, mode_t permissions) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor < 0) return false;
  File file(fdopen(descriptor, "wb"));
  if (!file) {
    ::close(descriptor);
    return false;
  }
  const bool written = fchmod(descriptor, permissions & 07777) == 0 &&
                       std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size() &&
                       std::fflush(file.get()) == 0 && fsync(descriptor) == 0;
  return std::fclose(file.release()) == 0 && written;
}

// Returns the target of a path, following links. Empty if there is none.
std::string resolve(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), std::free);
  return resolved ? resolved.get() : std::string();
}

// Loads an export. On an error it returns the message and leaves the machine unchanged.
std::string take_export(std::string_view bytes, const std::string& name) {
  auto parsed = parse_export(bytes);
  if (const auto* trouble = std::get_if<ExportTrouble>(&parsed)) {
    return name + ':' + std::to_string(trouble->line) + ": " + trouble->why;
  }
  auto& whole = std::get<ParsedExport>(parsed);
  machine().state.registry = std::move(whole.tree);
  machine().form = whole.form;
  machine().loaded = true;
  return {};
}

// Reads the file. Takes its mark first, so that a change during the read is detected later.
std::string take_file() {
  const FileMark mark = mark_of(machine().file);
  const bool settled = is_settled(mark);
  std::string bytes;
  if (!read_machine_file(machine().file, bytes)) return machine().file + ":0: the file cannot be read";
  const bool is_known = machine().loaded && bytes == machine().bytes;
  std::string trouble = is_known ? std::string() : take_export(bytes, machine().file);
  if (trouble.empty()) {
    machine().bytes = std::move(bytes);
    machine().mark = mark;
    machine().mark_settled = settled;
  }
  return trouble;
}

std::string machine_file() {
  const char* file = std::getenv("VELMORA_MACHINE");
  return file == nullptr ? "" : file;
}

// Loads the machine unless it is loaded. The built-in machine is loaded on first use, because most starts of
// the service never need it.
bool ensure_loaded() {
  if (machine().loaded) return true;
  machine().file = machine_file();
  if (!machine().file.empty()) return take_file().empty();
  return take_export(builtin_machine, "built-in").empty();
}

// Reloads the file if another program, such as the binding tool, has changed it.
bool follow_file() {
  if (!ensure_loaded()) return false;
  if (machine().file.empty()) return true;
  if (machine().mark_settled && mark_of(machine().file) == machine().mark) return true;
  return take_file().empty();
}

}  // namespace

MachineState& machine_state() {
  static_cast<void>(ensure_loaded());
  return machine().state;
}

std::int64_t enter(std::string_view operation, std::u16string_view) {
  // These calls never fail because of the file: closing must succeed, and writing a GUID does not use it.
  constexpr std::array<std::string_view, 4> without_file = {"RegCloseKey", "Release", "CloseServiceHandle",
                                                            "StringFromGUID2"};
  if (std::find(without_file.begin(), without_file.end(), operation) != without_file.end()) return 0;
  return follow_file() ? 0 : error_registry_io_failed;
}

void RegistryChangeKind::release(Native native) noexcept { ::close(native); }

// Locks the directory that holds the file. If that fails, the change itself will fail too.
RegistryChange begin_registry_change() {
  if (!ensure_loaded() || machine().file.empty()) return {};
  const std::string target = resolve(machine().file);
  const std::string directory = target.substr(0, target.rfind('/') + 1);
  const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return {};
  RegistryChange change(descriptor);
  static_cast<void>(flock(descriptor, LOCK_EX));
  return change;
}

void publish_service_state(std::u16string_view name, std::uint32_t state) {
  const char* log = std::getenv("VELMORA_SERVICE_LOG");
  if (log == nullptr || *log == '\0') return;
  if (std::any_of(name.begin(), name.end(), [](char16_t unit) { return unit > 0x7F; })) return;
  const File file(std::fopen(log, "abe"));
  if (!file) return;
  const std::string line = ascii_from_wide(name) + ' ' + std::to_string(state) + '\n';
  static_cast<void>(std::fwrite(line.data(), 1, line.size(), file.get()));
}

bool keep_registry() {
  if (machine().file.empty()) return true;
  // Replaces the file that a link leads to, and keeps the link.
  const std::string target = resolve(machine().file);
  struct stat status {};
  if (target.empty() || stat(target.c_str(), &status) != 0) return false;
  // The process id keeps writers apart. An existing file of this name is left from a killed process.
  const std::string temporary = target + ".new-" + std::to_string(getpid());
  static_cast<void>(unlink(temporary.c_str()));
  std::string bytes = format_export(machine().state.registry, machine().form);
  const bool written = write_new(temporary, bytes, status.st_mode);
  // Takes the mark of our own file, before another program can replace it.
  const FileMark mark = mark_of(temporary);
  if (!written || std::rename(temporary.c_str(), target.c_str()) != 0) {
    static_cast<void>(unlink(temporary.c_str()));
    return false;
  }
  machine().bytes = std::move(bytes);
  machine().mark = mark;
  machine().mark_settled = false;
  return true;
}

}  // namespace hosted

std::string load_machine() {
  hosted::machine().file = hosted::machine_file();
  hosted::machine().loaded = false;
  return hosted::machine().file.empty() ? std::string() : hosted::take_file();
}

}  // namespace velmora
