#include "http/gate.h"

#include <string>
#include <utility>

#include "base/ascii.h"

namespace velmora {
namespace {

// The address is compared byte for byte, the name in lower case. So a scheme in upper case passes with the
// name but not with the address.
bool is_local(std::string_view value, std::string_view scheme, std::uint16_t port) {
  const std::string port_suffix = ':' + std::to_string(port);
  if (!value.ends_with(port_suffix)) return false;
  value.remove_suffix(port_suffix.size());
  const auto is_scheme_with = [&](std::string_view text, std::string_view host) {
    return text.size() == scheme.size() + host.size() && text.starts_with(scheme) && text.ends_with(host);
  };
  return is_scheme_with(value, "127.0.0.1") || is_scheme_with(to_lower_copy(value), "localhost");
}

}  // namespace

bool host_allowed(const ApiRequest& request, std::uint16_t port) {
  const auto host = request.headers.find("host");
  return host != request.headers.end() && is_local(host->second, "", port);
}

bool origin_allowed(const ApiRequest& request, std::uint16_t port) {
  const auto origin = request.headers.find("origin");
  return origin == request.headers.end() || is_local(origin->second, "http://", port);
}

bool constant_time_equal(std::string_view left, std::string_view right) {
  if (left.size() > right.size()) std::swap(left, right);
  std::size_t difference = left.size() ^ right.size();
  for (std::size_t index = 0; index < left.size(); ++index) {
    difference |= static_cast<unsigned char>(left[index] ^ right[index]);
  }
  // Pad the shorter string with zeros, so that the time depends only on the longer one.
  for (std::size_t index = left.size(); index < right.size(); ++index) {
    difference |= static_cast<unsigned char>(right[index]);
  }
  return difference == 0;
}

bool token_allowed(const ApiRequest& request, std::string_view session_token) {
  const auto token = request.headers.find("x-velmora-token");
  return token != request.headers.end() && constant_time_equal(token->second, session_token);
}

}  // namespace velmora
