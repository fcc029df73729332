// The service's output: what is relayed of it, and the address that its banner holds. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velmora {

// Longer lines are relayed in pieces.
inline constexpr std::size_t relayed_line_bytes = 65536;

// Cuts a stream into lines, so that two relayed streams do not mix within a line. No byte is lost.
class LineRelay {
 public:
  // Takes the next bytes. Returns all lines that are complete, with their line feeds.
  [[nodiscard]] std::string take(std::string_view bytes);
  // Returns the line that is not complete yet.
  [[nodiscard]] std::string take_rest();

 private:
  std::string rest_;
};

// Where a service answers, and with which token.
struct ServiceAddress {
  std::uint16_t port = 0;
  std::string token;
};

// Reads the line "  Open: http://127.0.0.1:PORT/?token=TOKEN", without its line feed. The token has 1 byte or
// more, whatever they are.
[[nodiscard]] std::optional<ServiceAddress> read_banner_line(std::string_view line);

// Finds the first such line. A line without its line feed is none.
[[nodiscard]] std::optional<ServiceAddress> find_banner_line(std::string_view lines);

}  // namespace velmora
