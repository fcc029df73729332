// The result of parsing.
#pragma once

#include <string_view>

namespace velmora {

// A value, or a fixed error message. With an error, `value` is meaningless.
template <typename Value>
struct Parsed {
  Value value{};
  std::string_view error{};  // empty on success
};

}  // namespace velmora
