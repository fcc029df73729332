#include "service/pages.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "http/response.h"
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

// Copies the body into twice the memory.
ResponseMemory grown(const ResponseMemory& memory, std::size_t size) {
  ResponseMemory larger(2 * size);
  std::copy_n(memory.body(), size, larger.body());
  return larger;
}

// Reads a file straight into its place behind the head. False if that fails or the file is empty.
bool read_page(std::string_view path, std::string_view content_type, StoredResponse& page) {
  // With one byte more than the file has, its end shows without more memory. If the file changes meanwhile,
  // the size is only a first guess.
  std::uint64_t expected = 0;
  static_cast<void>(query_file_size(path, expected));
  std::size_t capacity = static_cast<std::size_t>(expected) + 1;
  InputFile file;
  if (open_for_reading(path, file) != 0) return false;
  ResponseMemory memory(capacity);
  std::size_t size = 0;
  for (;;) {
    const FileRead read = read_file_piece(file, memory.body() + size, capacity - size);
    if (read.error != 0) return false;
    if (read.count == 0) break;
    size += read.count;
    if (size < capacity) continue;
    memory = grown(memory, size);
    capacity = 2 * size;
  }
  if (size == 0) return false;
  page = StoredResponse(content_type, std::move(memory), size);
  return true;
}

}  // namespace

bool read_pages(std::string_view web_root, UiPages& pages, std::string& unreadable_path) {
  const struct {
    std::string_view name;
    std::string_view content_type;
    StoredResponse& page;
  } wanted[] = {{"index.html", content_type_html, pages.index},
                {"advanced.html", content_type_html, pages.advanced},
                {"velmora-eq.js", content_type_script, pages.eq_script},
                {"help.html", content_type_html, pages.help}};
  for (const auto& [name, content_type, page] : wanted) {
    std::string path = join_path(web_root, name);
    if (!read_page(path, content_type, page)) {
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
  for (StoredResponse* const page : {&pages.index, &pages.advanced}) {
    *page = StoredResponse(content_type_html, with_every_mark_replaced(page->body(), ui_stamp));
  }
}

}  // namespace velmora
