#include "command/banner.h"

#include <charconv>
#include <utility>

namespace velmora {

std::string LineRelay::take(std::string_view bytes) {
  const std::size_t scanned = rest_.size();
  rest_ += bytes;
  const std::size_t last = bytes.rfind('\n');
  const bool is_too_long = last == std::string_view::npos && rest_.size() >= relayed_line_bytes;
  if (is_too_long) return std::exchange(rest_, {});
  const std::size_t length = last == std::string_view::npos ? 0 : scanned + last + 1;
  std::string lines = rest_.substr(0, length);
  rest_.erase(0, length);
  return lines;
}

std::string LineRelay::take_rest() { return std::exchange(rest_, {}); }

std::optional<ServiceAddress> read_banner_line(std::string_view line) {
  constexpr std::string_view before_port = "  Open: http://127.0.0.1:";
  constexpr std::string_view before_token = "/?token=";
  if (!line.starts_with(before_port)) return std::nullopt;
  line.remove_prefix(before_port.size());
  ServiceAddress address;
  const auto end = std::from_chars(line.data(), line.data() + line.size(), address.port);
  if (end.ec != std::errc() || address.port == 0) return std::nullopt;
  line.remove_prefix(static_cast<std::size_t>(end.ptr - line.data()));
  if (!line.starts_with(before_token) || line.size() == before_token.size()) return std::nullopt;
  address.token = line.substr(before_token.size());
  return address;
}

std::optional<ServiceAddress> find_banner_line(std::string_view lines) {
  for (std::size_t end = lines.find('\n'); end != std::string_view::npos; end = lines.find('\n')) {
    if (auto address = read_banner_line(lines.substr(0, end))) return address;
    lines.remove_prefix(end + 1);
  }
  return std::nullopt;
}

}  // namespace velmora
