#include "json/find.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "unit/support/comma_locale.h"
#include "unit/support/fresh_machine.h"
#include "unit/support/split.h"

namespace velmora {
namespace {

using namespace std::string_literals;

TEST(JsonFinders, FindNothingInAnEmptyBody) {
  const ExactBlock empty("");
  for (const std::string_view key : {"x", ""}) {
    EXPECT_FALSE(json_find_bool(empty.view(), key));
    EXPECT_FALSE(json_find_number(empty.view(), key));
    EXPECT_FALSE(json_find_string(empty.view(), key));
    EXPECT_FALSE(json_find_array(empty.view(), key));
  }
}

struct NumberRow {
  std::string body;
  float value;
};

TEST(JsonFinders, ReadNumbersOfAnyLength) {
  const std::string zeros(60000, '0');
  const std::pair<std::string, std::optional<float>> rows[] = {
      {zeros + "7", 7.0f},
      {"0." + zeros + "7e60001", 7.0f},
      {"16777217." + zeros + "1", 16777218.0f},  // just above half between two floats
      {"1." + zeros + "dB", 1.0f},
      {"1" + zeros, std::nullopt},
      {"." + std::string(300, 'x'), std::nullopt},
  };
  for (const auto& [number, value] : rows) {
    EXPECT_EQ(json_find_number("{\"volume\":" + number + "}", "volume"), value) << number.substr(0, 20);
  }
}

TEST(JsonFinders, ReadWhatStrtofReads) {
  const NumberRow rows[] = {
      {R"({"volume":0.75})", 0.75f},
      {R"({"volume":2})", 2.0f},
      {"{\"volume\": \t\n\v\f\r2}", 2.0f},
      {R"({"volume":+2})", 2.0f},
      {R"({"volume":-2.5e-1})", -0.25f},
      {R"({"volume":.5})", 0.5f},
      {R"({"volume":5.})", 5.0f},
      {R"({"volume":1e2})", 100.0f},
      {R"({"volume":0x1p-3})", 0.125f},
      {R"({"volume":0X10})", 16.0f},
      {R"({"volume":2dB})", 2.0f},
      {R"({"volume":1,5})", 1.0f},
      {R"({"volume":-0})", -0.0f},
      {R"({"volume":3.4028234e38})", std::numeric_limits<float>::max()},
      {R"("volume":3)", 3.0f},
      {R"("volume" = anything : 4)", 4.0f},
      {"\"volume\":7\0"
       "8"s,
       7.0f},
  };
  for (const NumberRow& row : rows) {
    SCOPED_TRACE(row.body);
    const ExactBlock block(row.body);
    const std::optional<float> number = json_find_number(block.view(), "volume");
    ASSERT_TRUE(number);
    EXPECT_EQ(*number, row.value);
    EXPECT_EQ(std::signbit(*number), std::signbit(row.value));
  }
}

TEST(JsonFinders, RefuseAnythingButFiniteNumbers) {
  const std::vector<std::string> rows = split(
      R"({"volume":"2"}|{"volume":inf}|{"volume":-INF}|{"volume":nan(1)}|{"volume":1e39}|{"volume":-1e39}|)"
      R"({"volume":true}|{"volume":}|{"volume":|{"volume":  |{"volume":-}|{"volume":.}|{"volume":e5}|{"volume"}|)"
      R"("volume"|"volume|{"Volume":2}|{volume:2}|{"other":2}|{"volume":[2]}|{"volume":0x1p128})",
      '|');
  for (const std::string& body : rows) {
    const ExactBlock block(body);
    EXPECT_FALSE(json_find_number(block.view(), "volume")) << body;
  }
  EXPECT_FALSE(json_find_number("\"volume\":\0001"s, "volume"));
}

TEST(JsonFinders, ReadNumbersInEveryLocale) {
  const CommaLocale comma;
  EXPECT_EQ(json_find_number(R"({"volume":0.75})", "volume"), 0.75f);
  EXPECT_EQ(json_find_number(R"({"volume":0,75})", "volume"), 0.0f);
}

TEST(JsonFinders, UseTheFirstTextualMatchOfAKey) {
  const struct {
    std::string body;
    std::optional<float> value;
  } rows[] = {
      {R"({"a":{"x":1},"x":2})", 1.0f},        // nesting is not seen
      {R"({"y":"x","x":1})", 1.0f},            // the match is a value, and the next colon is the key's own
      {R"({"y":"x"})", std::nullopt},          // no colon behind the match
      {R"({"y":"x","z":3})", 3.0f},            // nor is the key between match and colon looked at
      {R"({"x":"bad","x":1})", std::nullopt},  // a later duplicate is never seen
      {R"({"x":1,"x":2})", 1.0f},
      {R"({"xx":1,"x":2})", 2.0f},
      {R"({"t":"\"x\":9","x":2})", 2.0f},  // an escaped quote ends no needle
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    EXPECT_EQ(json_find_number(row.body, "x"), row.value);
  }
}

TEST(JsonFinders, MatchTheKeyLiterally) {
  EXPECT_EQ(json_find_number(R"({"a.b":1})", "a.b"), 1.0f);
  EXPECT_EQ(json_find_number(R"({"a\"b":1})", R"(a\"b)"), 1.0f);
  EXPECT_FALSE(json_find_number(R"({"a\"b":1})", "a\"b\""));
  EXPECT_EQ(json_find_number(R"({"":5})", ""), 5.0f);
}

TEST(JsonFinders, ReadBooleansByTheirFirstLetters) {
  const std::pair<std::string, std::optional<bool>> rows[] = {
      {R"({"muted":true})", true},
      {R"({"muted":false})", false},
      {R"({"muted": )"
       "\t\n\v\f\r"
       R"(false})",
       false},
      {R"({"muted":trueish})", true},
      {R"({"muted":falsehood)", false},
      {R"({"muted":true)", true},
      {R"({"muted":tru)", std::nullopt},
      {R"({"muted":fals)", std::nullopt},
      {R"({"muted":True})", std::nullopt},
      {R"({"muted":FALSE})", std::nullopt},
      {R"({"muted":1})", std::nullopt},
      {R"({"muted":"true"})", std::nullopt},
      {R"({"muted":null})", std::nullopt},
      {R"({"muted":)", std::nullopt},
      {R"({"muted"true})", std::nullopt},
      {R"({"bypass":false})", std::nullopt},
  };
  for (const auto& [body, value] : rows) {
    SCOPED_TRACE(body);
    const ExactBlock block(body);
    EXPECT_EQ(json_find_bool(block.view(), "muted"), value);
  }
  EXPECT_EQ(json_find_bool(R"({"bypass":false})", "bypass"), false);
}

TEST(JsonFinders, ReadStringsAndDecodeEscapes) {
  const std::pair<std::string, std::string> rows[] = {
      {R"({"endpoint_id":"a\\b\"c"})", "a\\b\"c"},
      {R"({"endpoint_id":""})", ""},
      {R"({"endpoint_id":"\"\/\\\b\f\n\r\t"})", "\"/\\\b\f\n\r\t"},
      {"{\"endpoint_id\":\t\"x\"", "x"},
      {"\"endpoint_id\":\"\x7F\x80\xC3\xA9\xFF\"", "\x7F\x80\xC3\xA9\xFF"},
      {R"("endpoint_id":"a"b)", "a"},
      {R"("endpoint_id":"[{}]:,")", "[{}]:,"},
  };
  for (const auto& [body, value] : rows) {
    SCOPED_TRACE(body);
    const ExactBlock block(body);
    EXPECT_EQ(json_find_string(block.view(), "endpoint_id"), value);
  }
}

TEST(JsonFinders, RefuseInvalidStrings) {
  const std::string rows[] = {
      R"({"endpoint_id":12})",      R"({"endpoint_id":true})",  R"({"endpoint_id":'a'})",
      R"({"endpoint_id":)",         R"({"endpoint_id":")",      R"({"endpoint_id":"a)",
      R"({"endpoint_id":"a\)",      R"({"endpoint_id":"a\")",   R"({"endpoint_id":"\u0041"})",
      "{\"endpoint_id\":\"a\nb\"}", R"({"endpoint_id":"a\x"})", R"({"endpoint_id":"\'"})",
      R"({"endpoint_id":["a"]})",   R"({"endpoint_id")",
  };
  for (const std::string& body : rows) {
    SCOPED_TRACE(body);
    const ExactBlock block(body);
    EXPECT_FALSE(json_find_string(block.view(), "endpoint_id"));
  }
}

TEST(JsonFinders, AllowEachByteFrom0x20InStrings) {
  for (int value = 0; value < 256; ++value) {
    if (value == '"' || value == '\\') continue;
    const std::string body = "\"s\":\"" + std::string(1, static_cast<char>(value)) + "\"";
    EXPECT_EQ(json_find_string(body, "s").has_value(), value >= 0x20) << value;
  }
}

TEST(JsonFinders, DecodeEightEscapes) {
  const std::string_view known = "\"/\\bfnrt";
  const std::string_view meaning = "\"/\\\b\f\n\r\t";
  for (int value = 0; value < 256; ++value) {
    const char letter = static_cast<char>(value);
    const std::string body = "\"s\":\"\\" + std::string(1, letter) + "\"";
    const std::size_t index = known.find(letter);
    std::optional<std::string> expected;
    if (index != std::string_view::npos) expected = std::string(1, meaning[index]);
    EXPECT_EQ(json_find_string(body, "s"), expected) << value;
  }
}

TEST(JsonFinders, ReturnTheTextBetweenTheBracketsOfAnArray) {
  const std::pair<std::string, std::string> rows[] = {
      {R"({"bands":[1,[2,3],{"a":[4]}],"z":[5]})", R"(1,[2,3],{"a":[4]})"},
      {R"({"bands":[]})", ""},
      {R"({"bands":12,"other":[7]})", "7"},  // the next bracket, wherever it is
      {R"({"bands":[1}])", "1"},             // both bracket kinds are counted together
      {R"({"bands":["]"]})", "\""},          // and inside strings too
      {R"({"bands":["[",1]]})", R"("[",1])"},
      {R"("bands":[ x ])", " x "},
  };
  for (const auto& [body, value] : rows) {
    SCOPED_TRACE(body);
    const ExactBlock block(body);
    const auto found = json_find_array(block.view(), "bands");
    ASSERT_TRUE(found);
    EXPECT_EQ(*found, value);
  }
}

TEST(JsonFinders, ReturnAViewIntoTheBody) {
  const std::string body = R"({"bands":[1,2]})";
  const auto found = json_find_array(body, "bands");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->data(), body.data() + body.find('1'));
}

TEST(JsonFinders, RefuseArraysThatDoNotBalance) {
  const std::string rows[] = {
      R"({"bands":1})",   R"({"bands":[)",   R"({"bands":[1)", R"({"bands":[[1])",
      R"({"bands":[{1])", R"([1]"bands":2)", R"(["bands"])",   R"({"bands":)",
  };
  for (const std::string& body : rows) {
    SCOPED_TRACE(body);
    const ExactBlock block(body);
    EXPECT_FALSE(json_find_array(block.view(), "bands"));
  }
}

TEST(JsonFinders, ReadEveryPrefix) {
  const std::string whole = R"({"n":0.75,"b":true,"s":"a\\b\"c","a":[1,{"x":2},[3]]})";
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    SCOPED_TRACE(length);
    const ExactBlock block(std::string_view(whole).substr(0, length));
    EXPECT_EQ(json_find_number(block.view(), "n").has_value(), length > whole.find("0.75"));
    EXPECT_EQ(json_find_bool(block.view(), "b").has_value(), length >= whole.find("true") + 4);
    EXPECT_EQ(json_find_string(block.view(), "s").has_value(), length >= whole.find("c\"") + 2);
    EXPECT_EQ(json_find_array(block.view(), "a").has_value(), length >= whole.find("]]") + 2);
  }
}

}  // namespace
}  // namespace velmora
