// Reads registry exports. A Trouble is an error message, empty on success; the line number is the reader's.
#include "platform/hosted/registry_export.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "base/hex.h"
#include "base/text.h"

namespace velmora::hosted {
namespace {

constexpr std::u16string_view header = u"Windows Registry Editor Version 5.00";
constexpr std::array<std::u16string_view, 5> roots = {
    u"HKEY_LOCAL_MACHINE", u"HKEY_CURRENT_USER", u"HKEY_CLASSES_ROOT", u"HKEY_USERS", u"HKEY_CURRENT_CONFIG",
};
constexpr std::u16string_view line_ends = u"\r\n";

// winnt.h
constexpr std::uint32_t reg_sz = 1;
constexpr std::uint32_t reg_binary = 3;
constexpr std::uint32_t reg_dword = 4;

using Trouble = std::string_view;

struct Reader {
  std::u16string_view rest;
  std::size_t line = 1;
  RegistryTree tree;
  TreeKey* key = nullptr;  // receives the values
};

bool take(Reader& reader, std::u16string_view text) {
  if (!reader.rest.starts_with(text)) return false;
  reader.rest.remove_prefix(text.size());
  return true;
}

void skip_blanks(Reader& reader) {
  reader.rest.remove_prefix(std::min(reader.rest.find_first_not_of(u" \t"), reader.rest.size()));
}

void skip_comment(Reader& reader) {
  if (!reader.rest.starts_with(u';')) return;
  reader.rest.remove_prefix(std::min(reader.rest.find_first_of(line_ends), reader.rest.size()));
}

// Reports `why` for anything but a line end. The registry editor ends its last line too, so a file
// without that was truncated.
Trouble take_line_end(Reader& reader, Trouble why) {
  if (reader.rest.empty()) return "the file ends in the middle of a line";
  if (take(reader, u"\r\n") || take(reader, u"\n")) {
    ++reader.line;
    return {};
  }
  return reader.rest.starts_with(u'\r') ? "a carriage return without a line feed" : why;
}

Trouble check_path(std::u16string_view path) {
  const std::u16string_view root = path.substr(0, path.find(u'\\'));
  if (std::none_of(roots.begin(), roots.end(), [&](auto known) { return same_name(known, root); })) {
    return "a key below none of the five roots";
  }
  std::size_t levels = 0;
  for (std::size_t begin = 0; begin <= path.size(); ++levels) {
    const std::size_t end = std::min(path.find(u'\\', begin), path.size());
    if (end == begin) return "an empty name in a key's path";
    if (end - begin > most_key_name_units) return "a key's name of more than 255 characters";
    begin = end + 1;
  }
  return levels > most_key_depth ? "a key more than 512 levels deep" : Trouble{};
}

Trouble read_key_line(Reader& reader) {
  const std::u16string_view line = reader.rest.substr(0, reader.rest.find_first_of(line_ends));
  const std::size_t closing = line.rfind(u']');
  if (closing == std::u16string_view::npos) return "a key without its closing bracket";
  std::u16string_view path = line.substr(1, closing - 1);
  const bool removes = path.starts_with(u'-');
  if (removes) path.remove_prefix(1);
  if (const Trouble why = check_path(path); !why.empty()) return why;
  if (removes) {
    if (path.find(u'\\') == std::u16string_view::npos) return "a root cannot be removed";
    static_cast<void>(remove_key(reader.tree, path));
  }
  reader.key = removes ? nullptr : &make_key(reader.tree, path, KeyPlace::last);
  reader.rest.remove_prefix(closing + 1);
  skip_blanks(reader);
  return take_line_end(reader, "more text behind a key");
}

// Line ends inside quotes are literal.
Trouble read_quoted(Reader& reader, std::u16string& text) {
  const std::size_t opened = reader.line;
  reader.rest.remove_prefix(1);
  while (!reader.rest.empty()) {
    char16_t unit = reader.rest.front();
    reader.rest.remove_prefix(1);
    if (unit == u'"') return {};
    if (unit == u'\n') ++reader.line;
    if (unit == u'\\' && !reader.rest.empty()) {
      unit = reader.rest.front();
      if (unit != u'\\' && unit != u'"') return "a backslash in quotes with nothing to stand for";
      reader.rest.remove_prefix(1);
    }
    text += unit;
  }
  reader.line = opened;
  return "a quote that is not closed";
}

// Reads a hexadecimal number of `fewest` to `most` digits. No value if more digits follow.
std::optional<std::uint32_t> take_number(Reader& reader, std::size_t fewest, std::size_t most) {
  std::size_t count = 0;
  while (count < reader.rest.size() && hex_digit_value(reader.rest[count]) >= 0) ++count;
  if (count < fewest || count > most) return std::nullopt;
  std::uint32_t number = 0;
  for (const char16_t digit : reader.rest.substr(0, count)) {
    number = number << 4 | static_cast<std::uint32_t>(hex_digit_value(digit));
  }
  reader.rest.remove_prefix(count);
  return number;
}

// Skips line continuations: a backslash at the end of a line and the leading blanks of the next one.
Trouble take_continuation(Reader& reader) {
  while (take(reader, u"\\")) {
    skip_blanks(reader);
    const Trouble why = take_line_end(reader, "a backslash in the middle of a line");
    if (!why.empty()) return why;
    skip_blanks(reader);
    if (reader.rest.empty()) return "the file ends behind a backslash";
  }
  return {};
}

Trouble read_bytes(Reader& reader, std::string& bytes) {
  const bool is_empty = reader.rest.empty() || reader.rest.find_first_of(u" \t;\r\n") == 0;
  if (is_empty) return {};
  do {
    if (const Trouble why = take_continuation(reader); !why.empty()) return why;
    const auto byte = take_number(reader, 2, 2);
    if (!byte) return "a byte that is not two hexadecimal digits";
    bytes += static_cast<char>(*byte);
  } while (take(reader, u","));
  return {};
}

Trouble read_typed_bytes(Reader& reader, TreeValue& value) {
  const auto type = take_number(reader, 1, 8);
  if (!type || !take(reader, u"):")) return "a type that is not one to eight hexadecimal digits in brackets";
  value.type = *type;
  return read_bytes(reader, value.bytes);
}

Trouble read_text(Reader& reader, TreeValue& value) {
  std::u16string text;
  if (const Trouble why = read_quoted(reader, text); !why.empty()) return why;
  text += u'\0';
  value.type = reg_sz;
  for (const char16_t unit : text) {
    value.bytes += static_cast<char>(unit & 0xFF);
    value.bytes += static_cast<char>(unit >> 8);
  }
  return {};
}

Trouble read_dword(Reader& reader, TreeValue& value) {
  const auto number = take_number(reader, 8, 8);
  if (!number) return "a dword that is not eight hexadecimal digits";
  value.type = reg_dword;
  for (int shift = 0; shift < 32; shift += 8) value.bytes += static_cast<char>(*number >> shift & 0xFF);
  return {};
}

Trouble read_data(Reader& reader, TreeValue& value) {
  if (reader.rest.starts_with(u'"')) return read_text(reader, value);
  if (take(reader, u"dword:")) return read_dword(reader, value);
  if (take(reader, u"hex(")) return read_typed_bytes(reader, value);
  value.type = reg_binary;
  if (take(reader, u"hex:")) return read_bytes(reader, value.bytes);
  return "a value that is no text, dword or hex";
}

Trouble read_value_name(Reader& reader, std::u16string& name) {
  if (reader.key == nullptr) return "a value without a key";
  if (take(reader, u"@")) return {};
  if (const Trouble why = read_quoted(reader, name); !why.empty()) return why;
  return name.size() > most_value_name_units ? "a value's name of more than 16383 characters" : Trouble{};
}

Trouble read_value_line(Reader& reader) {
  TreeValue value;
  if (const Trouble why = read_value_name(reader, value.name); !why.empty()) return why;
  skip_blanks(reader);
  if (!take(reader, u"=")) return "no = behind a value's name";
  skip_blanks(reader);
  if (take(reader, u"-")) {
    static_cast<void>(remove_value(*reader.key, value.name));
  } else {
    if (const Trouble why = read_data(reader, value); !why.empty()) return why;
    put_value(*reader.key, value.name, value.type, value.bytes);
  }
  skip_blanks(reader);
  skip_comment(reader);
  return take_line_end(reader, "more text behind a value");
}

Trouble read_line(Reader& reader) {
  skip_blanks(reader);
  if (reader.rest.starts_with(u'[')) return read_key_line(reader);
  if (reader.rest.starts_with(u'"') || reader.rest.starts_with(u'@')) return read_value_line(reader);
  skip_comment(reader);
  return take_line_end(reader, "neither a key nor a value nor a comment");
}

Trouble read_header(Reader& reader) {
  constexpr Trouble why = "the first line is not \"Windows Registry Editor Version 5.00\"";
  return take(reader, header) ? take_line_end(reader, why) : why;
}

// The text of a file in UTF-16, or the first encoding error.
using Decoded = std::variant<std::u16string, ExportTrouble>;

Decoded decode_utf16(std::string_view bytes) {
  std::u16string text;
  text.reserve(bytes.size() / 2);
  const auto byte_at = [&](std::size_t index) { return static_cast<unsigned char>(bytes[index]); };
  for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
    text += static_cast<char16_t>(byte_at(index) | byte_at(index + 1) << 8);
  }
  if (bytes.size() % 2 == 0) return text;
  const auto line = 1 + static_cast<std::size_t>(std::count(text.begin(), text.end(), u'\n'));
  return ExportTrouble{line, "the file ends in the middle of a UTF-16 character"};
}

Decoded decode_utf8(std::string_view bytes) {
  std::u16string text;
  for (std::size_t line = 1; !bytes.empty(); ++line) {
    const std::string_view piece = bytes.substr(0, bytes.find('\n'));
    const auto wide = wide_from_utf8_strict(piece);
    if (!wide) return ExportTrouble{line, "text that is not UTF-8"};
    text += *wide;
    bytes.remove_prefix(piece.size());
    if (bytes.empty()) break;
    text += u'\n';
    bytes.remove_prefix(1);
  }
  return text;
}

// Sets `form`, except for its line ends.
Decoded decode(std::string_view bytes, ExportForm& form) {
  if (bytes.starts_with("\xFE\xFF")) return ExportTrouble{1, "big-endian UTF-16"};
  const bool utf16_mark = bytes.starts_with("\xFF\xFE");
  const bool utf8_mark = bytes.starts_with("\xEF\xBB\xBF");
  form.byte_order_mark = utf16_mark || utf8_mark;
  form.utf16 = utf16_mark || (bytes.size() >= 2 && bytes[1] == '\0');
  if (form.byte_order_mark) bytes.remove_prefix(utf16_mark ? 2 : 3);
  Decoded decoded = form.utf16 ? decode_utf16(bytes) : decode_utf8(bytes);
  if (const auto* text = std::get_if<std::u16string>(&decoded)) {
    const auto nul = std::find(text->begin(), text->end(), u'\0');
    if (nul == text->end()) return decoded;
    const auto line = 1 + static_cast<std::size_t>(std::count(text->begin(), nul, u'\n'));
    return ExportTrouble{line, "a NUL character"};
  }
  return decoded;
}

}  // namespace

std::variant<ParsedExport, ExportTrouble> parse_export(std::string_view bytes) {
  ExportForm form;
  const Decoded decoded = decode(bytes, form);
  if (const auto* trouble = std::get_if<ExportTrouble>(&decoded)) return *trouble;
  const std::u16string& text = std::get<std::u16string>(decoded);
  Reader reader;
  reader.rest = text;
  Trouble why = read_header(reader);
  form.carriage_returns = text.find(u"\r\n") <= text.find(u'\n');
  while (why.empty() && !reader.rest.empty()) why = read_line(reader);
  if (!why.empty()) return ExportTrouble{reader.line, std::string(why)};
  return ParsedExport{std::move(reader.tree), form};
}

}  // namespace velmora::hosted
