// Captures as the test effect does them: it records nothing, and an export writes tones.
#pragma once

#include <cstdint>

#include "options.h"
#include "record.h"

namespace velmora::effect {

// What is reported. The numbers are the effect's own.
enum class CaptureState : unsigned { idle, capturing, captured, writing, exported, failed };

// Failures as HRESULTs, whose highest bit is set by itself.
inline constexpr std::uint32_t capture_refused = 0x80070005;         // access denied
inline constexpr std::uint32_t capture_no_directory = 0x80070003;    // no directory is known
inline constexpr std::uint32_t capture_cannot_write = 0x8007001D;    // write fault
inline constexpr std::uint32_t capture_incomplete = 0x80070070;      // disk full
inline constexpr std::uint32_t capture_unknown_action = 0x80070057;  // invalid parameter

struct CaptureAnswer {
  CaptureState state;
  std::uint32_t detail;  // 0 but for a failure
};

// Does what the command asks for, an export reported as `writing` meanwhile, and reports how it came out.
CaptureAnswer answer_capture(const Record& record, const CaptureRequest& request, const Options& options);

}  // namespace velmora::effect
