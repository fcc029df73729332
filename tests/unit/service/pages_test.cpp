#include "service/pages.h"

#include <gtest/gtest.h>

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

using Pages = FreshMachine;

TEST_F(Pages, AreFourFilesOfTheWebRoot) {
  put_all_pages();
  for (const std::string_view web_root : {"web", "web/"}) {
    UiPages pages;
    std::string unreadable_path = "untouched";
    EXPECT_TRUE(read_pages(web_root, pages, unreadable_path));
    EXPECT_EQ(unreadable_path, "untouched");
    EXPECT_EQ(pages.index, "index");
    EXPECT_EQ(pages.advanced, "advanced");
    EXPECT_EQ(pages.eq_script, "script");
    EXPECT_EQ(pages.help, "help");
  }
}

TEST_F(Pages, AreReportedByTheFirstThatCannotBeReadInTheirOrder) {
  const std::string names[] = {"index.html", "advanced.html", "velmora-eq.js", "help.html"};
  for (std::size_t bad = 0; bad < 4; ++bad) {
    for (int fault = 0; fault < 4; ++fault) {
      SCOPED_TRACE(names[bad] + " with fault " + std::to_string(fault));
      memory::reset();
      put_all_pages();
      // Every page behind the first bad one is missing too, and is not even looked for.
      for (std::size_t later = bad + 1; later < 4; ++later)
        memory::system().files.erase("web/" + names[later]);
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

TEST_F(Pages, CarryALocalTimeAsTheirStamp) {
  std::tm time{};
  time.tm_year = 126;
  time.tm_mon = 1;
  time.tm_mday = 3;
  time.tm_hour = 4;
  time.tm_min = 5;
  time.tm_sec = 6;
  EXPECT_EQ(format_ui_stamp(time), "2026-02-03 04:05:06");
  time.tm_year = 99;
  time.tm_mon = 11;
  time.tm_mday = 31;
  time.tm_hour = 23;
  time.tm_min = 59;
  time.tm_sec = 59;
  EXPECT_EQ(format_ui_stamp(time), "1999-12-31 23:59:59");
}

TEST_F(Pages, AreStampedAtEveryMarkOfTwoOfThem) {
  const struct {
    std::string text;
    std::string stamped;
  } rows[] = {
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
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    UiPages pages{row.text, row.text, row.text, row.text};
    stamp_pages(pages, "S");
    EXPECT_EQ(pages.index, row.stamped);
    EXPECT_EQ(pages.advanced, row.stamped);
    EXPECT_EQ(pages.eq_script, row.text);
    EXPECT_EQ(pages.help, row.text);
  }
}

TEST_F(Pages, AreNotStampedInsideAStamp) {
  UiPages pages{"__VELMORA_UI_STAMP__ x __VELMORA_UI_STAMP__", "", "", ""};
  stamp_pages(pages, "[__VELMORA_UI_STAMP__]");
  EXPECT_EQ(pages.index, "[__VELMORA_UI_STAMP__] x [__VELMORA_UI_STAMP__]");
}

TEST_F(Pages, LoseTheirMarksToAnEmptyStamp) {
  UiPages pages{"a__VELMORA_UI_STAMP__b", "__VELMORA_UI_STAMP____VELMORA_UI_STAMP__", "", ""};
  stamp_pages(pages, "");
  EXPECT_EQ(pages.index, "ab");
  EXPECT_EQ(pages.advanced, "");
}

TEST_F(Pages, DoNotFormAMarkFromWhatAnEmptyStampLeavesBehind) {
  UiPages pages{"__VELMORA__VELMORA_UI_STAMP___UI_STAMP__", "", "", ""};
  stamp_pages(pages, "");
  EXPECT_EQ(pages.index, "__VELMORA_UI_STAMP__");
}

}  // namespace
}  // namespace velmora
