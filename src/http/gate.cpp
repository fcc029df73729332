#include "http/gate.h"

#include <cstring>
#include <utility>

#include "base/ascii.h"

namespace velmora {
namespace {

// Removes ":PORT" from the end of `value`. False if it has another end.
bool remove_port(std::string_view& value, std::uint16_t port) {
  for (unsigned digits = port; digits != 0; digits /= 10) {
    if (value.empty() || value.back() != static_cast<char>('0' + digits % 10)) return false;
    value.remove_suffix(1);
  }
  if (!value.ends_with(':')) return false;
  value.remove_suffix(1);
  return true;
}

// The address is compared byte for byte, the name in lower case. So a scheme in upper case passes with the
// name but not with the address.
bool is_local(std::string_view value, std::string_view address, std::string_view name, std::uint16_t port) {
  return remove_port(value, port) && (value == address || equal_ignoring_case(value, name));
}

std::uint64_t eight_bytes(const char* bytes) {
  std::uint64_t value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

}  // namespace

bool host_allowed(const ApiRequest& request, std::uint16_t port) {
  return request.host && is_local(*request.host, "127.0.0.1", "localhost", port);
}

bool origin_allowed(const ApiRequest& request, std::uint16_t port) {
  return !request.origin || is_local(*request.origin, "http://127.0.0.1", "http://localhost", port);
}

bool constant_time_equal(std::string_view left, std::string_view right) {
  if (left.size() > right.size()) std::swap(left, right);
  std::uint64_t difference = left.size() ^ right.size();
  std::size_t index = 0;
  for (; index + sizeof(std::uint64_t) <= left.size(); index += sizeof(std::uint64_t)) {
    difference |= eight_bytes(left.data() + index) ^ eight_bytes(right.data() + index);
  }
  for (; index < left.size(); ++index) difference |= static_cast<unsigned char>(left[index] ^ right[index]);
  // Pad the shorter string with zeros, so that the time depends only on the longer one.
  for (; index < right.size(); ++index) difference |= static_cast<unsigned char>(right[index]);
  return difference == 0;
}

bool token_allowed(const ApiRequest& request, std::string_view session_token) {
  return request.session_token && constant_time_equal(*request.session_token, session_token);
}

}  // namespace velmora
