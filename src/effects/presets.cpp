#include "effects/presets.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "base/ascii.h"
#include "base/text.h"
#include "capture/capture_directory.h"
#include "capture/preset_directory.h"
#include "effects/equalizer.h"
#include "json/escape.h"
#include "platform/files.h"

namespace velmora {
namespace {

constexpr std::string_view extension = ".json";
constexpr std::size_t max_name_bytes = 64;

bool allowed_in_name(char byte) {
  const bool digit = byte >= '0' && byte <= '9';
  return is_ascii_letter(byte) || digit || byte == ' ' || byte == '-' || byte == '_' ||
         static_cast<unsigned char>(byte) >= 0x80;
}

std::string path_of(std::string_view directory, std::string_view name) {
  return join_path(directory, utf8_to_path(name).append(extension));
}

// Returns the file name without its extension, if that is ours. The extension by itself is no preset.
std::optional<std::string_view> stem_of(std::string_view file_name) {
  if (file_name.size() <= extension.size() || !file_name.ends_with(extension)) return std::nullopt;
  return file_name.substr(0, file_name.size() - extension.size());
}

}  // namespace

bool preset_name_valid(std::string_view name) {
  if (name.empty() || name.size() > max_name_bytes) return false;
  if (!std::all_of(name.begin(), name.end(), allowed_in_name)) return false;
  return name.front() != ' ' && name.back() != ' ' && name.back() != '.';
}

std::string preset_directory() {
  if (!preset_directory_override.empty()) return preset_directory_override;
  return join_path(parent_path(capture_directory()), "presets");
}

std::string list_presets(std::string_view directory) {
  std::vector<std::string> names;
  // An unreadable directory counts as empty.
  static_cast<void>(list_directory(directory, names));
  std::string body = "{\"presets\":[";
  std::string_view separator;
  for (const std::string& name : names) {
    const auto stem = stem_of(name);
    if (!stem || query_file_kind(join_path(directory, name)) != FileKind::regular) continue;
    body.append(separator).append("\"").append(json_escape(utf8_to_path(*stem))).append("\"");
    separator = ",";
  }
  return body.append("]}");
}

std::string read_preset(std::string_view directory, std::string_view name) {
  const std::string path = path_of(directory, name);
  std::string bytes;
  if (query_file_kind(path) != FileKind::regular || read_whole_file(path, bytes) != 0) return {};
  return bytes;
}

bool write_preset(std::string_view directory, std::string_view name, const EqSettings& settings) {
  const std::string path = path_of(directory, name);
  // If this fails, opening the file fails too.
  static_cast<void>(make_directories(directory));
  std::string text;
  write_eq_json(text, settings);
  const FileKind kind = query_file_kind(path);
  if (kind != FileKind::missing && kind != FileKind::regular) return false;
  return write_whole_file(path, text) == 0;
}

bool delete_preset(std::string_view directory, std::string_view name) {
  const std::string path = path_of(directory, name);
  return query_file_kind(path) == FileKind::regular && remove_file(path) == 0;
}

}  // namespace velmora
