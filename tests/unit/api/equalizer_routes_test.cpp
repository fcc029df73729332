#include "api/equalizer_routes.h"

#include <gtest/gtest.h>

#include <vector>

#include "capture/capture_directory.h"
#include "capture/preset_directory.h"
#include "effects/equalizer.h"
#include "unit/support/eq_body.h"
#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using Log = std::vector<std::string>;

const std::string directory = "C:\\Velmora\\presets";
const std::string collection = "/api/v1/eq/presets";
const std::string unavailable =
    expected_error("503 Service Unavailable", "shared control bridge update failed");
const std::string bad_name =
    expected_error("400 Bad Request", "preset name may contain letters, digits, spaces, - and _ only");
const std::string no_such_preset = expected_error("404 Not Found", "no such preset");
const std::string no_route = expected_error("404 Not Found", "route not found");
const std::string bad_method = expected_error("405 Method Not Allowed", "unsupported method");
const std::string not_written = expected_error("500 Internal Server Error", "cannot write the preset file");
const std::string bad_count = expected_error("400 Bad Request", "bands must contain exactly 15 entries");

std::string document(std::string_view body) {
  return expected_response("200 OK", "application/json; charset=utf-8", body);
}

std::string json_of(const EqSettings& settings) {
  std::string text;
  write_eq_json(text, settings);
  return text;
}

std::map<std::string, memory::File>& files() { return memory::system().files; }

// What the machine was asked for, but for the answers that went out.
Log calls_beside_answers() {
  Log calls = memory::system().log;
  std::erase_if(calls, [](const std::string& call) { return call == "send" || call == "closesocket"; });
  return calls;
}

class EqualizerRoutes : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    preset_directory_override = directory;
    std::string message;
    ASSERT_TRUE(bridge_.create(u"Local\\equalizer", message)) << message;
    region_ = memory::system().regions.at(u"Local\\equalizer").lock();
    memory::system().log.clear();
  }
  void TearDown() override {
    bridge_.close();
    preset_directory_override.clear();
    capture_directory_override.clear();
    FreshMachine::TearDown();
  }

  std::string get() {
    const Accepted accepted = accept_client({});
    get_eq(accepted.socket, bridge_);
    return accepted.client->from_service;
  }
  std::string put(const std::string& body) {
    const Accepted accepted = accept_client({});
    ApiRequest request;
    request.method = "PUT";
    request.body = body;
    put_eq(accepted.socket, request, bridge_);
    return accepted.client->from_service;
  }
  // An answer below the presets, to the method and what stands behind the collection's path.
  static std::string presets(const std::string& method, const std::string& rest,
                             const std::string& body = "") {
    const Accepted accepted = accept_client({});
    ApiRequest request;
    request.method = method;
    request.body = body;
    serve_presets(accepted.socket, request, collection + rest);
    return accepted.client->from_service;
  }
  EqSettings live() {
    EqSettings settings;
    EXPECT_TRUE(bridge_.read_eq(settings));
    return settings;
  }
  std::vector<std::uint64_t> record() const { return region_->words; }

  ControlBridge bridge_;
  std::shared_ptr<memory::Region> region_;
};

TEST_F(EqualizerRoutes, ShowANewRecordFrom20To20000) {
  const std::string answer = get();
  EXPECT_EQ(answer, document(json_of(live())));
  EXPECT_NE(
      answer.find(R"({"bypass":true,"fade_ms":20,"bands":[{"type":0,"freq_hz":20,"gain_db":0,"q":0.707},)"),
      std::string::npos);
  EXPECT_NE(answer.find(R"({"type":0,"freq_hz":20000,"gain_db":0,"q":0.707}]})"), std::string::npos);
}

TEST_F(EqualizerRoutes, ShowTheDefaultsWhereTheRecordCannotBeRead) {
  EqSettings settings;
  settings.bypass = false;
  ASSERT_EQ(bridge_.publish_eq(settings), BridgeResult::done);
  ASSERT_EQ(get(), document(json_of(settings)));
  region_->words[0x0C0 / 8] = 3;  // a writer is at it and does not come to an end
  EXPECT_EQ(get(), document(json_of({})));
  region_->words[0x0C0 / 8] = 4;
  EXPECT_EQ(get(), document(json_of(settings)));
  bridge_.close();
  EXPECT_EQ(get(), document(json_of({})));
}

TEST_F(EqualizerRoutes, ShowWhatWasPut) {
  const std::string band = eq_band_text("8.9", "32.757877", "-30", "0.1");
  EXPECT_EQ(put(eq_body(eq_bands_text(15, band), R"(,"bypass":false,"fade_ms":12.34)")), expected_ok());
  EqSettings expected;
  expected.bypass = false;
  expected.fade_ms = 12.3f;
  expected.bands.fill({8, 32.757877f, -30.0f, 0.1f});
  EXPECT_EQ(get(), document(json_of(expected)));
  const EqSettings stored = live();
  EXPECT_EQ(stored.bands, expected.bands);
  EXPECT_FALSE(stored.bypass);
  EXPECT_EQ(stored.fade_ms, 12.3f);
  EXPECT_EQ(put(json_of(expected)), expected_ok());
  EXPECT_EQ(get(), document(json_of(expected)));
}

TEST_F(EqualizerRoutes, KeepThePresentBypassAndFadeThatABodyLeavesOut) {
  ASSERT_EQ(put(eq_body(eq_bands_text(15), R"(,"bypass":false,"fade_ms":77.7)")), expected_ok());
  EXPECT_EQ(put(eq_body(eq_bands_text(15, eq_band_text("3")))), expected_ok());
  EXPECT_FALSE(live().bypass);
  EXPECT_EQ(live().fade_ms, 77.7f);
  EXPECT_EQ(live().bands[14].type, 3);
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"bypass":"yes")")), expected_ok());
  EXPECT_FALSE(live().bypass);
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"bypass":true)")), expected_ok());
  EXPECT_TRUE(live().bypass);
  EXPECT_EQ(live().fade_ms, 77.7f);
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"fade_ms":1)")), expected_ok());
  EXPECT_TRUE(live().bypass);
  EXPECT_EQ(live().fade_ms, 1.0f);
}

TEST_F(EqualizerRoutes, KeepAFadeThatABodyCouldNotGive) {
  EqSettings settings;
  settings.fade_ms = 0.5f;
  ASSERT_EQ(bridge_.publish_eq(settings), BridgeResult::done);
  EXPECT_EQ(put(eq_body(eq_bands_text(15))), expected_ok());
  EXPECT_EQ(live().fade_ms, 0.5f);
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"fade_ms":0.5)")),
            expected_error("400 Bad Request", "fade_ms must be 1..200"));
}

TEST_F(EqualizerRoutes, CountEachAcceptedPutOnceAlsoWhereItChangesNothing) {
  for (std::uint64_t count = 1; count <= 5; ++count) {
    EXPECT_EQ(put(eq_body()), expected_ok());
    EXPECT_EQ(live().revision, count);
    EXPECT_EQ(put(eq_body(eq_bands_text(14))), bad_count);
    EXPECT_EQ(get(), document(json_of(live())));
    EXPECT_EQ(live().revision, count);
  }
  // A revision in the body has no meaning.
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"revision":900)")), expected_ok());
  EXPECT_EQ(live().revision, 6u);
}

TEST_F(EqualizerRoutes, TouchNothingOfTheRecordOutsideTheEqualizer) {
  const std::vector<std::uint64_t> before = record();
  ASSERT_EQ(put(eq_body(eq_bands_text(15, eq_band_text("5", "30", "1", "2")))), expected_ok());
  const std::vector<std::uint64_t> after = record();
  ASSERT_EQ(after.size(), 576u / 8);
  for (std::size_t word = 0; word < after.size(); ++word) {
    if (word >= 0x0C0 / 8 && word < 0x1C8 / 8) continue;
    EXPECT_EQ(after[word], before[word]) << word * 8;
  }
  EXPECT_EQ(after[0x0C0 / 8], 2u);
}

TEST_F(EqualizerRoutes, RefuseABodyAndPublishNothing) {
  ASSERT_EQ(put(eq_body(eq_bands_text(15, eq_band_text("2")), R"(,"bypass":false)")), expected_ok());
  const std::vector<std::uint64_t> before = record();
  const struct {
    std::string body;
    std::string message;
  } rows[] = {
      {"", "bands must be an array"},
      {R"({"bypass":true,"fade_ms":20})", "bands must be an array"},
      {eq_body(""), "bands must contain exactly 15 entries"},
      {eq_body(eq_bands_text(14)), "bands must contain exactly 15 entries"},
      {"{\"bands\":[" + eq_bands_text(14) + ",{]]", "malformed band object"},
      {eq_body(eq_bands_text(14) + ",{}"), "each band needs type, freq_hz, gain_db and q"},
      {eq_body(eq_bands_text(14) + "," + eq_band_text("9")), "band type must be 0..8"},
      {eq_body(eq_bands_text(14) + "," + eq_band_text("0", "1")), "freq_hz must be 20..20000"},
      {eq_body(eq_bands_text(14) + "," + eq_band_text("0", "20", "31")), "gain_db must be -30..30"},
      {eq_body(eq_bands_text(14) + "," + eq_band_text("0", "20", "0", "0.05")), "q must be 0.1..18"},
      {eq_body(eq_bands_text(15), R"(,"fade_ms":201)"), "fade_ms must be 1..200"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    EXPECT_EQ(put(row.body), expected_error("400 Bad Request", row.message));
    EXPECT_EQ(record(), before);
  }
}

TEST_F(EqualizerRoutes, AnswerUnavailableOnAClosedBridgeOnceTheBodyIsGood) {
  bridge_.close();
  EXPECT_EQ(put(eq_body()), unavailable);
  EXPECT_EQ(put(eq_body(eq_bands_text(14))), bad_count);
}

TEST_F(EqualizerRoutes, PublishOverARecordThatCannotBeRead) {
  ASSERT_EQ(put(eq_body(eq_bands_text(15), R"(,"bypass":false,"fade_ms":50)")), expected_ok());
  region_->words[0x0C0 / 8] = 5;
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"fade_ms":33)")), expected_ok());
  region_->words[0x0C0 / 8] = 8;
  EXPECT_TRUE(live().bypass);  // the default, as the present value was not to be had
  EXPECT_EQ(live().fade_ms, 33.0f);
}

using PresetRoutes = EqualizerRoutes;

TEST_F(PresetRoutes, ListNothingWhereThereIsNoDirectory) {
  EXPECT_EQ(presets("GET", ""), document(R"({"presets":[]})"));
  EXPECT_TRUE(files().empty());
}

TEST_F(PresetRoutes, SaveListFetchAndDelete) {
  EXPECT_EQ(presets("PUT", "/my%20set", eq_body(eq_bands_text(15), R"(,"bypass":false,"fade_ms":50)")),
            expected_ok());
  EXPECT_EQ(presets("GET", ""), document(R"({"presets":["my set"]})"));
  EqSettings expected;
  expected.bypass = false;
  expected.fade_ms = 50;
  EXPECT_EQ(presets("GET", "/my+set"), document(json_of(expected)));
  EXPECT_EQ(presets("GET", "/my%20set"), document(json_of(expected)));
  EXPECT_EQ(presets("DELETE", "/my+set"), expected_ok());
  EXPECT_EQ(presets("DELETE", "/my+set"), no_such_preset);
  EXPECT_EQ(presets("GET", "/my+set"), no_such_preset);
  EXPECT_EQ(presets("GET", ""), document(R"({"presets":[]})"));
}

TEST_F(PresetRoutes, StoreTheSettingAndNotTheBody) {
  ASSERT_EQ(presets("PUT", "/a",
                    eq_body(eq_bands_text(16, eq_band_text("2.5", "32.757877", "-0", "1e0")),
                            R"(,"unknown":"key","revision":4)")),
            expected_ok());
  std::string expected = R"({"bypass":true,"fade_ms":20,"bands":[)";
  for (int band = 0; band < 15; ++band) {
    expected += (band == 0 ? "" : ",") + std::string(R"({"type":2,"freq_hz":32.7579,"gain_db":-0,"q":1})");
  }
  EXPECT_EQ(files().at(directory + "\\a.json").bytes, expected + "]}");
}

TEST_F(PresetRoutes, HaveNothingToDoWithTheLiveEqualizer) {
  ASSERT_EQ(put(eq_body(eq_bands_text(15), R"(,"bypass":false,"fade_ms":77)")), expected_ok());
  const std::vector<std::uint64_t> before = record();
  EXPECT_EQ(presets("PUT", "/a", eq_body(eq_bands_text(15))), expected_ok());
  EXPECT_EQ(presets("GET", "/a"), document(json_of({})));
  EXPECT_EQ(presets("DELETE", "/a"), expected_ok());
  EXPECT_EQ(record(), before);
  EXPECT_EQ(put(eq_body(eq_bands_text(15))), expected_ok());
  EXPECT_FALSE(live().bypass);
  bridge_.close();
  EXPECT_EQ(presets("PUT", "/a", eq_body(eq_bands_text(15))), expected_ok());
}

TEST_F(PresetRoutes, FetchAFileAsItStands) {
  files()[directory] = {FileKind::directory, ""};
  files()[directory + "\\a.json"] = {FileKind::regular, "edited by hand \xFF\r\n"};
  EXPECT_EQ(presets("GET", "/a"), document("edited by hand \xFF\r\n"));
}

TEST_F(PresetRoutes, ListAnEmptyFileThatCannotBeFetched) {
  files()[directory] = {FileKind::directory, ""};
  files()[directory + "\\a.json"] = {FileKind::regular, ""};
  EXPECT_EQ(presets("GET", ""), document(R"({"presets":["a"]})"));
  EXPECT_EQ(presets("GET", "/a"), no_such_preset);
  EXPECT_EQ(presets("DELETE", "/a"), expected_ok());
}

TEST_F(PresetRoutes, ListANameThatCannotBeFetched) {
  files()[directory] = {FileKind::directory, ""};
  files()[directory + "\\a.b.json"] = {FileKind::regular, "x"};
  EXPECT_EQ(presets("GET", ""), document(R"({"presets":["a.b"]})"));
  EXPECT_EQ(presets("GET", "/a.b"), bad_name);
}

TEST_F(PresetRoutes, RefuseABadNameForEveryMethodBeforeAnyOtherAnswer) {
  const std::string rests[] = {"/.",
                               "/..",
                               "/..%2Fescape",
                               "/..%2fescape",
                               "/../escape",
                               "/..%5Cescape",
                               "/..%5cescape",
                               "/..\\escape",
                               "/%2E%2E%2Fescape",
                               "/%2e%2e%5cescape",
                               "/%2e",
                               "/%252e%252e%252fescape",
                               "/%2541",
                               "/a%2Bb",
                               "//",
                               "//a",
                               "/a/b",
                               "/a/",
                               "/a%00",
                               "/%00",
                               "/C:%5Cx",
                               "/C%3A",
                               "/a%3Astream",
                               "/%5C%5C%3F%5CC%3A%5Cx",
                               "/a%2A",
                               "/a%22",
                               "/a%3C",
                               "/a%7C",
                               "/a.",
                               "/a+",
                               "/+a",
                               "/%20",
                               "/+",
                               "/a.json",
                               "/a%",
                               "/a%4",
                               "/a#b",
                               "/" + std::string(65, 'a'),
                               "/" + std::string(22 * 3, '\xE4')};
  files()[directory] = {FileKind::directory, ""};
  files()["C:\\Velmora\\escape.json"] = {FileKind::regular, "beside"};
  const auto before = files().size();
  for (const std::string& rest : rests) {
    SCOPED_TRACE(rest);
    for (const std::string method : {"GET", "PUT", "DELETE", "POST", "HEAD", "get", ""}) {
      EXPECT_EQ(presets(method, rest, eq_body()), bad_name);
    }
    EXPECT_EQ(presets("PUT", rest, "bad body"), bad_name);
  }
  EXPECT_EQ(files().size(), before);
  EXPECT_EQ(files().at("C:\\Velmora\\escape.json").bytes, "beside");
  EXPECT_EQ(calls_beside_answers(), Log{});
}

TEST_F(PresetRoutes, DecodeANameOnce) {
  ASSERT_EQ(presets("PUT", "/%41%62%2d%5F9", eq_body()), expected_ok());
  ASSERT_EQ(presets("PUT", "/%E4%B8%AD%e6%96%87", eq_body()), expected_ok());
  ASSERT_EQ(presets("PUT", "/" + std::string(64, 'a'), eq_body()), expected_ok());
  EXPECT_EQ(presets("GET", ""), document("{\"presets\":[\"Ab-_9\",\"" + std::string(64, 'a') +
                                         "\",\"\xE4\xB8\xAD\xE6\x96\x87\"]}"));
  EXPECT_EQ(presets("GET", "/\xE4\xB8\xAD\xE6\x96\x87"), document(json_of({})));
}

TEST_F(PresetRoutes, KnowThreeMethodsOfANamedPreset) {
  ASSERT_EQ(presets("PUT", "/a", eq_body()), expected_ok());
  for (const std::string method : {"POST", "HEAD", "PATCH", "OPTIONS", "get", "put", "delete", "GETX", ""}) {
    EXPECT_EQ(presets(method, "/a", eq_body()), bad_method) << method;
    EXPECT_EQ(presets(method, "/a", "bad body"), bad_method) << method;
    EXPECT_EQ(presets(method, "/missing"), bad_method) << method;
  }
  EXPECT_EQ(presets("GET", ""), document(R"({"presets":["a"]})"));
}

TEST_F(PresetRoutes, FindNoRouteForWhatIsNeitherTheListNorAName) {
  for (const std::string method : {"GET", "PUT", "DELETE", "POST", "HEAD"}) {
    SCOPED_TRACE(method);
    for (const std::string rest : {"/", "X", "X/a", "s/a", "%2Fa", ".json", "+", "?"}) {
      EXPECT_EQ(presets(method, rest, eq_body()), no_route) << rest;
    }
    if (method != "GET") {
      EXPECT_EQ(presets(method, "", eq_body()), no_route);
    }
  }
  EXPECT_EQ(presets("get", ""), no_route);
  EXPECT_TRUE(files().empty());
}

TEST_F(PresetRoutes, RefuseABodyAndMakeNeitherDirectoryNorFile) {
  EXPECT_EQ(presets("PUT", "/a", eq_body(eq_bands_text(14))), bad_count);
  EXPECT_EQ(presets("PUT", "/a", ""), expected_error("400 Bad Request", "bands must be an array"));
  EXPECT_EQ(presets("PUT", "/a", eq_body(eq_bands_text(15), R"(,"fade_ms":0.5)")),
            expected_error("400 Bad Request", "fade_ms must be 1..200"));
  EXPECT_TRUE(files().empty());
  EXPECT_EQ(calls_beside_answers(), Log{});
  ASSERT_EQ(presets("PUT", "/a", eq_body()), expected_ok());
  EXPECT_EQ(presets("PUT", "/a", eq_body(eq_bands_text(14))), bad_count);
  EXPECT_EQ(presets("GET", "/a"), document(json_of({})));
}

TEST_F(PresetRoutes, TellThatAFileCannotBeWritten) {
  const auto put_preset = [] { return presets("PUT", "/a", eq_body()); };
  memory::system().faults["CreateDirectoryW"] = {5};
  EXPECT_EQ(put_preset(), not_written);
  EXPECT_TRUE(files().empty());
  memory::system().faults["CreateFileW"] = {32};
  EXPECT_EQ(put_preset(), not_written);
  EXPECT_EQ(files().at(directory).kind, FileKind::directory);
  EXPECT_EQ(files().count(directory + "\\a.json"), 0u);
  memory::system().faults["WriteFile"] = {112};
  EXPECT_EQ(put_preset(), not_written);
  EXPECT_EQ(files().count(directory + "\\a.json"), 1u);
  for (const FileKind kind : {FileKind::directory, FileKind::other}) {
    files()[directory + "\\a.json"] = {kind, "as it was"};
    EXPECT_EQ(put_preset(), not_written);
    EXPECT_EQ(files().at(directory + "\\a.json").bytes, "as it was");
  }
  EXPECT_EQ(presets("PUT", "/a", "bad body"), expected_error("400 Bad Request", "bands must be an array"));
}

TEST_F(PresetRoutes, FindNoPresetInWhatIsNoRegularFile) {
  files()[directory] = {FileKind::directory, ""};
  for (const FileKind kind : {FileKind::directory, FileKind::other}) {
    files()[directory + "\\a.json"] = {kind, "x"};
    EXPECT_EQ(presets("GET", "/a"), no_such_preset);
    EXPECT_EQ(presets("DELETE", "/a"), no_such_preset);
    EXPECT_EQ(files().count(directory + "\\a.json"), 1u);
  }
  EXPECT_EQ(calls_of("CreateFileW") + calls_of("DeleteFileW"), 0);
}

TEST_F(PresetRoutes, FindNoPresetWhereTheSystemRefusesIt) {
  ASSERT_EQ(presets("PUT", "/a", eq_body()), expected_ok());
  memory::system().faults["CreateFileW"] = {32};
  EXPECT_EQ(presets("GET", "/a"), no_such_preset);
  memory::system().faults["DeleteFileW"] = {5};
  EXPECT_EQ(presets("DELETE", "/a"), no_such_preset);
  EXPECT_EQ(presets("GET", "/a"), document(json_of({})));
}

TEST_F(PresetRoutes, WorkOutTheirDirectoryForEachRequestBeforeAnythingElse) {
  preset_directory_override.clear();
  const std::string lookup = "RegGetValueW SOFTWARE\\Velmora CaptureDirectory (64-bit view)";
  for (const auto& [method, rest] : std::vector<std::pair<std::string, std::string>>{{"GET", ""},
                                                                                     {"POST", ""},
                                                                                     {"GET", "/"},
                                                                                     {"GET", "X"},
                                                                                     {"GET", "/a.b"},
                                                                                     {"POST", "/a"},
                                                                                     {"PUT", "/a"}}) {
    SCOPED_TRACE(method + " " + rest);
    memory::system().log.clear();
    static_cast<void>(presets(method, rest));
    ASSERT_FALSE(memory::system().log.empty());
    EXPECT_EQ(memory::system().log.front(), lookup);
    EXPECT_EQ(calls_of(lookup), 1);
  }
  ASSERT_EQ(presets("PUT", "/a", eq_body()), expected_ok());
  EXPECT_EQ(files().count("C:\\ProgramData\\Velmora\\presets\\a.json"), 1u);
  capture_directory_override = "E:\\data\\wav";
  EXPECT_EQ(presets("GET", "/a"), no_such_preset);
  ASSERT_EQ(presets("PUT", "/b", eq_body()), expected_ok());
  EXPECT_EQ(files().count("E:\\data\\presets\\b.json"), 1u);
}

}  // namespace
}  // namespace velmora
