// The command line of the test effect.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace velmora::effect {

// What is wrong, on purpose, with a record that the test effect makes.
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

// Where the effect's life ends, on purpose, or what fails in it.
enum class LifeFault {
  none,
  initialize,  // the algorithm cannot be loaded: an instance is discovered and never initialised
  hang,        // the same, and the algorithm is still being loaded for as long as it lives
  lock,        // no stream is locked
  query,       // the engine's queries fail, and the life goes on
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

  bool through_shared_writers =
      false;  // report with the writers of src/bridge in place of the test effect's own
  bool life = false;
  std::string life_state;  // a path; not empty: lives begin, rest and end as this file says (engine_life.h)
  std::uint32_t life_blocks = 0;  // of each processing thread; 0: no end but the stop
  std::uint32_t block_ms = 10;    // pause behind each block
  LifeFault life_fault = LifeFault::none;
  unsigned instances = 1;                      // of a life
  unsigned threads = 1;                        // of each instance, or of the hammer
  std::optional<float> gain_db;                // reported by a life; otherwise it swings
  std::optional<float> applied_strength;       // reported in place of the strength that is asked for
  std::optional<std::uint32_t> hammer_rounds;  // of each thread
  std::uint32_t hammer_query = 0;  // that the hammer's first thread reports, the next one the next
};

extern const char usage[];

// No value when an argument is unknown, lacks its value or has one that is not allowed, or when the name is
// missing.
[[nodiscard]] std::optional<Options> parse_options(int argc, const char* const* argv);

}  // namespace velmora::effect
