// The registry, call by call. Every key stands under HKEY_LOCAL_MACHINE; paths and names are UTF-16, their
// parts separated by backslashes and found without regard to case. Errors are the calls' own results
// (LSTATUS, winerror.h); 0 is success. Data goes in and comes out as it is stored: no terminator is added,
// none is taken away.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/owner.h"

namespace velmora {

// Types of values (winnt.h).
constexpr std::uint32_t reg_sz = 1;
constexpr std::uint32_t reg_expand_sz = 2;
constexpr std::uint32_t reg_dword = 4;
constexpr std::uint32_t reg_multi_sz = 7;

// Access to a key (winnt.h).
constexpr std::uint32_t key_query_value = 0x1;
constexpr std::uint32_t key_set_value = 0x2;
constexpr std::uint32_t key_write = 0x20006;

// What get_registry_value lets through (winreg.h).
constexpr std::uint32_t rrf_rt_reg_sz = 0x2;
constexpr std::uint32_t rrf_rt_reg_dword = 0x10;
// With it, the key of the 64-bit view of the registry.
constexpr std::uint32_t rrf_subkey_wow6464key = 0x10000;

struct RegistryKeyKind {
  using Native = std::uintptr_t;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;  // RegCloseKey
};
// Owner of an open key.
using RegistryKey = Owner<RegistryKeyKind>;

// RegOpenKeyExW of an existing key. 2: missing; 5: the access is not granted. `out` is assigned on success
// alone.
[[nodiscard]] std::int32_t open_registry_key(std::u16string_view path, std::uint32_t access,
                                             RegistryKey& out);

// RegCreateKeyExW without options: opens the key, which is made first, with those above it, where it is
// missing. `out` is assigned on success alone.
[[nodiscard]] std::int32_t create_registry_key(std::u16string_view path, std::uint32_t access,
                                               RegistryKey& out);

struct RegistryQuery {
  std::int32_t error;
  std::uint32_t type;  // as stored; with errors other than 234 it means nothing
  std::uint32_t size;  // bytes as stored; with errors other than 234 it means nothing
};

// RegQueryValueExW. With a null buffer it tells type and size; otherwise it also fills the buffer, `capacity`
// in bytes. 2: missing; 5: the key was opened without the right to query; 234: larger than the buffer, whose
// contents then mean nothing; 1018: the key is gone. An empty name is the key's default value. The two bytes
// behind a text that lacks its terminator may be set to 0 where the buffer has room for them.
[[nodiscard]] RegistryQuery query_registry_value(const RegistryKey& key, std::u16string_view name,
                                                 void* buffer, std::uint32_t capacity);

// RegGetValueW under HKEY_LOCAL_MACHINE, with no key to be opened before. `restriction` is one of rrf_rt_*;
// of a text the buffer, `capacity` in bytes, gets a terminator. A REG_EXPAND_SZ passes for text and comes
// expanded. 2: key or value missing; 5: no right; 234: larger than the buffer, terminator included; 1630:
// another type. The result's type is what has been let through, its size what stands in the buffer.
[[nodiscard]] RegistryQuery get_registry_value(std::u16string_view path, std::u16string_view name,
                                               std::uint32_t restriction, void* buffer,
                                               std::uint32_t capacity);

// RegSetValueExW: makes or replaces a value, `size` in bytes. 5: the key was opened without the right to set.
[[nodiscard]] std::int32_t set_registry_value(const RegistryKey& key, std::u16string_view name,
                                              std::uint32_t type, const void* data, std::uint32_t size);

// RegDeleteValueW. 2: missing; 5: the key was opened without the right to set.
[[nodiscard]] std::int32_t delete_registry_value(const RegistryKey& key, std::u16string_view name);

// RegDeleteKeyW: removes the key `name` below `parent` with its values. 2: missing; 5: it has keys of its own
// below it, or may not be deleted.
[[nodiscard]] std::int32_t delete_registry_key(const RegistryKey& parent, std::u16string_view name);

}  // namespace velmora
