#include "command/run_file.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

const RunRecord record{"1.2.0", 17831, "0123456789abcdef", 4321, "secret"};
const std::string record_text =
    R"({"version":"1.2.0","address":"http://127.0.0.1:17831/","port":17831,"run":"0123456789abcdef",)"
    R"("process_id":4321,"token":"secret"})"
    "\n";

void expect_read(const RunRecord& wanted) {
  const auto read = parse_run_record(format_run_record(wanted));
  ASSERT_TRUE(read) << format_run_record(wanted);
  EXPECT_EQ(read->version, wanted.version);
  EXPECT_EQ(read->port, wanted.port);
  EXPECT_EQ(read->run_id, wanted.run_id);
  EXPECT_EQ(read->token, wanted.token);
}

TEST(RunFile, IsOneLine) {
  EXPECT_EQ(format_run_record(record), record_text);
  expect_read(record);
}

TEST(RunFile, HoldsAnyTokenThatTheServiceTakes) {
  for (const std::string token : {"\"port\":1,\"run\"", "\\\\\"", "a b /?&%", "\xC3\xA9\xE4\xBD\xA0"}) {
    RunRecord odd = record;
    odd.token = token;
    expect_read(odd);
  }
  RunRecord longest = record;
  longest.token = std::string(4096, 't');
  longest.port = 65535;
  expect_read(longest);
}

TEST(RunFile, IsRefusedAtEveryPrefix) {
  for (std::size_t length = 0; length < record_text.size(); ++length) {
    EXPECT_FALSE(parse_run_record(record_text.substr(0, length))) << length;
  }
}

TEST(RunFile, IsRefusedIfAnythingMakesNoSense) {
  const std::string good[] = {R"("port":17831)", R"("run":"0123456789abcdef")", R"("token":"secret")",
                              R"("version":"1.2.0")"};
  const std::pair<int, std::string> rows[] = {
      {0, R"("port":0)"},
      {0, R"("port":65536)"},
      {0, R"("port":-1)"},
      {0, R"("port":1.5)"},
      {0, R"("port":"17831")"},
      {0, R"("post":17831)"},
      {1, R"("run":"0123456789abcde")"},
      {1, R"("run":"0123456789ABCDEF")"},
      {1, R"("run":"")"},
      {2, R"("token":"")"},
      {2, R"("token":"a\r\nb")"},
      {2, R"("token":"a\tb")"},
      {2, "\"token\":\"a\x7F\""},
      {2, R"("taken":"a")"},
      {3, R"("version":1)"},
  };
  for (const auto& [place, bad] : rows) {
    std::string text = record_text;
    text.replace(text.find(good[place]), good[place].size(), bad);
    EXPECT_FALSE(parse_run_record(text)) << text;
  }
  RunRecord too_long = record;
  too_long.token = std::string(4097, 't');
  EXPECT_FALSE(parse_run_record(format_run_record(too_long)));
  EXPECT_FALSE(parse_run_record(record_text + record_text));
  EXPECT_FALSE(parse_run_record("x" + record_text));
}

TEST(StopRequest, IsOneLine) {
  const StopRequest request{"fedcba9876543210", true};
  const std::string text = format_stop_request(request);
  EXPECT_EQ(text, "{\"run\":\"fedcba9876543210\",\"force\":true}\n");
  const auto read = parse_stop_request(text);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->run_id, request.run_id);
  EXPECT_TRUE(read->force);
  EXPECT_FALSE(parse_stop_request(format_stop_request({"fedcba9876543210", false}))->force);
  for (std::size_t length = 0; length < text.size(); ++length) {
    EXPECT_FALSE(parse_stop_request(text.substr(0, length))) << length;
  }
  for (const std::string_view bad : {"{\"run\":\"x\",\"force\":true}\n", "{\"run\":\"fedcba9876543210\"}\n",
                                     "{\"run\":\"fedcba9876543210\",\"force\":1}\n"}) {
    EXPECT_FALSE(parse_stop_request(bad)) << bad;
  }
}

TEST(Addresses, HoldTheTokenOnlyForTheBrowser) {
  EXPECT_EQ(public_address(17850), "http://127.0.0.1:17850/");
  EXPECT_EQ(page_address(record), "http://127.0.0.1:17831/?token=secret");
}

}  // namespace
}  // namespace velmora
