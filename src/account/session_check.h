// Whether the session is still this machine's: asked in the background, given back at the end.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace velmora {

struct SessionCheckResult {
  bool completed = false;                // the account service answered with 200
  bool active = false;                   // the session is still this machine's
  std::uint32_t next_check_seconds = 0;  // how far apart the service wants its checks; 0: it does not say
  std::string detail;                    // the service's text; nobody reads it
};

// Asks the account service. Without a hash or a token nothing is asked, and nothing is completed.
[[nodiscard]] SessionCheckResult account_session_check(std::string_view service_url,
                                                       std::string_view account_hash, std::string_view token);

// Gives the session back and waits for the answer, whatever it is. Without a hash or a token nothing is sent.
void account_session_release(std::string_view service_url, std::string_view account_hash,
                             std::string_view token);

// All that the loop and the session-check thread share. The thread may outlive the loop.
struct SessionCheckCells {
  std::atomic<bool> session_check_running{false};  // a thread is in flight; one at most
  std::atomic<bool> session_superseded{false};     // the session is no longer active; the loop takes it
  std::atomic<std::uint32_t> session_check_interval{120};  // seconds
};

// Checks on a thread of its own, which is not waited for. False, with nothing started, while another is in
// flight.
bool start_session_check(std::shared_ptr<SessionCheckCells> cells, std::string service_url,
                         std::string account_hash, std::string token);

}  // namespace velmora
