// The texts of the two files by which commands find a running service: the run file and the stop request.
// Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velmora {

// What `start` writes about the service that it runs.
struct RunRecord {
  std::string version;           // of the service
  std::uint16_t port = 0;        // 1..65535
  std::string run_id;            // 16 lower-case hexadecimal digits, new for each run
  std::uint32_t process_id = 0;  // of the service; for people, it is never read back
  std::string token;             // secret
};

// One line of JSON.
[[nodiscard]] std::string format_run_record(const RunRecord& record);

// Returns no value unless all of it makes sense. The token is then safe in the head of a request: it has 1 to
// 4096 bytes and no control character.
[[nodiscard]] std::optional<RunRecord> parse_run_record(std::string_view text);

// What `stop` asks the run of this id to do.
struct StopRequest {
  std::string run_id;
  bool force = false;
};

[[nodiscard]] std::string format_stop_request(const StopRequest& request);
[[nodiscard]] std::optional<StopRequest> parse_stop_request(std::string_view text);

// The address of the page, without the token. It may be printed.
[[nodiscard]] std::string public_address(std::uint16_t port);
// The address of the page, with the token.
[[nodiscard]] std::string page_address(const RunRecord& record);

}  // namespace velmora
