// POST /api/v1/debug/capture, GET .../ready and GET .../download.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "bridge/mapping.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// Each of these writes one response. 400: a field is refused, and nothing is published or removed; 503: the
// record cannot be written, though an export has removed the files by then.
void post_capture(const Socket& socket, const ApiRequest& request, ControlBridge& bridge);

// Always 200.
void get_capture_ready(const Socket& socket);

// 200 with the archive; 404: no export is there; 500: a file of it cannot be sent. What fails behind the head
// ends the response short of its Content-Length.
void get_capture_download(const Socket& socket);

// The head of the answer with an archive of so many bytes, up to and including the empty line. Pure.
[[nodiscard]] std::string format_archive_head(std::uint64_t bytes, std::string_view file_name);

// Streams the archive of the capture directory with its head. True when the socket has taken the last byte.
// `head_sent` tells whether anything may have gone out; `error` says what failed.
[[nodiscard]] bool stream_capture_zip(const Socket& socket, bool& head_sent, std::string& error);

// velmora-capture-YYYYMMDD-HHMMSS.zip, of the local time.
[[nodiscard]] std::string capture_zip_file_name();

}  // namespace velmora
