#include "http/gate.h"

#include <gtest/gtest.h>

#include <string>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

// The values live until the end of the full expression, as the results do.
ApiRequest with_host(std::string_view value) {
  ApiRequest request;
  request.host = value;
  return request;
}
ApiRequest with_origin(std::string_view value) {
  ApiRequest request;
  request.origin = value;
  return request;
}
ApiRequest with_token(std::string_view value) {
  ApiRequest request;
  request.session_token = value;
  return request;
}

TEST(Gate, AllowsOurOwnHost) {
  for (const std::string value :
       {"127.0.0.1:17831", "localhost:17831", "LOCALHOST:17831", "LocalHost:17831"}) {
    EXPECT_TRUE(host_allowed(with_host(value), 17831)) << value;
  }
  EXPECT_TRUE(host_allowed(with_host("127.0.0.1:80"), 80));
  EXPECT_TRUE(host_allowed(with_host("localhost:65535"), 65535));
}

TEST(Gate, RefusesEveryOtherHost) {
  for (const std::string value :
       {"", "127.0.0.1", "localhost", "127.0.0.1:", "127.0.0.1:1783", "127.0.0.1:178310", "127.0.0.1:017831",
        "127.0.0.1:17832", "127.0.0.2:17831", "[::1]:17831", "::1", "example.com:17831", "localhost.:17831",
        "xlocalhost:17831", "127.0.0.1:17831 x", "http://127.0.0.1:17831", "0.0.0.0:17831", "127.1:17831"}) {
    EXPECT_FALSE(host_allowed(with_host(value), 17831)) << value;
  }
  EXPECT_FALSE(host_allowed(ApiRequest{}, 17831));
  EXPECT_FALSE(host_allowed(with_host("127.0.0.1"), 80));
  EXPECT_FALSE(host_allowed(with_host("localhost"), 80));
}

TEST(Gate, AllowsAMissingOriginAndOurOwn) {
  EXPECT_TRUE(origin_allowed(ApiRequest{}, 17831));
  for (const std::string value : {"http://127.0.0.1:17831", "http://localhost:17831",
                                  "HTTP://LOCALHOST:17831", "Http://LocalHost:17831"}) {
    EXPECT_TRUE(origin_allowed(with_origin(value), 17831)) << value;
  }
}

TEST(Gate, RefusesEveryOtherOrigin) {
  for (const std::string value :
       {"", "null", "HTTP://127.0.0.1:17831", "Http://127.0.0.1:17831", "https://127.0.0.1:17831",
        "https://localhost:17831", "http://127.0.0.1", "http://localhost", "http://127.0.0.1:17832",
        "http://127.0.0.1:17831/", "http://[::1]:17831", "http://example.com", "127.0.0.1:17831",
        "localhost:17831", "//127.0.0.1:17831", "http://127.0.0.1:178311"}) {
    EXPECT_FALSE(origin_allowed(with_origin(value), 17831)) << value;
  }
}

TEST(Gate, ComparesEveryPort) {
  for (unsigned port = 1; port <= 65535; ++port) {
    const auto number = static_cast<std::uint16_t>(port);
    const std::string digits = std::to_string(port);
    EXPECT_TRUE(host_allowed(with_host("localhost:" + digits), number)) << port;
    EXPECT_FALSE(host_allowed(with_host("localhost:0" + digits), number)) << port;
    EXPECT_FALSE(host_allowed(with_host("localhost:" + digits + "0"), number)) << port;
    EXPECT_FALSE(host_allowed(with_host("localhost" + digits), number)) << port;
    EXPECT_FALSE(host_allowed(with_host("localhost:" + digits.substr(1)), number)) << port;
    EXPECT_FALSE(host_allowed(with_host(digits), number)) << port;
  }
}

TEST(Gate, ComparesWholeTexts) {
  using namespace std::string_literals;
  const struct {
    std::string left;
    std::string right;
    bool equal;
  } rows[] = {
      {"", "", true},
      {"abc", "abc", true},
      {"abc", "abd", false},
      {"abc", "bbc", false},
      {"abc", "ab", false},
      {"", "a", false},
      {"", "\0"s, false},
      {"a", "a\0"s, false},
      {"\x80", "\x80", true},
      {"\x80", "\0"s, false},
      {"\0\0"s, "\0\0"s, true},
      {"Abc", "abc", false},
      {"\1"s, ""s, false},
      {std::string(256, '\0'), "", false},
      {std::string(256, 'a'), std::string(512, 'a'), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.left) + " and " + ::testing::PrintToString(row.right));
    const ExactBlock left(row.left);
    const ExactBlock right(row.right);
    EXPECT_EQ(constant_time_equal(left.view(), right.view()), row.equal);
    EXPECT_EQ(constant_time_equal(right.view(), left.view()), row.equal);
  }
}

TEST(Gate, DetectsADifferenceInAnySingleBit) {
  const std::string token(48, '5');
  for (std::size_t index = 0; index < token.size(); ++index) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      std::string other = token;
      other[index] = static_cast<char>(other[index] ^ (1 << bit));
      EXPECT_FALSE(constant_time_equal(token, other));
    }
  }
}

TEST(Gate, AllowsOnlyTheSessionToken) {
  const std::string token = "0123456789abcdef0123456789abcdef";
  EXPECT_TRUE(token_allowed(with_token(token), token));
  EXPECT_FALSE(token_allowed(ApiRequest{}, token));
  for (const std::string& value : {std::string(), std::string("0123456789Abcdef0123456789abcdef"),
                                   token + "0", token.substr(1), std::string("x")}) {
    EXPECT_FALSE(token_allowed(with_token(value), token)) << value;
  }
}

}  // namespace
}  // namespace velmora
