#include "command/answer.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "base/ascii.h"

namespace velmora {
namespace {

constexpr std::string_view line_end = "\r\n";
constexpr std::string_view head_end = "\r\n\r\n";

// Digits only.
std::optional<std::size_t> read_count(std::string_view text) {
  std::size_t count = 0;
  const auto end = std::from_chars(text.data(), text.data() + text.size(), count);
  if (text.empty() || end.ec != std::errc() || end.ptr != text.data() + text.size()) return std::nullopt;
  return count;
}

// Reads "HTTP/1.1 200" and what follows after a blank.
std::optional<unsigned> read_status_line(std::string_view line) {
  constexpr std::string_view protocol = "HTTP/1.1 ";
  constexpr std::size_t digits = 3;
  if (!line.starts_with(protocol)) return std::nullopt;
  line.remove_prefix(protocol.size());
  const auto status = read_count(line.substr(0, digits));
  if (!status || *status < 100 || (line.size() > digits && line[digits] != ' ')) return std::nullopt;
  return static_cast<unsigned>(*status);
}

// Whether an answer may still begin with this piece.
bool may_begin(std::string_view bytes) {
  constexpr std::string_view protocol = "HTTP/1.1 ";
  const std::size_t count = std::min(bytes.size(), protocol.size());
  return bytes.substr(0, count) == protocol.substr(0, count);
}

}  // namespace

bool AnswerReader::read_head(std::string_view head) {
  const auto status = read_status_line(head.substr(0, head.find(line_end)));
  if (!status) return false;
  status_ = *status;
  std::optional<std::size_t> length;
  for (std::size_t end = head.find(line_end); end != std::string_view::npos; end = head.find(line_end)) {
    head.remove_prefix(end + line_end.size());
    const std::string_view line = head.substr(0, head.find(line_end));
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    const std::string_view name = line.substr(0, colon);
    if (equal_ignoring_case(name, std::string_view("transfer-encoding"))) return false;
    if (!equal_ignoring_case(name, std::string_view("content-length"))) continue;
    const auto count = read_count(trim(line.substr(colon + 1)));
    if (!count || *count > answer_body_bytes || (length && *length != *count)) return false;
    length = count;
  }
  length_ = length.value_or(0);
  return length.has_value();
}

AnswerReader::State AnswerReader::judge_body() {
  if (bytes_.size() < length_) return State::incomplete;
  if (bytes_.size() == length_) return State::complete;
  is_bad_ = true;
  return State::bad;
}

AnswerReader::State AnswerReader::feed(std::string_view bytes) {
  if (is_bad_) return State::bad;
  has_begun_ = has_begun_ || !bytes.empty();
  const std::size_t searched = bytes_.size() < head_end.size() ? 0 : bytes_.size() - head_end.size();
  bytes_ += bytes;
  if (has_head_) return judge_body();
  const std::size_t end = bytes_.find(head_end, searched);
  const std::size_t head_size = end == std::string::npos ? bytes_.size() : end;
  if (!may_begin(bytes_) || head_size > answer_head_bytes) {
    is_bad_ = true;
    return State::bad;
  }
  if (end == std::string::npos) return State::incomplete;
  if (!read_head(std::string_view(bytes_).substr(0, end))) {
    is_bad_ = true;
    return State::bad;
  }
  has_head_ = true;
  bytes_.erase(0, end + head_end.size());
  return judge_body();
}

}  // namespace velmora
