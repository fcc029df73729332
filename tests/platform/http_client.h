// The steps of an exchange in one call.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clock.h"
#include "platform/http_exchange.h"

namespace velmora::surroundings {

// Limits that no successful test reaches.
constexpr HttpTimeouts patient = {20'000, 20'000, 20'000, 20'000};

struct HttpRequest {
  std::u16string method = u"POST";
  std::u16string path = u"/api/v1/session/check";
  std::u16string header = u"Content-Type: application/json";
  std::string body = "{\"a\":\"b\"}";
};

// One wait has the short limit and all others the long one: the time that an exchange takes shows which limit
// ended it.
constexpr std::int32_t short_wait_ms = 300;
constexpr std::int32_t long_wait_ms = 20'000;

inline void expect_short_wait(std::int64_t begin_ns) {
  const std::int64_t took_ms = (steady_now_ns() - begin_ns) / 1'000'000;
  EXPECT_GE(took_ms, short_wait_ms * 9 / 10);  // clocks differ in how they count
  EXPECT_LT(took_ms, long_wait_ms / 2);
}

// An exchange up to where its request could be sent.
inline HttpExchange open_exchange(std::uint16_t port, const HttpTimeouts& timeouts = patient,
                                  const HttpRequest& request = {}) {
  HttpExchange exchange;
  EXPECT_EQ(open_http_session(u"Velmora/1.1", exchange), 0u);
  EXPECT_TRUE(exchange.is_open());
  EXPECT_EQ(set_http_timeouts(exchange, timeouts), 0u);
  EXPECT_EQ(connect_http(exchange, u"127.0.0.1", port), 0u);
  EXPECT_EQ(open_http_request(exchange, request.method, request.path, false), 0u);
  return exchange;
}

// Sends, and waits for the head of the reply; the error of whichever failed.
inline std::uint32_t send_and_wait(const HttpExchange& exchange, const HttpRequest& request = {}) {
  const std::uint32_t error = send_http_request(exchange, request.header, request.body);
  return error != 0 ? error : receive_http_response(exchange);
}

struct ReadBody {
  std::string bytes;
  std::uint32_t error = 0;  // how the reading ended
};

inline ReadBody read_whole_body(const HttpExchange& exchange, std::size_t capacity = 8192) {
  ReadBody body;
  std::vector<char> buffer(capacity);
  for (;;) {
    const HttpRead read = read_http_response(exchange, buffer.data(), capacity);
    EXPECT_LE(read.count, capacity);
    EXPECT_TRUE(read.error == 0 || read.count == 0);
    if (read.count == 0) {
      body.error = read.error;
      return body;
    }
    body.bytes.append(buffer.data(), read.count);
  }
}

inline std::uint32_t status_of(const HttpExchange& exchange) {
  std::uint32_t status = 0;
  EXPECT_EQ(query_http_status(exchange, status), 0u);
  return status;
}

}  // namespace velmora::surroundings
