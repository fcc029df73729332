#include "api/capture_routes.h"

#include <array>
#include <ctime>

#include "api/answers.h"
#include "capture/capture_archive.h"
#include "capture/capture_control.h"
#include "http/response.h"
#include "platform/clock.h"

namespace velmora {
namespace {

constexpr std::string_view accepted_body = "{\"ok\":true,\"applies_within_seconds\":1}";

// Sends everything after the head.
bool send_archive(const Socket& socket, CaptureArchive& archive, std::string& error) {
  for (;;) {
    ArchivePiece piece = next_archive_piece(archive);
    if (!piece.error.empty()) {
      error = std::move(piece.error);
      return false;
    }
    if (piece.bytes.empty()) return true;
    if (!send_all(socket, piece.bytes)) {
      error = "the download was interrupted";
      return false;
    }
  }
}

}  // namespace

void post_capture(const Socket& socket, const ApiRequest& request, ControlBridge& bridge) {
  const auto [command, error] = parse_capture_body(request.body);
  if (!error.empty()) return write_bad_request(socket, error);
  if (command.action == CaptureAction::write_files) remove_capture_files();
  const auto action = static_cast<std::uint16_t>(command.action);
  if (bridge.publish_capture_request(action, command.seconds) != BridgeResult::done) {
    return write_bridge_unavailable(socket);
  }
  write_response(socket, 200, "OK", content_type_json, accepted_body);
}

void get_capture_ready(const Socket& socket) {
  std::uint64_t bytes = 0;
  std::string body =
      capture_files_ready(bytes) ? "{\"ready\":true,\"bytes\":" : "{\"ready\":false,\"bytes\":";
  body.append(std::to_string(bytes)).append("}");
  write_document(socket, body);
}

void get_capture_download(const Socket& socket) {
  bool head_sent = false;
  std::string error;
  if (stream_capture_zip(socket, head_sent, error) || head_sent) return;
  if (error.starts_with("no exported capture found")) return write_not_found(socket, error);
  write_error(socket, 500, "Internal Server Error", error);
}

std::string format_archive_head(std::uint64_t bytes, std::string_view file_name) {
  std::string head =
      "HTTP/1.1 200 OK\r\n"
      "Content-Type: application/zip\r\n"
      "Content-Length: ";
  head += std::to_string(bytes);
  head += "\r\nContent-Disposition: attachment; filename=\"";
  head += file_name;
  head +=
      "\"\r\n"
      "Connection: close\r\n"
      "Cache-Control: no-store\r\n"
      "X-Content-Type-Options: nosniff\r\n"
      "\r\n";
  return head;
}

bool stream_capture_zip(const Socket& socket, bool& head_sent, std::string& error) {
  head_sent = false;
  CaptureArchive archive;
  error = open_capture_archive(capture_directory(), archive);
  if (!error.empty()) return false;
  head_sent = true;
  if (!send_all(socket, format_archive_head(archive_bytes(archive), capture_zip_file_name()))) {
    error = "the connection closed before the download started";
    return false;
  }
  return send_archive(socket, archive, error);
}

std::string capture_zip_file_name() {
  std::array<char, 16> stamp{};
  std::size_t length = 0;
  std::tm local_time{};
  // The name has no time if the system cannot provide it, or if the year has five digits.
  if (read_local_time(local_time)) {
    length = std::strftime(stamp.data(), stamp.size(), "%Y%m%d-%H%M%S", &local_time);
  }
  return std::string("velmora-capture-").append(stamp.data(), length).append(".zip");
}

}  // namespace velmora
