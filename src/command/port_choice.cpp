#include "command/port_choice.h"

#include <charconv>

#include "command/client.h"
#include "command/run_file.h"
#include "platform/errors.h"
#include "platform/sockets.h"

namespace velmora {
namespace {

enum class PortUse { free, velmora, other };

bool is_bound(std::uint16_t port) {
  Socket socket;
  if (open_tcp_socket(socket)) return false;
  const std::optional<int> error = bind_loopback(socket, port);
  // Windows keeps some ports for itself and denies them.
  return error && (*error == wsaeaddrinuse || *error == wsaeacces);
}

PortUse look_at(std::uint16_t port) {
  if (!is_bound(port)) return PortUse::free;
  const Exchange exchange =
      exchange_with(port, format_request(port, "/api/v1/status", ""), recognition_ms, recognition_ms);
  return is_token_refusal(exchange) ? PortUse::velmora : PortUse::other;
}

// Digits only, 1..65535, as the service reads them.
std::optional<std::uint16_t> read_port(const std::string& text) {
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, port);
  if (parsed.ec != std::errc() || parsed.ptr != end || port == 0) return std::nullopt;
  return port;
}

Outcome refuse_velmora(std::uint16_t port) {
  return {CommandCode::port_taken, "Another Velmora service, perhaps of another user, answers at " +
                                       public_address(port) +
                                       ": end it in its own window, then start again."};
}

PortChoice check_wanted(std::uint16_t port) {
  switch (look_at(port)) {
    case PortUse::free: return {{}, port};
    case PortUse::velmora: return {refuse_velmora(port), port};
    case PortUse::other: break;
  }
  return {{CommandCode::port_taken, "Another program uses the port " + std::to_string(port) +
                                        ": choose another one, or start without --port."},
          port};
}

}  // namespace

PortChoice choose_port(const std::optional<std::string>& wanted) {
  if (wanted) {
    const std::optional<std::uint16_t> port = read_port(*wanted);
    return port ? check_wanted(*port) : PortChoice{};
  }
  for (std::uint16_t port = first_port; port <= last_port; ++port) {
    const PortUse use = look_at(port);
    if (use == PortUse::free) return {{}, port};
    if (use == PortUse::velmora) return {refuse_velmora(port), port};
  }
  return {{CommandCode::port_taken, "Other programs use all ports from " + std::to_string(first_port) +
                                        " to " + std::to_string(last_port) +
                                        ": choose another one with velmora start --port 18000."},
          0};
}

}  // namespace velmora
