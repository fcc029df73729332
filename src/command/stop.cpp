#include "command/stop.h"

#include <cstdint>
#include <string>

#include "command/ending.h"
#include "command/run_folder.h"
#include "command/window.h"
#include "platform/clock.h"
#include "platform/machine.h"

namespace velmora {
namespace {

constexpr std::string_view ended_line = "Velmora has ended.\n";
constexpr std::string_view forced_line =
    "Velmora was ended at once. If you were signed in, you stay signed in at the account service until that\n"
    "session expires.\n";
constexpr std::string_view held_sentence =
    "Velmora has not ended within 5 seconds: a browser or another program holds it, or the account service "
    "does not answer. It ends as soon as they are done. To end it at once, run velmora stop --force. If "
    "you are signed in, you then stay signed in at the account service until that session expires.";
constexpr std::string_view held_lines =
    "Velmora has not ended within 5 seconds: a browser or another program holds it, or the account service\n"
    "does not answer. It ends as soon as they are done.\n"
    "If you end it at once while you are signed in, you stay signed in at the account service until that\n"
    "session expires.\n";

// Waits until no `start` holds the run file with this id any more. False after the time limit.
bool wait_for_end(const std::string& run_id) {
  constexpr std::uint32_t pause_ms = 100;
  constexpr std::int64_t ns_per_ms = 1'000'000;
  const std::int64_t deadline_ns = steady_now_ns() + clean_end_ms * ns_per_ms;
  for (;;) {
    // While Windows removes the file, it cannot be read.
    const RunState state = read_run_state();
    const bool is_other = state.run && state.run->run_id != run_id;
    if (!state.outcome.failed() && (!state.is_held || is_other)) return true;
    if (steady_now_ns() >= deadline_ns) return false;
    sleep_ms(pause_ms);
  }
}

Outcome end_at_once(const RunRecord& run) {
  Outcome outcome = write_stop_request({run.run_id, true});
  if (outcome.failed()) return outcome;
  if (!wait_for_end(run.run_id)) {
    return {CommandCode::held_by_client, "Velmora cannot be ended: close the window in which it runs."};
  }
  write_standard_output(forced_line);
  return {};
}

Outcome end_cleanly(const RunRecord& run, bool asks) {
  Outcome outcome = write_stop_request({run.run_id, false});
  if (outcome.failed()) return outcome;
  if (wait_for_end(run.run_id)) {
    write_standard_output(ended_line);
    return {};
  }
  if (!asks) return {CommandCode::held_by_client, std::string(held_sentence)};
  write_standard_output(held_lines);
  if (ask("End it at once?")) return end_at_once(run);
  return {CommandCode::held_by_client, "Velmora still runs: it ends as soon as its last client is done."};
}

}  // namespace

int stop_command(const CommandArguments& arguments) {
  constexpr std::int64_t start_ms = 5000;
  if (arguments.window) explain_stop_window();
  RunState state = find_run(start_ms);
  Outcome outcome = std::move(state.outcome);
  if (!outcome.failed()) {
    outcome = arguments.force ? end_at_once(*state.run) : end_cleanly(*state.run, arguments.window);
  }
  if (!outcome.sentence.empty()) {
    write_standard_error((arguments.window ? name_scripts(outcome.sentence) : outcome.sentence) + '\n');
  }
  if (arguments.window && outcome.failed()) wait_for_enter();
  return static_cast<int>(outcome.code);
}

}  // namespace velmora
