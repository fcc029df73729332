// Requests against one server: one at a time, or a queue of them that waits until the server may go.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "server_process.h"

namespace velmora::bench {

// One answered request as the client sees it.
struct Exchange {
  std::string answer;          // all bytes, head and body
  std::int64_t first_byte_ns;  // by now_ns
};

// Sends a request and takes the whole answer. Tries to connect until the server listens, for two seconds.
[[nodiscard]] Exchange exchange_when_up(const ServerProcess& server, std::uint16_t port,
                                        const std::string& request);

// The most connections that can be queued at once here: below the backlog's limit (net.core.somaxconn) and
// this process's limit of open files, which is raised as far as it goes.
[[nodiscard]] std::size_t queue_limit();

// What one queue took.
struct Taken {
  std::int64_t wall_ns;       // from letting the server go to its closing the last connection
  std::int64_t processor_ns;  // of the server
};

// Stops the server, queues `count` connections with one whole request each, lets it go and waits for the last
// closing. No client does anything while the server works: answers are short enough to stay in the sockets'
// buffers. Gives up unless each answer has `answer_bytes`. The clients then close by a reset, so that no
// connection lingers to slow down the next queue.
[[nodiscard]] Taken serve_queue(const ServerProcess& server, std::uint16_t port, const std::string& request,
                                std::size_t answer_bytes, std::size_t count);

}  // namespace velmora::bench
