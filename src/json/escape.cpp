#include "json/escape.h"

#include "base/hex.h"

namespace velmora {
namespace {

void append_json_escaped(std::string& out, char byte) {
  const auto value = static_cast<unsigned char>(byte);
  switch (byte) {
    case '"': out += "\\\""; return;
    case '\\': out += "\\\\"; return;
    case '\b': out += "\\b"; return;
    case '\t': out += "\\t"; return;
    case '\n': out += "\\n"; return;
    case '\f': out += "\\f"; return;
    case '\r': out += "\\r"; return;
    default: break;
  }
  if (value >= 0x20) {
    out += byte;
    return;
  }
  out += "\\u00";
  append_hex(out, value);
}

}  // namespace

std::string json_escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  append_escaped(out, text);
  return out;
}

void append_escaped(std::string& out, std::string_view text) {
  for (const char byte : text) append_json_escaped(out, byte);
}

}  // namespace velmora
