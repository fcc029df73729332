// A server that sends what a test gives it, HTTP or not. It uses the seam's sockets, which have a contract
// suite of their own.
#pragma once

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/http_client.h"
#include "platform/socket_exchange.h"
#include "platform/sockets.h"

namespace velmora::surroundings {

// What one connection gets.
struct RawReply {
  std::vector<std::string> pieces;  // sent when the request is whole, one after another
  std::uint32_t pause_ms = 0;       // in front of each piece but the first
  bool stays = false;               // then it is silent until the client has gone
  bool waits_for_all = false;       // it sends once there are as many connections as replies
};

class RawHttpServer {
 public:
  explicit RawHttpServer(std::vector<RawReply> replies)
      : replies_(std::move(replies)), seen_(replies_.size()), acceptor_([this] { accept_all(); }) {}
  ~RawHttpServer() { finish(); }
  RawHttpServer(const RawHttpServer&) = delete;
  RawHttpServer& operator=(const RawHttpServer&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }

  // Ends when every connection has ended, or after a time in which each test that succeeds is done. The bytes
  // that came over each of them.
  std::vector<std::string> finish() {
    if (acceptor_.joinable()) acceptor_.join();
    std::vector<std::string> requests;
    for (const Seen& seen : seen_) requests.push_back(seen.request);
    return requests;
  }
  // Of a connection that stays: the client has ended it. After finish().
  [[nodiscard]] bool client_left(std::size_t connection) const { return seen_.at(connection).client_left; }
  [[nodiscard]] std::size_t connections() const { return accepted_; }

 private:
  struct Seen {
    std::string request;
    bool client_left = false;
  };
  static constexpr std::int64_t look_us = 20'000;

  // A client that never comes must not keep a test that has failed.
  [[nodiscard]] bool is_over() const { return steady_now_ns() - start_ns_ > 30'000'000'000; }

  void accept_all() {
    std::vector<std::thread> connections;
    while (accepted_ < replies_.size() && !is_over()) {
      Socket connection;
      if (wait_readable(listener_, look_us).count <= 0 || accept_connection(listener_, connection)) continue;
      const std::size_t number = accepted_++;
      connections.emplace_back(
          [this, number, socket = std::move(connection)] { serve(socket, replies_[number], seen_[number]); });
    }
    for (std::thread& connection : connections) connection.join();
  }

  // False when the client has ended the connection.
  bool receive_more(const Socket& socket, std::string& bytes) {
    while (wait_readable(socket, look_us).count == 0) {
      if (is_over()) return true;
    }
    std::array<char, 4096> buffer;
    const SocketCount received = receive_bytes(socket, buffer.data(), buffer.size());
    if (received.count <= 0) return false;
    bytes.append(buffer.data(), static_cast<std::size_t>(received.count));
    return true;
  }

  static bool is_whole(const std::string& request) {
    const std::size_t end = request.find("\r\n\r\n");
    if (end == std::string::npos) return false;
    std::size_t length = 0;
    const std::string_view key = "\r\nContent-Length: ";
    const std::size_t found = request.find(key);
    if (found < end) {
      std::from_chars(request.data() + found + key.size(), request.data() + end, length);
    }
    return request.size() >= end + 4 + length;
  }

  void serve(const Socket& socket, const RawReply& reply, Seen& seen) {
    while (!is_whole(seen.request) && !is_over()) {
      if (!receive_more(socket, seen.request)) return;
    }
    while (reply.waits_for_all && accepted_ < replies_.size() && !is_over()) sleep_ms(1);
    for (std::size_t index = 0; index < reply.pieces.size(); ++index) {
      if (index > 0) sleep_ms(reply.pause_ms);
      if (!send_whole(socket, reply.pieces[index])) break;
    }
    while (reply.stays && !seen.client_left && !is_over()) {
      seen.client_left = !receive_more(socket, seen.request);
    }
    shutdown_both(socket);
  }

  static bool send_whole(const Socket& socket, std::string_view bytes) {
    while (!bytes.empty()) {
      const SocketCount sent = send_bytes(socket, bytes.data(), bytes.size());
      if (sent.count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(sent.count));
    }
    return true;
  }

  std::vector<RawReply> replies_;
  std::vector<Seen> seen_;
  std::uint16_t port_ = find_free_port();
  Socket listener_ = listen_on(port_);
  std::int64_t start_ns_ = steady_now_ns();
  std::atomic<std::size_t> accepted_{0};
  std::thread acceptor_;
};

// Whole replies as servers send them.

inline std::string reply_head(std::uint32_t status, std::string_view header_lines) {
  return "HTTP/1.1 " + std::to_string(status) + " Reason\r\n" + std::string(header_lines) +
         "Connection: close\r\n\r\n";
}

inline std::string reply_with_length(std::uint32_t status, const std::string& body) {
  return reply_head(status, "Content-Length: " + std::to_string(body.size()) + "\r\n") + body;
}

inline std::string reply_until_close(std::uint32_t status, const std::string& body) {
  return reply_head(status, "") + body;
}

// Chunks of 1, 2, 3 and so on bytes, with an extension and a trailer.
inline std::string reply_in_chunks(std::uint32_t status, std::string_view body) {
  std::string bytes = reply_head(status, "Transfer-Encoding: chunked\r\n");
  for (std::size_t size = 1; !body.empty(); ++size) {
    const std::string_view chunk = body.substr(0, size);
    std::array<char, 16> digits;
    bytes.append(digits.data(), std::to_chars(digits.begin(), digits.end(), chunk.size(), 16).ptr);
    bytes.append(";extension=1\r\n").append(chunk).append("\r\n");
    body.remove_prefix(chunk.size());
  }
  return bytes + "0\r\nTrailer: x\r\n\r\n";
}

// An exchange with a server that gives it this reply, up to the reply's head. `error` is the first failure,
// or 0.
struct RawExchange {
  RawHttpServer server;
  HttpExchange exchange = open_exchange(server.port());
  std::uint32_t error = send_and_wait(exchange);

  explicit RawExchange(const std::string& reply) : server({RawReply{{reply}}}) {}
};

}  // namespace velmora::surroundings
