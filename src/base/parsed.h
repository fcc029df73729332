// What parsing a text results in.
#pragma once

#include <string_view>

namespace velmora {

// A value, or a fixed text that says why there is none. With an error the value has no meaning.
template <typename Value>
struct Parsed {
  Value value{};
  std::string_view error{};  // empty on success
};

}  // namespace velmora
