#include "base/text.h"

#include <cstddef>
#include <cstdint>

namespace velmora {
namespace {

constexpr char32_t replacement = 0xFFFD;

struct Decoded {
  char32_t scalar;
  std::size_t length;  // bytes or units consumed, 1..4
  bool well_formed;
};

// The sequence length and the range of the second byte for a lead byte (Unicode 15, table 3-7).
struct LeadRule {
  std::size_t length;  // 0: not a lead byte
  unsigned char second_low;
  unsigned char second_high;
};

LeadRule rule_of_lead(unsigned char lead) {
  if (lead < 0x80) return {1, 0, 0};
  if (lead < 0xC2) return {0, 0, 0};
  if (lead < 0xE0) return {2, 0x80, 0xBF};
  if (lead == 0xE0) return {3, 0xA0, 0xBF};
  if (lead == 0xED) return {3, 0x80, 0x9F};
  if (lead < 0xF0) return {3, 0x80, 0xBF};
  if (lead == 0xF0) return {4, 0x90, 0xBF};
  if (lead < 0xF4) return {4, 0x80, 0xBF};
  if (lead == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

// Decodes the first sequence of `text`, which must not be empty. An ill-formed sequence consumes its maximal
// subpart, so decoding resumes right after it.
Decoded decode_one(std::string_view text) {
  const auto byte_at = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char lead = byte_at(0);
  const LeadRule rule = rule_of_lead(lead);
  if (rule.length == 0) return {replacement, 1, false};
  if (rule.length == 1) return {lead, 1, true};
  char32_t scalar = lead & (0x7Fu >> rule.length);
  for (std::size_t index = 1; index < rule.length; ++index) {
    const unsigned char low = index == 1 ? rule.second_low : 0x80;
    const unsigned char high = index == 1 ? rule.second_high : 0xBF;
    if (index >= text.size() || byte_at(index) < low || byte_at(index) > high) {
      return {replacement, index, false};
    }
    scalar = (scalar << 6) | (byte_at(index) & 0x3Fu);
  }
  return {scalar, rule.length, true};
}

void append_utf16(std::u16string& out, char32_t scalar) {
  if (scalar < 0x10000) {
    out.push_back(static_cast<char16_t>(scalar));
    return;
  }
  const char32_t offset = scalar - 0x10000;
  out.push_back(static_cast<char16_t>(0xD800 + (offset >> 10)));
  out.push_back(static_cast<char16_t>(0xDC00 + (offset & 0x3FF)));
}

void append_utf8(std::string& out, char32_t scalar) {
  const auto push = [&](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (scalar < 0x80) {
    push(scalar);
  } else if (scalar < 0x800) {
    push(0xC0 | (scalar >> 6));
    push(0x80 | (scalar & 0x3F));
  } else if (scalar < 0x10000) {
    push(0xE0 | (scalar >> 12));
    push(0x80 | ((scalar >> 6) & 0x3F));
    push(0x80 | (scalar & 0x3F));
  } else {
    push(0xF0 | (scalar >> 18));
    push(0x80 | ((scalar >> 12) & 0x3F));
    push(0x80 | ((scalar >> 6) & 0x3F));
    push(0x80 | (scalar & 0x3F));
  }
}

bool is_high_surrogate(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool is_low_surrogate(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

// Decodes UTF-16. An unpaired surrogate consumes one unit.
Decoded decode_one(std::u16string_view text) {
  const char16_t unit = text.front();
  if (is_high_surrogate(unit) && text.size() > 1 && is_low_surrogate(text[1])) {
    return {0x10000 + ((unit - 0xD800u) << 10) + (text[1] - 0xDC00u), 2, true};
  }
  if (is_high_surrogate(unit) || is_low_surrogate(unit)) return {replacement, 1, false};
  return {unit, 1, true};
}

}  // namespace

std::u16string wide_from_utf8_replacing(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const Decoded decoded = decode_one(text);
    append_utf16(out, decoded.scalar);
    text.remove_prefix(decoded.length);
  }
  return out;
}

std::optional<std::u16string> wide_from_utf8_strict(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const Decoded decoded = decode_one(text);
    if (!decoded.well_formed) return std::nullopt;
    append_utf16(out, decoded.scalar);
    text.remove_prefix(decoded.length);
  }
  return out;
}

std::string utf8_from_wide_replacing(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const Decoded decoded = decode_one(text);
    append_utf8(out, decoded.scalar);
    text.remove_prefix(decoded.length);
  }
  return out;
}

std::string utf8_from_wide(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const Decoded decoded = decode_one(text);
    if (!decoded.well_formed) return {};
    append_utf8(out, decoded.scalar);
    text.remove_prefix(decoded.length);
  }
  return out;
}

std::u16string wide_from_utf8(std::string_view text) { return wide_from_utf8_strict(text).value_or(u""); }

std::string utf8_to_path(std::string_view text) {
  return utf8_from_wide_replacing(wide_from_utf8_replacing(text));
}

std::u16string wide_from_signed_bytes(std::string_view bytes) {
  std::u16string out;
  out.reserve(bytes.size());
  for (const char byte : bytes) {
    out.push_back(static_cast<char16_t>(static_cast<std::int16_t>(static_cast<signed char>(byte))));
  }
  return out;
}

std::string ascii_from_wide(std::u16string_view text) {
  std::string narrow;
  narrow.reserve(text.size());
  for (const char16_t unit : text) narrow.push_back(unit < 128 ? static_cast<char>(unit) : '?');
  return narrow;
}

std::u16string wide_from_ascii(std::string_view text) {
  std::u16string wide;
  wide.reserve(text.size());
  for (const char byte : text) wide.push_back(static_cast<unsigned char>(byte));
  return wide;
}

}  // namespace velmora
