// The command line of the stand-in effect.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace velmora::effect {

// What is wrong, on purpose, with a record that the stand-in makes.
enum class Fault {
  none,
  unfinished,  // the magic is never written
  magic,       // another magic
  version,     // layout version 7
  size,        // field `size` is 575
  small,       // a mapping of 288 bytes
};

// What goes wrong, on purpose, with an export.
enum class CaptureFault {
  none,
  refuse,   // nothing is written
  partial,  // the first two files are written and no more
};

struct Options {
  std::string control_map;  // the mapping's name, plain bytes
  bool open_only = false;   // never make the mapping
  std::uint32_t poll_ms = 10;
  Fault fault = Fault::none;                     // of a mapping that is made, not of one that is opened
  std::optional<std::uint32_t> finish_after_ms;  // the magic is written so long after everything else
  std::string capture_directory;                 // a path; empty: every capture command is refused
  CaptureFault capture_fault = CaptureFault::none;
  std::optional<std::uint32_t> exit_after_ms;  // counted from the first look at the record
};

extern const char usage[];

// No value when an argument is unknown, lacks its value or has one that is not allowed, or when the name is
// missing.
[[nodiscard]] std::optional<Options> parse_options(int argc, const char* const* argv);

}  // namespace velmora::effect
