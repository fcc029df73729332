#include "platform/registry.h"

#include <algorithm>
#include <vector>

#include "platform/windows/native.h"

namespace velmora {
namespace {

static_assert(reg_sz == REG_SZ && reg_expand_sz == REG_EXPAND_SZ && reg_dword == REG_DWORD &&
              reg_multi_sz == REG_MULTI_SZ);
static_assert(key_query_value == KEY_QUERY_VALUE && key_set_value == KEY_SET_VALUE && key_write == KEY_WRITE);
static_assert(rrf_rt_reg_sz == RRF_RT_REG_SZ && rrf_rt_reg_dword == RRF_RT_REG_DWORD &&
              rrf_subkey_wow6464key == RRF_SUBKEY_WOW6464KEY);

HKEY key_of(std::uintptr_t native) { return reinterpret_cast<HKEY>(native); }
RegistryKey owner_of(HKEY key) { return RegistryKey(reinterpret_cast<std::uintptr_t>(key)); }

}  // namespace

void RegistryKeyKind::release(Native native) noexcept { RegCloseKey(key_of(native)); }

std::int32_t open_registry_key(std::u16string_view path, std::uint32_t access, RegistryKey& out) {
  HKEY key = nullptr;
  const LSTATUS error = RegOpenKeyExW(HKEY_LOCAL_MACHINE, wide_text(path).c_str(), 0, access, &key);
  if (error == ERROR_SUCCESS) out = owner_of(key);
  return error;
}

std::int32_t create_registry_key(std::u16string_view path, std::uint32_t access, RegistryKey& out) {
  HKEY key = nullptr;
  const LSTATUS error = RegCreateKeyExW(HKEY_LOCAL_MACHINE, wide_text(path).c_str(), 0, nullptr,
                                        REG_OPTION_NON_VOLATILE, access, nullptr, &key, nullptr);
  if (error == ERROR_SUCCESS) out = owner_of(key);
  return error;
}

RegistryQuery query_registry_value(const RegistryKey& key, std::u16string_view name, void* buffer,
                                   std::uint32_t capacity) {
  DWORD type = REG_NONE;
  DWORD size = buffer == nullptr ? 0 : capacity;
  const LSTATUS error = RegQueryValueExW(key_of(key.native()), wide_text(name).c_str(), nullptr, &type,
                                         static_cast<BYTE*>(buffer), &size);
  return {error, type, size};
}

RegistryQuery get_registry_value(std::u16string_view path, std::u16string_view name,
                                 std::uint32_t restriction, void* buffer, std::uint32_t capacity) {
  DWORD type = REG_NONE;
  DWORD size = capacity;
  // Wine 8 expands a REG_EXPAND_SZ up to as many characters as the buffer has bytes, and so overruns it. A
  // larger buffer avoids that.
  std::vector<BYTE> room(std::size_t{capacity} * sizeof(wchar_t));
  // A null name selects the default value.
  const std::wstring wide_name = wide_text(name);
  const LSTATUS error =
      RegGetValueW(HKEY_LOCAL_MACHINE, wide_text(path).c_str(), name.empty() ? nullptr : wide_name.c_str(),
                   restriction, &type, room.data(), &size);
  if (error != ERROR_SUCCESS) return {error, type, size};
  if (size > capacity) return {ERROR_MORE_DATA, type, size};
  std::copy_n(room.begin(), size, static_cast<BYTE*>(buffer));
  return {0, type, size};
}

std::int32_t set_registry_value(const RegistryKey& key, std::u16string_view name, std::uint32_t type,
                                const void* data, std::uint32_t size) {
  return RegSetValueExW(key_of(key.native()), wide_text(name).c_str(), 0, type,
                        static_cast<const BYTE*>(data), size);
}

std::int32_t delete_registry_value(const RegistryKey& key, std::u16string_view name) {
  return RegDeleteValueW(key_of(key.native()), wide_text(name).c_str());
}

std::int32_t delete_registry_key(const RegistryKey& parent, std::u16string_view name) {
  return RegDeleteKeyW(key_of(parent.native()), wide_text(name).c_str());
}

}  // namespace velmora
