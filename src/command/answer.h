// Parses the answer to an HTTP request, piece by piece. Pure.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velmora {

inline constexpr std::size_t answer_head_bytes = 65536;
inline constexpr std::size_t answer_body_bytes = std::size_t{16} * 1024 * 1024;

// Collects one answer of HTTP/1.1 that ends after a body of the announced length.
class AnswerReader {
 public:
  enum class State { incomplete, complete, bad };

  // Takes the next bytes. `bad` is final: no such answer can follow. Bytes after a complete answer make it
  // bad too.
  State feed(std::string_view bytes);

  // Whether any byte has come.
  [[nodiscard]] bool has_begun() const { return has_begun_; }
  // The status, 100 to 999, and the body. Valid when complete.
  [[nodiscard]] unsigned status() const { return status_; }
  [[nodiscard]] const std::string& body() const { return bytes_; }

 private:
  [[nodiscard]] bool read_head(std::string_view head);
  State judge_body();

  std::string bytes_;  // the head with all that follows it; from its end on, the body
  bool has_begun_ = false;
  bool has_head_ = false;
  bool is_bad_ = false;
  unsigned status_ = 0;
  std::size_t length_ = 0;
};

}  // namespace velmora
