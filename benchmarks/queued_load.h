// Sends requests to one server, either one at a time or queued while the server is stopped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "server_process.h"

namespace velmora::bench {

// One request's answer as seen by the client.
struct Exchange {
  std::string answer;          // all bytes, head and body
  std::int64_t first_byte_ns;  // by now_ns
};

// Sends a request and reads the whole answer. Retries for 30 seconds until the server listens.
[[nodiscard]] Exchange exchange_when_up(const ServerProcess& server, std::uint16_t port,
                                        const std::string& request);

// Returns the largest number of connections that can be queued at once: below net.core.somaxconn and this
// process's limit of open files, which it raises to the maximum.
[[nodiscard]] std::size_t queue_limit();

// The cost of one queue.
struct Taken {
  std::int64_t wall_ns;       // from resuming the server until it closes the last connection
  std::int64_t processor_ns;  // of the server
};

// Stops the server, queues `count` connections with one request each, resumes the server and waits until it
// closes the last connection.
//
// Clients are idle while the server works: answers are short enough to fit into the socket buffers. Gives up
// unless each answer has `answer_bytes`. Clients then close with a reset, so that no lingering connection
// slows down the next queue.
[[nodiscard]] Taken serve_queue(const ServerProcess& server, std::uint16_t port, const std::string& request,
                                std::size_t answer_bytes, std::size_t count);

}  // namespace velmora::bench
