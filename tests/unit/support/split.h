// Lists of short texts, written as one text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velmora {

// The parts of a text between separators. An empty part stays.
inline std::vector<std::string> split(std::string_view text, char separator = ' ') {
  std::vector<std::string> parts(1);
  for (const char byte : text) {
    if (byte == separator) {
      parts.emplace_back();
    } else {
      parts.back() += byte;
    }
  }
  return parts;
}

}  // namespace velmora
