// The four page files: read once at start, stamped, and served from memory ever after.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "api/service_state.h"

namespace velmora {

// Reads index.html, advanced.html, velmora-eq.js and help.html, in this order, into `pages`. Returns the
// path of the first that cannot be read or is empty, or no value when all four are there.
[[nodiscard]] std::optional<std::string> read_pages(std::string_view web_root, UiPages& pages);

// "YYYY-MM-DD HH:MM:SS" of a local time.
[[nodiscard]] std::string format_ui_stamp(const std::tm& local_time);

// Puts the stamp in place of every "__VELMORA_UI_STAMP__" of the index and advanced pages, and of no other.
void stamp_pages(UiPages& pages, std::string_view ui_stamp);

}  // namespace velmora
