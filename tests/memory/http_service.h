// The account service that answers the machine in memory. It is apart from system.h because two threads
// come to it: whoever touches it while a check is in flight holds its guard.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace velmora::memory {

struct HttpReply {
  std::uint32_t status = 200;
  std::string body;
  std::size_t piece_bytes = 65536;  // what one reading gives at most
  std::uint32_t end_error = 0;      // how the reading ends, where it does not end well
};

// What an open exchange refers to.
struct HttpCall {
  std::optional<HttpReply> reply;
  std::size_t position = 0;
};

struct HttpService {
  std::mutex guard;
  std::condition_variable answered;
  std::condition_variable closed;
  // Every call by name, with a blank and its arguments; the one that sends has its header in brackets and its
  // body.
  std::vector<std::string> log;
  // For a call's name, what its next ones answer instead of their work, in order; 0 lets one pass.
  std::map<std::string, std::deque<std::uint32_t>> faults;
  std::deque<HttpReply> replies;  // one for each request; without one the connection ends (12030)
  bool holds_back = false;        // replies wait; notify `answered` when it ends
  std::map<std::uintptr_t, HttpCall> open;
  std::uintptr_t last_number = 0;
};

[[nodiscard]] HttpService& http_service();
// As new. No exchange may be open.
void reset_http_service();

}  // namespace velmora::memory
