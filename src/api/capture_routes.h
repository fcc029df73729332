// POST /api/v1/debug/capture, GET .../ready and GET .../download.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "bridge/mapping.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// Each of these handlers writes one response.
//
// 400: a field is invalid, and nothing is published or deleted. 503: the record cannot be written; an export
// has already deleted the files.
void post_capture(const Socket& socket, const ApiRequest& request, ControlBridge& bridge);

// Always 200.
void get_capture_ready(const Socket& socket);

// 200 with the archive. 404: there is no export. 500: one of its files cannot be sent. An error after the
// head ends the response short of its Content-Length.
void get_capture_download(const Socket& socket);

// Returns the head for an archive of `bytes` bytes, up to and including the empty line. Pure.
[[nodiscard]] std::string format_archive_head(std::uint64_t bytes, std::string_view file_name);

// Streams the archive of the capture directory, with its head. Returns true once the socket has taken the
// last byte. `head_sent` says whether any byte may have been sent; `error` says what failed.
[[nodiscard]] bool stream_capture_zip(const Socket& socket, bool& head_sent, std::string& error);

// Returns "velmora-capture-YYYYMMDD-HHMMSS.zip" in local time.
[[nodiscard]] std::string capture_zip_file_name();

}  // namespace velmora
