#include "http/request.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "unit/support/fresh_machine.h"
#include "unit/support/split.h"

namespace velmora {
namespace {

using namespace std::string_literals;
using State = RequestReader::State;

struct Outcome {
  State state = State::incomplete;
  ApiRequest request;
  std::size_t taken = 0;  // bytes handed in until the state was no longer incomplete
};

// Hands the bytes to a new reader in pieces of one size, each in a block of its own.
Outcome deliver(std::string_view bytes, std::size_t piece_bytes) {
  RequestReader reader;
  Outcome outcome;
  while (outcome.state == State::incomplete && outcome.taken < bytes.size()) {
    const ExactBlock piece(bytes.substr(outcome.taken, piece_bytes));
    outcome.state = reader.take(piece.view(), outcome.request);
    outcome.taken += piece.view().size();
  }
  return outcome;
}

Outcome deliver(std::string_view bytes) { return deliver(bytes, read_chunk_bytes); }

// A request whose head is padded so that it has `total` bytes with a body of `body` bytes.
std::string request_of(std::size_t total, std::size_t body) {
  const std::string start = "PUT / HTTP/1.1\r\nContent-Length: " + std::to_string(body) + "\r\nX: ";
  const std::string end = "\r\n\r\n";
  return start + std::string(total - body - start.size() - end.size(), 'p') + end + std::string(body, 'b');
}

TEST(RequestHead, ReadsMethodTargetAndHeaders) {
  const ExactBlock head("PUT /a?b=c HTTP/1.1\r\nHost: here:1\r\nX-Thing:\t two words \r\nContent-Length: 12");
  ApiRequest request;
  std::uint64_t length = 99;
  ASSERT_TRUE(parse_head(head.view(), request, length));
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.target, "/a?b=c");
  const std::map<std::string, std::string> headers = {
      {"host", "here:1"}, {"x-thing", "two words"}, {"content-length", "12"}};
  EXPECT_EQ(request.headers, headers);
  EXPECT_EQ(length, 12u);
}

TEST(RequestHead, AcceptsEveryVersion1) {
  const std::vector<std::string> rows = split(
      "GET / HTTP/1.1|GET / HTTP/1.0|GET / HTTP/1.9x|GET / HTTP/1.|"
      "GET / HTTP/1.1 more and more|  GET\t\v/\f HTTP/1.1 |get / HTTP/1.1|GET / HTTP/1.1\r",
      '|');
  for (const std::string& head : rows) {
    SCOPED_TRACE(head);
    const ExactBlock block(head);
    ApiRequest request;
    std::uint64_t length = 99;
    EXPECT_TRUE(parse_head(block.view(), request, length));
    EXPECT_EQ(request.target, "/");
    EXPECT_EQ(length, 0u);
  }
}

TEST(RequestHead, RefusesABadRequestLine) {
  const std::vector<std::string> rows = split(
      "| |GET|GET /|GET / |GET / HTTP/2.0|GET / http/1.1|GET / HTTP/1|GET / HTTP/11|"
      "GET / Http/1.1|GET HTTP/1.1|GET / x HTTP/1.1|\r|\r\nGET / HTTP/1.1|\nGET / HTTP/1.1|"
      "GET /\nHTTP/1.1",
      '|');
  for (const std::string& head : rows) {
    SCOPED_TRACE(::testing::PrintToString(head));
    const ExactBlock block(head);
    ApiRequest request;
    std::uint64_t length = 0;
    EXPECT_FALSE(parse_head(block.view(), request, length));
  }
}

TEST(RequestHead, KeepsTheCaseOfMethodAndTarget) {
  ApiRequest request;
  std::uint64_t length = 0;
  ASSERT_TRUE(parse_head("get /A%20b/../c?d#e HTTP/1.1", request, length));
  EXPECT_EQ(request.method, "get");
  EXPECT_EQ(request.target, "/A%20b/../c?d#e");
}

TEST(RequestHead, ReadsHeaderLinesLeniently) {
  const struct {
    std::string lines;
    std::map<std::string, std::string> headers;
  } rows[] = {
      {"HOST: a", {{"host", "a"}}},
      {"host : a", {{"host", "a"}}},
      {"\t host\v:\fa\v", {{"host", "a"}}},
      {"Host: a\r\nHost: b", {{"host", "b"}}},
      {"Host: a\r\nHOST : ", {{"host", ""}}},
      {"Host: a:1:2", {{"host", "a:1:2"}}},
      {": nameless", {{"", "nameless"}}},
      {"no colon", {}},
      {"A: 1\nB: 2\n\nC: 3", {{"a", "1"}, {"b", "2"}, {"c", "3"}}},
      {"A: 1\r\r\nB: 2", {{"a", "1"}, {"b", "2"}}},
      {"A: x\0y"s, {{"a", "x\0y"s}}},
      {"\xC3\x89: v", {{"\xC3\x89", "v"}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.lines));
    const ExactBlock block("GET / HTTP/1.1\r\n" + row.lines);
    ApiRequest request;
    std::uint64_t length = 0;
    ASSERT_TRUE(parse_head(block.view(), request, length));
    EXPECT_EQ(request.headers, row.headers);
  }
}

TEST(RequestHead, ReadsContentLengthsOfDigits) {
  const struct {
    std::string value;
    std::uint64_t length;
  } rows[] = {{"0", 0},
              {"5", 5},
              {"  5\t", 5},
              {"005", 5},
              {"65536", 65536},
              {"18446744073709551615", 18446744073709551615u},
              {"0000000000000000000000000005", 5}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.value);
    const ExactBlock block("GET / HTTP/1.1\r\nContent-Length:" + row.value);
    ApiRequest request;
    std::uint64_t length = 99;
    EXPECT_TRUE(parse_head(block.view(), request, length));
    EXPECT_EQ(length, row.length);
  }
}

TEST(RequestHead, RefusesEveryOtherContentLength) {
  const std::vector<std::string> rows =
      split("| |+5|-5|-0|5x|x5|5 5|5,5|0x5|5.0|18446744073709551616|99999999999999999999999", '|');
  for (const std::string& value : rows) {
    SCOPED_TRACE(value);
    const ExactBlock block("GET / HTTP/1.1\r\nContent-Length:" + value);
    ApiRequest request;
    std::uint64_t length = 0;
    EXPECT_FALSE(parse_head(block.view(), request, length));
  }
}

TEST(RequestHead, UsesTheLastOfTwoContentLengths) {
  ApiRequest request;
  std::uint64_t length = 0;
  EXPECT_TRUE(parse_head("GET / HTTP/1.1\r\nContent-Length: x\r\nContent-Length: 7", request, length));
  EXPECT_EQ(length, 7u);
  EXPECT_FALSE(parse_head("GET / HTTP/1.1\r\nContent-Length: 7\r\nContent-Length: x", request, length));
}

TEST(RequestHead, ParsesEveryPrefix) {
  const std::string whole = "PUT /a HTTP/1.1\r\nHost: here\r\nContent-Length: 12";
  const std::size_t line_complete = whole.find("1.") + 2;
  const std::size_t length_name = whole.find("Content-Length:") + 15;
  const std::size_t length_value = whole.find("12");
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const ExactBlock block(std::string_view(whole).substr(0, size));
    ApiRequest request;
    std::uint64_t length = 0;
    const bool has_empty_length = size >= length_name && size <= length_value;
    EXPECT_EQ(parse_head(block.view(), request, length), size >= line_complete && !has_empty_length) << size;
  }
}

TEST(RequestReader, ReadsARequestInPiecesOfAnySize) {
  const struct {
    std::string bytes;
    State state;
    std::string body;
  } rows[] = {
      {"GET / HTTP/1.1\r\nHost: a\r\n\r\n", State::complete, ""},
      {"PUT / HTTP/1.1\r\nContent-Length: 5\r\n\r\nabcde", State::complete, "abcde"},
      {"PUT / HTTP/1.1\r\nContent-Length: 8\r\n\r\n\r\n\r\n\r\n\r\n", State::complete, "\r\n\r\n\r\n\r\n"},
      {"PUT / HTTP/1.1\r\nContent-Length: 5\r\n\r\nabcd", State::incomplete, ""},
      {"PUT / HTTP/1.1\r\nContent-Length: 5\r\n\r", State::incomplete, ""},
      {"PUT / HTTP/1.1\nContent-Length: 3\n\r\n\r\nabc", State::complete, "abc"},
      {"PUT / HTTP/1.1\nContent-Length: 3\n\nabc\n\n", State::incomplete, ""},
      {"\r\n\r\n", State::bad, ""},
      {"GET / HTTP/2.0\r\n\r\n", State::bad, ""},
      {"GET / HTTP/1.1\r\nContent-Length: +5\r\n\r\n", State::bad, ""},
      {request_of(65536, 40000), State::complete, std::string(40000, 'b')},
      {request_of(65536, 0), State::complete, ""},
      {request_of(65536, 65400), State::complete, std::string(65400, 'b')},
      {request_of(65537, 65400), State::bad, ""},
      {request_of(65537, 0), State::bad, ""},
      {std::string(65535, 'a'), State::incomplete, ""},
      {std::string(65536, 'a'), State::bad, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.bytes.substr(0, 60)) + " of " +
                 std::to_string(row.bytes.size()));
    for (const std::size_t piece_bytes :
         {std::size_t{1}, std::size_t{3}, read_chunk_bytes, row.bytes.size()}) {
      SCOPED_TRACE(piece_bytes);
      const Outcome outcome = deliver(row.bytes, piece_bytes);
      EXPECT_EQ(outcome.state, row.state);
      EXPECT_EQ(outcome.request.body, row.body);
      if (row.state == State::complete) {
        EXPECT_EQ(outcome.request.target, "/");
      }
    }
  }
}

TEST(RequestReader, NeedsMoreAfterEveryPrefix) {
  const std::string whole = "PUT /a HTTP/1.1\r\nContent-Length: 4\r\n\r\nbody";
  for (std::size_t length = 1; length <= whole.size(); ++length) {
    for (const std::size_t piece_bytes : {std::size_t{1}, length}) {
      const Outcome outcome = deliver(std::string_view(whole).substr(0, length), piece_bytes);
      EXPECT_EQ(outcome.state, length == whole.size() ? State::complete : State::incomplete) << length;
    }
  }
}

TEST(RequestReader, RefusesALongBodyBeforeItArrives) {
  const std::string head = "PUT / HTTP/1.1\r\nContent-Length: 655xx\r\n\r\n";
  const std::size_t allowed = 65536 - head.size();
  const auto announce = [](std::size_t body) {
    return "PUT / HTTP/1.1\r\nContent-Length: " + std::to_string(body) + "\r\n\r\n";
  };
  EXPECT_EQ(deliver(announce(allowed)).state, State::incomplete);
  EXPECT_EQ(deliver(announce(allowed + 1)).state, State::bad);
  EXPECT_EQ(deliver(announce(std::uint64_t{1} << 63)).state, State::bad);
}

TEST(RequestReader, ReturnsABodyOfTheAnnouncedLength) {
  const Outcome outcome = deliver("PUT / HTTP/1.1\r\nContent-Length: 5\r\n\r\nabcdefghi");
  EXPECT_EQ(outcome.state, State::complete);
  EXPECT_EQ(outcome.request.body, "abcde");
}

TEST(RequestReader, ReadsNoBodyWithoutAContentLength) {
  const Outcome outcome =
      deliver("PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n");
  EXPECT_EQ(outcome.state, State::complete);
  EXPECT_EQ(outcome.request.body, "");
}

TEST(RequestReader, EndsAtOnceIfTheLengthOverflows) {
  const std::string start = "PUT / HTTP/1.1\r\nContent-Length: ";
  const std::size_t head_bytes = start.size() + 20 + 4;
  const struct {
    std::uint64_t length;
    State state;
  } rows[] = {
      {~std::uint64_t{0}, State::complete},                   // the total is one less than the head
      {~std::uint64_t{0} - head_bytes + 1, State::complete},  // it is 0
      {~std::uint64_t{0} - head_bytes, State::bad},           // it is 2^64 - 1
      {~std::uint64_t{0} - head_bytes / 2, State::complete},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.length);
    const std::string head = start + std::to_string(row.length) + "\r\n\r\n";
    ASSERT_EQ(head.size(), head_bytes);
    const Outcome with_bytes = deliver(head + "what came");
    EXPECT_EQ(with_bytes.state, row.state);
    EXPECT_EQ(with_bytes.request.body, row.state == State::complete ? "what came" : "");
    const Outcome bare = deliver(head);
    EXPECT_EQ(bare.state, row.state);
    EXPECT_EQ(bare.request.body, "");
    EXPECT_EQ(deliver(head + "what came", 1).taken, head.size());
  }
}

using ReadRequest = FreshMachine;

TEST_F(ReadRequest, ReadsPiecesUntilTheRequestIsComplete) {
  const Accepted accepted =
      accept_client({"PUT /a HTTP/1.1\r\nContent-Le", "ngth: 4\r\n\r", "\nbo", "dy", "behind"});
  ApiRequest request;
  ASSERT_TRUE(read_request(accepted.socket, request));
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.target, "/a");
  EXPECT_EQ(request.body, "body");
  EXPECT_EQ(accepted.client->to_service, std::deque<std::string>{"behind"});
}

TEST_F(ReadRequest, ReadsPiecesOf4096Bytes) {
  const std::string request_bytes = "GET / HTTP/1.1\r\n\r\n";
  const Accepted accepted = accept_client({request_bytes + std::string(10000, 'x')});
  ApiRequest request;
  ASSERT_TRUE(read_request(accepted.socket, request));
  EXPECT_EQ(accepted.client->to_service.front().size(), request_bytes.size() + 10000 - 4096);
}

TEST_F(ReadRequest, FailsIfTheClientEndsTooEarly) {
  const std::string rows[] = {"", "GET / HTTP/1.1", "GET / HTTP/1.1\r\n\r",
                              "PUT / HTTP/1.1\r\nContent-Length: 10\r\n\r\n12345"};
  for (const std::string& bytes : rows) {
    SCOPED_TRACE(bytes);
    const Accepted accepted = accept_client({});
    if (!bytes.empty()) accepted.client->to_service.push_back(bytes);
    accepted.client->client_done = true;
    ApiRequest request;
    EXPECT_FALSE(read_request(accepted.socket, request));
  }
}

TEST_F(ReadRequest, FailsIfTheClientResets) {
  const Accepted accepted = accept_client({"GET / HTTP/1.1\r\n\r\n"});
  accepted.client->client_gone = true;
  ApiRequest request;
  EXPECT_FALSE(read_request(accepted.socket, request));
}

TEST_F(ReadRequest, FailsOnABadRequest) {
  const std::string rows[] = {"\r\n\r\n", "GET / HTTP/2\r\n\r\n", request_of(65537, 10),
                              std::string(65536, 'a')};
  for (const std::string& bytes : rows) {
    SCOPED_TRACE(bytes.substr(0, 30));
    const Accepted accepted = accept_client({bytes});
    ApiRequest request;
    EXPECT_FALSE(read_request(accepted.socket, request));
  }
}

}  // namespace
}  // namespace velmora
