#include "http/response.h"

#include <gtest/gtest.h>

#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

const struct {
  unsigned status;
  std::string_view reason;
} statuses[] = {
    {200, "OK"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
};

TEST(FormatResponse, WritesHeadAndBodyByteForByte) {
  for (const auto& [status, reason] : statuses) {
    for (const std::string_view type : {"text/html; charset=utf-8", "text/javascript; charset=utf-8",
                                        "application/json; charset=utf-8", "application/json"}) {
      for (const std::string& body :
           {std::string(), std::string("x"), std::string("\r\n\r\n\0\xFF", 6), std::string(100000, 'b')}) {
        EXPECT_EQ(format_response(status, reason, type, body),
                  expected_response(std::to_string(status) + " " + std::string(reason), type, body));
      }
    }
  }
}

TEST(FormatResponse, WritesTheHeadAlone) {
  for (const auto& [status, reason] : statuses) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{9}, std::size_t{10}, std::size_t{447'316}}) {
      const std::string body(size, 'b');
      const std::string whole =
          expected_response(std::to_string(status) + " " + std::string(reason), "text/html", body);
      EXPECT_EQ(format_head(status, reason, "text/html", size) + body, whole);
    }
  }
}

TEST(FormatResponse, NamesTheFourContentTypes) {
  EXPECT_EQ(content_type_html, "text/html; charset=utf-8");
  EXPECT_EQ(content_type_script, "text/javascript; charset=utf-8");
  EXPECT_EQ(content_type_json_document, "application/json; charset=utf-8");
  EXPECT_EQ(content_type_json, "application/json");
  EXPECT_EQ(ok_body, "{\"ok\":true}");
}

using Sending = FreshMachine;

TEST_F(Sending, SendsEverythingInSeveralCalls) {
  const std::pair<std::size_t, std::ptrdiff_t> rows[] = {{0, 1}, {1, 10}, {3, 4}, {9, 2}, {10, 1}, {11, 1}};
  for (const auto& [limit, calls] : rows) {
    SCOPED_TRACE(limit);
    memory::system().log.clear();
    const Accepted accepted = accept_client({});
    accepted.client->send_limit = limit;
    EXPECT_TRUE(send_all(accepted.socket, "0123456789"));
    EXPECT_EQ(accepted.client->from_service, "0123456789");
    EXPECT_EQ(calls_of("send"), calls);
  }
}

TEST_F(Sending, SendsAnEmptyRangeWithoutACall) {
  const Accepted accepted = accept_client({});
  accepted.client->client_gone = true;
  EXPECT_TRUE(send_all(accepted.socket, ""));
  EXPECT_EQ(calls_of("send"), 0);
}

TEST_F(Sending, FailsIfASendFails) {
  const Accepted accepted = accept_client({});
  accepted.client->send_limit = 4;
  memory::system().faults["send"] = {0, 10054};
  EXPECT_FALSE(send_all(accepted.socket, "0123456789"));
  EXPECT_EQ(accepted.client->from_service, "0123");
  EXPECT_EQ(calls_of("send"), 2);
}

TEST_F(Sending, FailsIfASendAcceptsNothing) {
  const Accepted accepted = accept_client({});
  accepted.client->send_stalls = true;
  EXPECT_FALSE(send_all(accepted.socket, "0123456789"));
  EXPECT_EQ(calls_of("send"), 1);
}

TEST_F(Sending, SendsHeadAndBodyOfAResponseInOneCall) {
  const Accepted accepted = accept_client({});
  write_response(accepted.socket, 200, "OK", content_type_html, std::string(20000, 'p'));
  EXPECT_EQ(accepted.client->from_service,
            expected_response("200 OK", "text/html; charset=utf-8", std::string(20000, 'p')));
  EXPECT_EQ(calls_of("send"), 1);
}

TEST_F(Sending, DoesNotRetryAFailedResponse) {
  const Accepted accepted = accept_client({});
  accepted.client->client_gone = true;
  write_response(accepted.socket, 200, "OK", content_type_html, "page");
  EXPECT_EQ(accepted.client->from_service, "");
  EXPECT_EQ(calls_of("send"), 1);
}

TEST_F(Sending, WritesErrorsAsJson) {
  for (const auto& [status, reason] : statuses) {
    const Accepted accepted = accept_client({});
    write_error(accepted.socket, status, reason, "what went wrong");
    EXPECT_EQ(accepted.client->from_service,
              expected_error(std::to_string(status) + " " + std::string(reason), "what went wrong"));
  }
}

TEST_F(Sending, EscapesTheMessageOfAnError) {
  const Accepted accepted = accept_client({});
  write_error(accepted.socket, 400, "Bad Request", "a\n\"b\\c");
  EXPECT_EQ(accepted.client->from_service, expected_error("400 Bad Request", "a\\n\\\"b\\\\c"));
}

}  // namespace
}  // namespace velmora
