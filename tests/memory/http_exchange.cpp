// The account service of the machine in memory. Its state is guarded: the session-check thread comes here
// too.
#include "platform/http_exchange.h"

#include <algorithm>

#include "base/text.h"
#include "memory/http_service.h"
#include "platform/errors.h"

namespace velmora {
namespace {

using memory::http_service;
using memory::HttpService;

// Logs a call and takes its next fault.
std::uint32_t enter_call(HttpService& service, const std::string& operation) {
  service.log.push_back(operation);
  const auto faults = service.faults.find(operation.substr(0, operation.find(' ')));
  if (faults == service.faults.end() || faults->second.empty()) return 0;
  const std::uint32_t fault = faults->second.front();
  faults->second.pop_front();
  return fault;
}

// Replies here have no headers, so that a redirection leads nowhere.
bool is_redirection(std::uint32_t status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

memory::HttpCall& call_of(HttpService& service, const HttpExchange& exchange) {
  return service.open.at(exchange.native());
}

}  // namespace

HttpService& memory::http_service() {
  static HttpService service;
  return service;
}

void memory::reset_http_service() {
  HttpService& service = http_service();
  const std::lock_guard lock(service.guard);
  service.log.clear();
  service.faults.clear();
  service.replies.clear();
  service.holds_back = false;
}

void HttpExchangeKind::release(Native native) noexcept {
  HttpService& service = http_service();
  const std::lock_guard lock(service.guard);
  service.open.erase(native);
  service.closed.notify_all();
}

std::uint32_t open_http_session(std::u16string_view user_agent, HttpExchange& out) {
  HttpService& service = http_service();
  std::uintptr_t number = 0;
  {
    const std::lock_guard lock(service.guard);
    if (const auto fault = enter_call(service, "WinHttpOpen " + utf8_from_wide_replacing(user_agent)))
      return fault;
    number = ++service.last_number;
    service.open.emplace(number, memory::HttpCall());
  }
  out = HttpExchange(number);
  return 0;
}

std::uint32_t set_http_timeouts(const HttpExchange&, const HttpTimeouts& timeouts) {
  HttpService& service = http_service();
  const std::lock_guard lock(service.guard);
  return enter_call(service, "WinHttpSetTimeouts " + std::to_string(timeouts.resolve_ms) + ' ' +
                                 std::to_string(timeouts.connect_ms) + ' ' +
                                 std::to_string(timeouts.send_ms) + ' ' +
                                 std::to_string(timeouts.receive_ms));
}

std::uint32_t connect_http(const HttpExchange&, std::u16string_view host, std::uint16_t port) {
  HttpService& service = http_service();
  const std::lock_guard lock(service.guard);
  return enter_call(service, "WinHttpConnect " + utf8_from_wide_replacing(host) + ' ' + std::to_string(port));
}

std::uint32_t open_http_request(const HttpExchange&, std::u16string_view method, std::u16string_view path,
                                bool secure) {
  HttpService& service = http_service();
  const std::lock_guard lock(service.guard);
  return enter_call(service, "WinHttpOpenRequest " + utf8_from_wide_replacing(method) + ' ' +
                                 utf8_from_wide_replacing(path) + (secure ? " secure" : ""));
}

std::uint32_t send_http_request(const HttpExchange&, std::u16string_view header, std::string_view body) {
  HttpService& service = http_service();
  const std::lock_guard lock(service.guard);
  return enter_call(service,
                    "WinHttpSendRequest [" + utf8_from_wide_replacing(header) + "] " + std::string(body));
}

std::uint32_t receive_http_response(const HttpExchange& exchange) {
  HttpService& service = http_service();
  std::unique_lock lock(service.guard);
  if (const auto fault = enter_call(service, "WinHttpReceiveResponse")) return fault;
  // A slow service.
  service.answered.wait(lock, [&] { return !service.holds_back; });
  if (service.replies.empty()) return 12030;  // ERROR_WINHTTP_CONNECTION_ERROR: nobody answers
  memory::HttpReply reply = std::move(service.replies.front());
  service.replies.pop_front();
  if (is_redirection(reply.status)) return error_winhttp_header_not_found;
  call_of(service, exchange).reply = std::move(reply);
  return 0;
}

std::uint32_t query_http_status(const HttpExchange& exchange, std::uint32_t& out) {
  HttpService& service = http_service();
  const std::lock_guard lock(service.guard);
  if (const auto fault = enter_call(service, "WinHttpQueryHeaders")) return fault;
  const auto& reply = call_of(service, exchange).reply;
  if (!reply) return error_winhttp_header_not_found;
  out = reply->status;
  return 0;
}

HttpRead read_http_response(const HttpExchange& exchange, char* buffer, std::size_t capacity) {
  HttpService& service = http_service();
  const std::lock_guard lock(service.guard);
  if (const auto fault = enter_call(service, "WinHttpReadData")) return {0, fault};
  memory::HttpCall& call = call_of(service, exchange);
  if (!call.reply) return {0, 0};
  const std::size_t piece = std::min(capacity, call.reply->piece_bytes);
  const std::size_t count = std::min(piece, call.reply->body.size() - call.position);
  std::copy_n(call.reply->body.begin() + static_cast<std::ptrdiff_t>(call.position), count, buffer);
  call.position += count;
  if (count == 0 && call.reply->end_error != 0) return {0, call.reply->end_error};
  return {count, 0};
}

}  // namespace velmora
