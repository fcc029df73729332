// A request read in one piece and read in two must come to the same, wherever it is cut.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "http/gate.h"
#include "http/request.h"

namespace velmora {
namespace {

using State = RequestReader::State;

// Hands over the bytes up to the cut, then the others, in pieces of the size that a read has.
State read_cut(std::string_view bytes, std::size_t cut, RequestReader& reader) {
  State state = State::incomplete;
  for (std::string_view part : {bytes.substr(0, cut), bytes.substr(cut)}) {
    // Behind a whole request, further bytes are not looked at.
    while (state == State::incomplete && !part.empty()) {
      const std::string_view piece = part.substr(0, read_chunk_bytes);
      std::copy(piece.begin(), piece.end(), reader.room());
      state = reader.take(piece.size());
      part.remove_prefix(piece.size());
    }
  }
  return state;
}

bool same(const ApiRequest& left, const ApiRequest& right) {
  return left.method == right.method && left.target == right.target && left.host == right.host &&
         left.origin == right.origin && left.content_length == right.content_length &&
         left.session_token == right.session_token;
}

// Parses the head once more from memory of its exact size, so that a sanitizer reports a read behind it.
void check_exact(std::string_view bytes) {
  const std::vector<char> exact(bytes.begin(), bytes.end());
  HeadState state;
  ApiRequest request;
  static_cast<void>(parse_head({exact.data(), exact.size()}, state, request));
}

void check(std::string_view bytes) {
  if (bytes.size() < 2) return;
  const std::size_t cut = static_cast<unsigned char>(bytes.back()) % bytes.size();
  bytes.remove_suffix(1);
  check_exact(bytes);
  RequestReader whole;
  RequestReader pieces;
  const State whole_state = read_cut(bytes, bytes.size(), whole);
  const State pieces_state = read_cut(bytes, cut, pieces);
  if (whole_state != pieces_state) std::abort();
  if (whole_state != State::complete) return;
  if (!same(whole.request(), pieces.request())) std::abort();
  // A wrapped length gives as much of the body as had come, and so depends on the cut.
  if (!whole.request().body.starts_with(pieces.request().body)) std::abort();
  static_cast<void>(host_allowed(whole.request(), 17831));
  static_cast<void>(origin_allowed(whole.request(), 17831));
}

}  // namespace
}  // namespace velmora

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora::check({reinterpret_cast<const char*>(data), size});
  return 0;
}
