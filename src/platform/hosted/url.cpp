// Splits a URL like WinHttpCrackUrl: nothing is decoded, encoded or normalised.
#include <optional>

#include "base/ascii.h"
#include "platform/http_exchange.h"

namespace velmora {
namespace {

constexpr std::uint16_t http_port = 80;
constexpr std::uint16_t https_port = 443;

std::optional<std::uint16_t> read_port(std::u16string_view digits) {
  std::uint32_t port = 0;
  for (const char16_t digit : digits) {
    if (digit < u'0' || digit > u'9') return std::nullopt;
    port = port * 10 + static_cast<std::uint32_t>(digit - u'0');
    if (port > 65535) return std::nullopt;
  }
  return static_cast<std::uint16_t>(port);
}

}  // namespace

bool split_url(std::u16string_view url, UrlParts& out) {
  const std::size_t colon = url.find(u"://");
  if (colon == std::u16string_view::npos) return false;
  UrlParts parts;
  parts.secure = equal_ignoring_case(url.substr(0, colon), u"https");
  if (!parts.secure && !equal_ignoring_case(url.substr(0, colon), u"http")) return false;
  url.remove_prefix(colon + 3);
  const std::size_t path = url.find_first_of(u"/?#");
  std::u16string_view authority = url.substr(0, path);
  if (path != std::u16string_view::npos) parts.path = url.substr(path);
  authority.remove_prefix(authority.rfind(u'@') + 1);
  // The colons of an IPv6 address are inside brackets.
  const std::size_t bracket = authority.rfind(u']');
  const std::size_t port = authority.find(u':', bracket == std::u16string_view::npos ? 0 : bracket);
  parts.host = authority.substr(0, port);
  parts.port = parts.secure ? https_port : http_port;
  if (port != std::u16string_view::npos && port + 1 < authority.size()) {
    const auto number = read_port(authority.substr(port + 1));
    if (!number) return false;
    parts.port = *number;
  }
  if (parts.host.empty()) return false;
  out = std::move(parts);
  return true;
}

}  // namespace velmora
