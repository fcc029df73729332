#include "command/run_file.h"

#include <algorithm>

#include "json/find.h"
#include "json/write.h"

namespace velmora {
namespace {

bool is_run_id(std::string_view text) {
  constexpr std::size_t digits = 16;
  return text.size() == digits && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

bool is_usable_token(std::string_view token) {
  constexpr std::size_t most_bytes = 4096;
  const auto is_control = [](char byte) { return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F; };
  return !token.empty() && token.size() <= most_bytes && std::none_of(token.begin(), token.end(), is_control);
}

std::optional<std::uint16_t> find_port(std::string_view text) {
  const auto number = json_find_number(text, "port");
  if (!number || *number < 1 || *number > 65535) return std::nullopt;
  const auto port = static_cast<std::uint16_t>(*number);
  return static_cast<float>(port) == *number ? std::optional(port) : std::nullopt;
}

// Both files are one line. A text without its end has been cut off.
bool is_one_line(std::string_view text) {
  return text.starts_with('{') && text.find('\n') == text.size() - 1;
}

}  // namespace

std::string format_run_record(const RunRecord& record) {
  std::string text;
  JsonObject members(text);
  members.add("version", record.version);
  members.add("address", public_address(record.port));
  members.add("port", record.port);
  members.add("run", record.run_id);
  members.add("process_id", record.process_id);
  members.add("token", record.token);
  members.end();
  return text + '\n';
}

std::optional<RunRecord> parse_run_record(std::string_view text) {
  if (!is_one_line(text)) return std::nullopt;
  const auto port = find_port(text);
  const auto version = json_find_string(text, "version");
  const auto run_id = json_find_string(text, "run");
  const auto token = json_find_string(text, "token");
  if (!port || !version || !run_id || !token) return std::nullopt;
  if (!is_run_id(*run_id) || !is_usable_token(*token)) return std::nullopt;
  return RunRecord{*version, *port, *run_id, 0, *token};
}

std::string format_stop_request(const StopRequest& request) {
  std::string text;
  JsonObject members(text);
  members.add("run", request.run_id);
  members.add("force", request.force);
  members.end();
  return text + '\n';
}

std::optional<StopRequest> parse_stop_request(std::string_view text) {
  if (!is_one_line(text)) return std::nullopt;
  const auto run_id = json_find_string(text, "run");
  const auto force = json_find_bool(text, "force");
  if (!run_id || !force || !is_run_id(*run_id)) return std::nullopt;
  return StopRequest{*run_id, *force};
}

std::string public_address(std::uint16_t port) { return "http://127.0.0.1:" + std::to_string(port) + "/"; }

std::string page_address(const RunRecord& record) {
  return public_address(record.port) + "?token=" + record.token;
}

}  // namespace velmora
