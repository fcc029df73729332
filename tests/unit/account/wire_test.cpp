#include "account/wire.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;

TEST(AccountEscape, EscapesQuotesAndBackslashesOnly) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},
      {"plain /text/", "plain /text/"},
      {"\"", "\\\""},
      {"\\", "\\\\"},
      {"a\\\"b", "a\\\\\\\"b"},
      {"\n\r\t\b\x01\x7f", "\n\r\t\b\x01\x7f"},
      {"\0"s, "\0"s},
      {"\xe4\xb8\xad\xff", "\xe4\xb8\xad\xff"},
  };
  for (const auto& [text, escaped] : rows) EXPECT_EQ(account_json_escape(text), escaped);
}

TEST(AccountBody, IsAFlatObjectInTheGivenOrder) {
  EXPECT_EQ(account_body({}), "{}");
  EXPECT_EQ(account_body({{"machine_id", "m"}}), R"({"machine_id":"m"})");
  EXPECT_EQ(account_body({{"b", "\"x\\"}, {"a", ""}}), R"({"b":"\"x\\","a":""})");
}

TEST(AccountString, FollowsTheFirstOccurrenceOfTheKey) {
  const std::pair<std::string, std::string> rows[] = {
      {R"({"state":"abc"})", "abc"},
      {R"({"state" : "abc"})", "abc"},
      {"{\"state\":\r\n \"abc\"}", "abc"},
      {R"({"state":""})", ""},
      {R"({"data":{"state":"deep"}})", "deep"},
      {R"({"state":"first","state":"second"})", "first"},
      {R"({"note":"the \"state\":\"inside\"","state":"real"})", "real"},  // its quotes are escaped there
      {R"({"note":"state","state":"real"})", "real"},
      {R"({"note":["state"],"x":"taken"})", "taken"},  // the next colon counts
      {R"({"state":"open)", "open"},
      {R"({"state":")", ""},
      {R"({"state":"a\nb\rc\td"})", "a\nb\rc\td"},
      {R"({"state":"\"\\\/\b\f\x"})", "\"\\/bfx"},
      {R"({"state":"end\)", "end\\"},
      {R"({"state":"\u0041\u00e9\u4E2d"})", "A\xc3\xa9\xe4\xb8\xad"},
      {R"({"state":"\u0000"})", "\0"s},
      {R"({"state":"\uD83D\uDE00"})", "\xef\xbf\xbd\xef\xbf\xbd"},
      {R"({"state":"\u41zz!"})", "A!"},
      {R"({"state":"\u4"!!!"})", "\x04!"},  // the four bytes may hold the closing quote
      {R"({"state":"\uzzzzA"})", "zzzzA"},
      {R"({"state":"\u-123"})", "-123"},
      {R"({"state":"\u+123"})", "+123"},
      {R"({"state":"\u 123"})", " 123"},
      {R"({"state":"\u0x41"})", "\0"s},
      {R"({"state":"\u12)", "12"},
      {R"({"state":"\u)", ""},
      {"{\"state\":\"raw \x01\n\xff\"}", "raw \x01\n\xff"},
  };
  for (const auto& [text, value] : rows) {
    SCOPED_TRACE(text);
    const ExactBlock block(text);
    EXPECT_EQ(account_json_string(block.view(), "state"), value);
  }
}

TEST(AccountString, IsAbsentOtherwise) {
  for (const std::string& text : {
           ""s,
           "{}"s,
           R"({"status":"abc"})"s,
           R"({"State":"abc"})"s,
           R"({state:"abc"})"s,
           R"({"state"})"s,
           R"({"state":)"s,
           R"({"state": )"s,
           R"({"state":null})"s,
           R"({"state":12})"s,
           R"({"state":true})"s,
           R"({"state":["a"]})"s,
           "{\"state\":\t\"abc\"}"s,
           R"({"state":'abc'})"s,
       }) {
    SCOPED_TRACE(text);
    const ExactBlock block(text);
    EXPECT_EQ(account_json_string(block.view(), "state"), std::nullopt);
  }
}

TEST(AccountString, IsFoundInsideAnotherStringAheadOfTheField) {
  EXPECT_EQ(account_json_string(R"({"note":"a "state": "found","state":"real"})", "state"), "found");
}

TEST(AccountUint, IsTheDigitsAfterTheKey) {
  const std::pair<std::string, std::uint32_t> rows[] = {
      {R"({"n":0})", 0},       {R"({"n":120})", 120},
      {"{\"n\": \t\r\n7}", 7}, {R"({"n":4294967295})", 4294967295u},
      {R"({"n":12.5})", 12},   {R"({"n":12e3})", 12},
      {R"({"n":007})", 7},     {R"({"n":5)", 5},
      {R"({"a":{"n":9}})", 9},
  };
  for (const auto& [text, value] : rows) {
    SCOPED_TRACE(text);
    const ExactBlock block(text);
    EXPECT_EQ(account_json_uint(block.view(), "n"), value);
  }
}

TEST(AccountUint, IsAbsentOtherwise) {
  for (const char* text : {"", "{}", R"({"n":-1})", R"({"n":+1})", R"({"n":"12"})", R"({"n":null})",
                           R"({"n":4294967296})", R"({"n":99999999999999999999})", R"({"n":)", R"({"n": )",
                           R"({"n"})", R"({"n":.5})", R"({"N":1})", R"({"n":true})"}) {
    SCOPED_TRACE(text);
    const ExactBlock block(text);
    EXPECT_EQ(account_json_uint(block.view(), "n"), std::nullopt);
  }
}

TEST(AccountReaders, ReadEveryPrefixOfAReply) {
  const std::string whole = R"({"state":"a\u00e9\n\\b","n":120,"detail":"x\uD83D"})";
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    SCOPED_TRACE(length);
    const ExactBlock block(std::string_view(whole).substr(0, length));
    EXPECT_EQ(account_json_string(block.view(), "state").has_value(), length >= 10);
    EXPECT_EQ(account_json_uint(block.view(), "n").has_value(), length > whole.find("120"));
    static_cast<void>(account_json_string(block.view(), "detail"));
  }
}

}  // namespace
}  // namespace velmora
