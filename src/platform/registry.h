// The registry, call by call. Paths are relative to HKEY_LOCAL_MACHINE, in UTF-16, separated by backslashes
// and case-insensitive. Errors are the results of the calls (LSTATUS, winerror.h); 0 is success. Data is
// passed as stored, without adding or removing terminators.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/owner.h"

namespace velmora {

// Value types (winnt.h).
constexpr std::uint32_t reg_sz = 1;
constexpr std::uint32_t reg_expand_sz = 2;
constexpr std::uint32_t reg_dword = 4;
constexpr std::uint32_t reg_multi_sz = 7;

// Access rights of keys (winnt.h).
constexpr std::uint32_t key_query_value = 0x1;
constexpr std::uint32_t key_set_value = 0x2;
constexpr std::uint32_t key_write = 0x20006;

// Types that get_registry_value accepts (winreg.h).
constexpr std::uint32_t rrf_rt_reg_sz = 0x2;
constexpr std::uint32_t rrf_rt_reg_dword = 0x10;
// Added to these, it selects the 64-bit view of the registry.
constexpr std::uint32_t rrf_subkey_wow6464key = 0x10000;

struct RegistryKeyKind {
  using Native = std::uintptr_t;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;  // RegCloseKey
};
// Owner of an open key.
using RegistryKey = Owner<RegistryKeyKind>;

// RegOpenKeyExW of an existing key. 2: missing; 5: access denied. `out` is assigned only on success.
[[nodiscard]] std::int32_t open_registry_key(std::u16string_view path, std::uint32_t access,
                                             RegistryKey& out);

// RegCreateKeyExW without options: opens the key, creating it and its parents if missing. `out` is
// assigned only on success.
[[nodiscard]] std::int32_t create_registry_key(std::u16string_view path, std::uint32_t access,
                                               RegistryKey& out);

struct RegistryQuery {
  std::int32_t error;
  std::uint32_t type;  // as stored; undefined for errors other than 234
  std::uint32_t size;  // bytes as stored; undefined for errors other than 234
};

// RegQueryValueExW. Returns type and size; if `buffer` is not null, also fills it (`capacity` in bytes). An
// empty name is the key's default value. If text is stored without a terminator, the two bytes after it may
// be set to 0 if they fit.
//
// 2: missing; 5: the key was opened without the right to query; 234: larger than the buffer, whose contents
// are then undefined; 1018: the key has been deleted.
[[nodiscard]] RegistryQuery query_registry_value(const RegistryKey& key, std::u16string_view name,
                                                 void* buffer, std::uint32_t capacity);

// RegGetValueW under HKEY_LOCAL_MACHINE, without an open key. `restriction` is one of rrf_rt_*, and
// `capacity` is in bytes. Text is always terminated in the buffer. A REG_EXPAND_SZ counts as text and is
// expanded. The result holds the type after that conversion and the bytes in the buffer.
//
// 2: key or value missing; 5: access denied; 234: larger than the buffer, including the
// terminator; 1630: another type.
[[nodiscard]] RegistryQuery get_registry_value(std::u16string_view path, std::u16string_view name,
                                               std::uint32_t restriction, void* buffer,
                                               std::uint32_t capacity);

// RegSetValueExW: creates or replaces a value of `size` bytes. 5: the key was opened without
// the right to set.
[[nodiscard]] std::int32_t set_registry_value(const RegistryKey& key, std::u16string_view name,
                                              std::uint32_t type, const void* data, std::uint32_t size);

// RegDeleteValueW. 2: missing; 5: the key was opened without the right to set.
[[nodiscard]] std::int32_t delete_registry_value(const RegistryKey& key, std::u16string_view name);

// RegDeleteKeyW: deletes the key `name` below `parent` with its values. 2: missing; 5: it has subkeys,
// or access is denied.
[[nodiscard]] std::int32_t delete_registry_key(const RegistryKey& parent, std::u16string_view name);

}  // namespace velmora
