#include "service/pages.h"

#include <array>

#include "platform/files.h"

namespace velmora {
namespace {

constexpr std::string_view stamp_mark = "__VELMORA_UI_STAMP__";
constexpr std::size_t piece_bytes = 16384;

void replace_every_mark(std::string& page, std::string_view ui_stamp) {
  std::size_t mark = page.find(stamp_mark);
  while (mark != std::string::npos) {
    page.replace(mark, stamp_mark.size(), ui_stamp);
    mark = page.find(stamp_mark, mark + ui_stamp.size());
  }
}

}  // namespace

std::string read_file_bytes(std::string_view path) {
  InputFile file;
  if (open_for_reading(path, file) != 0) return {};
  std::string bytes;
  std::array<char, piece_bytes> piece;
  for (;;) {
    const FileRead read = read_file_piece(file, piece.data(), piece.size());
    if (read.error != 0) return {};
    if (read.count == 0) return bytes;
    bytes.append(piece.data(), read.count);
  }
}

std::optional<std::string> read_pages(std::string_view web_root, UiPages& pages) {
  const struct {
    std::string_view name;
    std::string& page;
  } wanted[] = {{"index.html", pages.index},
                {"advanced.html", pages.advanced},
                {"velmora-eq.js", pages.eq_script},
                {"help.html", pages.help}};
  for (const auto& [name, page] : wanted) {
    const std::string path = join_path(web_root, name);
    page = read_file_bytes(path);
    if (page.empty()) return path;
  }
  return std::nullopt;
}

std::string format_ui_stamp(const std::tm& local_time) {
  std::array<char, 64> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local_time);
  return std::string(text.data(), length);
}

void stamp_pages(UiPages& pages, std::string_view ui_stamp) {
  replace_every_mark(pages.index, ui_stamp);
  replace_every_mark(pages.advanced, ui_stamp);
}

}  // namespace velmora
