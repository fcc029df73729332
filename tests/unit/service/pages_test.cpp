#include "service/pages.h"

#include <gtest/gtest.h>

#include "unit/api/support/routes.h"
#include "unit/capture/support/captures.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;

void put_page(const std::string& name, const std::string& bytes) {
  memory::system().files["web/" + name].bytes = bytes;
}

void put_all_pages() {
  put_page("index.html", "index");
  put_page("advanced.html", "advanced");
  put_page("velmora-eq.js", "script");
  put_page("help.html", "help");
}

UiPages same_pages(std::string_view text) { return pages_with(text, text, text, text); }

std::string html_page(std::string_view text) {
  return expected_response("200 OK", "text/html; charset=utf-8", text);
}

using Pages = FreshMachine;

TEST_F(Pages, AreReadFromTheWebRoot) {
  put_all_pages();
  for (const std::string_view web_root : {"web", "web/"}) {
    UiPages pages;
    std::string unreadable_path = "untouched";
    EXPECT_TRUE(read_pages(web_root, pages, unreadable_path));
    EXPECT_EQ(unreadable_path, "untouched");
    EXPECT_EQ(pages.index.bytes(), html_page("index"));
    EXPECT_EQ(pages.advanced.bytes(), html_page("advanced"));
    EXPECT_EQ(pages.eq_script.bytes(),
              expected_response("200 OK", "text/javascript; charset=utf-8", "script"));
    EXPECT_EQ(pages.help.bytes(), html_page("help"));
  }
}

TEST_F(Pages, AreRefusedForTheFirstUnreadableFile) {
  const std::string names[] = {"index.html", "advanced.html", "velmora-eq.js", "help.html"};
  for (std::size_t bad = 0; bad < 4; ++bad) {
    for (int fault = 0; fault < 4; ++fault) {
      SCOPED_TRACE(names[bad] + " with fault " + std::to_string(fault));
      memory::reset();
      put_all_pages();
      memory::File& file = memory::system().files["web/" + names[bad]];
      if (fault == 0) memory::system().files.erase("web/" + names[bad]);
      if (fault == 1) file.bytes.clear();
      if (fault == 2) file.kind = FileKind::directory;
      if (fault == 3) file.read_error = 23;
      UiPages pages;
      std::string unreadable_path;
      EXPECT_FALSE(read_pages("web", pages, unreadable_path));
      EXPECT_EQ(unreadable_path, "web/" + names[bad]);
      EXPECT_EQ(calls_of("CreateFileW"), static_cast<std::ptrdiff_t>(bad) + 1);
    }
  }
}

TEST_F(Pages, AreReadWholeWhateverTheirSizeSeemedToBe) {
  put_all_pages();
  std::string text;
  for (int line = 0; line < 40'000; ++line) text += std::to_string(line) + '\n';
  put_page("help.html", text);
  memory::File& file = memory::system().files["web/help.html"];
  for (const std::uint64_t seeming : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{100}, text.size() - 1,
                                      text.size(), text.size() + 1, 2 * text.size()}) {
    SCOPED_TRACE(seeming);
    file.size = seeming;
    UiPages pages;
    std::string unreadable_path;
    ASSERT_TRUE(read_pages("web", pages, unreadable_path));
    EXPECT_EQ(pages.help.bytes(), html_page(text));
  }
}

TEST_F(Pages, AreReadWithoutKnowingTheirSize) {
  put_all_pages();
  memory::system().faults["GetFileSizeEx"] = {0, 5};
  UiPages pages;
  std::string unreadable_path;
  ASSERT_TRUE(read_pages("web", pages, unreadable_path));
  EXPECT_EQ(pages.index.body(), "index");
}

TEST_F(Pages, UseTheLocalTimeAsStamp) {
  EXPECT_EQ(format_ui_stamp(local_moment(2026, 2, 3, 4, 5, 6)), "2026-02-03 04:05:06");
  EXPECT_EQ(format_ui_stamp(local_moment(1999, 12, 31, 23, 59, 59)), "1999-12-31 23:59:59");
}

TEST_F(Pages, AreStampedAtEveryMark) {
  const std::pair<std::string, std::string> rows[] = {
      {"no mark", "no mark"},
      {"__VELMORA_UI_STAMP__", "S"},
      {"a__VELMORA_UI_STAMP__b__VELMORA_UI_STAMP__c", "aSbSc"},
      {"__VELMORA_UI_STAMP____VELMORA_UI_STAMP__", "SS"},
      {"__VELMORA_UI_STAMP_", "__VELMORA_UI_STAMP_"},
      {"____VELMORA_UI_STAMP____", "__S__"},
      {"__velmora_ui_stamp__", "__velmora_ui_stamp__"},
      {"\0__VELMORA_UI_STAMP__\0"s, "\0S\0"s},
      {"", ""},
  };
  for (const auto& [text, stamped] : rows) {
    SCOPED_TRACE(text);
    UiPages pages = same_pages(text);
    stamp_pages(pages, "S");
    EXPECT_EQ(pages.index.bytes(), html_page(stamped));
    EXPECT_EQ(pages.advanced.bytes(), html_page(stamped));
    EXPECT_EQ(pages.eq_script.body(), text);
    EXPECT_EQ(pages.help.body(), text);
  }
}

TEST_F(Pages, AreNotStampedInsideAStamp) {
  UiPages pages = same_pages("__VELMORA_UI_STAMP__ x __VELMORA_UI_STAMP__");
  stamp_pages(pages, "[__VELMORA_UI_STAMP__]");
  EXPECT_EQ(pages.index.body(), "[__VELMORA_UI_STAMP__] x [__VELMORA_UI_STAMP__]");
}

TEST_F(Pages, KeepAMarkThatFormsWhenAnotherIsRemoved) {
  UiPages pages = same_pages("__VELMORA__VELMORA_UI_STAMP___UI_STAMP__");
  stamp_pages(pages, "");
  EXPECT_EQ(pages.index.body(), "__VELMORA_UI_STAMP__");
}

}  // namespace
}  // namespace velmora
