// Compares the record's operations with the minimum of locked instructions that they need, in one run.
// docs/performance.md explains the output. Takes Google Benchmark's options.
#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "bridge/record.h"
#include "collector.h"
#include "result_rows.h"
#include "statistics.h"

namespace velmora::bench {
namespace {

alignas(64) ControlBridgeRecord record;

std::uint64_t exchange(std::uint64_t& word, std::uint64_t value) {
  return std::atomic_ref<std::uint64_t>(word).exchange(value);
}

std::uint64_t compare_exchange(std::uint64_t& word) {
  std::uint64_t present = 0;
  std::atomic_ref<std::uint64_t>(word).compare_exchange_strong(present, 0);
  return present;
}

void add_one(std::uint64_t& word) { std::atomic_ref<std::uint64_t>(word).fetch_add(1); }

void bare_exchange(benchmark::State& state) {
  std::uint64_t value = pack_footstep(false, false, 0.5f);
  for (auto _ : state) {
    benchmark::DoNotOptimize(value);
    exchange(record.footstep_word, value);
  }
}

void product_publish_footstep(benchmark::State& state) {
  float strength = 0.5f;
  for (auto _ : state) {
    benchmark::DoNotOptimize(strength);
    benchmark::DoNotOptimize(publish_footstep(record, false, false, strength));
  }
}

void bare_compare_exchange(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(compare_exchange(record.footstep_word));
}

void product_read_footstep(benchmark::State& state) {
  FootstepParameters footstep{};
  for (auto _ : state) {
    benchmark::DoNotOptimize(read_footstep(record, footstep));
    benchmark::DoNotOptimize(footstep);
  }
}

void bare_publish_eq(benchmark::State& state) {
  EqSettings settings;
  std::uint64_t word = pack_eq_word(false, 20.0f);
  for (auto _ : state) {
    benchmark::DoNotOptimize(settings);
    benchmark::DoNotOptimize(word);
    add_one(record.eq_sequence);
    std::memcpy(&record.eq_bands, &settings.bands, sizeof settings.bands);
    exchange(record.eq_word, word);
    add_one(record.eq_revision);
    add_one(record.eq_sequence);
  }
}

void product_publish_eq(benchmark::State& state) {
  EqSettings settings;
  for (auto _ : state) {
    benchmark::DoNotOptimize(settings);
    publish_eq(record, settings);
  }
}

void bare_read_eq(benchmark::State& state) {
  EqSettings settings;
  for (auto _ : state) {
    benchmark::DoNotOptimize(compare_exchange(record.eq_sequence));
    std::memcpy(&settings.bands, &record.eq_bands, sizeof settings.bands);
    benchmark::DoNotOptimize(compare_exchange(record.eq_word));
    benchmark::DoNotOptimize(compare_exchange(record.eq_revision));
    benchmark::DoNotOptimize(compare_exchange(record.eq_sequence));
    benchmark::DoNotOptimize(settings);
  }
}

// Includes the copy that leaves the caller's output unchanged after a disturbed read, to show its cost.
void bare_read_eq_apart(benchmark::State& state) {
  EqSettings settings;
  std::array<EqBand, eq_band_count> apart;
  for (auto _ : state) {
    benchmark::DoNotOptimize(compare_exchange(record.eq_sequence));
    std::memcpy(&apart, &record.eq_bands, sizeof apart);
    benchmark::DoNotOptimize(apart);
    benchmark::DoNotOptimize(compare_exchange(record.eq_word));
    benchmark::DoNotOptimize(compare_exchange(record.eq_revision));
    benchmark::DoNotOptimize(compare_exchange(record.eq_sequence));
    settings.bands = apart;
    benchmark::DoNotOptimize(settings);
  }
}

void product_read_eq(benchmark::State& state) {
  EqSettings settings;
  for (auto _ : state) {
    benchmark::DoNotOptimize(read_eq(record, settings));
    benchmark::DoNotOptimize(settings);
  }
}

constexpr struct {
  const char* name;
  void (*product)(benchmark::State&);
  void (*bare)(benchmark::State&);
  double aim;  // for product / bare; 0: none
} pairs[] = {{"publish_footstep", product_publish_footstep, bare_exchange, 1.2},
             {"read_footstep", product_read_footstep, bare_compare_exchange, 1.2},
             {"publish_eq", product_publish_eq, bare_publish_eq, 1.2},
             {"read_eq", product_read_eq, bare_read_eq, 1.2},
             {"read_eq, two copies", product_read_eq, bare_read_eq_apart, 0}};

std::string bare_name(const std::string& name) { return "bare_" + name; }
// The bare form measured again, which shows the error of the measurement.
std::string control_name(const std::string& name) { return "control_" + name; }

int run(int argc, char** argv) {
  // Shuffles the repetitions of all benchmarks, so that changes during the run affect all of them equally.
  std::string interleaving = "--benchmark_enable_random_interleaving=true";
  std::string repetitions = "--benchmark_repetitions=41";
  std::string shortest = "--benchmark_min_time=0.02";
  std::vector<char*> arguments{argv[0], interleaving.data(), repetitions.data(), shortest.data()};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  auto count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  initialise_record(record);
  for (const auto& pair : pairs) {
    benchmark::RegisterBenchmark(pair.name, pair.product);
    benchmark::RegisterBenchmark(bare_name(pair.name).c_str(), pair.bare);
    benchmark::RegisterBenchmark(control_name(pair.name).c_str(), pair.bare);
  }
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  std::printf("%-24s %9s %9s   %-15s %14s  %s\n", "record operation, ns", "product", "bare", "product / bare",
              "control / bare", "verdict");
  for (const auto& pair : pairs) {
    const double product = collector.median_ns(pair.name);
    const double bare = collector.median_ns(bare_name(pair.name));
    ResultRow row{"record",
                  pair.name,
                  with_unit(product, 2, "ns"),
                  with_unit(bare, 2, "ns"),
                  product / bare,
                  bare / collector.median_ns(control_name(pair.name))};
    if (pair.aim != 0) row.aim = {AimKind::at_most, pair.aim};
    add_result_row(row);
    std::printf("%-24s %9.2f %9.2f   %-15.3f %14.3f  %s\n", pair.name, product, bare, product / bare,
                collector.median_ns(control_name(pair.name)) / bare, verdict_of(row).c_str());
  }
  return 0;
}

}  // namespace
}  // namespace velmora::bench

int main(int argc, char** argv) { return velmora::bench::run(argc, argv); }
