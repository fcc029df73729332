#include "binding/binding_record.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/text.h"
#include "platform/registry.h"

namespace velmora {
namespace {

constexpr std::u16string_view records_path = u"SOFTWARE\\Velmora\\DevBinding";
constexpr std::u16string_view added_mode_list_name = u"AddedModeList";
constexpr std::u16string_view migrated_effect_name = u"MigratedLegacyModeEffect";
constexpr std::uint32_t yes = 1;

std::u16string record_path(std::string_view guid) {
  return std::u16string(records_path).append(u"\\").append(wide_from_ascii(guid));
}

void write_record_value(std::string_view guid, std::u16string_view name, std::uint32_t type, const void* data,
                        std::size_t size) {
  RegistryKey key;
  if (create_registry_key(record_path(guid), key_set_value, key) != 0) return;
  static_cast<void>(set_registry_value(key, name, type, data, static_cast<std::uint32_t>(size)));
}

}  // namespace

bool read_added_mode_list(std::string_view guid) {
  std::uint32_t value = 0;
  const RegistryQuery query =
      get_registry_value(record_path(guid), added_mode_list_name, rrf_rt_reg_dword, &value, sizeof value);
  return query.error == 0 && value == yes;
}

void write_added_mode_list(std::string_view guid) {
  write_record_value(guid, added_mode_list_name, reg_dword, &yes, sizeof yes);
}

bool read_migrated_mode_effect(std::string_view guid, std::string& text) {
  text.clear();
  std::array<char16_t, 128> buffer{};
  const RegistryQuery query = get_registry_value(record_path(guid), migrated_effect_name, rrf_rt_reg_sz,
                                                 buffer.data(), sizeof buffer);
  if (query.error != 0) return false;
  text = ascii_from_wide({buffer.begin(), std::find(buffer.begin(), buffer.end(), u'\0')});
  return !text.empty();
}

void write_migrated_mode_effect(std::string_view guid, std::string_view text) {
  const std::u16string wide = wide_from_ascii(text);
  write_record_value(guid, migrated_effect_name, reg_sz, wide.c_str(), (wide.size() + 1) * sizeof(char16_t));
}

void delete_binding_record(std::string_view guid) {
  RegistryKey key;
  if (open_registry_key(records_path, key_write, key) != 0) return;
  static_cast<void>(delete_registry_key(key, wide_from_ascii(guid)));
}

}  // namespace velmora
