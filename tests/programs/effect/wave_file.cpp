#include "wave_file.h"

#include <cmath>
#include <fstream>
#include <numbers>
#include <string>

namespace velmora::effect {
namespace {

constexpr std::uint32_t sample_rate_hz = 48000;
constexpr unsigned bytes_per_sample = 2;
constexpr std::uint32_t format_chunk_bytes = 16;
// Of the header that a RIFF chunk's size counts: all but its own first 8.
constexpr std::uint32_t counted_header_bytes = 36;
constexpr double amplitude = 8192;

void put_number(std::string& bytes, std::uint32_t value, unsigned size) {
  for (unsigned index = 0; index < size; ++index) bytes += static_cast<char>((value >> (8 * index)) & 0xFF);
}

std::string wave_header(std::uint32_t data_bytes) {
  constexpr unsigned integer_samples = 1;
  constexpr unsigned channels = 1;
  std::string header = "RIFF";
  put_number(header, counted_header_bytes + data_bytes, 4);
  header += "WAVEfmt ";
  put_number(header, format_chunk_bytes, 4);
  put_number(header, integer_samples, 2);
  put_number(header, channels, 2);
  put_number(header, sample_rate_hz, 4);
  put_number(header, sample_rate_hz * channels * bytes_per_sample, 4);
  put_number(header, channels * bytes_per_sample, 2);
  put_number(header, 8 * bytes_per_sample, 2);
  header += "data";
  put_number(header, data_bytes, 4);
  return header;
}

// A whole number of hertz fills a second with whole waves, so each second is the same.
std::string one_second(unsigned tone_hz) {
  std::string samples;
  for (unsigned index = 0; index < sample_rate_hz; ++index) {
    const double phase = 2 * std::numbers::pi * tone_hz * index / sample_rate_hz;
    put_number(samples, static_cast<std::uint32_t>(std::lround(amplitude * std::sin(phase))),
               bytes_per_sample);
  }
  return samples;
}

bool write_samples(const std::filesystem::path& path, unsigned seconds, unsigned tone_hz) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  const std::string block = one_second(tone_hz);
  file << wave_header(static_cast<std::uint32_t>(seconds * block.size()));
  for (unsigned second = 0; second < seconds && file; ++second) file << block;
  file.close();
  return !file.fail();
}

}  // namespace

bool write_wave_file(const std::filesystem::path& path, unsigned seconds, unsigned tone_hz) {
  std::filesystem::path unfinished = path;
  unfinished += ".part";
  std::error_code error;
  bool written = write_samples(unfinished, seconds, tone_hz);
  if (written) {
    std::filesystem::rename(unfinished, path, error);
    written = !error;
  }
  if (!written) std::filesystem::remove(unfinished, error);
  return written;
}

}  // namespace velmora::effect
