// The folder with the run file and the stop request.
#pragma once

#include <optional>
#include <string>

#include "command/exit_codes.h"
#include "command/run_file.h"
#include "platform/private_files.h"

namespace velmora {

[[nodiscard]] std::string run_file_path();
[[nodiscard]] std::string stop_file_path();

// Whether a service of this user runs.
struct RunState {
  Outcome outcome;               // run_file_unreadable: nothing else is known
  bool is_held = false;          // a `start` runs
  bool is_empty = true;          // it has not written the run file yet
  std::optional<RunRecord> run;  // no value while the file is empty or is being written
};

// Reads the run file. A missing file, and one of a run that was killed, are no failures: nothing runs.
[[nodiscard]] RunState read_run_state();

// As read_run_state. If nothing runs, that is a failure, and so is a service that is still starting, or a
// file that still makes no sense, after `wait_ms`. On success there is a run.
[[nodiscard]] RunState find_run(std::int64_t wait_ms);

// Makes the folder and holds an empty run file in it. A stop request of an earlier run is removed.
[[nodiscard]] Outcome hold_run_file(HeldFile& out);

// Writes the record of the service that runs.
[[nodiscard]] Outcome write_run_record(const HeldFile& file, const RunRecord& record);

// Writes a stop request.
[[nodiscard]] Outcome write_stop_request(const StopRequest& request);

// Takes the stop request for this run out of the folder. A request for another run is removed too.
[[nodiscard]] std::optional<StopRequest> take_stop_request(const std::string& run_id);

}  // namespace velmora
