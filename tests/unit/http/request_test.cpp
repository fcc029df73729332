#include "http/request.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "unit/support/fresh_machine.h"
#include "unit/support/split.h"

namespace velmora {
namespace {

using namespace std::string_literals;
using Progress = HeadState::Progress;
using State = RequestReader::State;

// A head parsed from a block of its exact size.
struct Head {
  // `lines` is the head without the blank line that ends it.
  explicit Head(std::string_view lines) : block(std::string(lines) + "\r\n\r\n") {
    progress = parse_head(block.view(), state, request);
  }
  ExactBlock block;
  HeadState state;
  ApiRequest request;
  Progress progress = Progress::incomplete;
};

// The four headers that are read, such as "host=a origin=none length=7 token=".
std::string fields_of(const ApiRequest& request) {
  const auto text = [](const std::optional<std::string_view>& field) {
    return std::string(field.value_or("none"));
  };
  return "host=" + text(request.host) + " origin=" + text(request.origin) +
         " length=" + text(request.content_length) + " token=" + text(request.session_token);
}

// A request after it was delivered in pieces of one size.
struct Delivery {
  Delivery(std::string_view bytes, std::size_t piece_bytes) {
    while (state == State::incomplete && taken < bytes.size()) {
      const std::string_view piece = bytes.substr(taken, std::min(piece_bytes, read_chunk_bytes));
      std::copy(piece.begin(), piece.end(), reader.room());
      state = reader.take(piece.size());
      taken += piece.size();
    }
  }
  explicit Delivery(std::string_view bytes) : Delivery(bytes, read_chunk_bytes) {}

  [[nodiscard]] std::string_view body() const { return reader.request().body; }

  RequestReader reader;
  State state = State::incomplete;
  std::size_t taken = 0;  // bytes handed in until the state was no longer incomplete
};

// A request whose head is padded so that it has `total` bytes with a body of `body` bytes.
std::string request_of(std::size_t total, std::size_t body) {
  const std::string start = "PUT / HTTP/1.1\r\nContent-Length: " + std::to_string(body) + "\r\nX: ";
  const std::string end = "\r\n\r\n";
  return start + std::string(total - body - start.size() - end.size(), 'p') + end + std::string(body, 'b');
}

TEST(RequestHead, ReadsMethodTargetAndHeaders) {
  const Head head(
      "PUT /a?b=c HTTP/1.1\r\nHost: here:1\r\nX-Thing:\t two words \r\nContent-Length: 12\r\n"
      "Origin:http://here:1\r\nX-Velmora-Token: \t secret \t ");
  ASSERT_EQ(head.progress, Progress::complete);
  EXPECT_EQ(head.request.method, "PUT");
  EXPECT_EQ(head.request.target, "/a?b=c");
  EXPECT_EQ(fields_of(head.request), "host=here:1 origin=http://here:1 length=12 token=secret");
  EXPECT_EQ(head.state.content_length, 12u);
  EXPECT_EQ(head.state.parsed, head.block.view().size());
}

TEST(RequestHead, PointsIntoTheReceivedBytes) {
  const Head head("PUT /a HTTP/1.1\r\nHost: here");
  const std::string_view bytes = head.block.view();
  EXPECT_EQ(head.request.method.data(), bytes.data());
  EXPECT_EQ(head.request.target.data(), bytes.data() + bytes.find("/a"));
  EXPECT_EQ(head.request.host->data(), bytes.data() + bytes.find("here"));
}

TEST(RequestHead, AcceptsEveryVersion1) {
  const std::vector<std::string> rows = split(
      "GET / HTTP/1.1|GET / HTTP/1.0|GET / HTTP/1.9x|GET / HTTP/1.|"
      "GET / HTTP/1.1 more and more|  GET\t\v/\f HTTP/1.1 |get / HTTP/1.1|GET / HTTP/1.1\r",
      '|');
  for (const std::string& line : rows) {
    SCOPED_TRACE(line);
    const Head head(line);
    EXPECT_EQ(head.progress, Progress::complete);
    EXPECT_EQ(head.request.target, "/");
    EXPECT_EQ(head.state.content_length, 0u);
  }
}

TEST(RequestHead, RefusesABadRequestLine) {
  const std::vector<std::string> rows = split(
      "| |GET|GET /|GET / |GET / HTTP/2.0|GET / http/1.1|GET / HTTP/1|GET / HTTP/11|"
      "GET / Http/1.1|GET HTTP/1.1|GET / x HTTP/1.1|\r|\r\nGET / HTTP/1.1|\nGET / HTTP/1.1|"
      "GET /\nHTTP/1.1|GET / HTTP/2.0\r\nHost: a\r\nGET / HTTP/1.1",
      '|');
  for (const std::string& lines : rows) {
    SCOPED_TRACE(::testing::PrintToString(lines));
    EXPECT_EQ(Head(lines).progress, Progress::bad);
  }
}

TEST(RequestHead, KeepsTheCaseOfMethodAndTarget) {
  const Head head("get /A%20b/../c?d#e HTTP/1.1");
  ASSERT_EQ(head.progress, Progress::complete);
  EXPECT_EQ(head.request.method, "get");
  EXPECT_EQ(head.request.target, "/A%20b/../c?d#e");
}

TEST(RequestHead, TakesBytesAbove127AsLetters) {
  const Head head("G\xC3\xA9T /\x80\xFF HTTP/1.1\xFF");
  ASSERT_EQ(head.progress, Progress::complete);
  EXPECT_EQ(head.request.method, "G\xC3\xA9T");
  EXPECT_EQ(head.request.target, "/\x80\xFF");
}

TEST(RequestHead, ReadsHeaderLinesLeniently) {
  const struct {
    std::string lines;
    std::string fields;
  } rows[] = {
      {"HOST: a", "host=a origin=none length=none token=none"},
      {"host : a", "host=a origin=none length=none token=none"},
      {"\t host\v:\fa\v", "host=a origin=none length=none token=none"},
      {"\r\thOST:a", "host=a origin=none length=none token=none"},
      {"Host: a\r\nHost: b", "host=b origin=none length=none token=none"},
      {"Host: a\r\nHOST : ", "host= origin=none length=none token=none"},
      {"Host:\r\nhost:\t", "host= origin=none length=none token=none"},
      {"Host: a\r\nHost", "host=a origin=none length=none token=none"},
      {"Host: a:1:2", "host=a:1:2 origin=none length=none token=none"},
      {"Host:::", "host=:: origin=none length=none token=none"},
      {"Host: Host: a", "host=Host: a origin=none length=none token=none"},
      {": nameless", "host=none origin=none length=none token=none"},
      {":", "host=none origin=none length=none token=none"},
      {"no colon", "host=none origin=none length=none token=none"},
      {"host", "host=none origin=none length=none token=none"},
      {"ho st: a", "host=none origin=none length=none token=none"},
      {"Hostx: a\r\nxHost: b\r\nHos: c\r\nH: d", "host=none origin=none length=none token=none"},
      {"Origin: a\n\nOrigin: b\nHOST: 3", "host=3 origin=b length=none token=none"},
      {"Host: 1\r\r\nOrigin: 2", "host=1 origin=2 length=none token=none"},
      {"Host: 1\r\n \r\nOrigin: 2", "host=1 origin=2 length=none token=none"},
      // A line that begins with white space is a header of its own, and no continuation.
      {"Host: 1\r\n Origin: 2", "host=1 origin=2 length=none token=none"},
      {"Host: 1\r\n and more", "host=1 origin=none length=none token=none"},
      {"Host: x\0y"s, "host=x\0y origin=none length=none token=none"s},
      {"Host\0: x"s, "host=none origin=none length=none token=none"},
      {"Host: \xC3\x89\xA0", "host=\xC3\x89\xA0 origin=none length=none token=none"},
      {"\xC8ost: v\r\nH\xCFst: v", "host=none origin=none length=none token=none"},
      {"ORIGIN: null\r\nCONTENT-LENGTH: 5\r\nX-VELMORA-TOKEN: T", "host=none origin=null length=5 token=T"},
      {"X-Velmora-Token: 1\r\nx-velmora-token:2\r\nX-velmora-tokeN:",
       "host=none origin=none length=none token="},
      {"Content_Length: 5\r\nContent-Lengt: 6\r\nContent-Lengths: 7",
       "host=none origin=none length=none token=none"},
      {"Content-Length: 5\r\nContent\rLength: 6", "host=none origin=none length=5 token=none"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.lines));
    const Head head("GET / HTTP/1.1\r\n" + row.lines);
    ASSERT_EQ(head.progress, Progress::complete);
    EXPECT_EQ(fields_of(head.request), row.fields);
  }
}

TEST(RequestHead, FindsItsHeadersAmongManyOthers) {
  std::string lines = "GET / HTTP/1.1\r\nHost: first";
  for (int number = 0; number < 2000; ++number) lines += "\r\nC" + std::to_string(number) + ": v\r\nHo:st";
  lines += "\r\nhost: last\r\nZ: z";
  const Head head(lines);
  ASSERT_EQ(head.progress, Progress::complete);
  EXPECT_EQ(fields_of(head.request), "host=last origin=none length=none token=none");
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
    const Head head("GET / HTTP/1.1\r\nContent-Length:" + row.value);
    EXPECT_EQ(head.progress, Progress::complete);
    EXPECT_EQ(head.state.content_length, row.length);
  }
}

TEST(RequestHead, RefusesEveryOtherContentLength) {
  const std::vector<std::string> rows =
      split("| |+5|-5|-0|5x|x5|5 5|5,5|0x5|5.0|18446744073709551616|99999999999999999999999", '|');
  for (const std::string& value : rows) {
    SCOPED_TRACE(value);
    EXPECT_EQ(Head("GET / HTTP/1.1\r\nContent-Length:" + value).progress, Progress::bad);
  }
}

TEST(RequestHead, UsesTheLastOfTwoContentLengths) {
  const Head good("GET / HTTP/1.1\r\nContent-Length: x\r\nContent-Length: 7");
  EXPECT_EQ(good.progress, Progress::complete);
  EXPECT_EQ(good.state.content_length, 7u);
  EXPECT_EQ(Head("GET / HTTP/1.1\r\nContent-Length: 7\r\nContent-Length: x").progress, Progress::bad);
  EXPECT_EQ(Head("GET / HTTP/1.1\r\nContent-Length: 7\r\nContent-Length:").progress, Progress::bad);
}

TEST(RequestHead, EndsOnlyAtTheWholeTerminator) {
  const struct {
    std::string bytes;
    std::size_t length;  // of the head with its terminator; 0: incomplete
  } rows[] = {
      {"GET / HTTP/1.1\r\n\r\n", 18},       {"GET / HTTP/1.1\r\n\r\nHost: a\r\n\r\n", 18},
      {"GET / HTTP/1.1\n\r\n", 0},          {"GET / HTTP/1.1\n\n", 0},
      {"GET / HTTP/1.1\r\n\n", 0},          {"GET / HTTP/1.1\r\n\n\r\n\r\n", 21},
      {"GET / HTTP/1.1\n\r\n\r\n", 19},     {"GET / HTTP/1.1\r\r\n\r\n", 19},
      {"GET / HTTP/1.1\r\n\r\r\n\r\n", 21}, {"GET / HTTP/1.1\r\n \r\n\r\n", 21},
      {"GET / HTTP/1.1\r\n\r", 0},          {"GET / HTTP/1.1\r\n", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.bytes));
    const ExactBlock block(row.bytes);
    HeadState state;
    ApiRequest request;
    const Progress progress = parse_head(block.view(), state, request);
    EXPECT_EQ(progress, row.length == 0 ? Progress::incomplete : Progress::complete);
    if (row.length != 0) {
      EXPECT_EQ(state.parsed, row.length);
    }
  }
}

TEST(RequestHead, ParsesEveryPrefix) {
  const std::string whole = "PUT /a HTTP/1.1\r\nHost: here\r\nContent-Length: 12";
  const std::size_t line_complete = whole.find("1.") + 2;
  const std::size_t length_name = whole.find("Content-Length:") + 15;
  const std::size_t length_value = whole.find("12");
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const bool has_empty_length = size >= length_name && size <= length_value;
    const bool good = size >= line_complete && !has_empty_length;
    EXPECT_EQ(Head(std::string_view(whole).substr(0, size)).progress,
              good ? Progress::complete : Progress::bad)
        << size;
  }
}

TEST(RequestHead, GoesOnAfterEveryPrefix) {
  const std::string whole = "PUT /a HTTP/1.1\nHost: here\r\n\nOrigin: x\r\nContent-Length: 12\r\n\r\n";
  for (std::size_t size = 0; size < whole.size(); ++size) {
    HeadState state;
    ApiRequest request;
    const ExactBlock part(std::string_view(whole).substr(0, size));
    EXPECT_EQ(parse_head(part.view(), state, request), Progress::incomplete) << size;
    // More bytes come to the same place.
    state = {};
    request = {};
    const ExactBlock block(whole);
    EXPECT_EQ(parse_head(block.view().substr(0, size), state, request), Progress::incomplete) << size;
    EXPECT_EQ(parse_head(block.view(), state, request), Progress::complete) << size;
    EXPECT_EQ(fields_of(request), "host=here origin=x length=12 token=none");
    EXPECT_EQ(request.target, "/a");
    EXPECT_EQ(state.content_length, 12u);
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
         {std::size_t{1}, std::size_t{3}, std::size_t{4095}, read_chunk_bytes}) {
      SCOPED_TRACE(piece_bytes);
      const Delivery delivery(row.bytes, piece_bytes);
      EXPECT_EQ(delivery.state, row.state);
      EXPECT_EQ(delivery.body(), row.body);
      if (row.state == State::complete) {
        EXPECT_EQ(delivery.reader.request().target, "/");
      }
    }
  }
}

TEST(RequestReader, NeedsMoreAfterEveryPrefix) {
  const std::string whole = "PUT /a HTTP/1.1\r\nContent-Length: 4\r\n\r\nbody";
  for (std::size_t length = 1; length <= whole.size(); ++length) {
    for (const std::size_t piece_bytes : {std::size_t{1}, length}) {
      const Delivery delivery(std::string_view(whole).substr(0, length), piece_bytes);
      EXPECT_EQ(delivery.state, length == whole.size() ? State::complete : State::incomplete) << length;
    }
  }
}

TEST(RequestReader, RefusesALongBodyBeforeItArrives) {
  const std::string head = "PUT / HTTP/1.1\r\nContent-Length: 655xx\r\n\r\n";
  const std::size_t allowed = 65536 - head.size();
  const auto announce = [](std::size_t body) {
    return "PUT / HTTP/1.1\r\nContent-Length: " + std::to_string(body) + "\r\n\r\n";
  };
  EXPECT_EQ(Delivery(announce(allowed)).state, State::incomplete);
  EXPECT_EQ(Delivery(announce(allowed + 1)).state, State::bad);
  EXPECT_EQ(Delivery(announce(std::uint64_t{1} << 63)).state, State::bad);
}

TEST(RequestReader, ReturnsABodyOfTheAnnouncedLength) {
  const Delivery delivery("PUT / HTTP/1.1\r\nContent-Length: 5\r\n\r\nabcdefghi");
  EXPECT_EQ(delivery.state, State::complete);
  EXPECT_EQ(delivery.body(), "abcde");
}

TEST(RequestReader, ReadsNoBodyWithoutAContentLength) {
  const Delivery delivery("PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n");
  EXPECT_EQ(delivery.state, State::complete);
  EXPECT_EQ(delivery.body(), "");
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
    const Delivery with_bytes(head + "what came");
    EXPECT_EQ(with_bytes.state, row.state);
    EXPECT_EQ(with_bytes.body(), row.state == State::complete ? "what came" : "");
    const Delivery bare(head);
    EXPECT_EQ(bare.state, row.state);
    EXPECT_EQ(bare.body(), "");
    EXPECT_EQ(Delivery(head + "what came", 1).taken, head.size());
  }
}

using ReadRequest = FreshMachine;

TEST_F(ReadRequest, ReadsPiecesUntilTheRequestIsComplete) {
  const Accepted accepted =
      accept_client({"PUT /a HTTP/1.1\r\nContent-Le", "ngth: 4\r\n\r", "\nbo", "dy", "behind"});
  RequestReader reader;
  ASSERT_TRUE(read_request(accepted.socket, reader));
  EXPECT_EQ(reader.request().method, "PUT");
  EXPECT_EQ(reader.request().target, "/a");
  EXPECT_EQ(reader.request().body, "body");
  EXPECT_EQ(accepted.client->to_service, std::deque<std::string>{"behind"});
}

TEST_F(ReadRequest, ReadsPiecesOf4096Bytes) {
  const std::string request_bytes = "GET / HTTP/1.1\r\n\r\n";
  const Accepted accepted = accept_client({request_bytes + std::string(10000, 'x')});
  RequestReader reader;
  ASSERT_TRUE(read_request(accepted.socket, reader));
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
    RequestReader reader;
    EXPECT_FALSE(read_request(accepted.socket, reader));
  }
}

TEST_F(ReadRequest, FailsIfTheClientResets) {
  const Accepted accepted = accept_client({"GET / HTTP/1.1\r\n\r\n"});
  accepted.client->client_gone = true;
  RequestReader reader;
  EXPECT_FALSE(read_request(accepted.socket, reader));
}

TEST_F(ReadRequest, FailsOnABadRequest) {
  const std::string rows[] = {"\r\n\r\n", "GET / HTTP/2\r\n\r\n", request_of(65537, 10),
                              std::string(65536, 'a')};
  for (const std::string& bytes : rows) {
    SCOPED_TRACE(bytes.substr(0, 30));
    const Accepted accepted = accept_client({bytes});
    RequestReader reader;
    EXPECT_FALSE(read_request(accepted.socket, reader));
  }
}

}  // namespace
}  // namespace velmora
