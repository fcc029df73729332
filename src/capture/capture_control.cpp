#include "capture/capture_control.h"

#include <string>

#include "capture/capture_directory.h"
#include "json/find.h"
#include "platform/files.h"

namespace velmora {
namespace {

constexpr float min_seconds = 1;
constexpr float max_seconds = 300;

std::optional<CaptureAction> action_of(std::string_view text) {
  if (text == "start") return CaptureAction::start;
  if (text == "stop") return CaptureAction::stop;
  if (text == "export") return CaptureAction::write_files;
  return std::nullopt;
}

}  // namespace

Parsed<CaptureCommand> parse_capture_body(std::string_view body) {
  CaptureCommand command;
  const auto action = action_of(json_find_string(body, "action").value_or(""));
  if (!action) return {command, "action must be start, stop or export"};
  command.action = *action;
  if (const std::optional<float> seconds = json_find_number(body, "seconds")) {
    if (*seconds < min_seconds || *seconds > max_seconds) {
      return {command, "seconds must be between 1 and 300"};
    }
    command.seconds = static_cast<std::uint16_t>(*seconds);
  }
  return {command, {}};
}

bool capture_files_ready(std::uint64_t& bytes) {
  bytes = 0;
  const std::string directory = capture_directory();
  for (const std::string_view name : capture_file_names) {
    const std::string path = join_path(directory, name);
    std::uint64_t size = 0;
    if (query_file_kind(path) != FileKind::regular) return false;
    if (query_file_size(path, size) != 0 || size == 0) return false;
    bytes += size;
  }
  return true;
}

void remove_capture_files() {
  const std::string directory = capture_directory();
  for (const std::string_view name : capture_file_names) {
    static_cast<void>(remove_file(join_path(directory, name)));
  }
}

}  // namespace velmora
