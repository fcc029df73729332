// The effect's own view of the shared record, written from docs/record.md and from nothing else.
#pragma once

#include <cstddef>
#include <cstdint>

#include "options.h"

namespace velmora::effect {

inline constexpr std::size_t record_size = 576;
inline constexpr std::size_t half_record_size = 288;

// A mapped record. `size` is 576 but for a record that is too small on purpose: words behind its end read as
// 0 and are not written.
struct Record {
  unsigned char* bytes;  // aligned to 8
  std::size_t size;
};

// What the footstep word asks for.
struct Enhancement {
  bool bypass;
  bool bypass_all;
  float strength;
};

// What the algorithm word asks for. The defaults are used where the word is not valid.
struct Algorithm {
  float trim_db = 0;
  float time_alpha = 0;
  unsigned frequency_smooth = 0;
  bool limiter = true;
  float ceiling_db = -1;
  unsigned stereo_link = 1;
};

struct CaptureRequest {
  unsigned action;
  unsigned seconds;
  std::uint32_t sequence;
};

struct Band {
  std::int32_t type;
  float freq_hz;
  float gain_db;
  float q;
};

struct Equalizer {
  bool bypass;
  float fade_ms;
  Band bands[15];
  std::uint64_t revision;
};

// Everything of a new record but its magic, spoilt as `fault` says.
void write_first_contents(const Record& record, Fault fault);
// The magic, or what `fault` puts in its place. The last act of making a record.
void write_magic(const Record& record, Fault fault);

enum class Readiness { ready, unfinished, incompatible };
// Whether another process's record can be used by now.
[[nodiscard]] Readiness inspect(const Record& record);

[[nodiscard]] std::uint64_t footstep_word(const Record& record);
[[nodiscard]] std::uint64_t algorithm_word(const Record& record);
[[nodiscard]] std::uint64_t equalizer_revision(const Record& record);
[[nodiscard]] Enhancement decode_footstep(std::uint64_t word);
[[nodiscard]] Algorithm decode_algorithm(std::uint64_t word);
// False, with `out` in any state, when a writer was at it in each of a few attempts.
[[nodiscard]] bool read_equalizer(const Record& record, Equalizer& out);

[[nodiscard]] CaptureRequest capture_request(const Record& record);

// How the enhancement that is applied is reported.
[[nodiscard]] std::uint64_t applied_word(const Enhancement& enhancement);

}  // namespace velmora::effect
