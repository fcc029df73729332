#include "command/client.h"

#include <algorithm>
#include <array>
#include <utility>

#include "command/answer.h"
#include "platform/clock.h"
#include "platform/sockets.h"

namespace velmora {
namespace {

constexpr std::int64_t ns_per_ms = 1'000'000;

bool send_request(const Socket& socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const SocketCount sent = send_bytes(socket, bytes.data(), bytes.size());
    if (sent.count < 1) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent.count));
  }
  return true;
}

// Reads until the answer is complete or cannot become so.
Exchange::Result read_answer(const Socket& socket, AnswerReader& reader, std::int64_t silence_ms,
                             std::int64_t total_ms) {
  std::array<char, 16384> piece;
  const std::int64_t deadline_ns = steady_now_ns() + total_ms * ns_per_ms;
  for (;;) {
    const std::int64_t left_ms = (deadline_ns - steady_now_ns()) / ns_per_ms;
    const std::int64_t wait_ms = std::min(silence_ms, left_ms);
    const SocketCount ready = wait_ms > 0 ? wait_readable(socket, wait_ms * 1000) : SocketCount{0, 0};
    if (ready.count < 0) return Exchange::Result::closed;
    if (ready.count == 0) {
      return reader.has_begun() ? Exchange::Result::stalled : Exchange::Result::silent;
    }
    const SocketCount received = receive_bytes(socket, piece.data(), piece.size());
    if (received.count <= 0) return Exchange::Result::closed;
    switch (reader.feed({piece.data(), static_cast<std::size_t>(received.count)})) {
      case AnswerReader::State::complete: return Exchange::Result::answered;
      case AnswerReader::State::bad: return Exchange::Result::senseless;
      case AnswerReader::State::incomplete: break;
    }
  }
}

std::string at_address(const RunRecord& run) { return " at " + public_address(run.port); }

Outcome judge_status(const RunRecord& run, const Exchange& exchange) {
  if (exchange.status == 200) return {};
  if (is_token_refusal(exchange)) {
    return {CommandCode::port_taken, "Another Velmora service, perhaps of another user, answers" +
                                         at_address(run) + ": end it, then run velmora start."};
  }
  return {CommandCode::senseless_answer, "The answer" + at_address(run) + " makes no sense (status " +
                                             std::to_string(exchange.status) +
                                             "): end Velmora with velmora stop, then start it again."};
}

}  // namespace

Exchange exchange_with(std::uint16_t port, std::string_view request, std::int64_t silence_ms,
                       std::int64_t total_ms) {
  Exchange exchange;
  Socket socket;
  if (open_tcp_socket(socket) || connect_loopback(socket, port)) return exchange;
  exchange.result = Exchange::Result::closed;
  if (!send_request(socket, request)) return exchange;
  AnswerReader reader;
  exchange.result = read_answer(socket, reader, silence_ms, total_ms);
  if (exchange.result != Exchange::Result::answered) return exchange;
  exchange.status = reader.status();
  exchange.body = reader.body();
  return exchange;
}

std::string format_request(std::uint16_t port, std::string_view target, std::string_view token) {
  std::string request = "GET ";
  request.append(target).append(" HTTP/1.1\r\nHost: 127.0.0.1:").append(std::to_string(port));
  if (!token.empty()) request.append("\r\nX-Velmora-Token: ").append(token);
  return request + "\r\nConnection: close\r\n\r\n";
}

bool is_token_refusal(const Exchange& exchange) {
  return exchange.result == Exchange::Result::answered && exchange.status == 401 &&
         exchange.body == R"({"error":"missing or invalid session token"})";
}

Outcome ask_service(const RunRecord& run, std::string_view target, std::string& body) {
  Exchange exchange = exchange_with(run.port, format_request(run.port, target, run.token), answer_silence_ms,
                                    answer_total_ms);
  switch (exchange.result) {
    case Exchange::Result::answered: break;
    case Exchange::Result::refused:
    case Exchange::Result::closed:
      return {CommandCode::service_lost,
              "The service" + at_address(run) + " has ended: start it again with velmora start."};
    case Exchange::Result::silent:
    case Exchange::Result::stalled:
      return {CommandCode::held_by_client,
              "The service" + at_address(run) +
                  " does not answer, because another program holds it: close that "
                  "program or its page, or run velmora stop --force."};
    case Exchange::Result::senseless:
      return {CommandCode::senseless_answer,
              "The answer" + at_address(run) +
                  " makes no sense: end Velmora with velmora stop, then start it "
                  "again."};
  }
  Outcome outcome = judge_status(run, exchange);
  if (!outcome.failed()) body = std::move(exchange.body);
  return outcome;
}

}  // namespace velmora
