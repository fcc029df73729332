// Registry export files: the text that the Windows registry editor writes and reads ("Windows Registry Editor
// Version 5.00"). Pure.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

#include "platform/hosted/registry_tree.h"

namespace velmora::hosted {

// How a file was written, so that it can be written back alike.
struct ExportForm {
  bool utf16 = true;  // little-endian; otherwise UTF-8
  bool byte_order_mark = true;
  bool carriage_returns =
      true;  // lines end with CR LF, otherwise with LF; as the first line of a file has it
};

struct ParsedExport {
  RegistryTree tree;
  ExportForm form;
};

// The first thing that is wrong with a file. Its characters are looked at before its lines.
struct ExportTrouble {
  std::size_t line;  // from 1
  std::string why;   // plain English, ASCII
};

// Reads a whole file. It is taken at its word, strictly: whatever is not the format is trouble, and nothing
// of the file counts then. Comments are read over. Keys and values come in the order in which the file first
// names them. A file without a byte order mark is UTF-16 when its second byte is 0, and UTF-8 otherwise.
[[nodiscard]] std::variant<ParsedExport, ExportTrouble> parse_export(std::string_view bytes);

// Writes a whole file. Reading it back gives the same tree, for each tree that keeps the bounds of
// registry_tree.h and has no other roots than HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT,
// HKEY_USERS and HKEY_CURRENT_CONFIG. A tree with names that UTF-8 cannot hold (unpaired surrogates) is
// written in UTF-16, with a byte order mark, whatever the form says.
[[nodiscard]] std::string format_export(const RegistryTree& tree, const ExportForm& form);

}  // namespace velmora::hosted
