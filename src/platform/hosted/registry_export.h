// Registry export files, the text format of the Windows registry editor ("Windows Registry
// Editor Version 5.00"). Pure.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

#include "platform/hosted/registry_tree.h"

namespace velmora::hosted {

// The form of a file, so that it can be written back unchanged.
struct ExportForm {
  bool utf16 = true;  // little-endian; otherwise UTF-8
  bool byte_order_mark = true;
  bool carriage_returns = true;  // CR LF line ends, otherwise LF; read from the first line
};

struct ParsedExport {
  RegistryTree tree;
  ExportForm form;
};

// The first error in a file. Encoding errors are found before syntax errors.
struct ExportTrouble {
  std::size_t line;  // from 1
  std::string why;   // plain English, ASCII
};

// Parses a whole file strictly: any deviation from the format is an error, and then nothing of the file is
// used. Comments are skipped. Keys and values are in the order of their first mention. A file without a byte
// order mark is UTF-16 if its second byte is 0, otherwise UTF-8.
[[nodiscard]] std::variant<ParsedExport, ExportTrouble> parse_export(std::string_view bytes);

// Formats a whole file. Parsing it gives the same tree if the tree respects the bounds of
// registry_tree.h. Its only roots must be HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER,
// HKEY_CLASSES_ROOT, HKEY_USERS and HKEY_CURRENT_CONFIG.
//
// Names that UTF-8 cannot encode (unpaired surrogates) force UTF-16 with a byte order
// mark, whatever `form` says.
[[nodiscard]] std::string format_export(const RegistryTree& tree, const ExportForm& form);

}  // namespace velmora::hosted
