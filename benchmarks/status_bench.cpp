// Measures time and allocations of the status document, and compares the effect's reports with one bare
// locked add, in one run. docs/performance.md explains the output. Takes Google Benchmark's options.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "api/status_document.h"
#include "bridge/mapping.h"
#include "collector.h"
#include "engine/algorithm_version.h"
#include "memory/system.h"
#include "platform/hosted/registry_export.h"
#include "result_rows.h"

namespace {

std::uint64_t allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace velmora::bench {
namespace {

constexpr double document_aim_us = 15;
constexpr const char* endpoint_id = "{0.0.0.00000000}.{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}";

alignas(64) ControlBridgeRecord record;

// Values that the compiler must not know.
struct Inputs {
  InitializeAttempt attempt = {96, 96, 4, 1, true};
  StreamFormat format = {48000, 2, 32, 4, 1};
  LockedStream stream = {48000, 2, true, 2, 0};
  float number = 0.5f;
  std::uint32_t stage = 9;
  std::uint32_t index = 2;
};

// A locked add of one word, the minimum for any counter.
void locked_add(const Inputs&) { std::atomic_ref<std::uint64_t>(record.total_processed_blocks).fetch_add(1); }

void read_all(const Inputs&) {
  ControlDiagnostics read;
  read_diagnostics(record, read);
  benchmark::DoNotOptimize(read);
}

struct Operation {
  const char* name;
  int locked;  // number of locked instructions
  void (*work)(const Inputs&);
};

constexpr const char* bare_name = "bare locked add";
constexpr const char* control_name = "the same once more";

const Operation operations[] = {
    {bare_name, 1, locked_add},
    {control_name, 1, locked_add},
    {"read_diagnostics", 19, read_all},
    {"report_initialize_attempt", 4, [](const Inputs& in) { report_initialize_attempt(record, in.attempt); }},
    {"report_initialize_success", 1, [](const Inputs&) { report_initialize_success(record); }},
    {"report_initialize_progress", 1,
     [](const Inputs& in) { report_initialize_progress(record, in.stage, in.index); }},
    {"report_format_negotiation", 4, [](const Inputs& in) { report_format_negotiation(record, in.stage); }},
    {"report_lock_attempt", 4, [](const Inputs&) { report_lock_attempt(record); }},
    {"report_lock_input_format", 1, [](const Inputs& in) { report_lock_input_format(record, in.format); }},
    {"report_lock_output_format", 1, [](const Inputs& in) { report_lock_output_format(record, in.format); }},
    {"report_lock_progress", 1, [](const Inputs& in) { report_lock_progress(record, in.stage, in.index); }},
    {"report_lock_success", 3, [](const Inputs& in) { report_lock_success(record, in.stream); }},
    {"report_applied", 1, [](const Inputs& in) { report_applied(record, false, true, in.number); }},
    {"report_processing", 1, [](const Inputs& in) { report_processing(record, in.number, in.stage); }},
    {"report_mode, known by now", 1,
     [](const Inputs& in) { report_mode(record, in.index, ModeKind::processed); }},
    {"count_processed_block", 1, [](const Inputs&) { count_processed_block(record); }},
    {"report_query", 2, [](const Inputs& in) { report_query(record, in.index, in.stage, 0); }},
    {"report_capture", 1, [](const Inputs& in) { report_capture(record, 2, 120, in.index); }},
};

void measure_operation(benchmark::State& state, void (*work)(const Inputs&)) {
  Inputs inputs;
  for (auto _ : state) {
    benchmark::DoNotOptimize(inputs);
    work(inputs);
  }
}

// Diagnostics whose counts all have the maximum number of digits, or one.
ControlDiagnostics counts_of_length(bool longest) {
  ControlBridgeRecord filled{};
  initialise_record(filled);
  if (longest) {
    std::memset(
        reinterpret_cast<char*>(&filled) + offsetof(ControlBridgeRecord, initialize_count), 0xFF,
        offsetof(ControlBridgeRecord, algorithm_word) - offsetof(ControlBridgeRecord, initialize_count));
  }
  ControlDiagnostics read;
  read_diagnostics(filled, read);
  if (longest) read.applied_strength = read.processing_gain_db = -1.2345678e-20f;
  return read;
}

// A snapshot with an installed, bound and loaded effect.
StatusSnapshot usual_snapshot() {
  StatusSnapshot snapshot;
  snapshot.volume = {true, 0.6f, false, 0};
  snapshot.bridge_available = true;
  snapshot.footstep = {false, false, 0.625f, 0};
  snapshot.diagnostics_available = true;
  snapshot.diagnostics = counts_of_length(false);
  snapshot.install = {true, true, true, true, true, "C:\\Program Files\\Velmora\\velmora_windows_apo.dll"};
  snapshot.effect_clsid = "{631D9145-CACF-44D7-861B-5D82ADD8C84F}";
  snapshot.engine = {true, 4242, true, true, snapshot.install.apo_dll_path, 0};
  snapshot.binding = {true, true, {"{9063CBD4-3561-449D-8011-E21BBB69B9DB}", snapshot.effect_clsid}, 0};
  return snapshot;
}

StatusSnapshot longest_snapshot() {
  StatusSnapshot snapshot = usual_snapshot();
  snapshot.diagnostics = counts_of_length(true);
  snapshot.volume.volume = snapshot.footstep.enhance_strength = -1.2345678e-20f;
  snapshot.volume.error_code = snapshot.engine.error_code = snapshot.binding.error_code = -2147483647 - 1;
  snapshot.engine.process_id = 0xFFFFFFFF;
  return snapshot;
}

AccountSession usual_session() {
  AccountSession session;
  session.account_hash = std::string(64, 'a');
  session.public_id = "VM-123456";
  session.signed_in_unix = 1700000000;
  session.usage_seconds = 86400;
  session.invite_url = "https://example.com/invite?code=VM-123456";
  return session;
}

// The machine in memory: the built-in registry, an engine that has loaded the effect, and a record.
ControlBridge& bridge_of_machine() {
  static ControlBridge bridge;
  if (bridge.is_open()) return bridge;
  auto parsed = hosted::parse_export(hosted::builtin_machine);
  memory::System& machine = memory::system();
  machine.state.registry = std::move(std::get<hosted::ParsedExport>(parsed).tree);
  machine.processes = {
      {4242, u"audiodg.exe", {{u"velmora_windows_apo.dll", u"C:\\velmora_windows_apo.dll"}}}};
  std::string message;
  if (!bridge.create(u"Local\\bench", message)) std::abort();
  return bridge;
}

struct Document {
  const char* name;
  std::string (*write)();
};

const Document documents[] = {
    {"write_status_json",
     [] {
       static const StatusSnapshot snapshot = usual_snapshot();
       static const AccountSession session = usual_session();
       return write_status_json(snapshot, endpoint_id, session);
     }},
    {"with the longest numbers",
     [] {
       static const StatusSnapshot snapshot = longest_snapshot();
       static const AccountSession session = usual_session();
       return write_status_json(snapshot, endpoint_id, session);
     }},
    {"build_status_json",
     [] {
       static const AccountSession session = usual_session();
       ControlBridge& bridge = bridge_of_machine();
       // Only the machine in memory keeps this log, and it would grow without limit.
       memory::system().log.clear();
       return build_status_json(bridge, {true, 0.6f, false, 0}, endpoint_id, session);
     }},
};

void measure_document(benchmark::State& state, std::string (*write)()) {
  for (auto _ : state) benchmark::DoNotOptimize(write());
}

struct Memory {
  std::uint64_t allocations;
  std::size_t bytes;
};

Memory memory_of(std::string (*write)()) {
  static_cast<void>(write());
  const std::uint64_t before = allocations;
  const std::string text = write();
  return {allocations - before, text.size()};
}

void print_operations(const Collector& collector) {
  const double bare = collector.median_ns(bare_name);
  std::printf("%-30s %9s %14s %18s\n", "the effect's words", "ns", "/ locked add", "locked, at least");
  for (const Operation& operation : operations) {
    const double took = collector.median_ns(operation.name);
    std::printf("%-30s %9.2f %14.2f %18d\n", operation.name, took, took / bare, operation.locked);
  }
}

void print_documents(const Collector& collector) {
  std::printf("\n%-30s %9s %14s %18s  %s\n", "status document", "us", "bytes", "allocations", "aim");
  const Memory usual = memory_of(documents[0].write);
  for (const Document& document : documents) {
    const double took_us = collector.median_ns(document.name) / 1000;
    const Memory memory = memory_of(document.write);
    const bool on_machine = &document == &documents[std::size(documents) - 1];
    const bool met = took_us < document_aim_us && memory.allocations == usual.allocations;
    add_result_row({"status document",
                    document.name,
                    with_unit(took_us, 2, "us"),
                    {},
                    took_us,
                    {},
                    on_machine ? Aim{} : Aim{AimKind::at_most, document_aim_us}});
    std::printf("%-30s %9.2f %14zu %18llu  %s\n", document.name, took_us, memory.bytes,
                static_cast<unsigned long long>(memory.allocations),
                on_machine ? "none: most of it is the machine in memory"
                : met      ? "< 15 us, allocations as above: met"
                           : "< 15 us, allocations as above: missed");
  }
}

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
  algorithm_version = "1.20.300";
  for (const Operation& operation : operations) {
    benchmark::RegisterBenchmark(operation.name, measure_operation, operation.work);
  }
  for (const Document& document : documents) {
    benchmark::RegisterBenchmark(document.name, measure_document, document.write);
  }
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  print_operations(collector);
  print_documents(collector);
  bridge_of_machine().close();
  return 0;
}

}  // namespace
}  // namespace velmora::bench

int main(int argc, char** argv) { return velmora::bench::run(argc, argv); }
