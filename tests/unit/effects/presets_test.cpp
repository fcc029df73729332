#include "effects/presets.h"

#include <gtest/gtest.h>

#include <vector>

#include "capture/capture_directory.h"
#include "capture/preset_directory.h"
#include "effects/equalizer.h"
#include "platform/registry.h"
#include "unit/support/fresh_machine.h"
#include "unit/support/split.h"

namespace velmora {
namespace {

using Log = std::vector<std::string>;
using memory::File;

const std::string directory = "C:\\Velmora\\presets";
const std::string replacement = "\xEF\xBF\xBD";  // U+FFFD

std::map<std::string, File>& files() { return memory::system().files; }
Log& log() { return memory::system().log; }

using Presets = FreshMachine;

void make_directory() { files()[directory] = {FileKind::directory, ""}; }
void put_file(const std::string& file_name, const File& file) {
  files()[directory + "\\" + file_name] = file;
}

std::string text_of(const EqSettings& settings) {
  std::string text;
  write_eq_json(text, settings);
  return text;
}

TEST(PresetName, AllowsLettersDigitsBlanksDashesUnderscoresAndBytesFrom0x80) {
  for (const std::string& name : std::vector<std::string>{
           "normal", "with-dash_1", "with space", "\xE4\xB8\xAD\xE6\x96\x87", std::string(64, 'a'), "a", "-",
           "_", "7", "a  b", "NUL", "CON", "COM1", "\xFF", "\x80\x80",
           "\xC2\xA0x\xC2\xA0",  // no blank, but two bytes
           std::string(64, '\xE4')}) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(preset_name_valid(name));
  }
}

TEST(PresetName, RefusesAnythingElse) {
  std::vector<std::string> names = split(
      "|.|..|../escape|..\\escape|with/slash|with:colon|with*star|with?query|trailing.|trailing | leading| "
      "|a.b|.a|"
      "with\"quote|with<lt|with>gt|tab\there|a\n|\x7F",
      '|');
  std::string letters_of_66_bytes;
  for (int letter = 0; letter < 22; ++letter) letters_of_66_bytes += "\xE4\xB8\xAD";
  names.insert(names.end(), {"a|b", std::string("a\0b", 3), std::string(65, 'a'), letters_of_66_bytes});
  for (const std::string& name : names) EXPECT_FALSE(preset_name_valid(name)) << name;
}

TEST(PresetName, IsCheckedByteByByte) {
  const std::string_view allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";
  for (int value = 0; value < 256; ++value) {
    SCOPED_TRACE(value);
    const char byte = static_cast<char>(value);
    const bool expected = value >= 0x80 || allowed.find(byte) != std::string_view::npos;
    EXPECT_EQ(preset_name_valid(std::string(1, byte)), expected);
    EXPECT_EQ(preset_name_valid(std::string("a") + byte), expected);
    EXPECT_EQ(preset_name_valid(byte + std::string("a")), expected);
    EXPECT_EQ(preset_name_valid(std::string("a") + byte + "a"), expected || byte == ' ');
  }
}

void set_registry_text(std::u16string_view text) {
  hosted::RegistryTree& registry = memory::system().state.registry;
  std::string bytes(text.size() * 2, '\0');
  std::copy_n(reinterpret_cast<const char*>(text.data()), bytes.size(), bytes.begin());
  hosted::put_value(hosted::make_key(registry, u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmora"), u"CaptureDirectory",
                    reg_sz, bytes + std::string(2, '\0'));
}

TEST_F(Presets, AreInTheDirectoryOfTheOption) {
  preset_directory_override = "D:\\mine\\";
  capture_directory_override = "E:\\wav";
  set_registry_text(u"F:\\wav");
  EXPECT_EQ(preset_directory(), "D:\\mine\\");
  EXPECT_EQ(log(), Log{});
}

TEST_F(Presets, AreBesideTheCapturesByDefault) {
  const std::pair<std::string, std::string> rows[] = {
      {"E:\\data\\wav", "E:\\data\\presets"},        {"E:\\wav", "E:\\presets"}, {"E:\\", "E:\\presets"},
      {"E:\\data\\wav\\", "E:\\data\\wav\\presets"},  // a separator at the end is an empty last name
      {"/var/velmora/wav", "/var/velmora/presets"},  {"wav", "presets"},
  };
  for (const auto& [captures, presets] : rows) {
    capture_directory_override = captures;
    EXPECT_EQ(preset_directory(), presets);
  }
  EXPECT_EQ(log(), Log{});
}

TEST_F(Presets, FollowTheCaptureDirectoryOfTheRegistry) {
  EXPECT_EQ(preset_directory(), "C:\\ProgramData\\Velmora\\presets");
  set_registry_text(u"F:\\a\\wav");
  EXPECT_EQ(preset_directory(), "F:\\a\\presets");
  set_registry_text(u"G:\\\x4E2D\\wav");
  EXPECT_EQ(preset_directory(), "G:\\\xE4\xB8\xAD\\presets");
}

TEST_F(Presets, AreListedAsNoneWithoutAReadableDirectory) {
  EXPECT_EQ(list_presets(directory), R"({"presets":[]})");
  make_directory();
  EXPECT_EQ(list_presets(directory), R"({"presets":[]})");
  put_file("a.json", {});
  memory::system().faults["FindFirstFileW"] = {5};
  EXPECT_EQ(list_presets(directory), R"({"presets":[]})");
  EXPECT_EQ(list_presets(directory), R"({"presets":["a"]})");
  files()[directory] = {FileKind::regular, "x"};
  EXPECT_EQ(list_presets(directory), R"({"presets":[]})");
  EXPECT_EQ(calls_of("CreateDirectoryW"), 0);
}

TEST_F(Presets, AreListedInTheOrderOfTheDirectory) {
  make_directory();
  for (const std::string name : {"b", "a", "a b", "a-b", "B", "10", "9"}) put_file(name + ".json", {});
  // Sorted by whole file names, as on this machine. The names without .json sort differently.
  EXPECT_EQ(list_presets(directory), R"({"presets":["10","9","B","a b","a-b","a","b"]})");
}

TEST_F(Presets, AreRegularFilesThatEndInJsonExactly) {
  make_directory();
  const File regular{FileKind::regular, "x"};
  for (const std::string name : {"A.JSON", "A.Json", "A.json.bak", "json", ".json", "Ajson", "A.jsonx",
                                 "A.json ", "A", "A.json5", "A.jso"}) {
    put_file(name, regular);
  }
  put_file("directory.json", {FileKind::directory, ""});
  put_file("pipe.json", {FileKind::other, ""});
  put_file("below", {FileKind::directory, ""});
  put_file("below\\deep.json", regular);
  files()["C:\\Velmora\\beside.json"] = regular;
  EXPECT_EQ(list_presets(directory), R"({"presets":[]})");
  put_file("empty.json", {FileKind::regular, ""});
  put_file("kept.json", regular);
  EXPECT_EQ(list_presets(directory), R"({"presets":["empty","kept"]})");
  EXPECT_EQ(calls_of("CreateFileW"), 0);
}

TEST_F(Presets, AreListedWithNamesThatCannotBeFetched) {
  make_directory();
  for (const std::string name : {"a.b", " a ", "..", ".hidden", "a.json", "..a"})
    put_file(name + ".json", {});
  put_file("..json", {});
  EXPECT_EQ(list_presets(directory), R"({"presets":[" a ","..","..a",".",".hidden","a.b","a.json"]})");
}

TEST_F(Presets, AreListedInWellFormedJson) {
  make_directory();
  put_file("1\"quote.json", {});
  put_file("2\n\t\x01.json", {});
  put_file("3\xC3\xA9\xE4\xB8\xAD.json", {});
  put_file("4\xFFx\xE4\xB8.json", {});  // each ill-formed stretch becomes one replacement
  EXPECT_EQ(list_presets(directory),
            "{\"presets\":[\"1\\\"quote\",\"2\\n\\t\\u0001\",\"3\xC3\xA9\xE4\xB8\xAD\",\"4" + replacement +
                "x" + replacement + "\"]}");
}

TEST_F(Presets, AreReadUnchanged) {
  make_directory();
  std::string bytes("not JSON\r\n\0\xFF", 12);
  for (const std::size_t size :
       {std::size_t{1}, std::size_t{4095}, std::size_t{4096}, std::size_t{4097}, std::size_t{100'000}}) {
    while (bytes.size() < size) bytes += static_cast<char>(bytes.size() * 31);
    put_file("a b.json", {FileKind::regular, bytes.substr(0, size)});
    EXPECT_EQ(read_preset(directory, "a b"), bytes.substr(0, size));
  }
}

TEST_F(Presets, AreNotReadWithoutARegularFile) {
  EXPECT_EQ(read_preset(directory, "a"), "");
  make_directory();
  EXPECT_EQ(read_preset(directory, "a"), "");
  put_file("a.json", {FileKind::directory, "x"});
  EXPECT_EQ(read_preset(directory, "a"), "");
  // Anything else is never opened: opening could block forever.
  put_file("a.json", {FileKind::other, "x"});
  EXPECT_EQ(read_preset(directory, "a"), "");
  EXPECT_EQ(log(), Log{});
  put_file("a.json", {FileKind::regular, ""});
  EXPECT_EQ(read_preset(directory, "a"), "");
  EXPECT_EQ(log(), Log{"CreateFileW"});
}

TEST_F(Presets, AreNotReadIfTheReadFails) {
  make_directory();
  put_file("a.json", {FileKind::regular, "bytes"});
  memory::system().faults["CreateFileW"] = {5};
  EXPECT_EQ(read_preset(directory, "a"), "");
  EXPECT_EQ(read_preset(directory, "a"), "bytes");
  for (const std::size_t size : {0u, 5u, 4096u, 5000u}) {
    put_file("a.json", {FileKind::regular, std::string(size, 'x'), 33});
    EXPECT_EQ(read_preset(directory, "a"), "") << size;
  }
}

TEST_F(Presets, AreWrittenIntoANewDirectory) {
  EqSettings settings;
  settings.fade_ms = 33.25f;
  settings.bands[3].freq_hz = 32.757877f;
  settings.revision = 5;
  ASSERT_TRUE(write_preset(directory, "a b", settings));
  EXPECT_EQ(files().at("C:\\Velmora").kind, FileKind::directory);
  EXPECT_EQ(files().at(directory).kind, FileKind::directory);
  const File& file = files().at(directory + "\\a b.json");
  EXPECT_EQ(file.kind, FileKind::regular);
  EXPECT_EQ(file.bytes, text_of(settings));
  EXPECT_EQ(file.bytes.substr(0, 41), R"({"bypass":true,"fade_ms":33.25,"bands":[{)");
  EXPECT_EQ(file.bytes.substr(file.bytes.size() - 3), "}]}");
  EXPECT_EQ(read_preset(directory, "a b"), file.bytes);
  EXPECT_EQ(list_presets(directory), R"({"presets":["a b"]})");
}

TEST_F(Presets, AreReplacedCompletely) {
  make_directory();
  put_file("a.json", {FileKind::regular, std::string(10'000, 'x')});
  ASSERT_TRUE(write_preset(directory, "a", {}));
  EXPECT_EQ(read_preset(directory, "a"), text_of({}));
}

TEST_F(Presets, UseOneFileNameForAllIllFormedSpellings) {
  ASSERT_TRUE(write_preset(directory, "a\xFF", {}));
  EXPECT_EQ(files().count(directory + "\\a" + replacement + ".json"), 1u);
  EXPECT_EQ(read_preset(directory, "a\xFE"), text_of({}));
  EXPECT_EQ(read_preset(directory, "a" + replacement), text_of({}));
  EXPECT_TRUE(delete_preset(directory, "a\xC0"));
  EXPECT_EQ(files().count(directory + "\\a" + replacement + ".json"), 0u);
}

TEST_F(Presets, AreWrittenIfTheDirectoryExists) {
  make_directory();
  memory::system().faults["CreateDirectoryW"] = {5};
  EXPECT_TRUE(write_preset(directory, "a", {}));
  EXPECT_EQ(read_preset(directory, "a"), text_of({}));
}

TEST_F(Presets, CannotBeWrittenWithoutADirectory) {
  memory::system().faults["CreateDirectoryW"] = {5};
  EXPECT_FALSE(write_preset(directory, "a", {}));
  EXPECT_TRUE(files().empty());
  files()[directory] = {FileKind::regular, "in its place"};
  EXPECT_FALSE(write_preset(directory, "a", {}));
  EXPECT_EQ(files().at(directory).bytes, "in its place");
  EXPECT_EQ(files().size(), 1u);
}

TEST_F(Presets, CannotBeWrittenIfTheFileCannotBeOpened) {
  memory::system().faults["CreateFileW"] = {32};
  put_file("a.json", {FileKind::regular, "former"});
  EXPECT_FALSE(write_preset(directory, "a", {}));
  EXPECT_EQ(files().at(directory + "\\a.json").bytes, "former");
}

TEST_F(Presets, ArePartialWhenTheDiskIsFull) {
  memory::system().faults["WriteFile"] = {112};
  EXPECT_FALSE(write_preset(directory, "a", {}));
  const std::string left = files().at(directory + "\\a.json").bytes;
  EXPECT_LT(left.size(), text_of({}).size());
  EXPECT_EQ(left, text_of({}).substr(0, left.size()));
  EXPECT_EQ(calls_of("DeleteFileW"), 0);
}

TEST_F(Presets, AreWrittenToRegularFilesOnly) {
  make_directory();
  for (const FileKind kind : {FileKind::directory, FileKind::other}) {
    put_file("a.json", {kind, "as it was"});
    EXPECT_FALSE(write_preset(directory, "a", {}));
    EXPECT_EQ(files().at(directory + "\\a.json").kind, kind);
    EXPECT_EQ(files().at(directory + "\\a.json").bytes, "as it was");
  }
  EXPECT_EQ(calls_of("CreateFileW"), 0);
}

TEST_F(Presets, AreDeletedOnce) {
  make_directory();
  put_file("a.json", {FileKind::regular, ""});
  put_file("b.json", {FileKind::regular, "b"});
  EXPECT_TRUE(delete_preset(directory, "a"));
  EXPECT_FALSE(delete_preset(directory, "a"));
  EXPECT_EQ(list_presets(directory), R"({"presets":["b"]})");
}

TEST_F(Presets, AreKeptIfTheSystemRefusesToDeleteThem) {
  make_directory();
  put_file("a.json", {FileKind::regular, "locked"});
  for (const std::int64_t error : {2, 3, 5, 32}) {
    memory::system().faults["DeleteFileW"] = {error};
    EXPECT_FALSE(delete_preset(directory, "a"));
    EXPECT_EQ(read_preset(directory, "a"), "locked");
  }
}

TEST_F(Presets, AreDeletedOnlyIfTheyAreRegularFiles) {
  EXPECT_FALSE(delete_preset(directory, "a"));
  make_directory();
  for (const FileKind kind : {FileKind::directory, FileKind::other}) {
    put_file("a.json", {kind, ""});
    EXPECT_FALSE(delete_preset(directory, "a"));
    EXPECT_EQ(files().at(directory + "\\a.json").kind, kind);
  }
  EXPECT_EQ(log(), Log{});
}

}  // namespace
}  // namespace velmora
