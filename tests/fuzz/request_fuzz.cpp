// A request read in one piece and read in two must come to the same, wherever it is cut.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "http/gate.h"
#include "http/request.h"

namespace velmora {
namespace {

using State = RequestReader::State;

State read_cut(std::string_view bytes, std::size_t cut, ApiRequest& request) {
  RequestReader reader;
  const State state = reader.take(bytes.substr(0, cut), request);
  // Behind a whole request, further bytes are not looked at.
  return state == State::incomplete ? reader.take(bytes.substr(cut), request) : state;
}

bool same(const ApiRequest& left, const ApiRequest& right) {
  return left.method == right.method && left.target == right.target && left.headers == right.headers;
}

void check(std::string_view bytes) {
  if (bytes.size() < 2) return;
  const std::size_t cut = static_cast<unsigned char>(bytes.back()) % bytes.size();
  bytes.remove_suffix(1);
  ApiRequest whole;
  ApiRequest pieces;
  const State whole_state = read_cut(bytes, bytes.size(), whole);
  const State pieces_state = read_cut(bytes, cut, pieces);
  if (whole_state != pieces_state) std::abort();
  if (whole_state != State::complete) return;
  if (!same(whole, pieces)) std::abort();
  // A wrapped length gives as much of the body as had come, and so depends on the cut.
  if (!whole.body.starts_with(pieces.body)) std::abort();
  static_cast<void>(host_allowed(whole, 17831));
  static_cast<void>(origin_allowed(whole, 17831));
}

}  // namespace
}  // namespace velmora

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora::check({reinterpret_cast<const char*>(data), size});
  return 0;
}
