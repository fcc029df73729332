#include "command/run_folder.h"

#include <cstdint>

#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/files.h"

namespace velmora {
namespace {

std::string path_of(std::string_view name) {
  const std::string folder = private_directory();
  return folder.empty() ? std::string() : join_path(folder, name);
}

bool is_missing(std::uint32_t error) {
  return error == error_file_not_found || error == error_path_not_found;
}

Outcome no_folder(CommandCode code) {
  return {code,
          "There is no folder for this user: set LOCALAPPDATA on Windows, or HOME elsewhere, to a full "
          "path."};
}

Outcome foreign(std::string_view path) {
  return {CommandCode::run_file_unreadable,
          std::string(path) + " belongs to somebody else or others may read it: remove it, then try again."};
}

// Why something could not be written, and what helps.
Outcome not_written(std::string_view path, std::uint32_t error) {
  std::string why = std::string(path) + " cannot be written";
  switch (error) {
    case error_disk_full: why += ", because the disk is full: make room, then try again."; break;
    case error_write_protect:
      why += ", because the disk is read-only: make it writable, then try again.";
      break;
    case error_access_denied: why += ": give yourself the right to write there, then try again."; break;
    default: why += " (error " + std::to_string(error) + "): check its folder, then try again.";
  }
  return {CommandCode::run_file_not_written, why};
}

// Nothing is known of the run.
RunState failed(Outcome outcome) { return {std::move(outcome), false, true, std::nullopt}; }

}  // namespace

std::string run_file_path() { return path_of("run.json"); }
std::string stop_file_path() { return path_of("stop.json"); }

RunState read_run_state() {
  const std::string path = run_file_path();
  if (path.empty()) return failed(no_folder(CommandCode::run_file_unreadable));
  const PrivateFileRead read = read_private_file(path);
  if (is_missing(read.error)) return {};
  if (read.error == error_invalid_owner) return failed(foreign(path));
  if (read.error != 0) {
    return failed({CommandCode::run_file_unreadable, path + " cannot be read (error " +
                                                         std::to_string(read.error) +
                                                         "): remove it, then start Velmora again."});
  }
  if (!read.is_held) return {};
  return {{}, true, read.bytes.empty(), parse_run_record(read.bytes)};
}

namespace {

// Why a run is still unknown although its file is held.
Outcome still_unknown(bool is_empty) {
  if (is_empty) return {CommandCode::not_running, "Velmora is still starting: try again in a moment."};
  return {CommandCode::run_file_unreadable,
          run_file_path() + " makes no sense: end Velmora in its own window, then start it again."};
}

}  // namespace

RunState find_run(std::int64_t wait_ms) {
  constexpr std::int64_t ns_per_ms = 1'000'000;
  constexpr std::uint32_t pause_ms = 100;
  const std::int64_t deadline_ns = steady_now_ns() + wait_ms * ns_per_ms;
  for (;;) {
    RunState state = read_run_state();
    if (state.outcome.failed() || state.run) return state;
    if (!state.is_held) {
      return failed({CommandCode::not_running, "Velmora is not running: start it with velmora start."});
    }
    if (steady_now_ns() >= deadline_ns) return failed(still_unknown(state.is_empty));
    sleep_ms(pause_ms);
  }
}

Outcome hold_run_file(HeldFile& out) {
  const std::string path = run_file_path();
  if (path.empty()) return no_folder(CommandCode::run_file_not_written);
  const std::string folder = private_directory();
  std::uint32_t error = make_private_directory(folder);
  if (error == error_invalid_owner) return foreign(folder);
  if (error != 0) return not_written(folder, error);
  error = hold_private_file(path, out);
  if (error == error_sharing_violation) {
    return {CommandCode::already_running,
            "Velmora is already running: open its page with velmora open, or end it with velmora stop."};
  }
  if (error == error_invalid_owner) return foreign(path);
  if (error != 0) return not_written(path, error);
  static_cast<void>(remove_file(stop_file_path()));
  return {};
}

Outcome write_run_record(const HeldFile& file, const RunRecord& record) {
  const std::uint32_t error = write_held_file(file, format_run_record(record));
  return error == 0 ? Outcome{} : not_written(run_file_path(), error);
}

Outcome write_stop_request(const StopRequest& request) {
  const std::string path = stop_file_path();
  const std::uint32_t error = write_private_file(path, format_stop_request(request));
  return error == 0 ? Outcome{} : not_written(path, error);
}

std::optional<StopRequest> take_stop_request(const std::string& run_id) {
  const std::string path = stop_file_path();
  const PrivateFileRead read = read_private_file(path);
  if (is_missing(read.error)) return std::nullopt;
  static_cast<void>(remove_file(path));
  if (read.error != 0) return std::nullopt;
  const std::optional<StopRequest> request = parse_stop_request(read.bytes);
  return request && request->run_id == run_id ? request : std::nullopt;
}

}  // namespace velmora
