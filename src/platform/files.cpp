#include "platform/files.h"

#include <array>

namespace velmora {

std::uint32_t read_whole_file(std::string_view path, std::string& bytes) {
  bytes.clear();
  InputFile file;
  if (const std::uint32_t error = open_for_reading(path, file)) return error;
  std::array<char, 16384> piece;
  for (;;) {
    const FileRead read = read_file_piece(file, piece.data(), piece.size());
    if (read.error != 0) bytes.clear();
    if (read.error != 0 || read.count == 0) return read.error;
    bytes.append(piece.data(), read.count);
  }
}

}  // namespace velmora
