#include "http/stored_response.h"

#include <algorithm>
#include <string>
#include <utility>

#include "http/response.h"

namespace velmora {
namespace {

// Longer than any head of a 200.
constexpr std::size_t head_room_bytes = 512;

ResponseMemory memory_with(std::string_view body) {
  ResponseMemory memory(body.size());
  std::copy(body.begin(), body.end(), memory.body());
  return memory;
}

}  // namespace

ResponseMemory::ResponseMemory(std::size_t body_capacity)
    : bytes(std::make_unique_for_overwrite<char[]>(head_room_bytes + body_capacity)) {}

char* ResponseMemory::body() const { return bytes.get() + head_room_bytes; }

StoredResponse::StoredResponse(std::string_view content_type, std::string_view body)
    : StoredResponse(content_type, memory_with(body), body.size()) {}

StoredResponse::StoredResponse(std::string_view content_type, ResponseMemory memory, std::size_t body_size)
    : body_(memory.body(), body_size) {
  const std::string head = format_head(200, "OK", content_type, body_size);
  char* const start = memory.body() - head.size();
  std::copy(head.begin(), head.end(), start);
  bytes_ = {start, head.size() + body_size};
  memory_ = std::move(memory.bytes);
}

}  // namespace velmora
