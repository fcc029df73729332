#include "capture/capture_directory.h"

#include <gtest/gtest.h>

#include <cstring>

#include "base/text.h"
#include "platform/registry.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

const std::string usual_directory = "C:\\ProgramData\\Velmora\\wav";
constexpr std::u16string_view our_key = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmora";

std::string bytes_of(std::u16string_view text) {
  std::string bytes(text.size() * sizeof(char16_t), '\0');
  std::memcpy(bytes.data(), text.data(), bytes.size());
  return bytes;
}

// A text as programs store it, with its terminator.
std::string stored_text(std::u16string_view text) { return bytes_of(std::u16string(text) + u'\0'); }

void put(std::u16string_view key, std::u16string_view name, std::uint32_t type, std::string_view bytes) {
  hosted::RegistryTree& registry = memory::system().state.registry;
  hosted::put_value(hosted::make_key(registry, key), name, type, bytes);
}

void put_directory(std::uint32_t type, std::string_view bytes) {
  put(our_key, u"CaptureDirectory", type, bytes);
}

using CaptureDirectory = FreshMachine;

TEST_F(CaptureDirectory, PrefersTheOption) {
  put_directory(reg_sz, stored_text(u"D:\\stored"));
  capture_directory_override = "given/directory";
  EXPECT_EQ(capture_directory(), "given/directory");
  EXPECT_TRUE(memory::system().log.empty());
}

TEST_F(CaptureDirectory, IsReadFromTheRegistry) {
  put_directory(reg_sz, stored_text(u"D:\\stored"));
  EXPECT_EQ(capture_directory(), "D:\\stored");
}

TEST_F(CaptureDirectory, HasADefault) {
  EXPECT_EQ(capture_directory(), usual_directory);
  hosted::make_key(memory::system().state.registry, our_key);
  EXPECT_EQ(capture_directory(), usual_directory);
  put(our_key, u"CaptureDirectories", reg_sz, stored_text(u"D:\\other"));
  put(our_key, u"", reg_sz, stored_text(u"D:\\other"));
  EXPECT_EQ(capture_directory(), usual_directory);
}

TEST_F(CaptureDirectory, UsesTheDefaultIfTheValueCannotBeRead) {
  put_directory(reg_sz, stored_text(u"D:\\stored"));
  for (const std::int64_t error : {2, 5, 6, 87, 234, 1016, 1018, 1630}) {
    memory::system().faults["RegGetValueW"] = {error};
    EXPECT_EQ(capture_directory(), usual_directory) << error;
  }
  EXPECT_EQ(capture_directory(), "D:\\stored");
}

TEST_F(CaptureDirectory, UsesTheDefaultIfTheValueIsNotAText) {
  for (const std::uint32_t type : {0u, 3u, reg_dword, reg_multi_sz, 11u}) {
    put_directory(type, stored_text(u"D:\\stored"));
    EXPECT_EQ(capture_directory(), usual_directory) << type;
  }
}

TEST_F(CaptureDirectory, HasUpTo259Characters) {
  const std::u16string longest = u"D:\\" + std::u16string(256, u'x');
  put_directory(reg_sz, stored_text(longest));
  EXPECT_EQ(capture_directory(), utf8_from_wide_replacing(longest));
  put_directory(reg_sz, bytes_of(longest));
  EXPECT_EQ(capture_directory(), utf8_from_wide_replacing(longest));
  // One more leaves no room for the terminator.
  put_directory(reg_sz, stored_text(longest + u'x'));
  EXPECT_EQ(capture_directory(), usual_directory);
  put_directory(reg_sz, bytes_of(longest + u'x'));
  EXPECT_EQ(capture_directory(), usual_directory);
}

TEST_F(CaptureDirectory, IsCutAtTheFirstTerminator) {
  using namespace std::string_literals;
  put_directory(reg_sz, stored_text(u"D:\\stored\0behind"s));
  EXPECT_EQ(capture_directory(), "D:\\stored");
}

TEST_F(CaptureDirectory, MayBeEmpty) {
  put_directory(reg_sz, stored_text(u""));
  EXPECT_EQ(capture_directory(), "");
}

TEST_F(CaptureDirectory, ExpandsVariables) {
  put(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", u"SystemRoot", reg_sz,
      stored_text(u"C:\\Windows"));
  put_directory(reg_expand_sz, stored_text(u"%SystemRoot%\\captures"));
  EXPECT_EQ(capture_directory(), "C:\\Windows\\captures");
  // A plain text is not expanded.
  put_directory(reg_sz, stored_text(u"%SystemRoot%\\captures"));
  EXPECT_EQ(capture_directory(), "%SystemRoot%\\captures");
}

TEST_F(CaptureDirectory, UsesTheDefaultIfTheExpandedTextIsTooLong) {
  put(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", u"SystemRoot", reg_sz,
      stored_text(std::u16string(200, u'r')));
  put_directory(reg_expand_sz, stored_text(u"%SystemRoot%" + std::u16string(60, u'x')));
  EXPECT_EQ(capture_directory(), usual_directory);
  put_directory(reg_expand_sz, stored_text(u"%SystemRoot%" + std::u16string(59, u'x')));
  EXPECT_EQ(capture_directory(), std::string(200, 'r') + std::string(59, 'x'));
}

TEST_F(CaptureDirectory, IsUtf8) {
  put_directory(reg_sz, stored_text(u"D:\\Aufnahmen\\Grüße-录音-\U0001F3A7"));
  EXPECT_EQ(capture_directory(),
            "D:\\Aufnahmen\\Gr\xC3\xBC\xC3\x9F"
            "e-\xE5\xBD\x95\xE9\x9F\xB3-\xF0\x9F\x8E\xA7");
}

TEST_F(CaptureDirectory, IsReadOnEachCall) {
  EXPECT_EQ(capture_directory(), usual_directory);
  put_directory(reg_sz, stored_text(u"D:\\first"));
  EXPECT_EQ(capture_directory(), "D:\\first");
  put_directory(reg_sz, stored_text(u"E:\\2"));
  EXPECT_EQ(capture_directory(), "E:\\2");
  hosted::remove_key(memory::system().state.registry, our_key);
  EXPECT_EQ(capture_directory(), usual_directory);
}

TEST(CaptureFileNames, AreTheFourOfTheEffect) {
  EXPECT_EQ(capture_file_names,
            (std::array<std::string_view, 4>{"capture-1-host-in.wav", "capture-2-algorithm-in.wav",
                                             "capture-3-algorithm-out.wav", "capture-4-host-out.wav"}));
}

}  // namespace
}  // namespace velmora
