// Reading and writing of registry exports. One file because the tables of what is read, refused and written
// share their helpers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/text.h"
#include "platform/hosted/machine_state.h"
#include "platform/hosted/registry_export.h"

namespace velmora::hosted {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

const std::string header = "Windows Registry Editor Version 5.00\n";
const std::string key_line = "[HKEY_LOCAL_MACHINE\\K]\n";

constexpr ExportForm forms[] = {{.utf16 = true, .byte_order_mark = true, .carriage_returns = true},
                                {.utf16 = true, .byte_order_mark = false, .carriage_returns = false},
                                {.utf16 = false, .byte_order_mark = true, .carriage_returns = true},
                                {.utf16 = false, .byte_order_mark = false, .carriage_returns = false}};
constexpr ExportForm plain = forms[3];

std::string little_endian(std::u16string_view text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

std::string with_carriage_returns(std::string_view text) {
  std::string out;
  for (const char byte : text) {
    if (byte == '\n') out += '\r';
    out += byte;
  }
  return out;
}

std::string in_form(std::string text, const ExportForm& form) {
  if (form.carriage_returns) text = with_carriage_returns(text);
  if (form.utf16) text = little_endian(wide_from_utf8_replacing(text));
  if (form.byte_order_mark) text = (form.utf16 ? "\xFF\xFE" : "\xEF\xBB\xBF") + text;
  return text;
}

bool same_form(const ExportForm& left, const ExportForm& right) {
  return left.utf16 == right.utf16 && left.byte_order_mark == right.byte_order_mark &&
         left.carriage_returns == right.carriage_returns;
}

// What is read from a file without trouble; an empty tree, and a failure, where there is any.
ParsedExport parse(std::string_view bytes) {
  auto result = parse_export(bytes);
  if (auto* parsed = std::get_if<ParsedExport>(&result)) return std::move(*parsed);
  const auto& trouble = std::get<ExportTrouble>(result);
  ADD_FAILURE() << trouble.line << ": " << trouble.why;
  return {};
}

// A tree of this one value in HKEY_LOCAL_MACHINE\K.
RegistryTree tree_of(TreeValue value) {
  return {u"", {}, {{u"HKEY_LOCAL_MACHINE", {}, {{u"K", {std::move(value)}, {}}}}}};
}

struct ValueRow {
  std::string text;
  TreeValue value;
};

const ValueRow value_rows[] = {
    {"@=\"\"", {u"", 1, "\0\0"s}},
    {"\"\"=\"\"", {u"", 1, "\0\0"s}},
    {"\"n\"=\"a\"", {u"n", 1, "a\0\0\0"s}},
    {"\"n\" \t=\t \"a\" \t", {u"n", 1, "a\0\0\0"s}},
    {" \t\"n\"=\"a\";more", {u"n", 1, "a\0\0\0"s}},
    {"\"n\"=\"a\" ; \"more", {u"n", 1, "a\0\0\0"s}},
    {"\"n\"=\"a;b=[c]\t\"", {u"n", 1, little_endian(u"a;b=[c]\t"sv) + "\0\0"s}},
    {"\"a\\\\\\\"=b\"=\"c\\\\\\\"d\"", {u"a\\\"=b", 1, little_endian(u"c\\\"d"sv) + "\0\0"s}},
    {"\"n\"=\"a\nb\r\nc\rd\"", {u"n", 1, little_endian(u"a\nb\r\nc\rd\0"sv)}},
    {"\"a\nb\r\"=dword:00000001", {u"a\nb\r", 4, "\1\0\0\0"s}},
    {"\"\xC3\xA4\"=\"\xF0\x9F\x94\x8A\"", {u"\u00E4", 1, little_endian(u"\U0001F50A\0"sv)}},
    {"\"n\"=dword:00000000", {u"n", 4, "\0\0\0\0"s}},
    {"\"n\"=dword:89abcdef", {u"n", 4, "\xEF\xCD\xAB\x89"}},
    {"\"n\"=dword:00000DEF;c", {u"n", 4, "\xEF\x0D\0\0"s}},
    {"\"n\"=hex:", {u"n", 3, ""}},
    {"\"n\"=hex: ;c", {u"n", 3, ""}},
    {"\"n\"=hex:00", {u"n", 3, "\0"s}},
    {"\"n\"=hex:01,0a,Bc,DE ", {u"n", 3, "\x01\x0A\xBC\xDE"}},
    {"\"n\"=hex:01,\\\n  02,\\ \t\n\t03", {u"n", 3, "\1\2\3"}},
    {"\"n\"=hex:01,\\\r\n02;c", {u"n", 3, "\1\2"}},
    {"\"n\"=hex:\\\n  01", {u"n", 3, "\1"}},
    {"\"n\"=hex:\\\n  \\\n  01", {u"n", 3, "\1"}},
    {"\"n\"=hex(0):", {u"n", 0, ""}},
    {"\"n\"=hex(1):61", {u"n", 1, "a"}},
    {"\"n\"=hex(7):61,00,00,00,00,00", {u"n", 7, "a\0\0\0\0\0"s}},
    {"\"n\"=hex(4):01", {u"n", 4, "\1"}},
    {"\"n\"=hex(00000003):01", {u"n", 3, "\1"}},
    {"\"n\"=hex(FFFF000b):ff", {u"n", 0xFFFF000B, "\xFF"}},
};

TEST(RegistryExport, ReadsEachKindOfValue) {
  for (const ValueRow& row : value_rows) {
    SCOPED_TRACE(row.text);
    EXPECT_TRUE(parse(header + key_line + row.text + "\n").tree == tree_of(row.value));
    EXPECT_TRUE(parse(header + key_line + row.text + "\r\n\r\n").tree == tree_of(row.value));
  }
}

struct TreeRow {
  std::string text;
  std::vector<TreeKey> below;  // HKEY_LOCAL_MACHINE
};

// A key without values.
TreeKey key_of(std::u16string name, std::vector<TreeKey> keys = {}) {
  return {std::move(name), {}, std::move(keys)};
}
TreeKey key_with(std::u16string name, std::vector<TreeValue> values) {
  return {std::move(name), std::move(values), {}};
}

const TreeValue one{u"n", 3, "\1"};
const TreeValue two{u"m", 3, "\2"};

const TreeRow tree_rows[] = {
    {"[HKEY_LOCAL_MACHINE\\a\\b]", {key_of(u"a", {key_of(u"b")})}},
    {"[hkey_local_machine\\b]\n[HKEY_Local_Machine\\a]\n[HKEY_LOCAL_MACHINE\\B\\c]",
     {key_of(u"b", {key_of(u"c")}), key_of(u"a")}},
    {" \t[HKEY_LOCAL_MACHINE\\a] \t\n", {key_of(u"a")}},
    {"[HKEY_LOCAL_MACHINE\\a]b]", {key_of(u"a]b")}},
    {"[HKEY_LOCAL_MACHINE\\[a];\"]", {key_of(u"[a];\"")}},
    {"\n ; comment [\n;\n\t\n[HKEY_LOCAL_MACHINE\\a]\n;\"n\"=hex:01\n\n", {key_of(u"a")}},
    {"[HKEY_LOCAL_MACHINE\\" + std::string(255, 'a') + "]", {key_of(std::u16string(255, u'a'))}},
    // A removed key goes with all below it, and what is missing is removed already.
    {"[HKEY_LOCAL_MACHINE\\a\\b]\n[-hkey_local_machine\\A]\n[HKEY_LOCAL_MACHINE\\c]", {key_of(u"c")}},
    {"[HKEY_LOCAL_MACHINE\\a]\n[-HKEY_LOCAL_MACHINE\\b\\c]\n[-HKEY_USERS\\b]", {key_of(u"a")}},
    {"[HKEY_LOCAL_MACHINE\\a]\n\"n\"=hex:01\n[-HKEY_LOCAL_MACHINE\\a]\n[HKEY_LOCAL_MACHINE\\a]\n\"m\"=hex:02",
     {key_with(u"a", {two})}},
    // A repeated key is continued, a repeated value is replaced in place.
    {"[HKEY_LOCAL_MACHINE\\a]\n\"n\"=hex:01\n[HKEY_LOCAL_MACHINE\\b]\n[HKEY_LOCAL_MACHINE\\A]\n\"m\"=hex:02",
     {key_with(u"a", {one, two}), key_of(u"b")}},
    {"[HKEY_LOCAL_MACHINE\\a]\n\"n\"=\"x\"\n\"m\"=hex:02\n\"N\"=hex:01", {key_with(u"a", {one, two})}},
    {"[HKEY_LOCAL_MACHINE\\a]\n\"n\"=hex:01\n\"m\"=hex:02\n\"M\"=- ; gone\n\"o\"=-", {key_with(u"a", {one})}},
    {"[HKEY_LOCAL_MACHINE\\a]\n\"n\"=hex:01\n@=hex:02", {key_with(u"a", {{u"", 3, "\2"}, one})}},
    {"[HKEY_LOCAL_MACHINE\\a]\n@=hex:02\n\"n\"=hex:01\n@=-", {key_with(u"a", {one})}},
};

TEST(RegistryExport, ReadsKeysAndWhatBecomesOfThem) {
  for (const TreeRow& row : tree_rows) {
    SCOPED_TRACE(row.text);
    for (const std::string& text :
         {row.text + "\n", with_carriage_returns(row.text + "\n"), row.text + "\n\n"}) {
      const RegistryTree tree = parse(header + text).tree;
      if (tree.keys.size() != 1) {
        ADD_FAILURE() << tree.keys.size() << " roots";
        continue;
      }
      EXPECT_TRUE(same_name(tree.keys[0].name, u"HKEY_LOCAL_MACHINE"));
      EXPECT_TRUE(tree.keys[0].keys == row.below);
    }
  }
}

TEST(RegistryExport, KnowsFiveRootsAndKeepsTheirOrder) {
  const RegistryTree tree = parse(header +
                                  "[HKEY_USERS]\n[hkey_current_config]\n[HKEY_CLASSES_ROOT\\a]\n"
                                  "[HKEY_CURRENT_USER]\n[HKEY_LOCAL_MACHINE]\n[HKEY_USERS\\b]\n")
                                .tree;
  const std::vector<TreeKey> roots = {key_of(u"HKEY_USERS", {key_of(u"b")}), key_of(u"hkey_current_config"),
                                      key_of(u"HKEY_CLASSES_ROOT", {key_of(u"a")}),
                                      key_of(u"HKEY_CURRENT_USER"), key_of(u"HKEY_LOCAL_MACHINE")};
  EXPECT_TRUE(tree.keys == roots);
  // Removing a key makes none.
  EXPECT_TRUE(parse(header + "[-HKEY_LOCAL_MACHINE\\a]\n").tree == RegistryTree{});
}

// A path of so many levels, the root among them.
std::string path_of_levels(std::size_t levels) {
  std::string path = "HKEY_LOCAL_MACHINE";
  for (std::size_t level = 1; level < levels; ++level) path += "\\k";
  return path;
}

std::size_t depth_of(const TreeKey& key) {
  std::size_t deepest = 0;
  for (const TreeKey& child : key.keys) deepest = std::max(deepest, depth_of(child));
  return deepest + 1;
}

TEST(RegistryExport, ReadsAndWritesKeysOf512LevelsAndNamesOf16383Characters) {
  const RegistryTree deep = parse(header + "[" + path_of_levels(512) + "]\n").tree;
  EXPECT_EQ(depth_of(deep), 513u);
  EXPECT_TRUE(parse(format_export(deep, plain)).tree == deep);
  const RegistryTree named = parse(header + key_line + "\"" + std::string(16383, 'n') + "\"=hex:01\n").tree;
  EXPECT_TRUE(named == tree_of({std::u16string(16383, u'n'), 3, "\1"}));
  EXPECT_TRUE(parse(format_export(named, plain)).tree == named);
}

struct Rejects {
  std::size_t line;
  std::string why;
  std::vector<std::string> texts;
};

const std::string no_header = "the first line is not \"Windows Registry Editor Version 5.00\"";
const std::string stray_return = "a carriage return without a line feed";
const std::string bad_byte = "a byte that is not two hexadecimal digits";
const std::string bad_dword = "a dword that is not eight hexadecimal digits";
const std::string bad_type = "a type that is not one to eight hexadecimal digits in brackets";
const std::string bad_escape = "a backslash in quotes with nothing to stand for";
const std::string cut_short = "the file ends in the middle of a line";
const std::string no_root = "a key below none of the five roots";
const std::string empty_name = "an empty name in a key's path";
const std::string open_quote = "a quote that is not closed";
const std::string unknown_line = "neither a key nor a value nor a comment";
const std::string unknown_value = "a value that is no text, dword or hex";
const std::string behind_key = "more text behind a key";
const std::string behind_value = "more text behind a value";
const std::string no_key = "a value without a key";
const std::string not_utf8 = "text that is not UTF-8";
const std::string nul = "a NUL character";

void expect_trouble(const Rejects& row, const std::string& before) {
  for (const std::string& text : row.texts) {
    SCOPED_TRACE(::testing::PrintToString(text.substr(0, 60)));
    const auto result = parse_export(before + text);
    const auto* trouble = std::get_if<ExportTrouble>(&result);
    if (trouble == nullptr) {
      ADD_FAILURE() << "was read";
      continue;
    }
    EXPECT_EQ(trouble->line, row.line);
    EXPECT_EQ(trouble->why, row.why);
  }
}

// Whole files.
const Rejects file_rejects[] = {
    {1,
     no_header,
     {"", "\n", "\xEF\xBB\xBF", "\xFF\xFE", "W", "REGEDIT4\n", "Windows Registry Editor Version 5.0",
      "Windows Registry Editor Version 5.000", "Windows Registry Editor Version 5.00 \n", " " + header,
      "\n" + header, "windows Registry Editor Version 5.00\n", "\xEF\xBB\xBF\xEF\xBB\xBF" + header}},
    {1, "the file ends in the middle of a line", {"Windows Registry Editor Version 5.00"}},
    {1,
     stray_return,
     {"Windows Registry Editor Version 5.00\r", "Windows Registry Editor Version 5.00\r\r\n"}},
    {1, "big-endian UTF-16", {"\xFE\xFF\0W"s}},
    {1, "the file ends in the middle of a UTF-16 character", {"\xFF\xFEW", "W\0i"s}},
    {3, "the file ends in the middle of a UTF-16 character", {"\xFF\xFE" + little_endian(u"W\n\n") + "W"}},
    {1, nul, {"\0"s}},
    {2, nul, {"\xFF\xFE" + little_endian(u"Windows Registry Editor Version 5.00\n\0\n"sv)}},
    {1, not_utf8, {"\xFF", "\xEF\xBB"}},
};

// Behind the first line. Characters are checked before lines.
const Rejects rejects[] = {
    {2, nul, {"\0\n"s}},
    {3, nul, {"[HKEY_LOCAL_MACHINE\\a]\n\"n\"=\"\0\"\n"s}},
    {3, not_utf8, {"\n;\xC3\n", "x\n\xFF"}},
    {4, not_utf8, {"\n\n\xED\xA0\x80"}},
    {2, not_utf8, {"\xFF\nx"}},
    {2, stray_return, {"\r", " \r \n", ";a\rb\n", ";a\r", "[HKEY_LOCAL_MACHINE\\a]\r"}},
    {3,
     stray_return,
     {"[HKEY_LOCAL_MACHINE\\a]\n\"n\"=hex:01\r", "[HKEY_LOCAL_MACHINE\\a]\n\"n\"=hex:01,\\\r02"}},
    {2, unknown_line, {"x", " x=1\n", "#", "n=\"x\"", "]", "\x0C\n"}},
    {2, "a key without its closing bracket", {"["}},
    {3, "a key without its closing bracket", {"\n[HKEY_LOCAL_MACHINE\\a\n]"}},
    {2, cut_short, {"[HKEY_LOCAL_MACHINE\\a]", "; comment"}},
    {2,
     no_root,
     {"[]", "[-]", "[HKLM\\a]", "[\\HKEY_LOCAL_MACHINE]", "[ HKEY_LOCAL_MACHINE\\a]",
      "[- HKEY_LOCAL_MACHINE\\a]", "[HKEY_LOCAL_MACHINE2\\a]", "[--HKEY_LOCAL_MACHINE\\a]"}},
    {2,
     empty_name,
     {"[HKEY_LOCAL_MACHINE\\]", "[HKEY_LOCAL_MACHINE\\a\\]", "[HKEY_LOCAL_MACHINE\\\\a]",
      "[-HKEY_LOCAL_MACHINE\\\\a]"}},
    {2,
     "a key's name of more than 255 characters",
     {"[HKEY_LOCAL_MACHINE\\" + std::string(256, 'a') + "]",
      "[HKEY_USERS\\" + std::string(256, 'a') + "\\b]"}},
    {2,
     "a key more than 512 levels deep",
     {"[" + path_of_levels(513) + "]", "[-" + path_of_levels(513) + "]"}},
    {2, "a root cannot be removed", {"[-HKEY_LOCAL_MACHINE]", "[-hkey_users]\n"}},
    {2, behind_key, {"[HKEY_LOCAL_MACHINE\\a] x", "[HKEY_LOCAL_MACHINE\\a];\n"}},
    {2, no_key, {"@=\"x\"", "\"n\"=-", "\"n"}},
    {3, no_key, {"[-HKEY_LOCAL_MACHINE\\a]\n\"n\"=\"x\""}},
    {4, no_key, {"[HKEY_LOCAL_MACHINE\\a]\n[-HKEY_LOCAL_MACHINE\\b]\n\"n\"=\"x\""}},
};

// Behind a key's line, which is the second.
const Rejects value_rejects[] = {
    {3, "no = behind a value's name", {"@", "@@=\"x\"", "\"n\"", "\"n\"\n=\"x\"", "\"n\":\"x\""}},
    {4, "no = behind a value's name", {"\"n\n\" x"}},
    {3,
     unknown_value,
     {"\"n\"=", "\"n\"=\n\"x\"", "\"n\"==\"x\"", "\"n\"=x", "\"n\"='x'", "\"n\"=dword", "\"n\"=DWORD:1",
      "\"n\"=Hex:1", "\"n\"=hex :1", "\"n\"=qword:1"}},
    {3,
     bad_dword,
     {"\"n\"=dword:", "\"n\"=dword: 1", "\"n\"=dword:123456789", "\"n\"=dword:000000001", "\"n\"=dword:g",
      "\"n\"=dword:-1", "\"n\"=dword:1\n", "\"n\"=dword:1234567\n", "\"n\"=dword:0x1"}},
    {3,
     behind_value,
     {"\"n\"=dword:00000001g", "\"n\"=hex:01\\\n,02", "\"n\"=hex:01 ,02", "\"n\"=hex: 1", "\"n\"=hex:01x",
      "\"n\"=\"x\"y", "\"n\"=\"x\" \"y\"", "\"n\"=--", "@=-x"}},
    {3,
     cut_short,
     {"\"n\"=dword:00000001", "\"n\"=\"x\"", "\"n\"=\"x\" ;c", "\"n\"=hex:", "\"n\"=hex:01 ", "@=-", " ",
      "\"n\"=hex:01,\\", "\"n\"=hex:\\ \t"}},
    {3,
     bad_byte,
     {"\"n\"=hex:1\n", "\"n\"=hex:01,2\n", "\"n\"=hex:x", "\"n\"=hex:100", "\"n\"=hex:,", "\"n\"=hex:01,",
      "\"n\"=hex:01,\n02", "\"n\"=hex:01,,02", "\"n\"=hex:01, 2", "\"n\"=hex:01,;"}},
    {3,
     bad_escape,
     {"\"n\"=\"C:\\new\"\n", "\"n\"=\"\\r\"\n", "\"n\"=\"\\0\"\n", "\"\\n\"=\"x\"", "\"\\r\"=\"x\"",
      "\"\\0\"=\"x\"", "\"n\"=\"\\x\"", "\"n\"=\"\\t\"", "\"n\"=\"\\\n\""}},
    {3,
     bad_type,
     {"\"n\"=hex(", "\"n\"=hex():01", "\"n\"=hex(1", "\"n\"=hex(1)1", "\"n\"=hex(1:01", "\"n\"=hex(g):01",
      "\"n\"=hex(123456789):01"}},
    {4, bad_byte, {"\"n\"=hex:01,\\\n\n02", "\"n\"=hex:\\\n;\n", "\"n\"=hex:01,\\\n100"}},
    {3, "a backslash in the middle of a line", {"\"n\"=hex:01,\\02", "\"n\"=hex:01,\\ ;\n02"}},
    {4, "the file ends behind a backslash", {"\"n\"=hex:01,\\\n  "}},
    {3, open_quote, {"\"n", "\"n\\\"=1\n\n", "\"n\"=\"", "\"n\"=\"x\\"}},
    {4, open_quote, {"\n\"n\"=\"x\n\n\\\"\n"}},
    {4, bad_escape, {"\"n\"=\"\n\\ \""}},
    {3, "a value's name of more than 16383 characters", {"\"" + std::string(16384, 'n') + "\"=hex:01"}},
};

TEST(RegistryExport, RefusesWhatIsNotTheFormat) {
  for (const Rejects& row : file_rejects) expect_trouble(row, "");
  for (const Rejects& row : rejects) expect_trouble(row, header);
  for (const Rejects& row : value_rejects) expect_trouble(row, header + key_line);
}

TEST(RegistryExport, RecognisesTheFormOfAFile) {
  const std::string text = header + key_line;
  for (const ExportForm& form : forms) {
    SCOPED_TRACE(testing::Message() << form.utf16 << form.byte_order_mark << form.carriage_returns);
    const ParsedExport parsed = parse(in_form(text, form));
    EXPECT_TRUE(same_form(parsed.form, form));
    EXPECT_TRUE(parsed.tree == parse(text).tree);
  }
  EXPECT_TRUE(parse("Windows Registry Editor Version 5.00\r\n\n").form.carriage_returns);
  EXPECT_FALSE(parse("Windows Registry Editor Version 5.00\n\r\n").form.carriage_returns);
}

// As the registry editor of Windows writes it, but for the line ends and the encoding.
const std::string sample = header + R"reg(
[HKEY_LOCAL_MACHINE\SOFTWARE\Sample]
@="the default"
"text"="C:\\Folder\\\"quoted\" ä 🔊"
"empty"=""
"number"=dword:0000002a
"binary"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,\
  16,17,18,19,1a,1b,1c,1d,1e,1f,20,21,22,23,24,25,26,27,28,29,2a,2b,2c,2d,2e,\
  2f,30
"nothing"=hex:
"list"=hex(7):61,00,00,00,62,00,00,00,00,00
"expand"=hex(2):25,00,00,00
"wide"=hex(b):01,00,00,00,00,00,00,00
"none"=hex(0):
"odd"=hex(1):61
"short"=hex(4):01,02
"mine"=hex(ffff000b):ff

[HKEY_LOCAL_MACHINE\SOFTWARE\Sample\a]b]

[HKEY_LOCAL_MACHINE\SOFTWARE\Sample\a]b\below]
"a\\\"b"=dword:00000001

[HKEY_LOCAL_MACHINE\SOFTWARE\Other]

[HKEY_USERS]

[HKEY_CURRENT_USER]
"n"="in a root"

[HKEY_CURRENT_USER\k]

)reg";

TEST(RegistryExport, WritesAFileBackAsItWas) {
  // In one of the two the keys above the first have lines of their own, in the other they have not.
  std::string whole = sample;
  whole.insert(header.size() + 1, "[HKEY_LOCAL_MACHINE]\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE]\n\n");
  for (const ExportForm& form : forms) {
    SCOPED_TRACE(testing::Message() << form.utf16 << form.byte_order_mark << form.carriage_returns);
    for (const std::string& text : {sample, whole}) {
      const ParsedExport parsed = parse(in_form(text, form));
      EXPECT_TRUE(same_form(parsed.form, form));
      EXPECT_EQ(format_export(parsed.tree, parsed.form), in_form(text, form));
    }
  }
}

// A file of tests/machines/.
std::string read_machine(const char* name) {
  std::ifstream file(std::filesystem::path(VELMORA_MACHINES) / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(RegistryExport, WritesTheMachinesThatComeWithItBackAsTheyAre) {
  const std::string laptop = read_machine("laptop.reg");
  ASSERT_GT(laptop.size(), 20'000u);
  const struct {
    std::string_view bytes;
    bool carriage_returns;
  } rows[] = {{builtin_machine, false}, {laptop, true}};
  for (const auto& row : rows) {
    const ParsedExport parsed = parse(row.bytes);
    EXPECT_TRUE(same_form(parsed.form, {false, false, row.carriage_returns}));
    EXPECT_TRUE(format_export(parsed.tree, parsed.form) == row.bytes);
  }
}

// The text of a value in the built-in machine without its terminator.
std::u16string builtin_text(std::u16string_view path, std::u16string_view name, std::uint32_t type) {
  const RegistryTree tree = parse(builtin_machine).tree;
  const TreeKey* key = find_key(tree, u"HKEY_LOCAL_MACHINE\\" + std::u16string(path));
  const TreeValue* value = key == nullptr ? nullptr : find_value(*key, name);
  if (value == nullptr || value->type != type || value->bytes.size() % 2 != 0) return u"(none)";
  std::u16string text;
  for (std::size_t index = 0; index < value->bytes.size(); index += 2) {
    text += static_cast<char16_t>(static_cast<unsigned char>(value->bytes[index]) |
                                  static_cast<unsigned char>(value->bytes[index + 1]) << 8);
  }
  return text;
}

TEST(RegistryExport, GivesTheBuiltInMachineTheServicesThatAudioNeeds) {
  const std::u16string services = u"SYSTEM\\CurrentControlSet\\Services\\";
  EXPECT_EQ(builtin_text(services + u"Audiosrv", u"DependOnService", 7),
            u"AudioEndpointBuilder\0RpcSs\0\0"sv);
  EXPECT_EQ(builtin_text(services + u"AudioEndpointBuilder", u"DependOnService", 7), u"PlugPlay\0\0"sv);
  EXPECT_EQ(builtin_text(services + u"SonicMonitor", u"DependOnService", 7), u"Audiosrv\0\0"sv);
  for (const auto* name : {u"Audiosrv", u"AudioEndpointBuilder", u"PlugPlay", u"RpcSs", u"SonicMonitor"}) {
    SCOPED_TRACE(::testing::PrintToString(std::u16string_view(name)));
    EXPECT_GT(builtin_text(services + name, u"DisplayName", 1).size(), 7u);
  }
  EXPECT_EQ(builtin_text(u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", u"SystemRoot", 1),
            u"C:\\Windows\0"sv);
  EXPECT_EQ(builtin_text(u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion", u"ProgramFilesDir", 1),
            u"C:\\Program Files\0"sv);
}

TEST(RegistryExport, GivesTheBuiltInMachineThreeEndpointsAndOneDriversEffect) {
  const std::u16string audio = u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\";
  const RegistryTree tree = parse(builtin_machine).tree;
  std::vector<std::u16string> labels;
  std::vector<std::u16string> effects;
  for (const std::u16string side : {u"Render\\", u"Capture\\"}) {
    const TreeKey* list = find_key(tree, u"HKEY_LOCAL_MACHINE\\" + audio + side.substr(0, side.size() - 1));
    ASSERT_NE(list, nullptr);
    for (const TreeKey& endpoint : list->keys) {
      const std::u16string path = audio + side + endpoint.name;
      EXPECT_EQ(endpoint.name.size(), 38u);
      EXPECT_NE(find_key(endpoint, u"FxProperties"), nullptr);
      EXPECT_EQ(builtin_text(path, u"DeviceState", 4), u"\1\0"sv);
      labels.push_back(builtin_text(path + u"\\Properties", u"{a45c254e-df1c-4efd-8020-67d146a850e0},2", 1));
      effects.push_back(
          builtin_text(path + u"\\FxProperties", u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},6", 1));
    }
  }
  const std::u16string driver(u"{9063CBD4-3561-449D-8011-E21BBB69B9DB}\0"sv);
  EXPECT_EQ(labels,
            (std::vector<std::u16string>{std::u16string(u"Speakers\0"sv), std::u16string(u"Headphones\0"sv),
                                         std::u16string(u"Microphone\0"sv)}));
  EXPECT_EQ(effects, (std::vector<std::u16string>{driver, u"(none)", u"(none)"}));
}

struct WriteRow {
  TreeValue value;
  std::string text;
};

const WriteRow write_rows[] = {
    {{u"", 1, "\0\0"s}, "@=\"\""},
    {{u"n", 1, "a\0\0\0"s}, "\"n\"=\"a\""},
    {{u"\\\"", 1, little_endian(u"\"\\\0"sv)}, "\"\\\\\\\"\"=\"\\\"\\\\\""},
    {{u"n", 1, little_endian(u"\x7F\u0080\uFFFF\0"sv)}, "\"n\"=\"\x7F\xC2\x80\xEF\xBF\xBF\""},
    // Texts that quotes would not bring back.
    {{u"n", 1, ""}, "\"n\"=hex(1):"},
    {{u"n", 1, "a"}, "\"n\"=hex(1):61"},
    {{u"n", 1, "\0"s}, "\"n\"=hex(1):00"},
    {{u"n", 1, "a\0"s}, "\"n\"=hex(1):61,00"},
    {{u"n", 1, "a\0\0\0\0"s}, "\"n\"=hex(1):61,00,00,00,00"},
    {{u"n", 1, "\0\0\0\0"s}, "\"n\"=hex(1):00,00,00,00"},
    {{u"n", 1, "\0\0a\0\0\0"s}, "\"n\"=hex(1):00,00,61,00,00,00"},
    {{u"n", 1, "\n\0\0\0"s}, "\"n\"=hex(1):0a,00,00,00"},
    {{u"n", 1, "\r\0\0\0"s}, "\"n\"=hex(1):0d,00,00,00"},
    {{u"n", 1, "\t\0\0\0"s}, "\"n\"=\"\t\""},
    {{u"n", 1, "\r\0\n\0\0\0"s}, "\"n\"=\"\r\n\""},
    {{u"n", 1, "\n\0\r\0\0\0"s}, "\"n\"=hex(1):0a,00,0d,00,00,00"},
    {{u"n", 1, "\x1F\0\0\0"s}, "\"n\"=hex(1):1f,00,00,00"},
    {{u"n", 1, " \0\0\0"s}, "\"n\"=\" \""},
    {{u"n", 1, "\0\xD8\0\0"s}, "\"n\"=hex(1):00,d8,00,00"},
    {{u"n", 1, "\0\xDC\0\xD8\0\0"s}, "\"n\"=hex(1):00,dc,00,d8,00,00"},
    {{u"n", 1, "\0\xD8\0\xDC\0\0"s}, "\"n\"=\"\xF0\x90\x80\x80\""},
    {{u"n", 2, "a\0\0\0"s}, "\"n\"=hex(2):61,00,00,00"},
    {{u"n", 4, "\xFF\x01\0\0"s}, "\"n\"=dword:000001ff"},
    {{u"n", 4, "\0\0\0\x80"s}, "\"n\"=dword:80000000"},
    {{u"n", 4, "\1\2\3"}, "\"n\"=hex(4):01,02,03"},
    {{u"n", 4, ""}, "\"n\"=hex(4):"},
    {{u"n", 5, "\1\2\3\4"}, "\"n\"=hex(5):01,02,03,04"},
    {{u"n", 3, "\xFF"}, "\"n\"=hex:ff"},
    {{u"n", 0, "\xFF"}, "\"n\"=hex(0):ff"},
    {{u"n", 10, ""}, "\"n\"=hex(a):"},
    {{u"n", 0xFFFFFFFF, ""}, "\"n\"=hex(ffffffff):"},
};

std::string file_of(std::string_view value_line) {
  return header + "\n" + key_line + std::string(value_line) + "\n\n";
}

TEST(RegistryExport, WritesEachKindOfValue) {
  for (const WriteRow& row : write_rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(format_export(tree_of(row.value), plain), file_of(row.text));
    EXPECT_TRUE(parse(file_of(row.text)).tree == tree_of(row.value));
  }
}

struct WrapRow {
  std::size_t name_units;
  std::size_t bytes;
  std::vector<std::size_t> columns;  // of each line
};

// A line of bytes is full with 77 columns or more, the comma among them; then comes a backslash. The name's
// quotes and
// `=hex:` are 7 columns.
const WrapRow wrap_rows[] = {{1, 23, {8 + 68}},         // as much as fits
                             {1, 24, {8 + 69 + 1, 4}},  // the 23rd comma is column 77
                             {1, 25, {8 + 69 + 1, 7}},
                             {3, 22, {10 + 65}},
                             {3, 23, {10 + 68}},          // the 22nd comma is column 76: one more byte
                             {3, 24, {10 + 69 + 1, 4}},   // and the 23rd is column 79
                             {2, 24, {9 + 69 + 1, 4}},    // 78
                             {4, 24, {11 + 66 + 1, 7}},   // 77 again
                             {1, 23 + 25, {78, 2 + 74}},  // further lines are full behind 25 bytes
                             {1, 23 + 26, {78, 2 + 75 + 1, 4}},
                             {66, 2, {73 + 3 + 2}},
                             {67, 2, {74 + 3 + 1, 4}},
                             {200, 3, {207 + 3 + 1, 7}},
                             {200, 1, {207 + 2}},
                             {200, 0, {207}}};

TEST(RegistryExport, WrapsListsOfBytesAsTheRegistryEditorDoes) {
  for (const WrapRow& row : wrap_rows) {
    SCOPED_TRACE(testing::Message() << row.name_units << " " << row.bytes);
    const RegistryTree tree =
        tree_of({std::u16string(row.name_units, u'n'), 3, std::string(row.bytes, '\1')});
    std::string text = format_export(tree, plain);
    text = text.substr(text.find(key_line) + key_line.size());
    std::vector<std::size_t> columns;
    for (std::size_t end = text.find('\n'); end != 0; end = text.find('\n')) {
      columns.push_back(end);
      text.erase(0, end + 1);
    }
    EXPECT_EQ(columns, row.columns);
  }
}

TEST(RegistryExport, WritesAKeyThatWasOnlyImpliedOnceNothingImpliesItAnyMore) {
  RegistryTree tree = parse(header + "\n[HKEY_LOCAL_MACHINE\\a\\b]\n").tree;
  make_key(tree, u"HKEY_LOCAL_MACHINE\\c\\d");
  EXPECT_EQ(format_export(tree, plain), header +
                                            "\n[HKEY_LOCAL_MACHINE\\a\\b]\n\n[HKEY_LOCAL_MACHINE\\c]\n\n"
                                            "[HKEY_LOCAL_MACHINE\\c\\d]\n\n");
  ASSERT_TRUE(remove_key(tree, u"HKEY_LOCAL_MACHINE\\a\\b"));
  ASSERT_TRUE(remove_key(tree, u"HKEY_LOCAL_MACHINE\\c\\d"));
  EXPECT_EQ(format_export(tree, plain), header + "\n[HKEY_LOCAL_MACHINE\\a]\n\n[HKEY_LOCAL_MACHINE\\c]\n\n");
}

TEST(RegistryExport, WritesARootOnlyWhereItHoldsValuesOrNoKeys) {
  const TreeKey below = key_of(u"k");
  const RegistryTree tree{u"",
                          {},
                          {{u"HKEY_LOCAL_MACHINE", {}, {below}},
                           {u"HKEY_USERS", {}, {}},
                           {u"HKEY_CURRENT_USER", {one}, {below}}}};
  EXPECT_EQ(format_export(tree, plain),
            header +
                "\n[HKEY_LOCAL_MACHINE\\k]\n\n[HKEY_USERS]\n\n"
                "[HKEY_CURRENT_USER]\n\"n\"=hex:01\n\n[HKEY_CURRENT_USER\\k]\n\n");
  EXPECT_EQ(format_export({}, plain), header + "\n");
}

TEST(RegistryExport, KeepsUnpairedSurrogatesThatUtf16Brought) {
  const std::u16string text =
      u"Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\K]\n\"\xDC00\"=\"\xD800\"\n";
  const RegistryTree tree = parse(little_endian(text)).tree;
  EXPECT_TRUE(tree == tree_of({u"\xDC00", 1, "\0\xD8\0\0"s}));
  // No name of a file in UTF-8 can hold one.
  for (const ExportForm& form : forms) {
    const ParsedExport again = parse(format_export(tree, form));
    EXPECT_TRUE(again.form.utf16);
    EXPECT_TRUE(again.tree == tree);
  }
}

TEST(RegistryExport, ReadsEachPrefixOfAFileOrSaysWhatIsWrong) {
  for (const ExportForm& form : forms) {
    const std::string whole = in_form(sample, form);
    std::size_t read = 0;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
      SCOPED_TRACE(size);
      const std::unique_ptr<char[]> block(new char[size]);
      std::copy_n(whole.data(), size, block.get());
      const auto result = parse_export({block.get(), size});
      if (const auto* trouble = std::get_if<ExportTrouble>(&result)) {
        EXPECT_GE(trouble->line, 1u);
        EXPECT_LE(trouble->line, 1u + static_cast<std::size_t>(std::count(whole.begin(), whole.end(), '\n')));
        EXPECT_FALSE(trouble->why.empty());
      } else {
        ++read;
      }
    }
    // Many are files of their own: those that end behind a line, a byte of a list, a digit of a dword.
    EXPECT_GT(read, 20u);
    EXPECT_LT(read, whole.size() / 2);
  }
}

// Random trees within the bounds, without two keys or values of one name.
class Forest {
 public:
  explicit Forest(std::uint32_t seed) : random_(seed) {}

  RegistryTree tree() {
    RegistryTree tree;
    for (const auto* root : {u"HKEY_LOCAL_MACHINE", u"HKEY_USERS", u"hkey_current_user"}) {
      if (below(4) != 0) fill(make_key(tree, root, KeyPlace::last), 1 + below(4));
    }
    return tree;
  }

 private:
  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_);
  }

  std::u16string name(std::u16string_view alphabet, std::size_t shortest) {
    std::u16string text;
    const std::size_t size = shortest + (below(10) == 0 ? below(255) : below(6));
    while (text.size() < size) text += alphabet[below(alphabet.size())];
    return text;
  }

  std::string bytes() {
    std::string bytes;
    const std::size_t size = below(8) == 0 ? below(400) : below(9);
    while (bytes.size() < size) bytes += static_cast<char>(below(2) == 0 ? below(256) : below(2));
    return bytes;
  }

  void fill(TreeKey& key, std::size_t depth) {
    for (std::size_t count = below(5); count > 0; --count) {
      const std::uint32_t types[] = {0, 1, 1, 2, 3, 4, 7, 11, 0xFFFFFFFF};
      const std::uint32_t type = types[below(std::size(types))];
      std::string data = bytes();
      if (type == 1 && below(2) == 0) data = little_endian(name(letters_, 0)) + "\0\0"s;
      if (type == 4 && below(2) == 0) data.resize(4);
      put_value(key, name(letters_, 0), type, data);
    }
    if (depth == 0) return;
    for (std::size_t count = below(4); count > 0; --count) {
      fill(make_key(key, name(key_letters_, 1), KeyPlace::last), depth - 1);
    }
  }

  static constexpr std::u16string_view letters_ =
      u"aAbZ09\\\"'=[]-;@ ,\t\r\n\x01\x7F\u00E4\u20AC\uFEFF\uFFFF";
  static constexpr std::u16string_view key_letters_ = u"aAbZ09\"'=[]-;@ ,\t\x01\x7F\u00E4\u20AC\uFEFF\uFFFF";
  std::mt19937 random_;
};

TEST(RegistryExport, ReadsBackEveryTreeThatItHasWritten) {
  std::size_t largest = 0;
  for (std::uint32_t seed = 1; seed <= 200; ++seed) {
    const RegistryTree tree = Forest(seed).tree();
    for (const ExportForm& form : forms) {
      SCOPED_TRACE(testing::Message() << "seed " << seed << ", UTF-16 " << form.utf16);
      const std::string bytes = format_export(tree, form);
      const ParsedExport parsed = parse(bytes);
      EXPECT_TRUE(parsed.tree == tree);
      EXPECT_TRUE(same_form(parsed.form, form));
      EXPECT_TRUE(format_export(parsed.tree, parsed.form) == bytes);
      largest = std::max(largest, bytes.size());
    }
  }
  EXPECT_GT(largest, 10'000u);
}

}  // namespace
}  // namespace velmora::hosted
