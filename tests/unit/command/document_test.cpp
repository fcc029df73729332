#include "command/document.h"

#include <gtest/gtest.h>

#include <cmath>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

std::optional<JsonNode> read_exact(std::string_view text) {
  const ExactBlock block(text);
  return read_document(block.view());
}

// What a document becomes when it is read and written again.
std::string rewritten(std::string_view text) {
  const auto node = read_exact(text);
  if (!node) return "(refused)";
  std::string out;
  append_document(out, *node);
  return out;
}

TEST(Document, IsReadAndWrittenAgain) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"{}", "{}"},
      {"[]", "[]"},
      {"null", "null"},
      {" \t\r\n[ 1 , 2 ]\n", "[1,2]"},
      {R"({"a":{"b":[true,false,null]},"c":""})", R"({"a":{"b":[true,false,null]},"c":""})"},
      {R"({ "a" : 1 , "a" : 2 })", R"({"a":1,"a":2})"},
      {"[0,-0,10,-1.5,1e5,1E-05,2.25e+7]", "[0,-0,10,-1.5,1e5,1E-05,2.25e+7]"},
      {"[nan,inf,-inf]", R"(["nan","inf","-inf"])"},
      {R"("\"\\\/\b\f\n\r\t")", R"("\"\\/\b\f\n\r\t")"},
      {R"("\u0041\u00e9\ud83d\ude00!")", "\"A\xC3\xA9\xF0\x9F\x98\x80!\""},
      {R"("\ud83dx")", "\"\xEF\xBF\xBDx\""},
      {"\"\xC3\xA9\x7F\"", "\"\xC3\xA9\x7F\""},
  };
  for (const auto& [text, expected] : rows) EXPECT_EQ(rewritten(text), expected) << text;
}

TEST(Document, IsRefusedIfAnythingIsWrong) {
  const std::string_view rows[] = {
      "",      " ",       "{",        "[",         "{]",          "[}",        "[1,]",   "[,1]",
      "[1 2]", "{\"a\"}", "{\"a\":}", "{a:1}",     "{\"a\":1,}",  "{\"a\" 1}", "[1]x",   "1 2",
      "tru",   "True",    "nul",      "-",         "+1",          "01",        "1.",     ".5",
      "1e",    "1e+",     "0x10",     "NaN",       "infinity",    "-nan",      "--1",    "\"",
      "\"a",   "\"\\\"",  "\"\\x\"",  "\"\\u12\"", "\"\\u12g4\"", "\"a\nb\"",  "<html>",
  };
  for (const std::string_view row : rows) EXPECT_FALSE(read_exact(row)) << row;
}

TEST(Document, IsRefusedAtEveryPrefix) {
  const std::string text = R"({"a":[1.5,{"b":"\u00e9\n"},true,nan],"c":null})";
  for (std::size_t length = 0; length < text.size(); ++length) {
    EXPECT_FALSE(read_exact(text.substr(0, length))) << length;
  }
  EXPECT_TRUE(read_exact(text));
}

TEST(Document, IsNestedUpToALimit) {
  const auto nested = [](std::size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); };
  EXPECT_TRUE(read_exact(nested(33)));
  EXPECT_FALSE(read_exact(nested(34)));
  EXPECT_FALSE(read_exact(std::string(1'000'000, '[')));
}

TEST(Document, HasNodesUpToALimit) {
  const auto list = [](std::size_t items) {
    std::string text = "[0";
    for (std::size_t item = 1; item < items; ++item) text += ",0";
    return text + "]";
  };
  EXPECT_TRUE(read_document(list(99'999)));
  EXPECT_FALSE(read_document(list(100'000)));
}

TEST(Document, GivesItsMembers) {
  const JsonNode root = *read_document(
      R"({"flag":true,"off":false,"number":-2.5,"odd":nan,"text":"a\"b","deep":{"er":{"still":1}},"none":null})");
  EXPECT_EQ(flag_at(root, {"flag"}), true);
  EXPECT_EQ(flag_at(root, {"off"}), false);
  EXPECT_EQ(number_at(root, {"number"}), -2.5);
  EXPECT_TRUE(std::isnan(*number_at(root, {"odd"})));
  EXPECT_EQ(text_at(root, {"text"}), "a\"b");
  EXPECT_EQ(number_at(root, {"deep", "er", "still"}), 1.0);
  EXPECT_EQ(find_node(root, {})->kind, JsonNode::Kind::object);
  EXPECT_EQ(find_node(root, {"deep", "missing"}), nullptr);
  EXPECT_EQ(find_node(root, {"text", "a"}), nullptr);
}

TEST(Document, GivesNoMemberOfAnotherType) {
  const JsonNode root = *read_document(R"({"flag":"true","number":"1","text":1,"none":null})");
  EXPECT_FALSE(flag_at(root, {"flag"}));
  EXPECT_FALSE(number_at(root, {"number"}));
  EXPECT_FALSE(text_at(root, {"text"}));
  for (const std::string_view name : {"none", "missing"}) {
    EXPECT_FALSE(flag_at(root, {name}));
    EXPECT_FALSE(number_at(root, {name}));
    EXPECT_FALSE(text_at(root, {name}));
  }
}

}  // namespace
}  // namespace velmora
