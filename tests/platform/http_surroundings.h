// The HTTP server of the contract tests. Each implementation of the seam has one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/owner.h"
#include "platform/surroundings.h"

namespace velmora::surroundings {

// How the end of a reply's body is marked. The machine in memory makes no difference.
enum class Framing { length, chunked, until_close };

struct HttpAnswer {
  std::uint32_t status = 200;
  std::string body;
  Framing framing = Framing::length;
  bool waits_for_all = false;  // for as many connections as there are answers
};

struct HttpServerKind {
  using Native = std::uintptr_t;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;
};
// A server on 127.0.0.1 that gives each connection one answer, and fails the test where one is left over or a
// connection is left open. Exchanges with it are closed before it.
using HttpServer = Owner<HttpServerKind>;

// Wants start_sockets first.
[[nodiscard]] HttpServer serve_http(const std::vector<HttpAnswer>& answers);
[[nodiscard]] std::uint16_t http_port(const HttpServer& server);

}  // namespace velmora::surroundings
