// Runs the service as a child from its first byte to its end.
#pragma once

#include <cstdint>
#include <string>

#include "command/exit_codes.h"
#include "platform/child_process.h"
#include "platform/private_files.h"

namespace velmora {

struct WatchedEnd {
  int exit_code = 0;     // the service's, or a CommandCode with a sentence
  std::string sentence;  // for standard error; empty if the exit code is the service's
};

// Relays what the service writes. When its address is known, writes the run file and only then shows the
// address; `opens_page` then opens the page too. Ends the service when the console or a stop request asks for
// it. Returns after the service's end. A service that somebody has killed, or that has crashed, is
// service_lost.
[[nodiscard]] WatchedEnd watch_service(const ChildProcess& service, const HeldFile& run_file,
                                       const std::string& run_id, bool opens_page);

// Sends Ctrl+C to a process, by way of a child that has a console it can leave. False if that fails.
[[nodiscard]] bool interrupt_by_helper(std::uint32_t process_id);

}  // namespace velmora
