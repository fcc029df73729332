// A complete response that is made once and sent many times.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace velmora {

// Memory for a head and for a body that the caller writes straight into its place, so that it is never
// copied.
struct ResponseMemory {
  // For a body of up to `body_capacity` bytes. They are not initialized.
  explicit ResponseMemory(std::size_t body_capacity);
  [[nodiscard]] char* body() const;

  std::unique_ptr<char[]> bytes;
};

// A response 200 "OK" with head and body in one block. Move-only; a new one has no bytes.
class StoredResponse {
 public:
  StoredResponse() = default;
  // Copies the body. The content type has at most 64 bytes, here and below.
  StoredResponse(std::string_view content_type, std::string_view body);
  // Takes the memory, whose body has `body_size` bytes, and writes the head in front of them.
  StoredResponse(std::string_view content_type, ResponseMemory memory, std::size_t body_size);

  // Head and body, and the body only. Valid until this response is destroyed or assigned to. The bytes do not
  // move with it.
  [[nodiscard]] std::string_view bytes() const { return bytes_; }
  [[nodiscard]] std::string_view body() const { return body_; }

 private:
  std::unique_ptr<char[]> memory_;
  std::string_view bytes_;
  std::string_view body_;
};

}  // namespace velmora
