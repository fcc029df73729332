// Compares reading and writing an equalizer setting as JSON with the simplest C library calls for the same
// numbers, in one run. Takes Google Benchmark's options.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "effects/equalizer.h"

namespace velmora::bench {
namespace {

EqSettings make_settings() {
  EqSettings settings;
  settings.fade_ms = 12.3f;
  for (std::size_t index = 0; index < settings.bands.size(); ++index) {
    const auto place = static_cast<float>(index);
    settings.bands[index] = {static_cast<std::int32_t>(index % 9), band_frequency(index),
                             place * 1.7f - 12.3f, 0.707f + place * 0.11f};
  }
  return settings;
}

std::string make_body() {
  std::string body;
  write_eq_json(body, make_settings());
  return body;
}

void product_parse_eq(benchmark::State& state) {
  const std::string body = make_body();
  const EqSettings settings;
  for (auto _ : state) benchmark::DoNotOptimize(parse_eq(body, settings));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * body.size()));
}

// Parses the 61 numbers of the body, already split, with strtof.
void bare_strtof(benchmark::State& state) {
  const std::string body = make_body();
  std::vector<std::string> numbers;
  for (std::size_t colon = body.find(':'); colon != std::string::npos; colon = body.find(':', colon + 1)) {
    const std::string text = body.substr(colon + 1, body.find_first_of(",}", colon) - colon - 1);
    if (text.find_first_of("0123456789") == 0 || text.starts_with('-')) numbers.push_back(text);
  }
  for (auto _ : state) {
    for (const std::string& number : numbers) benchmark::DoNotOptimize(std::strtof(number.c_str(), nullptr));
  }
}

void product_write_eq_json(benchmark::State& state) {
  const EqSettings settings = make_settings();
  for (auto _ : state) {
    std::string out;
    write_eq_json(out, settings);
    benchmark::DoNotOptimize(out);
  }
}

void bare_snprintf(benchmark::State& state) {
  const EqSettings settings = make_settings();
  for (auto _ : state) {
    char band_text[160];
    std::string out = "{\"bypass\":true,\"fade_ms\":12.3,\"bands\":[";
    for (const EqBand& band : settings.bands) {
      const int length = std::snprintf(
          band_text, sizeof band_text, "{\"type\":%d,\"freq_hz\":%g,\"gain_db\":%g,\"q\":%g},", band.type,
          static_cast<double>(band.freq_hz), static_cast<double>(band.gain_db), static_cast<double>(band.q));
      out.append(band_text, static_cast<std::size_t>(length));
    }
    benchmark::DoNotOptimize(out);
  }
}

BENCHMARK(product_parse_eq);
BENCHMARK(bare_strtof);
BENCHMARK(product_write_eq_json);
BENCHMARK(bare_snprintf);

}  // namespace
}  // namespace velmora::bench

BENCHMARK_MAIN();
