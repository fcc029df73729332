// The four page files: read once at start, stamped, and then served from memory.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "api/service_state.h"

namespace velmora {

// Reads index.html, advanced.html, velmora-eq.js and help.html into `pages`, in this order. Returns false if
// one cannot be read or is empty. `unreadable_path` is then its path, and the pages after it are unchanged.
[[nodiscard]] bool read_pages(std::string_view web_root, UiPages& pages, std::string& unreadable_path);

// Returns a local time as "YYYY-MM-DD HH:MM:SS".
[[nodiscard]] std::string format_ui_stamp(const std::tm& local_time);

// Replaces every "__VELMORA_UI_STAMP__" in the index and advanced pages. The other pages are unchanged.
void stamp_pages(UiPages& pages, std::string_view ui_stamp);

}  // namespace velmora
