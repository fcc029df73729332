#include "api/capture_routes.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "capture/capture_directory.h"
#include "unit/api/support/routes.h"
#include "unit/capture/support/captures.h"

namespace velmora {
namespace {

const std::string accepted =
    expected_response("200 OK", "application/json", R"({"ok":true,"applies_within_seconds":1})");
const std::string action_refused = expected_error("400 Bad Request", "action must be start, stop or export");
const std::string seconds_refused = expected_error("400 Bad Request", "seconds must be between 1 and 300");

std::string head_of(std::uint64_t bytes, const std::string& file_name) {
  return "HTTP/1.1 200 OK\r\n"
         "Content-Type: application/zip\r\n"
         "Content-Length: " +
         std::to_string(bytes) +
         "\r\n"
         "Content-Disposition: attachment; filename=\"" +
         file_name +
         "\"\r\n"
         "Connection: close\r\n"
         "Cache-Control: no-store\r\n"
         "X-Content-Type-Options: nosniff\r\n"
         "\r\n";
}

class CaptureRoutes : public OpenBridge {
 protected:
  void SetUp() override {
    OpenBridge::SetUp();
    new_machine();
  }

  // A machine with the four files, the usual clock and an open bridge.
  void new_machine() {
    bridge_.close();
    memory::reset();
    capture_directory_override = "captures";
    memory::system().local_time = usual_moment();
    put_captures(captures_);
    open_bridge();
  }

  std::string post(const std::string& body) { return answer_of(post_capture, request_with(body), bridge_); }
  static std::string ready() { return answer_of(get_capture_ready); }
  static std::string download() {
    const Accepted client = accept_client({});
    get_capture_download(client.socket);
    return client.client->from_service;
  }
  static std::string ready_answer(const std::string& value, std::uint64_t bytes) {
    return expected_document("{\"ready\":" + value + ",\"bytes\":" + std::to_string(bytes) + "}");
  }
  std::uint64_t& capture_word() { return word_at(0x0A8); }

  // The whole answer to a download without failures.
  std::string whole_download() const {
    const std::string archive = expected_archive(captures_, usual_time, usual_date);
    return head_of(archive.size(), "velmora-capture-20260314-091502.zip") + archive;
  }
  // The same, in the pieces that are sent.
  std::vector<std::string> pieces_of_download() const {
    std::string rest = whole_download();
    std::vector<std::string> pieces;
    const auto take = [&](std::size_t size) {
      pieces.push_back(rest.substr(0, size));
      rest.erase(0, size);
    };
    take(rest.find("\r\n\r\n") + 4);
    for (std::size_t index = 0; index < 4; ++index) {
      take(30 + names_of_captures[index].size());
      for (std::size_t left = captures_[index].size(); left > 0;) {
        const std::size_t size = std::min<std::size_t>(left, 65536);
        take(size);
        left -= size;
      }
    }
    take(302);
    EXPECT_EQ(rest, "");
    return pieces;
  }

  Captures captures_ = noise_of_sizes({1, 65536, 65537, 140000});
};

TEST_F(CaptureRoutes, PublishesEachActionWithItsSecondsAndASequenceNumber) {
  const std::pair<std::string, std::uint64_t> rows[] = {
      {R"({"action":"start","seconds":30})", 0x00000001001E0001},
      {R"({"action":"stop","seconds":1.9})", 0x0000000200010002},
      {R"({"action":"export","seconds":300})", 0x00000003012C0003},
      {R"({"action":"start","seconds":"60"})", 0x0000000400780001},
      {R"({"action":"start"})", 0x0000000500780001},
  };
  std::vector<std::uint64_t> expected = record();
  for (const auto& [body, word] : rows) {
    EXPECT_EQ(post(body), accepted);
    expected[0x0A8 / 8] = word;
    EXPECT_EQ(record(), expected) << body;
  }
  capture_word() = 0xFFFFFFFF00070001;
  EXPECT_EQ(post(R"({"action":"stop","seconds":8})"), accepted);
  EXPECT_EQ(capture_word(), 0x0000000000080002u);
}

TEST_F(CaptureRoutes, RefusesAnInvalidCommandAndChangesNothing) {
  capture_word() = 0x0000000500780001;
  const std::vector<std::uint64_t> before = record();
  for (const bool open : {true, false}) {
    if (!open) bridge_.close();
    EXPECT_EQ(post(""), action_refused);
    EXPECT_EQ(post(R"({"action":"Export","seconds":0})"), action_refused);
    EXPECT_EQ(post(R"({"action":"start","seconds":999})"), seconds_refused);
    EXPECT_EQ(post(R"({"action":"export","seconds":0})"), seconds_refused);
    EXPECT_EQ(record(), before);
    EXPECT_EQ(memory::system().files.size(), 4u);
  }
}

TEST_F(CaptureRoutes, RemovesThePreviousFilesBeforeItPublishesAnExport) {
  // The lookup of the directory precedes the removal, and the record has no command yet.
  capture_directory_override.clear();
  std::uint64_t word_at_removal = 77;
  memory::system().before_machine_call = [&](const std::string&) { word_at_removal = capture_word(); };
  EXPECT_EQ(post(R"({"action":"export"})"), accepted);
  EXPECT_EQ(word_at_removal, 0u);
  EXPECT_EQ(calls_of("DeleteFileW"), 4);

  new_machine();
  memory::system().files["captures/other.wav"].bytes = "x";
  EXPECT_EQ(post(R"({"action":"export"})"), accepted);
  EXPECT_EQ(memory::system().files.size(), 1u);
  EXPECT_EQ(ready(), ready_answer("false", 0));

  new_machine();
  bridge_.close();
  EXPECT_EQ(post(R"({"action":"export"})"), publication_failed);
  EXPECT_TRUE(memory::system().files.empty());
}

TEST_F(CaptureRoutes, KeepsTheFilesForStartAndStop) {
  for (const std::string action : {"start", "stop"}) {
    EXPECT_EQ(post("{\"action\":\"" + action + "\"}"), accepted);
    EXPECT_EQ(memory::system().files.size(), 4u);
    EXPECT_EQ(ready(), ready_answer("true", 1 + 65536 + 65537 + 140000));
  }
  bridge_.close();
  for (const std::string action : {"start", "stop"}) {
    EXPECT_EQ(post("{\"action\":\"" + action + "\"}"), publication_failed);
    EXPECT_EQ(memory::system().files.size(), 4u);
  }
  EXPECT_EQ(calls_of("DeleteFileW"), 0);
}

TEST_F(CaptureRoutes, ExportsEvenIfThePreviousFilesCannotBeRemoved) {
  memory::system().faults["DeleteFileW"] = {32, 5, 2, 3};
  EXPECT_EQ(post(R"({"action":"export"})"), accepted);
  EXPECT_EQ(capture_word(), 0x0000000100780003u);
  EXPECT_EQ(memory::system().files.size(), 4u);
}

TEST_F(CaptureRoutes, ReportsWhetherTheExportIsComplete) {
  capture_file(3).size = 0x1000000000;
  EXPECT_EQ(ready(), ready_answer("true", 1 + 65536 + 65537 + 0x1000000000));
  memory::system().files.erase(capture_path(2));
  EXPECT_EQ(ready(), ready_answer("false", 1 + 65536));
}

TEST_F(CaptureRoutes, SendsTheArchiveWithItsHead) {
  EXPECT_TRUE(download() == whole_download());
  captures_ = {"a", "b", "c", "d"};
  new_machine();
  EXPECT_NE(download().find("\r\nContent-Length: 522\r\n"), std::string::npos);
}

TEST_F(CaptureRoutes, SendsHeadAndPiecesSeparately) {
  std::vector<std::size_t> sent_before;
  const Accepted client = accept_client({});
  memory::system().on_send = [&] { sent_before.push_back(client.client->from_service.size()); };
  get_capture_download(client.socket);
  std::vector<std::size_t> expected;
  std::size_t sum = 0;
  for (const std::string& piece : pieces_of_download()) {
    expected.push_back(sum);
    sum += piece.size();
  }
  EXPECT_EQ(sent_before, expected);
}

TEST_F(CaptureRoutes, WritesAHeadWithA64BitLength) {
  for (const std::uint64_t bytes : {std::uint64_t{522}, std::uint64_t{0xFFFFFFFF}, std::uint64_t{0x100000000},
                                    4 * std::uint64_t{0xFFFFFFFF} + 518}) {
    EXPECT_EQ(format_archive_head(bytes, "a name.zip"), head_of(bytes, "a name.zip"));
  }
}

TEST_F(CaptureRoutes, NamesTheArchiveByTheLocalTime) {
  EXPECT_EQ(capture_zip_file_name(), "velmora-capture-20260314-091502.zip");
  memory::system().local_time = local_moment(1999, 12, 31, 23, 59, 58);
  EXPECT_EQ(capture_zip_file_name(), "velmora-capture-19991231-235958.zip");
  memory::system().local_time.reset();
  EXPECT_EQ(capture_zip_file_name(), "velmora-capture-.zip");
}

TEST_F(CaptureRoutes, ReportsWhyThereIsNoArchive) {
  memory::system().files.erase(capture_path(3));
  EXPECT_EQ(download(), expected_error("404 Not Found", "no exported capture found -- export first"));
  put_captures(captures_);
  capture_file(1).bytes.clear();
  EXPECT_EQ(download(), expected_error("500 Internal Server Error",
                                       "capture file is empty or unreadable: capture-2-algorithm-in.wav"));
  EXPECT_EQ(calls_of("send"), 2);
  // A failure has no effect on later requests.
  put_captures(captures_);
  EXPECT_TRUE(download() == whole_download());
}

TEST_F(CaptureRoutes, SendsNothingAfterAFailedCall) {
  const std::vector<std::string> pieces = pieces_of_download();
  static_cast<void>(download());
  const std::vector<std::string> log = memory::system().log;
  // Four sizes and four openings, then the sends with four openings among them, then the close of the socket.
  ASSERT_EQ(log.size(), 8 + pieces.size() + 4 + 1);
  ASSERT_EQ(log.back(), "closesocket");
  std::string sent;
  std::size_t next_piece = 0;
  for (std::size_t call = 0; call + 1 < log.size(); ++call) {
    SCOPED_TRACE(std::to_string(call) + " " + log[call]);
    new_machine();
    memory::system().fault_at = memory::CallFault{call + 1, log[call] == "send" ? 10054 : 5};
    const std::string answer = download();
    if (call < 8) {
      const std::string name(names_of_captures[call % 4]);
      const std::string message =
          call < 4 ? "capture file is empty or unreadable: " + name : "cannot read " + name;
      EXPECT_EQ(answer, expected_error("500 Internal Server Error", message));
      continue;
    }
    EXPECT_TRUE(answer == sent);
    // Only the close of the socket follows the failed call.
    EXPECT_EQ(memory::system().log.size(), call + 2);
    if (log[call] == "send") sent += pieces[next_piece++];
  }
  EXPECT_EQ(next_piece, pieces.size());
}

TEST_F(CaptureRoutes, SendsTheRestOfAPartlySentPiece) {
  for (const std::size_t limit : {7u, 65535u}) {
    captures_ = limit < 100 ? noise_of_sizes({1, 20, 300, 70}) : noise_of_sizes({1, 65536, 65537, 140000});
    new_machine();
    const Accepted client = accept_client({});
    client.client->send_limit = limit;
    get_capture_download(client.socket);
    EXPECT_TRUE(client.client->from_service == whole_download()) << limit;
  }
}

TEST_F(CaptureRoutes, StopsAtTheByteAtWhichTheSocketFails) {
  captures_ = noise_of_sizes({1, 20, 300, 70});
  const std::string whole = whole_download();
  // One byte per send, so that every byte is the last one sent in one round.
  for (std::size_t bytes = 0; bytes < whole.size(); bytes += bytes < 300 ? 1 : 13) {
    for (const bool stalls : {false, true}) {
      SCOPED_TRACE(bytes);
      new_machine();
      const Accepted client = accept_client({});
      client.client->send_limit = 1;
      std::size_t sends = 0;
      memory::system().on_send = [&] {
        if (sends++ < bytes) return;
        client.client->send_stalls = stalls;
        client.client->client_gone = !stalls;
      };
      get_capture_download(client.socket);
      ASSERT_EQ(client.client->from_service, whole.substr(0, bytes));
      ASSERT_EQ(sends, bytes + 1);
      // No file is left open.
      ASSERT_EQ(memory::system().handles.size(), 1u + 2u);
    }
  }
}

TEST_F(CaptureRoutes, ReportsHowFarTheDownloadGot) {
  const std::string interrupted = "the download was interrupted";
  const struct {
    std::string why;
    std::function<void()> spoil;
    bool streamed;
    bool head_sent;
    std::string error;
  } rows[] = {
      {"nothing", [] {}, true, true, ""},
      {"no file", [] { memory::system().files.clear(); }, false, false,
       "no exported capture found -- export first"},
      {"changed", [] { capture_file(0).size = 2; }, false, false,
       "capture file changed while it was being read: capture-1-host-in.wav"},
      {"head", [] { memory::system().faults["send"] = {10054}; }, false, true,
       "the connection closed before the download started"},
      {"first header",
       [] {
         memory::system().faults["send"] = {0, 10054};
       },
       false, true, interrupted},
      {"first block",
       [] {
         memory::system().faults["send"] = {0, 0, 10054};
       },
       false, true, interrupted},
      // The head, four headers and 1 + 1 + 2 + 3 blocks precede the directory.
      {"directory", [] { memory::system().faults["send"] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 10054}; },
       false, true, interrupted},
      {"second opening", [] { memory::system().faults["CreateFileW"] = {0, 0, 0, 0, 0, 5}; }, false, true,
       "cannot read capture-2-algorithm-in.wav"},
      {"shrunk", [] { memory::system().on_send = [] { capture_file(3).bytes.resize(1); }; }, false, true,
       "capture file shrank while it was being sent: capture-4-host-out.wav"},
  };
  for (const auto& row : rows) {
    for (const bool before : {false, true}) {
      SCOPED_TRACE(row.why);
      new_machine();
      row.spoil();
      const Accepted client = accept_client({});
      bool head_sent = before;
      std::string error = "from before";
      EXPECT_EQ(stream_capture_zip(client.socket, head_sent, error), row.streamed);
      EXPECT_EQ(head_sent, row.head_sent);
      EXPECT_EQ(error, row.error);
      memory::system().on_send = nullptr;
    }
  }
}

TEST_F(CaptureRoutes, CountsTheHeadAsSentFromItsFirstByte) {
  const Accepted client = accept_client({});
  bool head_sent = false;
  std::vector<bool> at_sends;
  memory::system().on_send = [&] { at_sends.push_back(head_sent); };
  std::string error;
  EXPECT_TRUE(stream_capture_zip(client.socket, head_sent, error));
  EXPECT_EQ(at_sends, std::vector<bool>(13, true));
}

}  // namespace
}  // namespace velmora
