// Escaping for JSON strings. Pure.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// Escapes `text` for a JSON string (RFC 8259, section 7). UTF-8, 0x7F and the slash are unchanged.
[[nodiscard]] std::string json_escape(std::string_view text);

// As json_escape, appended to `out`.
void append_escaped(std::string& out, std::string_view text);

}  // namespace velmora
