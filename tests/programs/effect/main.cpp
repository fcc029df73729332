// The test effect: makes or opens the shared record, follows what the service writes, and reports what it
// applied. It prints one line for each change that it sees, for tests to wait for.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "base/text.h"
#include "capture.h"
#include "engine_life.h"
#include "hammer.h"
#include "life.h"
#include "options.h"
#include "platform/clock.h"
#include "platform/machine.h"
#include "platform/shared_memory.h"
#include "record.h"
#include "reports.h"
#include "system.h"

namespace velmora::effect {
namespace {

constexpr int exit_done = 0;
constexpr int exit_no_mapping = 1;
constexpr int exit_usage = 2;

constexpr int creator_rounds = 100;
constexpr std::uint32_t creator_pause_ms = 1;
// A stop is seen within this time, however rarely the record is looked at.
constexpr std::uint32_t longest_pause_ms = 20;
constexpr std::int64_t ns_per_ms = 1'000'000;

std::atomic<bool> stop_requested{false};

bool take_console_event(std::uint32_t) {
  stop_requested = true;
  return true;
}

const char* name_of_action(unsigned action) {
  constexpr std::array names{"start", "stop", "export"};
  return action >= 1 && action <= names.size() ? names[action - 1] : "unknown";
}

const char* text_of(bool value) { return value ? "true" : "false"; }

void print_line(std::string line) { write_standard_output(line += '\n'); }

// What is printed of one word, formatted in place.
using LineBuffer = std::array<char, 256>;

struct Connection {
  SharedMapping mapping;
  SharedView view;  // behind the mapping: it is closed first
  bool made = false;

  Record record() const { return {static_cast<unsigned char*>(view.native().data), view.native().size}; }
};

// The Win32 error code of a failure. Else `connection` holds the mapping and its view.
std::optional<std::uint32_t> obtain(const Options& options, Connection& connection) {
  const std::u16string name = wide_from_signed_bytes(options.control_map);
  std::size_t size = record_size;
  std::optional<std::uint32_t> error = open_shared_mapping(name, connection.mapping);
  if (error) {
    if (options.open_only) return error;
    const std::size_t made_size = options.fault == Fault::small ? half_record_size : record_size;
    bool already_existed = false;
    error = make_mapping(name, made_size, connection.mapping, already_existed);
    if (error) return error;
    connection.made = !already_existed;
    if (connection.made) size = made_size;
  }
  return map_shared_view(connection.mapping, size, connection.view);
}

bool wait_until_ready(const Record& record) {
  for (int round = 0; round < creator_rounds; ++round) {
    const Readiness readiness = inspect(record);
    if (readiness != Readiness::unfinished) return readiness == Readiness::ready;
    sleep_ms(creator_pause_ms);
  }
  return false;
}

// What was seen last in each part of the record.
struct Seen {
  std::optional<std::uint64_t> footstep;
  std::optional<std::uint64_t> algorithm;
  std::uint64_t equalizer_revision;
  std::uint32_t capture_sequence;
};

void follow_footstep(const Record& record, const Options& options, Seen& seen) {
  const std::uint64_t word = footstep_word(record);
  if (seen.footstep == word) return;
  seen.footstep = word;
  Enhancement applied = decode_footstep(word);
  applied.strength = options.applied_strength.value_or(applied.strength);
  reports_for(options).applied(record, applied);
  LineBuffer line;
  std::snprintf(line.data(), line.size(), "applied word=0x%016llx bypass=%s bypass_all=%s strength=%g",
                static_cast<unsigned long long>(applied_word(applied)), text_of(applied.bypass),
                text_of(applied.bypass_all), static_cast<double>(applied.strength));
  print_line(line.data());
}

void follow_algorithm(const Record& record, Seen& seen) {
  const std::uint64_t word = algorithm_word(record);
  if (seen.algorithm == word) return;
  seen.algorithm = word;
  const Algorithm wanted = decode_algorithm(word);
  LineBuffer line;
  std::snprintf(
      line.data(), line.size(),
      "algorithm word=0x%016llx trim_db=%g time_alpha=%g frequency_smooth=%u limiter=%s ceiling_db=%g "
      "stereo_link=%u",
      static_cast<unsigned long long>(word), static_cast<double>(wanted.trim_db),
      static_cast<double>(wanted.time_alpha), wanted.frequency_smooth, text_of(wanted.limiter),
      static_cast<double>(wanted.ceiling_db), wanted.stereo_link);
  print_line(line.data());
}

void follow_equalizer(const Record& record, Seen& seen) {
  if (equalizer_revision(record) == seen.equalizer_revision) return;
  Equalizer equalizer{};
  // A block that a writer is at keeps its old revision for us, so the next look tries again.
  if (!read_equalizer(record, equalizer) || equalizer.revision == seen.equalizer_revision) return;
  seen.equalizer_revision = equalizer.revision;
  LineBuffer line;
  std::snprintf(line.data(), line.size(), "equalizer revision=%llu bypass=%s fade_ms=%g",
                static_cast<unsigned long long>(equalizer.revision), text_of(equalizer.bypass),
                static_cast<double>(equalizer.fade_ms));
  print_line(line.data());
}

// An export takes its time, and nothing else is looked at meanwhile.
void follow_capture(const Record& record, const Options& options, Seen& seen) {
  const CaptureRequest request = capture_request(record);
  if (request.sequence == seen.capture_sequence) return;
  seen.capture_sequence = request.sequence;
  const CaptureAnswer answer = answer_capture(record, request, options);
  LineBuffer line;
  std::snprintf(line.data(), line.size(), "capture action=%s seconds=%u sequence=%u state=%u",
                name_of_action(request.action), request.seconds, request.sequence,
                static_cast<unsigned>(answer.state));
  std::string text = line.data();
  if (answer.detail != 0) {
    std::snprintf(line.data(), line.size(), " detail=0x%08x", answer.detail);
    text += line.data();
  }
  print_line(std::move(text));
}

// Sleeps until `moment_ns` or a stop.
void pause_until(std::int64_t moment_ns) {
  while (!stop_requested) {
    const std::int64_t left_ms = (moment_ns - steady_now_ns() + ns_per_ms - 1) / ns_per_ms;
    if (left_ms <= 0) return;
    sleep_ms(static_cast<std::uint32_t>(std::min<std::int64_t>(left_ms, longest_pause_ms)));
  }
}

constexpr std::atomic<bool> never_quiet{false};

// What happens beside the looking: at most one of the three.
struct Activity {
  std::optional<Life> life;
  std::optional<EngineLife> engine_life;
  std::optional<Hammer> hammer;
  bool processing_printed = false;
  bool end_printed = false;
};

void start_activity(const Record& record, const Options& options, Activity& activity) {
  if (options.life) activity.life.emplace(record, options, stop_requested, never_quiet);
  if (!options.life_state.empty()) activity.engine_life.emplace(record, options);
  if (options.hammer_rounds) activity.hammer.emplace(record, options, stop_requested);
}

// How far it has come at one moment.
struct Progress {
  bool processing;
  bool life_finished;
  bool hammer_finished;
};

Progress progress_of(const Activity& activity) {
  const bool processing = (activity.life && activity.life->is_processing()) ||
                          (activity.engine_life && activity.engine_life->is_processing());
  return {processing, activity.life && activity.life->is_finished(),
          activity.hammer && activity.hammer->is_finished()};
}

// Each moment once. A stop ends everything without such a line.
void print_progress(const Progress& progress, Activity& activity) {
  const auto print_once = [](bool happened, bool& printed, const char* line) {
    if (!happened || printed || stop_requested) return;
    printed = true;
    print_line(line);
  };
  print_once(progress.processing, activity.processing_printed, "life processing");
  print_once(progress.life_finished, activity.end_printed, "life finished");
  if (!progress.hammer_finished) return;
  LineBuffer line;
  std::snprintf(line.data(), line.size(), "hammer finished rounds=%llu odd=%llu lost=%llu",
                static_cast<unsigned long long>(activity.hammer->rounds()),
                static_cast<unsigned long long>(activity.hammer->odd_rounds()),
                static_cast<unsigned long long>(activity.hammer->lost_reports()));
  print_once(true, activity.end_printed, line.data());
}

// The present state of the record: what differs from it later is news.
Seen seen_now(const Record& record) {
  return {std::nullopt, std::nullopt, equalizer_revision(record), capture_request(record).sequence};
}

void follow_engine(const Record& record, Activity& activity, Seen& seen) {
  if (!activity.engine_life) return;
  const bool was_loaded = activity.engine_life->is_loaded();
  if (activity.engine_life->look()) {
    seen = seen_now(record);
    activity.processing_printed = false;
    print_line("life loaded");
  } else if (was_loaded && !activity.engine_life->is_loaded()) {
    print_line("life unloaded");
  }
}

// Looks at what the service writes, and answers it. An effect that no engine has loaded sees nothing.
void follow_service(const Record& record, const Options& options, const Progress& progress,
                    const Activity& activity, Seen& seen) {
  if (activity.engine_life && !activity.engine_life->is_loaded()) return;
  // A life applies the enhancement from its first block on; the hammer reports one of its own.
  const bool has_life = activity.life || activity.engine_life;
  if (!activity.hammer && (!has_life || progress.processing)) follow_footstep(record, options, seen);
  follow_algorithm(record, seen);
  follow_equalizer(record, seen);
  follow_capture(record, options, seen);
}

// Looks at the record until a stop. The times of the options count from here.
void follow(const Record& record, const Options& options, Seen seen, bool magic_is_due) {
  const std::int64_t start_ns = steady_now_ns();
  Activity activity;
  start_activity(record, options, activity);
  while (!stop_requested) {
    const std::int64_t now_ns = steady_now_ns();
    const auto moment_of = [start_ns](std::uint32_t after_ms) { return start_ns + after_ms * ns_per_ms; };
    std::int64_t wake_ns = now_ns + options.poll_ms * ns_per_ms;
    if (magic_is_due) {
      const std::int64_t finish_ns = moment_of(options.finish_after_ms.value_or(0));
      if (now_ns >= finish_ns) {
        write_magic(record, options.fault);
        magic_is_due = false;
      } else {
        wake_ns = std::min(wake_ns, finish_ns);
      }
    }
    if (options.exit_after_ms) {
      const std::int64_t exit_ns = moment_of(*options.exit_after_ms);
      if (now_ns >= exit_ns) {
        stop_requested = true;
        return;
      }
      wake_ns = std::min(wake_ns, exit_ns);
    }
    follow_engine(record, activity, seen);
    const Progress progress = progress_of(activity);
    follow_service(record, options, progress, activity, seen);
    print_progress(progress, activity);
    pause_until(wake_ns);
  }
}

int run(int argc, const char* const* argv) {
  prepare_process();
  const std::optional<Options> options = parse_options(argc, argv);
  if (!options) {
    write_standard_error(usage);
    return exit_usage;
  }
  install_console_handler(take_console_event);
  Connection connection;
  if (const std::optional<std::uint32_t> error = obtain(*options, connection)) {
    write_standard_error("mapping failed with error " + std::to_string(*error) + '\n');
    return exit_no_mapping;
  }
  const Record record = connection.record();
  bool magic_is_due = false;
  if (connection.made) {
    write_first_contents(record, options->fault);
    magic_is_due = options->finish_after_ms.has_value();
    if (!magic_is_due) write_magic(record, options->fault);
  } else if (!wait_until_ready(record)) {
    write_standard_error("mapping has an incompatible layout\n");
    return exit_no_mapping;
  }
  // What comes behind the line that says that we are there is news.
  const Seen seen = seen_now(record);
  print_line(connection.made ? "mapping made" : "mapping opened");
  follow(record, *options, seen, magic_is_due);
  print_line("stopped");
  return exit_done;
}

}  // namespace
}  // namespace velmora::effect

int main(int argc, char** argv) { return velmora::effect::run(argc, argv); }
