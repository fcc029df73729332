#include "binding/endpoint_values.h"

#include <algorithm>
#include <vector>

#include "base/status.h"
#include "base/text.h"
#include "platform/errors.h"

namespace velmora {
namespace {

constexpr std::u16string_view render_endpoints =
    u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Render\\";
constexpr std::u16string_view effect_key = u"\\FxProperties";

using WideBuffer = std::vector<char16_t>;

// Returns a zeroed buffer for `size` bytes and two more characters, which end a text without a terminator.
WideBuffer make_buffer(std::uint32_t size) { return WideBuffer(size / sizeof(char16_t) + 2); }

std::int32_t fill_buffer(const RegistryKey& key, std::u16string_view name, WideBuffer& buffer) {
  const auto capacity = static_cast<std::uint32_t>(buffer.size() * sizeof(char16_t));
  return query_registry_value(key, name, buffer.data(), capacity).error;
}

// Returns the entries of a list, up to the first empty one or the end of the buffer.
Chain split_entries(std::u16string_view text) {
  Chain entries;
  while (!text.empty() && text.front() != u'\0') {
    const std::size_t end = std::min(text.find(u'\0'), text.size());
    entries.push_back(ascii_from_wide(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return entries;
}

bool holds_text(std::uint32_t type) {
  return type == reg_sz || type == reg_expand_sz || type == reg_multi_sz;
}

}  // namespace

std::int32_t open_fx_properties(std::string_view endpoint_guid, std::uint32_t access, RegistryKey& out) {
  std::u16string path(render_endpoints);
  path.append(wide_from_ascii(endpoint_guid)).append(effect_key);
  return hresult_from_win32(open_registry_key(path, access, out));
}

std::int32_t read_multi_string_value(const RegistryKey& key, std::u16string_view name, Chain& list,
                                     bool& present) {
  list.clear();
  present = false;
  const RegistryQuery query = query_registry_value(key, name, nullptr, 0);
  if (query.error == std::int32_t{error_file_not_found}) return 0;
  if (query.error != 0) return hresult_from_win32(query.error);
  present = true;
  if (query.type != reg_multi_sz) return status_wrong_type;
  if (query.size < sizeof(char16_t)) return 0;
  WideBuffer buffer = make_buffer(query.size);
  if (const std::int32_t error = fill_buffer(key, name, buffer); error != 0) return hresult_from_win32(error);
  list = split_entries({buffer.data(), buffer.size()});
  return 0;
}

std::int32_t write_multi_string_value(const RegistryKey& key, std::u16string_view name, const Chain& list) {
  if (list.empty()) {
    const std::int32_t error = delete_registry_value(key, name);
    return error == std::int32_t{error_file_not_found} ? 0 : hresult_from_win32(error);
  }
  std::u16string text;
  for (const std::string& entry : list) text.append(wide_from_ascii(entry)).push_back(u'\0');
  text.push_back(u'\0');
  const auto size = static_cast<std::uint32_t>(text.size() * sizeof(char16_t));
  return hresult_from_win32(set_registry_value(key, name, reg_multi_sz, text.data(), size));
}

bool read_legacy_mode_effect(const RegistryKey& key, std::string& text) {
  text.clear();
  const RegistryQuery query = query_registry_value(key, legacy_slot_name, nullptr, 0);
  if (query.error != 0 || query.size < sizeof(char16_t) || !holds_text(query.type)) return false;
  WideBuffer buffer = make_buffer(query.size);
  if (fill_buffer(key, legacy_slot_name, buffer) != 0) return false;
  text = ascii_from_wide({buffer.begin(), std::find(buffer.begin(), buffer.end(), u'\0')});
  return !text.empty();
}

std::int32_t write_legacy_mode_effect(const RegistryKey& key, std::string_view text) {
  const std::u16string wide = wide_from_ascii(text);
  const auto size = static_cast<std::uint32_t>((wide.size() + 1) * sizeof(char16_t));
  return hresult_from_win32(set_registry_value(key, legacy_slot_name, reg_sz, wide.c_str(), size));
}

bool ensure_mode_lists(const RegistryKey& key, bool added_earlier) {
  const Chain defaults(default_processing_modes.begin(), default_processing_modes.end());
  bool written = false;
  for (const std::u16string_view name : mode_list_names) {
    Chain list;
    bool present = false;
    if (read_multi_string_value(key, name, list, present) != 0) continue;
    if (present && (!added_earlier || list == defaults)) continue;
    if (write_multi_string_value(key, name, defaults) == 0) written = true;
  }
  return written;
}

void remove_mode_lists(const RegistryKey& key) {
  for (const std::u16string_view name : mode_list_names) static_cast<void>(delete_registry_value(key, name));
}

}  // namespace velmora
