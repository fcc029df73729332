// Processes from /proc. A process is named after its program's file. Its modules are its mapped files.
#include "platform/processes.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "base/text.h"
#include "platform/errors.h"
#include "platform/files.h"

namespace velmora {
namespace {

// A snapshot with an iteration position.
template <typename Entry>
struct Listing {
  std::vector<Entry> entries;
  std::size_t next = 0;
};

template <typename Entry>
Listing<Entry>& listing_of(std::uintptr_t native) {
  return *reinterpret_cast<Listing<Entry>*>(native);
}

template <typename Entry>
std::uintptr_t keep_listing(std::vector<Entry> entries) {
  auto listing = std::make_unique<Listing<Entry>>();
  listing->entries = std::move(entries);
  return reinterpret_cast<std::uintptr_t>(listing.release());
}

template <typename Entry>
bool take_next(Listing<Entry>& listing, Entry& out) {
  if (listing.next >= listing.entries.size()) return false;
  out = listing.entries[listing.next++];
  return true;
}

struct CloseFile {
  void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

// The proc directory. Tests set their own.
std::string process_root() {
  const char* root = std::getenv("VELMORA_PROC");
  return root == nullptr || *root == '\0' ? "/proc" : root;
}

std::string process_file(std::uint32_t process_id, std::string_view name) {
  return process_root() + '/' + std::to_string(process_id) + '/' + std::string(name);
}

// /proc appends this to the path of a replaced or removed file (proc(5)). Windows would keep such a file.
std::string_view without_mark(std::string_view path) {
  constexpr std::string_view deleted = " (deleted)";
  if (path.ends_with(deleted)) path.remove_suffix(deleted.size());
  return path;
}

// Returns the path of a process's program. Empty, with errno set, if it is not accessible or has ended.
std::string program_of(std::uint32_t process_id) {
  std::array<char, PATH_MAX> path;
  const ssize_t length = readlink(process_file(process_id, "exe").c_str(), path.data(), path.size());
  if (length <= 0) return {};
  return std::string(without_mark({path.data(), static_cast<std::size_t>(length)}));
}

std::string_view file_name_of(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// Reads a file without its last line feed. Empty on failure.
std::string read_text(const std::string& path) {
  std::string text;
  static_cast<void>(read_whole_file(path, text));
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

// Returns the name of a process: its program's, or if that is not accessible, the name in `comm`, which the
// system truncates to 15 bytes. Empty for processes without a program: ended ones and kernel threads.
std::u16string name_of_process(std::uint32_t process_id) {
  const std::string program = program_of(process_id);
  if (!program.empty()) return wide_from_utf8_replacing(file_name_of(program));
  if (errno == ENOENT || errno == ESRCH) return {};
  return wide_from_utf8_replacing(read_text(process_file(process_id, "comm")));
}

// Parses a directory name as a process id. Returns 0 for any other name.
std::uint32_t process_id_of(std::string_view name) {
  std::uint32_t id = 0;
  for (const char digit : name) {
    if (digit < '0' || digit > '9' || id > UINT32_MAX / 10 - 1) return 0;
    id = id * 10 + static_cast<std::uint32_t>(digit - '0');
  }
  return id;
}

// Returns the path from a line of `maps`: "ADDRESS PERMISSIONS OFFSET DEVICE INODE   PATH" (proc(5)). A path
// that does not start with a slash is not a file.
std::optional<std::string_view> mapped_path(std::string_view line) {
  constexpr int fields_in_front = 5;
  for (int field = 0; field < fields_in_front; ++field) {
    line = line.substr(std::min(line.find(' '), line.size()));
    line = line.substr(std::min(line.find_first_not_of(' '), line.size()));
  }
  if (!line.starts_with('/')) return std::nullopt;
  return without_mark(line);
}

// Appends the mapped files of a process, without duplicates, in address order. Returns 0 or an errno.
int read_modules(std::FILE* maps, std::vector<ModuleEntry>& modules) {
  std::array<char, PATH_MAX + 128> piece;
  for (;;) {
    errno = 0;
    if (std::fgets(piece.data(), piece.size(), maps) == nullptr) return std::ferror(maps) != 0 ? errno : 0;
    std::string_view line = piece.data();
    if (line.ends_with('\n')) line.remove_suffix(1);
    const auto path = mapped_path(line);
    if (!path) continue;
    ModuleEntry module{wide_from_utf8_replacing(file_name_of(*path)), wide_from_utf8_replacing(*path)};
    const auto is_same = [&](const ModuleEntry& other) { return other.path == module.path; };
    if (std::none_of(modules.begin(), modules.end(), is_same)) modules.push_back(std::move(module));
  }
}

}  // namespace

void ProcessSnapshotKind::release(Native native) noexcept { delete &listing_of<ProcessEntry>(native); }
void ModuleSnapshotKind::release(Native native) noexcept { delete &listing_of<ModuleEntry>(native); }

std::u16string process_image_path(std::uint32_t process_id) {
  return wide_from_utf8_replacing(program_of(process_id));
}

bool own_process_is_elevated() { return geteuid() == 0; }

std::uint32_t snapshot_processes(ProcessSnapshot& out) {
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(process_root().c_str()));
  if (!directory) return errno == EACCES ? error_access_denied : error_gen_failure;
  std::vector<ProcessEntry> processes;
  while (const dirent* entry = readdir(directory.get())) {
    const std::uint32_t id = process_id_of(entry->d_name);
    if (id == 0) continue;
    std::u16string name = name_of_process(id);
    // A process without a name has ended meanwhile.
    if (!name.empty()) processes.push_back({id, std::move(name)});
  }
  out = ProcessSnapshot(keep_listing(std::move(processes)));
  return 0;
}

bool first_process(const ProcessSnapshot& snapshot, ProcessEntry& out) {
  listing_of<ProcessEntry>(snapshot.native()).next = 0;
  return next_process(snapshot, out);
}

bool next_process(const ProcessSnapshot& snapshot, ProcessEntry& out) {
  return take_next(listing_of<ProcessEntry>(snapshot.native()), out);
}

std::uint32_t snapshot_modules(std::uint32_t process_id, ModuleSnapshot& out) {
  const File maps(std::fopen(process_file(process_id, "maps").c_str(), "rbe"));
  if (!maps) return errno == ENOENT ? error_invalid_parameter : error_access_denied;
  std::vector<ModuleEntry> modules;
  // Without permission, opening the list succeeds but reading it fails.
  if (const int error = read_modules(maps.get(), modules)) {
    return error == ESRCH ? error_invalid_parameter : error_access_denied;
  }
  out = ModuleSnapshot(keep_listing(std::move(modules)));
  return 0;
}

std::uint32_t first_module(const ModuleSnapshot& snapshot, ModuleEntry& out) {
  listing_of<ModuleEntry>(snapshot.native()).next = 0;
  return next_module(snapshot, out) ? 0 : error_no_more_files;
}

bool next_module(const ModuleSnapshot& snapshot, ModuleEntry& out) {
  return take_next(listing_of<ModuleEntry>(snapshot.native()), out);
}

}  // namespace velmora
