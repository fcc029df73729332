// Text conversions take any bytes and agree with each other.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/ascii.h"
#include "base/text.h"
#include "json/escape.h"

namespace velmora {
namespace {

void require(bool held) {
  if (!held) std::abort();
}

void check(std::string_view text) {
  const std::u16string wide = wide_from_utf8_replacing(text);
  const std::string back = utf8_from_wide_replacing(wide);
  if (const auto strict = wide_from_utf8_strict(text)) {
    require(*strict == wide);
    require(back == text);
  }
  // What has been replaced once is well-formed.
  require(wide_from_utf8_strict(back) == wide);
  require(utf8_to_path(text) == back);

  const std::string escaped = json_escape(text);
  require(std::none_of(escaped.begin(), escaped.end(),
                       [](char byte) { return static_cast<unsigned char>(byte) < 0x20; }));
  require(url_decode(text).size() <= text.size());
  require(trim_copy(trim_copy(text)) == trim_copy(text));
  require(to_lower_copy(text).size() == text.size());
}

}  // namespace
}  // namespace velmora

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora::check({reinterpret_cast<const char*>(data), size});
  return 0;
}
