// The commands for the effect's debug captures, and whether an export is complete. The effect records and
// writes the files; nothing of it is kept here.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "base/parsed.h"

namespace velmora {

// What goes into the record's capture word.
enum class CaptureAction : std::uint16_t { start = 1, stop = 2, write_files = 3 };

struct CaptureCommand {
  CaptureAction action = CaptureAction::start;
  std::uint16_t seconds = 120;  // 1..300, carried by every action
};

// The command in a request body.
[[nodiscard]] Parsed<CaptureCommand> parse_capture_body(std::string_view body);

// Whether all four files of the capture directory are regular and not empty. `bytes` is the sum of their
// sizes, or of those in front of the first that is not.
[[nodiscard]] bool capture_files_ready(std::uint64_t& bytes);

// Removes the four files. What cannot be removed stays and is not told.
void remove_capture_files();

}  // namespace velmora
