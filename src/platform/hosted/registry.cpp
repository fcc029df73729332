#include "platform/registry.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "platform/errors.h"
#include "platform/hosted/machine_state.h"

namespace velmora {
namespace {

// winnt.h
constexpr std::uint32_t key_create_sub_key = 0x4;
constexpr std::uint32_t right_to_delete = 0x10000;
constexpr std::uint32_t key_all_access = 0xF003F;
constexpr std::uint32_t key_views = 0x300;  // registry view flags, not rights

constexpr std::u16string_view local_machine = u"HKEY_LOCAL_MACHINE";

std::u16string full_path(std::u16string_view path) {
  std::u16string full(local_machine);
  if (!path.empty()) full.append(u"\\").append(path);
  return full;
}

// Whether `path` is `above` or below it.
bool lies_below(std::u16string_view path, std::u16string_view above) {
  return path.size() >= above.size() && hosted::same_name(path.substr(0, above.size()), above) &&
         (path.size() == above.size() || path[above.size()] == u'\\');
}

// Completes a path of the access list, which may start with a root and may end with a backslash.
std::u16string listed_path(std::u16string_view path) {
  if (path.ends_with(u'\\')) path.remove_suffix(1);
  return lies_below(path, local_machine) ? std::u16string(path) : full_path(path);
}

// Returns the access that the longest matching path of the access list grants.
std::uint32_t granted_access(const hosted::RegistryTree& registry, std::u16string_view path) {
  const hosted::TreeKey* list = hosted::find_key(registry, hosted::access_list_path);
  std::uint32_t granted = key_all_access;
  std::size_t longest = 0;
  if (list == nullptr) return granted;
  for (const hosted::TreeValue& entry : list->values) {
    const auto mask = hosted::find_number(list, entry.name);
    const std::u16string above = listed_path(entry.name);
    if (!mask || above.size() < longest || !lies_below(path, above)) continue;
    granted = *mask;
    longest = above.size();
  }
  return granted;
}

RegistryKey hold_key(std::u16string path, std::uint32_t access) {
  hosted::MachineState& machine = hosted::machine_state();
  const std::uintptr_t number = machine.next_key++;
  machine.open_keys.emplace(number, hosted::OpenKey{std::move(path), access});
  return RegistryKey(number);
}

// The key of a handle. If the handle was not opened with the required access, null and the error.
struct KeyAccess {
  hosted::TreeKey* key;
  std::int32_t error;
};
KeyAccess reach_key(const RegistryKey& handle, std::uint32_t access) {
  hosted::MachineState& machine = hosted::machine_state();
  const hosted::OpenKey& open = machine.open_keys.at(handle.native());
  // As in Windows, check the access of the handle before the existence of its key.
  if ((open.access & access) != access) return {nullptr, error_access_denied};
  hosted::TreeKey* key = open.deleted ? nullptr : hosted::find_key(machine.registry, open.path);
  if (key == nullptr) return {nullptr, error_key_deleted};
  return {key, 0};
}

std::u16string_view units_of(const std::string& bytes, std::u16string& storage) {
  storage.resize(bytes.size() / sizeof(char16_t));
  std::memcpy(storage.data(), bytes.data(), storage.size() * sizeof(char16_t));
  return storage;
}

std::string bytes_of(std::u16string_view units) {
  std::string bytes(units.size() * sizeof(char16_t), '\0');
  std::memcpy(bytes.data(), units.data(), bytes.size());
  return bytes;
}

std::u16string_view until_nul(std::u16string_view text) { return text.substr(0, text.find(u'\0')); }

std::optional<std::u16string> read_text(const hosted::RegistryTree& registry, std::u16string_view path,
                                        std::u16string_view name) {
  const hosted::TreeKey* key = hosted::find_key(registry, full_path(path));
  const hosted::TreeValue* value = key == nullptr ? nullptr : hosted::find_value(*key, name);
  if (value == nullptr || (value->type != reg_sz && value->type != reg_expand_sz)) return std::nullopt;
  std::u16string storage;
  return std::u16string(until_nul(units_of(value->bytes, storage)));
}

// Finds a machine-wide environment variable where Windows stores it.
std::optional<std::u16string> find_variable(const hosted::RegistryTree& registry, std::u16string_view name) {
  constexpr std::u16string_view environment =
      u"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
  if (hosted::same_name(name, u"SystemRoot")) {
    return read_text(registry, u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", u"SystemRoot");
  }
  if (hosted::same_name(name, u"ProgramFiles")) {
    return read_text(registry, u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion", u"ProgramFilesDir");
  }
  return read_text(registry, environment, name);
}

// Replaces each known %NAME% once. Everything else is unchanged.
std::u16string expand_variables(const hosted::RegistryTree& registry, std::u16string_view text) {
  std::u16string expanded;
  while (!text.empty()) {
    const std::size_t closing = text.front() == u'%' ? text.find(u'%', 1) : std::u16string_view::npos;
    if (closing != std::u16string_view::npos) {
      if (const auto value = find_variable(registry, text.substr(1, closing - 1))) {
        expanded += *value;
        text.remove_prefix(closing + 1);
        continue;
      }
    }
    expanded += text.front();
    text.remove_prefix(1);
  }
  return expanded;
}

bool is_text(std::uint32_t type) { return type == reg_sz || type == reg_expand_sz || type == reg_multi_sz; }

bool ends_with_nul(std::string_view bytes) {
  return bytes.size() >= 2 && bytes[bytes.size() - 2] == '\0' && bytes.back() == '\0';
}

// Converts text as RegGetValueW does: expanded and always terminated.
std::string complete_text(const hosted::RegistryTree& registry, const hosted::TreeValue& value) {
  std::string bytes = value.bytes;
  if (value.type == reg_expand_sz) {
    std::u16string storage;
    bytes = bytes_of(expand_variables(registry, until_nul(units_of(value.bytes, storage))));
  }
  if (!ends_with_nul(bytes)) bytes.append(2, '\0');
  return bytes;
}

// Returns the RRF_RT_* flag (winreg.h) that accepts a type, or 0 for a type without a flag.
std::uint32_t restriction_of(std::uint32_t type) {
  constexpr std::uint32_t flags[] = {0x1, 0x2, 0x4, 0x8, 0x10, 0, 0, 0x20, 0, 0, 0, 0x40};
  return type < std::size(flags) ? flags[type] : 0;
}

// On failure the buffer is undefined. Fill it with garbage so that no caller relies on it.
RegistryQuery fail_reading(void* buffer, std::uint32_t capacity, RegistryQuery failure) {
  if (buffer != nullptr) std::memset(buffer, 0x5A, capacity);
  return failure;
}

}  // namespace

bool hosted::is_granted(const RegistryTree& registry, std::u16string_view path, std::uint32_t access) {
  return (access & ~key_views & ~granted_access(registry, path)) == 0;
}

std::int32_t hosted::keep_or_undo(RegistryTree before) {
  if (keep_registry()) return 0;
  machine_state().registry = std::move(before);
  return error_registry_io_failed;
}

void RegistryKeyKind::release(Native native) noexcept {
  hosted::MachineState& machine = hosted::machine_state();
  static_cast<void>(hosted::enter("RegCloseKey", machine.open_keys.at(native).path));
  machine.open_keys.erase(native);
}

std::int32_t open_registry_key(std::u16string_view path, std::uint32_t access, RegistryKey& out) {
  if (const auto fault = hosted::enter("RegOpenKeyExW", path)) return static_cast<std::int32_t>(fault);
  const hosted::RegistryTree& registry = hosted::machine_state().registry;
  std::u16string full = full_path(path);
  if (hosted::find_key(registry, full) == nullptr) return error_file_not_found;
  if (!hosted::is_granted(registry, full, access)) return error_access_denied;
  out = hold_key(std::move(full), access);
  return 0;
}

std::int32_t create_registry_key(std::u16string_view path, std::uint32_t access, RegistryKey& out) {
  const hosted::RegistryChange change = hosted::begin_registry_change();
  if (const auto fault = hosted::enter("RegCreateKeyExW", path)) return static_cast<std::int32_t>(fault);
  hosted::RegistryTree& registry = hosted::machine_state().registry;
  std::u16string full = full_path(path);
  const bool exists = hosted::find_key(registry, full) != nullptr;
  if (!hosted::is_granted(registry, full, exists ? access : access | key_create_sub_key))
    return error_access_denied;
  if (!exists) {
    hosted::RegistryTree before = registry;
    hosted::make_key(registry, full);
    if (const std::int32_t error = hosted::keep_or_undo(std::move(before))) return error;
  }
  out = hold_key(std::move(full), access);
  return 0;
}

RegistryQuery query_registry_value(const RegistryKey& key, std::u16string_view name, void* buffer,
                                   std::uint32_t capacity) {
  if (const auto fault = hosted::enter("RegQueryValueExW", name)) {
    return fail_reading(buffer, capacity, {static_cast<std::int32_t>(fault), 0, 0});
  }
  const KeyAccess reached = reach_key(key, key_query_value);
  if (reached.error != 0) return fail_reading(buffer, capacity, {reached.error, 0, 0});
  const hosted::TreeValue* value = hosted::find_value(*reached.key, name);
  if (value == nullptr) return fail_reading(buffer, capacity, {error_file_not_found, 0, 0});
  const auto size = static_cast<std::uint32_t>(value->bytes.size());
  if (buffer == nullptr) return {0, value->type, size};
  if (capacity < size) return fail_reading(buffer, capacity, {error_more_data, value->type, size});
  char* end = std::copy(value->bytes.begin(), value->bytes.end(), static_cast<char*>(buffer));
  // Windows also terminates text that was stored without a terminator.
  if (is_text(value->type) && size != 0 && capacity - size >= 2 && !ends_with_nul(value->bytes)) {
    std::fill_n(end, 2, '\0');
  }
  return {0, value->type, size};
}

RegistryQuery get_registry_value(std::u16string_view path, std::u16string_view name,
                                 std::uint32_t restriction, void* buffer, std::uint32_t capacity) {
  const auto fail = [&](RegistryQuery failure) { return fail_reading(buffer, capacity, failure); };
  std::u16string subject = std::u16string(path).append(u" ").append(name);
  if ((restriction & rrf_subkey_wow6464key) != 0) subject += u" (64-bit view)";
  if (const auto fault = hosted::enter("RegGetValueW", subject)) {
    return fail({static_cast<std::int32_t>(fault), 0, 0});
  }
  const hosted::RegistryTree& registry = hosted::machine_state().registry;
  const std::u16string full = full_path(path);
  const hosted::TreeKey* key = hosted::find_key(registry, full);
  if (key == nullptr) return fail({error_file_not_found, 0, 0});
  if (!hosted::is_granted(registry, full, key_query_value)) return fail({error_access_denied, 0, 0});
  const hosted::TreeValue* value = hosted::find_value(*key, name);
  if (value == nullptr) return fail({error_file_not_found, 0, 0});
  const std::uint32_t type = value->type == reg_expand_sz ? reg_sz : value->type;
  if ((restriction & restriction_of(type)) == 0) return fail({error_unsupported_type, 0, 0});
  const std::string bytes = type == reg_sz ? complete_text(registry, *value) : value->bytes;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  if (capacity < size) return fail({error_more_data, type, size});
  std::copy(bytes.begin(), bytes.end(), static_cast<char*>(buffer));
  return {0, type, size};
}

std::int32_t set_registry_value(const RegistryKey& key, std::u16string_view name, std::uint32_t type,
                                const void* data, std::uint32_t size) {
  const hosted::RegistryChange change = hosted::begin_registry_change();
  if (const auto fault = hosted::enter("RegSetValueExW", name)) return static_cast<std::int32_t>(fault);
  const KeyAccess reached = reach_key(key, key_set_value);
  if (reached.error != 0) return reached.error;
  hosted::RegistryTree before = hosted::machine_state().registry;
  hosted::put_value(*reached.key, name, type, {static_cast<const char*>(data), size});
  return hosted::keep_or_undo(std::move(before));
}

std::int32_t delete_registry_value(const RegistryKey& key, std::u16string_view name) {
  const hosted::RegistryChange change = hosted::begin_registry_change();
  if (const auto fault = hosted::enter("RegDeleteValueW", name)) return static_cast<std::int32_t>(fault);
  const KeyAccess reached = reach_key(key, key_set_value);
  if (reached.error != 0) return reached.error;
  hosted::RegistryTree before = hosted::machine_state().registry;
  if (!hosted::remove_value(*reached.key, name)) return error_file_not_found;
  return hosted::keep_or_undo(std::move(before));
}

std::int32_t delete_registry_key(const RegistryKey& parent, std::u16string_view name) {
  const hosted::RegistryChange change = hosted::begin_registry_change();
  if (const auto fault = hosted::enter("RegDeleteKeyW", name)) return static_cast<std::int32_t>(fault);
  const KeyAccess reached = reach_key(parent, 0);
  if (reached.error != 0) return reached.error;
  hosted::MachineState& machine = hosted::machine_state();
  const std::u16string path = machine.open_keys.at(parent.native()).path + u'\\' + std::u16string(name);
  const hosted::TreeKey* key = hosted::find_key(machine.registry, path);
  if (key == nullptr) return error_file_not_found;
  if (!key->keys.empty() || !hosted::is_granted(machine.registry, path, right_to_delete))
    return error_access_denied;
  hosted::RegistryTree before = machine.registry;
  hosted::remove_key(machine.registry, path);
  if (const std::int32_t error = hosted::keep_or_undo(std::move(before))) return error;
  for (auto& [number, open] : machine.open_keys) {
    if (hosted::same_name(open.path, path)) open.deleted = true;
  }
  return 0;
}

}  // namespace velmora
