#include "account/transport.h"

#include <array>

#include "base/text.h"

namespace velmora {
namespace {

constexpr std::u16string_view user_agent = u"Velmora/1.1";
constexpr std::u16string_view content_type_line = u"Content-Type: application/json";
constexpr HttpTimeouts timeouts = {5'000, 5'000, 10'000, 10'000};
constexpr std::size_t piece_bytes = 8'192;

// These texts are for the user, in the user's language.
AccountReply failed(std::string_view error) {
  AccountReply reply;
  reply.error = error;
  return reply;
}

AccountReply not_reached(std::uint32_t error) {
  return failed("连接账号服务失败（错误 " + std::to_string(error) + "）");
}

// A reply that breaks off is treated like a complete one: its readers cope with either.
void read_body(const HttpExchange& exchange, AccountReply& reply) {
  std::array<char, piece_bytes> piece;
  for (;;) {
    const HttpRead read = read_http_response(exchange, piece.data(), piece.size());
    if (read.error != 0 || read.count == 0) return;
    if (reply.body.size() + read.count > account_reply_limit_bytes) {
      reply.error = "账号服务返回内容过大";
      return;
    }
    reply.body.append(piece.data(), read.count);
  }
}

}  // namespace

std::optional<UrlParts> account_url_parts(std::string_view service_url, std::string_view path) {
  UrlParts parts;
  if (!split_url(wide_from_utf8_replacing(std::string(service_url).append(path)), parts)) return std::nullopt;
  return parts;
}

AccountReply account_request(std::string_view service_url, std::string_view method, std::string_view path,
                             std::string_view body) {
  if (service_url.empty()) return failed("账号服务未配置");
  const auto url = account_url_parts(service_url, path);
  if (!url) return failed("账号服务地址无法解析");
  HttpExchange exchange;
  if (open_http_session(user_agent, exchange) != 0) return failed("无法初始化网络");
  static_cast<void>(set_http_timeouts(exchange, timeouts));
  if (connect_http(exchange, url->host, url->port) != 0) return failed("无法连接账号服务");
  if (open_http_request(exchange, wide_from_ascii(method), url->path, url->secure) != 0) {
    return failed("无法创建请求");
  }
  std::uint32_t error = send_http_request(exchange, body.empty() ? u"" : content_type_line, body);
  if (error == 0) error = receive_http_response(exchange);
  if (error != 0) return not_reached(error);
  AccountReply reply;
  static_cast<void>(query_http_status(exchange, reply.status));
  read_body(exchange, reply);
  reply.ok = reply.error.empty();
  return reply;
}

}  // namespace velmora
