// Writes registry exports.
#include <cstdint>
#include <cstdio>

#include "base/text.h"
#include "platform/hosted/registry_export.h"

namespace velmora::hosted {
namespace {

// winnt.h
constexpr std::uint32_t reg_sz = 1;
constexpr std::uint32_t reg_binary = 3;
constexpr std::uint32_t reg_dword = 4;

// A list of bytes continues on the next line after this many characters.
constexpr std::size_t full_line_columns = 77;

struct Writer {
  std::u16string text;
  std::u16string_view line_end;
  bool utf16;
};

// An unpaired surrogate has no UTF-8 form.
bool fits_utf8(std::u16string_view text) {
  return wide_from_utf8_strict(utf8_from_wide_replacing(text)) == text;
}

std::u16string units_of(std::string_view bytes) {
  const auto byte_at = [&](std::size_t index) { return static_cast<unsigned char>(bytes[index]); };
  std::u16string units;
  for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
    units += static_cast<char16_t>(byte_at(index) | byte_at(index + 1) << 8);
  }
  return units;
}

// Whether a value survives being written as quoted text. If so, `text` is that text.
bool is_plain_text(const TreeValue& value, bool utf16, std::u16string& text) {
  if (value.type != reg_sz || value.bytes.size() % 2 != 0) return false;
  text = units_of(value.bytes);
  if (text.empty() || text.back() != u'\0') return false;
  text.pop_back();
  // Tabs and CR LF are literal, as the registry editor writes them.
  for (std::size_t index = 0; index < text.size(); ++index) {
    const bool ends_line = text.compare(index, 2, u"\r\n") == 0;
    if (text[index] < 0x20 && text[index] != u'\t' && !ends_line) return false;
    if (ends_line) ++index;
  }
  return utf16 || fits_utf8(text);
}

void write_quoted(Writer& writer, std::u16string_view text) {
  writer.text += u'"';
  for (const char16_t unit : text) {
    if (unit == u'\\' || unit == u'"') writer.text += u'\\';
    writer.text += unit;
  }
  writer.text += u'"';
}

// `format` must take one unsigned number and print at most 15 characters.
void write_number(Writer& writer, const char* format, std::uint32_t number) {
  char digits[16];
  static_cast<void>(std::snprintf(digits, sizeof digits, format, static_cast<unsigned>(number)));
  writer.text += wide_from_ascii(digits);
}

void write_bytes(Writer& writer, const std::string& bytes, std::size_t line_begin) {
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    write_number(writer, "%02x", static_cast<unsigned char>(bytes[index]));
    if (index + 1 == bytes.size()) break;
    writer.text += u',';
    if (writer.text.size() - line_begin < full_line_columns) continue;
    writer.text.append(u"\\").append(writer.line_end);
    line_begin = writer.text.size();
    writer.text += u"  ";
  }
}

void write_dword(Writer& writer, const std::string& bytes) {
  std::uint32_t number = 0;
  for (std::size_t index = bytes.size(); index-- > 0;) {
    number = number << 8 | static_cast<unsigned char>(bytes[index]);
  }
  write_number(writer, "dword:%08x", number);
}

void write_value(Writer& writer, const TreeValue& value) {
  const std::size_t line_begin = writer.text.size();
  if (value.name.empty()) {
    writer.text += u'@';
  } else {
    write_quoted(writer, value.name);
  }
  writer.text += u'=';
  std::u16string text;
  if (is_plain_text(value, writer.utf16, text)) {
    write_quoted(writer, text);
  } else if (value.type == reg_dword && value.bytes.size() == 4) {
    write_dword(writer, value.bytes);
  } else {
    if (value.type == reg_binary) {
      writer.text += u"hex:";
    } else {
      write_number(writer, "hex(%x):", value.type);
    }
    write_bytes(writer, value.bytes, line_begin);
  }
  writer.text += writer.line_end;
}

// `path` is the key's path. It is modified during the call and restored afterwards.
void write_key(Writer& writer, const TreeKey& key, std::u16string& path) {
  if (key.has_line || !key.values.empty() || key.keys.empty()) {
    writer.text.append(u"[").append(path).append(u"]").append(writer.line_end);
    for (const TreeValue& value : key.values) write_value(writer, value);
    writer.text += writer.line_end;
  }
  const std::size_t length = path.size();
  for (const TreeKey& child : key.keys) {
    path.append(u"\\").append(child.name);
    write_key(writer, child, path);
    path.resize(length);
  }
}

std::string encode_utf16(std::u16string_view text, bool byte_order_mark) {
  std::string bytes = byte_order_mark ? "\xFF\xFE" : "";
  bytes.reserve(bytes.size() + 2 * text.size());
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

}  // namespace

std::string format_export(const RegistryTree& tree, const ExportForm& form) {
  Writer writer{{}, form.carriage_returns ? u"\r\n" : u"\n", form.utf16};
  writer.text.append(u"Windows Registry Editor Version 5.00").append(writer.line_end).append(writer.line_end);
  for (const TreeKey& root : tree.keys) {
    std::u16string path = root.name;
    write_key(writer, root, path);
  }
  if (form.utf16) return encode_utf16(writer.text, form.byte_order_mark);
  // A name may hold an unpaired surrogate, which only UTF-16 preserves.
  if (!fits_utf8(writer.text)) return format_export(tree, {true, true, form.carriage_returns});
  return (form.byte_order_mark ? "\xEF\xBB\xBF" : "") + utf8_from_wide_replacing(writer.text);
}

}  // namespace velmora::hosted
