// The four page files: read once at start, stamped, and served from memory ever after.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "api/service_state.h"

namespace velmora {

// Reads index.html, advanced.html, velmora-eq.js and help.html, in this order, into `pages`. False when one
// cannot be read or is empty: `unreadable_path` is then its path, and the pages behind it are unchanged.
[[nodiscard]] bool read_pages(std::string_view web_root, UiPages& pages, std::string& unreadable_path);

// "YYYY-MM-DD HH:MM:SS" of a local time.
[[nodiscard]] std::string format_ui_stamp(const std::tm& local_time);

// Puts the stamp in place of every "__VELMORA_UI_STAMP__" of the index and advanced pages, and of no other.
void stamp_pages(UiPages& pages, std::string_view ui_stamp);

}  // namespace velmora
