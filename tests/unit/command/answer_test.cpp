#include "command/answer.h"

#include <gtest/gtest.h>

#include <string>

#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using State = AnswerReader::State;

std::string answer(std::string_view status_line, std::string_view headers, std::string_view body) {
  return std::string(status_line) + "\r\n" + std::string(headers) + "\r\n" + std::string(body);
}

const std::string plain = answer("HTTP/1.1 200 OK", "Content-Length: 5\r\n", "hello");

State feed_exact(AnswerReader& reader, std::string_view bytes) {
  const ExactBlock block(bytes);
  return reader.feed(block.view());
}

TEST(Answer, IsReadAtOnce) {
  AnswerReader reader;
  EXPECT_FALSE(reader.has_begun());
  ASSERT_EQ(feed_exact(reader, plain), State::complete);
  EXPECT_TRUE(reader.has_begun());
  EXPECT_EQ(reader.status(), 200u);
  EXPECT_EQ(reader.body(), "hello");
}

TEST(Answer, OfTheServiceIsRead) {
  AnswerReader reader;
  ASSERT_EQ(feed_exact(reader, expected_error("401 Unauthorized", "missing")), State::complete);
  EXPECT_EQ(reader.status(), 401u);
  EXPECT_EQ(reader.body(), R"({"error":"missing"})");
}

TEST(Answer, IsIncompleteAtEveryPrefix) {
  const std::string bytes = expected_document(R"({"a":1})");
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    AnswerReader reader;
    ASSERT_EQ(feed_exact(reader, bytes.substr(0, length)), State::incomplete) << length;
    ASSERT_EQ(feed_exact(reader, bytes.substr(length)), State::complete) << length;
    EXPECT_EQ(reader.body(), R"({"a":1})");
  }
}

TEST(Answer, IsReadByteByByte) {
  AnswerReader reader;
  for (std::size_t index = 0; index + 1 < plain.size(); ++index) {
    ASSERT_EQ(feed_exact(reader, plain.substr(index, 1)), State::incomplete) << index;
  }
  EXPECT_EQ(feed_exact(reader, plain.substr(plain.size() - 1)), State::complete);
}

TEST(Answer, TakesWhatHttpAllows) {
  const std::string rows[] = {
      answer("HTTP/1.1 204 No Content", "content-length: 0\r\n", ""),
      answer("HTTP/1.1 302", "CONTENT-LENGTH:0\r\nLocation: http://elsewhere/\r\n", ""),
      answer("HTTP/1.1 200 ", "Content-Length: \t0 \r\n", ""),
      answer("HTTP/1.1 999 What: ever", "A:\r\nContent-Length: 0\r\nContent-Length: 0\r\n", ""),
  };
  for (const std::string& row : rows) {
    AnswerReader reader;
    EXPECT_EQ(feed_exact(reader, row), State::complete) << row;
    EXPECT_EQ(reader.body(), "");
  }
}

TEST(Answer, RefusesWhatIsNone) {
  const std::string length = "Content-Length: 0\r\n";
  const std::string rows[] = {
      "hello",
      "HTTQ",
      answer("HTTP/1.0 200 OK", length, ""),
      answer("HTTP/1.1 20 OK", length, ""),
      answer("HTTP/1.1 2000 OK", length, ""),
      answer("HTTP/1.1 099 OK", length, ""),
      answer("HTTP/1.1  200 OK", length, ""),
      answer("HTTP/1.1 2x0 OK", length, ""),
      answer("HTTP/1.1 200 OK", "", ""),
      answer("HTTP/1.1 200 OK", "Content-Length:\r\n", ""),
      answer("HTTP/1.1 200 OK", "Content-Length: -1\r\n", ""),
      answer("HTTP/1.1 200 OK", "Content-Length: 1x\r\n", ""),
      answer("HTTP/1.1 200 OK", "Content-Length: 99999999999999999999\r\n", ""),
      answer("HTTP/1.1 200 OK", "Content-Length: 1\r\nContent-Length: 2\r\n", ""),
      answer("HTTP/1.1 200 OK", length + "Transfer-Encoding: chunked\r\n", ""),
      answer("HTTP/1.1 200 OK", length + "no colon\r\n", ""),
      answer("HTTP/1.1 200 OK", length + ": no name\r\n", ""),
      plain + "!",
  };
  for (const std::string& row : rows) {
    AnswerReader reader;
    EXPECT_EQ(feed_exact(reader, row), State::bad) << row;
    EXPECT_EQ(reader.feed(""), State::bad) << row;
    EXPECT_EQ(reader.feed(plain), State::bad) << row;
  }
}

TEST(Answer, HasABodyUpToItsLimit) {
  AnswerReader fitting;
  EXPECT_EQ(fitting.feed(answer("HTTP/1.1 200 OK",
                                "Content-Length: " + std::to_string(answer_body_bytes) + "\r\n", "")),
            State::incomplete);
  EXPECT_EQ(fitting.feed(std::string(answer_body_bytes, 'x')), State::complete);
  AnswerReader larger;
  EXPECT_EQ(larger.feed(answer("HTTP/1.1 200 OK",
                               "Content-Length: " + std::to_string(answer_body_bytes + 1) + "\r\n", "")),
            State::bad);
}

TEST(Answer, HasAHeadUpToItsLimit) {
  const std::string begin = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nA: ";
  const std::string fitting = begin + std::string(answer_head_bytes - begin.size(), 'x');
  AnswerReader reader;
  EXPECT_EQ(reader.feed(fitting), State::incomplete);
  EXPECT_EQ(reader.feed("\r\n\r\n"), State::complete);
  AnswerReader larger;
  EXPECT_EQ(larger.feed(fitting + "x"), State::bad);
}

}  // namespace
}  // namespace velmora
