// One file because the three routes share one machine: the commands, the files and the archive made of them.
#include "api/capture_routes.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "capture/capture_directory.h"
#include "unit/capture/support/captures.h"
#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

constexpr std::size_t capture_word = 0x0A8 / 8;

const std::string accepted =
    expected_response("200 OK", "application/json", R"({"ok":true,"applies_within_seconds":1})");
const std::string unavailable =
    expected_error("503 Service Unavailable", "shared control bridge update failed");
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

class CaptureRoutes : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    new_machine();
  }
  void TearDown() override {
    bridge_.close();
    capture_directory_override.clear();
    FreshMachine::TearDown();
  }

  // A machine with the four files, the usual clock and an open bridge.
  void new_machine() {
    bridge_.close();
    memory::reset();
    capture_directory_override = "captures";
    memory::system().local_time = usual_moment();
    put_captures(captures_);
    std::string message;
    ASSERT_TRUE(bridge_.create(u"Local\\captures", message)) << message;
    memory::system().log.clear();
  }

  std::string post(const std::string& body) {
    const Accepted client = accept_client({});
    ApiRequest request;
    request.body = body;
    post_capture(client.socket, request, bridge_);
    return client.client->from_service;
  }
  static std::string ready() {
    const Accepted client = accept_client({});
    get_capture_ready(client.socket);
    return client.client->from_service;
  }
  static std::string download() {
    const Accepted client = accept_client({});
    get_capture_download(client.socket);
    return client.client->from_service;
  }
  static std::string ready_answer(const std::string& value, std::uint64_t bytes) {
    return expected_response("200 OK", "application/json; charset=utf-8",
                             "{\"ready\":" + value + ",\"bytes\":" + std::to_string(bytes) + "}");
  }

  static std::vector<std::uint64_t>& record() {
    return memory::system().regions.at(u"Local\\captures").lock()->words;
  }

  // The whole answer of a download that nothing disturbs.
  std::string whole_download() const {
    const std::string archive = expected_archive(captures_, usual_time, usual_date);
    return head_of(archive.size(), "velmora-capture-20260314-091502.zip") + archive;
  }
  // The same, in the pieces in which it is sent.
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
  ControlBridge bridge_;
};

TEST_F(CaptureRoutes, PublishEachActionWithItsCodeAndSeconds) {
  EXPECT_EQ(post(R"({"action":"start","seconds":30})"), accepted);
  EXPECT_EQ(record()[capture_word], 0x00000001001E0001u);
  EXPECT_EQ(post(R"({"action":"stop","seconds":1})"), accepted);
  EXPECT_EQ(record()[capture_word], 0x0000000200010002u);
  EXPECT_EQ(post(R"({"action":"export","seconds":300})"), accepted);
  EXPECT_EQ(record()[capture_word], 0x00000003012C0003u);
  EXPECT_EQ(post(R"({"action":"start"})"), accepted);
  EXPECT_EQ(record()[capture_word], 0x0000000400780001u);
}

TEST_F(CaptureRoutes, PublishEqualCommandsThatDifferInTheirSequenceAlone) {
  EXPECT_EQ(post(R"({"action":"start","seconds":7})"), accepted);
  const std::uint64_t first = record()[capture_word];
  EXPECT_EQ(post(R"({"action":"start","seconds":7})"), accepted);
  EXPECT_EQ(record()[capture_word], first + 0x100000000);
}

TEST_F(CaptureRoutes, CountCommandsIn32Bits) {
  record()[capture_word] = 0xFFFFFFFF00070001;
  EXPECT_EQ(post(R"({"action":"stop","seconds":8})"), accepted);
  EXPECT_EQ(record()[capture_word], 0x0000000000080002u);
  EXPECT_EQ(post(R"({"action":"stop","seconds":8})"), accepted);
  EXPECT_EQ(record()[capture_word], 0x0000000100080002u);
}

TEST_F(CaptureRoutes, ChangeNoOtherWordOfTheRecord) {
  for (const std::string action : {"start", "stop", "export"}) {
    std::vector<std::uint64_t> expected = record();
    EXPECT_EQ(post("{\"action\":\"" + action + "\"}"), accepted);
    expected[capture_word] = record()[capture_word];
    EXPECT_EQ(record(), expected) << action;
  }
}

TEST_F(CaptureRoutes, Take120SecondsForANumberInQuotes) {
  EXPECT_EQ(post(R"({"action":"start","seconds":"60"})"), accepted);
  EXPECT_EQ(record()[capture_word] & 0xFFFFFFFF, 0x00780001u);
}

TEST_F(CaptureRoutes, CutSecondsTowardZero) {
  EXPECT_EQ(post(R"({"action":"stop","seconds":1.9})"), accepted);
  EXPECT_EQ(record()[capture_word] & 0xFFFFFFFF, 0x00010002u);
  EXPECT_EQ(post(R"({"action":"stop","seconds":300.0})"), accepted);
  EXPECT_EQ(record()[capture_word] & 0xFFFFFFFF, 0x012C0002u);
}

TEST_F(CaptureRoutes, RefuseACommandAndLeaveRecordAndFilesAlone) {
  record()[capture_word] = 0x0000000500780001;
  const std::vector<std::uint64_t> before = record();
  ASSERT_EQ(before.size(), 576u / 8);
  const struct {
    std::string body;
    std::string answer;
  } rows[] = {
      {"", action_refused},
      {"{}", action_refused},
      {R"({"action":"Start"})", action_refused},
      {R"({"action":"Export"})", action_refused},
      {R"({"action":"exports","seconds":0})", action_refused},
      {R"({"action":"start","seconds":0.5})", seconds_refused},
      {R"({"action":"start","seconds":0.999})", seconds_refused},
      {R"({"action":"stop","seconds":999})", seconds_refused},
      {R"({"action":"export","seconds":300.5})", seconds_refused},
      {R"({"action":"export","seconds":0})", seconds_refused},
      {R"({"action":"export","seconds":-1})", seconds_refused},
  };
  for (const bool open : {true, false}) {
    const std::shared_ptr<memory::Region> region = memory::system().regions.at(u"Local\\captures").lock();
    if (!open) bridge_.close();
    memory::system().log.clear();
    for (const auto& row : rows) {
      SCOPED_TRACE(row.body);
      EXPECT_EQ(post(row.body), row.answer);
      EXPECT_EQ(region->words, before);
      EXPECT_EQ(memory::system().files.size(), 4u);
    }
    EXPECT_EQ(calls_of("DeleteFileW"), 0);
  }
}

TEST_F(CaptureRoutes, RemoveTheFormerFilesForAnExport) {
  memory::system().files["captures/other.wav"].bytes = "x";
  EXPECT_EQ(post(R"({"action":"export"})"), accepted);
  EXPECT_EQ(record()[capture_word], 0x0000000100780003u);
  EXPECT_EQ(memory::system().files.size(), 1u);
  EXPECT_EQ(ready(), ready_answer("false", 0));
}

TEST_F(CaptureRoutes, RemoveTheFormerFilesBeforeTheyPublishTheExport) {
  capture_directory_override.clear();
  std::uint64_t word_at_removal = 77;
  memory::system().before_machine_call = [&](const std::string&) {
    word_at_removal = record()[capture_word];
  };
  EXPECT_EQ(post(R"({"action":"export"})"), accepted);
  EXPECT_EQ(word_at_removal, 0u);
  EXPECT_EQ(calls_of("DeleteFileW"), 4);
}

TEST_F(CaptureRoutes, RemoveTheFormerFilesThoughNoBridgeIsOpen) {
  bridge_.close();
  EXPECT_EQ(post(R"({"action":"export"})"), unavailable);
  EXPECT_TRUE(memory::system().files.empty());
}

TEST_F(CaptureRoutes, KeepTheFilesForStartAndStop) {
  for (const std::string action : {"start", "stop"}) {
    EXPECT_EQ(post("{\"action\":\"" + action + "\"}"), accepted);
    EXPECT_EQ(memory::system().files.size(), 4u);
    EXPECT_EQ(ready(), ready_answer("true", 1 + 65536 + 65537 + 140000));
  }
  bridge_.close();
  for (const std::string action : {"start", "stop"}) {
    EXPECT_EQ(post("{\"action\":\"" + action + "\"}"), unavailable);
    EXPECT_EQ(memory::system().files.size(), 4u);
  }
  EXPECT_EQ(calls_of("DeleteFileW"), 0);
}

TEST_F(CaptureRoutes, ExportThoughTheFormerFilesCannotBeRemoved) {
  memory::system().faults["DeleteFileW"] = {32, 5, 2, 3};
  EXPECT_EQ(post(R"({"action":"export"})"), accepted);
  EXPECT_EQ(record()[capture_word], 0x0000000100780003u);
  EXPECT_EQ(memory::system().files.size(), 4u);
  // Nor does it matter that there are none.
  memory::system().files.clear();
  EXPECT_EQ(post(R"({"action":"export"})"), accepted);
  EXPECT_EQ(record()[capture_word], 0x0000000200780003u);
}

TEST_F(CaptureRoutes, LeaveADirectoryThatBearsTheNameOfACapture) {
  capture_file(2).kind = FileKind::directory;
  EXPECT_EQ(post(R"({"action":"export"})"), accepted);
  EXPECT_EQ(memory::system().files.size(), 1u);
  EXPECT_TRUE(memory::system().files.contains(capture_path(2)));
}

TEST_F(CaptureRoutes, TellThatAnExportIsComplete) {
  EXPECT_EQ(ready(), ready_answer("true", 1 + 65536 + 65537 + 140000));
  capture_file(3).size = 0x1000000000;
  EXPECT_EQ(ready(), ready_answer("true", 1 + 65536 + 65537 + 0x1000000000));
  EXPECT_EQ(calls_of("CreateFileW"), 0);
}

TEST_F(CaptureRoutes, TellTheBytesInFrontOfTheFirstFileThatFails) {
  memory::system().files.erase(capture_path(2));
  EXPECT_EQ(ready(), ready_answer("false", 1 + 65536));
  capture_file(1).bytes.clear();
  EXPECT_EQ(ready(), ready_answer("false", 1));
  memory::system().files.clear();
  EXPECT_EQ(ready(), ready_answer("false", 0));
}

TEST_F(CaptureRoutes, SendTheArchiveWithItsHead) { EXPECT_TRUE(download() == whole_download()); }

TEST_F(CaptureRoutes, SendFourFilesOfOneByteAs522Bytes) {
  captures_ = {"a", "b", "c", "d"};
  new_machine();
  const std::string answer = download();
  EXPECT_NE(answer.find("\r\nContent-Length: 522\r\n"), std::string::npos);
  const std::string archive = answer.substr(answer.find("\r\n\r\n") + 4);
  EXPECT_EQ(archive.size(), 522u);
  const ReadArchive read = read_archive(archive);
  EXPECT_EQ(read.trouble, "");
  ASSERT_EQ(read.members.size(), 4u);
  for (std::size_t index = 0; index < 4; ++index) EXPECT_EQ(read.members[index].bytes, captures_[index]);
}

TEST_F(CaptureRoutes, SendAnArchiveThatIsReadBackFromItsEnd) {
  const std::string answer = download();
  const ReadArchive read = read_archive(std::string_view(answer).substr(answer.find("\r\n\r\n") + 4));
  ASSERT_EQ(read.trouble, "");
  ASSERT_EQ(read.members.size(), 4u);
  for (std::size_t index = 0; index < 4; ++index) {
    EXPECT_EQ(read.members[index].name, names_of_captures[index]);
    EXPECT_TRUE(read.members[index].bytes == captures_[index]);
  }
}

TEST_F(CaptureRoutes, SendHeadAndPiecesEachByItself) {
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

TEST_F(CaptureRoutes, WriteAnArchivesHeadWithALengthOf64Bits) {
  for (const std::uint64_t bytes : {std::uint64_t{522}, std::uint64_t{0xFFFFFFFF}, std::uint64_t{0x100000000},
                                    4 * std::uint64_t{0xFFFFFFFF} + 518}) {
    EXPECT_EQ(format_archive_head(bytes, "a name.zip"), head_of(bytes, "a name.zip"));
  }
  EXPECT_NE(format_archive_head(17179869698, "").find("\r\nContent-Length: 17179869698\r\n"),
            std::string::npos);
}

TEST_F(CaptureRoutes, NameTheArchiveByTheLocalTime) {
  EXPECT_EQ(capture_zip_file_name(), "velmora-capture-20260314-091502.zip");
  memory::system().local_time = local_moment(1999, 12, 31, 23, 59, 58);
  EXPECT_EQ(capture_zip_file_name(), "velmora-capture-19991231-235958.zip");
  memory::system().local_time.reset();
  EXPECT_EQ(capture_zip_file_name(), "velmora-capture-.zip");
}

TEST_F(CaptureRoutes, SayWhyThereIsNoArchiveBeforeTheHead) {
  const struct {
    std::string why;
    std::function<void()> spoil;
    std::string answer;
  } rows[] = {
      {"the fourth is missing", [] { memory::system().files.erase(capture_path(3)); },
       expected_error("404 Not Found", "no exported capture found -- export first")},
      {"a directory", [] { capture_file(0).kind = FileKind::directory; },
       expected_error("404 Not Found", "no exported capture found -- export first")},
      {"a pipe", [] { capture_file(2).kind = FileKind::other; },
       expected_error("404 Not Found", "no exported capture found -- export first")},
      {"empty", [] { capture_file(1).bytes.clear(); },
       expected_error("500 Internal Server Error",
                      "capture file is empty or unreadable: capture-2-algorithm-in.wav")},
      {"size unreadable",
       [] {
         memory::system().faults["GetFileSizeEx"] = {0, 0, 0, 5};
       },
       expected_error("500 Internal Server Error",
                      "capture file is empty or unreadable: capture-4-host-out.wav")},
      {"too large", [] { capture_file(2).size = 0x100000000; },
       expected_error("500 Internal Server Error",
                      "capture file is too large for a zip member: capture-3-algorithm-out.wav")},
      {"locked", [] { memory::system().faults["CreateFileW"] = {32}; },
       expected_error("500 Internal Server Error", "cannot read capture-1-host-in.wav")},
      {"grown", [] { capture_file(1).size = 65535; },
       expected_error("500 Internal Server Error",
                      "capture file changed while it was being read: capture-2-algorithm-in.wav")},
      {"shrunk", [] { capture_file(1).size = 65537; },
       expected_error("500 Internal Server Error",
                      "capture file changed while it was being read: capture-2-algorithm-in.wav")},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    new_machine();
    row.spoil();
    EXPECT_EQ(download(), row.answer);
    EXPECT_EQ(calls_of("send"), 1);
    // Nothing of it is remembered.
    new_machine();
    EXPECT_TRUE(download() == whole_download());
    EXPECT_TRUE(download() == whole_download());
  }
}

TEST_F(CaptureRoutes, WriteNothingMoreBehindACallThatFails) {
  const std::vector<std::string> pieces = pieces_of_download();
  static_cast<void>(download());
  const std::vector<std::string> log = memory::system().log;
  // Four sizes and four openings, then the sends with four openings among them, then the socket's end.
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
    // The call that failed was the last but for the socket's end.
    EXPECT_EQ(memory::system().log.size(), call + 2);
    if (log[call] == "send") sent += pieces[next_piece++];
  }
  EXPECT_EQ(next_piece, pieces.size());
}

TEST_F(CaptureRoutes, SendWhatIsLeftOfAPieceThatWasTakenInPart) {
  for (const std::size_t limit : {1u, 7u, 51u, 1000u, 65535u, 65536u}) {
    captures_ = limit < 100 ? noise_of_sizes({1, 20, 300, 70}) : noise_of_sizes({1, 65536, 65537, 140000});
    new_machine();
    const Accepted client = accept_client({});
    client.client->send_limit = limit;
    get_capture_download(client.socket);
    EXPECT_TRUE(client.client->from_service == whole_download()) << limit;
  }
}

TEST_F(CaptureRoutes, StopAtTheByteAtWhichTheSocketFails) {
  captures_ = noise_of_sizes({1, 20, 300, 70});
  const std::string whole = whole_download();
  // A byte at a time, so that each byte is the last that goes out once.
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
      // Of files nothing is left open.
      ASSERT_EQ(memory::system().handles.size(), 1u + 2u);
    }
  }
}

TEST_F(CaptureRoutes, TellTheirCallerHowFarTheyCame) {
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
      // Head, four headers and 1 + 1 + 2 + 3 blocks go in front of the directory.
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

TEST_F(CaptureRoutes, CountTheHeadAsSentFromItsFirstByteOn) {
  const Accepted client = accept_client({});
  bool head_sent = false;
  std::vector<bool> at_sends;
  memory::system().on_send = [&] { at_sends.push_back(head_sent); };
  std::string error;
  EXPECT_TRUE(stream_capture_zip(client.socket, head_sent, error));
  EXPECT_EQ(at_sends, std::vector<bool>(13, true));
}

TEST_F(CaptureRoutes, CutAFileThatGrowsAndEndAtOneThatShrinksWhileTheySend) {
  memory::system().on_send = [] { capture_file(3).bytes += "more"; };
  EXPECT_TRUE(download() == whole_download());
  new_machine();
  memory::system().on_send = [] { capture_file(2).bytes.resize(65536); };
  const std::string answer = download();
  const std::string whole = whole_download();
  const std::size_t end = whole.find("\r\n\r\n") + 4 + 164 - 57 + 57 + 1 + 65536 + 65536;
  EXPECT_EQ(answer.size(), end);
  EXPECT_TRUE(answer == whole.substr(0, end));
}

TEST_F(CaptureRoutes, LookForTheFilesWhereTheSettingSaysAtThatMoment) {
  capture_directory_override = "elsewhere";
  EXPECT_EQ(ready(), ready_answer("false", 0));
  EXPECT_EQ(download(), expected_error("404 Not Found", "no exported capture found -- export first"));
  capture_directory_override = "captures";
  EXPECT_TRUE(download() == whole_download());
}

}  // namespace
}  // namespace velmora
