#include "service/pages.h"

#include <array>
#include <utility>

#include "platform/files.h"

namespace velmora {
namespace {

constexpr std::string_view stamp_mark = "__VELMORA_UI_STAMP__";

std::string with_every_mark_replaced(std::string_view page, std::string_view ui_stamp) {
  std::string stamped;
  std::size_t mark = page.find(stamp_mark);
  while (mark != std::string_view::npos) {
    stamped.append(page.substr(0, mark)).append(ui_stamp);
    page.remove_prefix(mark + stamp_mark.size());
    mark = page.find(stamp_mark);
  }
  return stamped.append(page);
}

}  // namespace

bool read_pages(std::string_view web_root, UiPages& pages, std::string& unreadable_path) {
  const struct {
    std::string_view name;
    std::string& page;
  } wanted[] = {{"index.html", pages.index},
                {"advanced.html", pages.advanced},
                {"velmora-eq.js", pages.eq_script},
                {"help.html", pages.help}};
  for (const auto& [name, page] : wanted) {
    std::string path = join_path(web_root, name);
    if (read_whole_file(path, page) != 0 || page.empty()) {
      unreadable_path = std::move(path);
      return false;
    }
  }
  return true;
}

std::string format_ui_stamp(const std::tm& local_time) {
  std::array<char, 64> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local_time);
  return std::string(text.data(), length);
}

void stamp_pages(UiPages& pages, std::string_view ui_stamp) {
  pages.index = with_every_mark_replaced(pages.index, ui_stamp);
  pages.advanced = with_every_mark_replaced(pages.advanced, ui_stamp);
}

}  // namespace velmora
