// Commands for the effect's debug captures, and whether an export is complete. The effect records and writes
// the files; the service keeps no state about them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "base/parsed.h"

namespace velmora {

// The action codes in the record's capture word.
enum class CaptureAction : std::uint16_t { start = 1, stop = 2, write_files = 3 };

struct CaptureCommand {
  CaptureAction action = CaptureAction::start;
  std::uint16_t seconds = 120;  // 1..300; sent with every action
};

// Parses the command in a request body. A fraction of a second is cut off.
[[nodiscard]] Parsed<CaptureCommand> parse_capture_body(std::string_view body);

// True if all four capture files are regular and not empty. `bytes` is the sum of their sizes, up to the
// first file that fails.
[[nodiscard]] bool capture_files_ready(std::uint64_t& bytes);

// Deletes the four files. Errors are ignored.
void remove_capture_files();

}  // namespace velmora
