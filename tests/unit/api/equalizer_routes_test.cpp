#include "api/equalizer_routes.h"

#include <gtest/gtest.h>

#include <vector>

#include "capture/capture_directory.h"
#include "capture/preset_directory.h"
#include "effects/equalizer.h"
#include "unit/api/support/routes.h"
#include "unit/support/eq_body.h"
#include "unit/support/split.h"

namespace velmora {
namespace {

const std::string directory = "C:\\Velmora\\presets";
const std::string collection = "/api/v1/eq/presets";
const std::string bad_name =
    expected_error("400 Bad Request", "preset name may contain letters, digits, spaces, - and _ only");
const std::string no_such_preset = expected_error("404 Not Found", "no such preset");
const std::string no_route = expected_error("404 Not Found", "route not found");
const std::string bad_method = expected_error("405 Method Not Allowed", "unsupported method");
const std::string not_written = expected_error("500 Internal Server Error", "cannot write the preset file");
const std::string bad_count = expected_error("400 Bad Request", "bands must contain exactly 15 entries");

std::string json_of(const EqSettings& settings) {
  std::string text;
  write_eq_json(text, settings);
  return text;
}

std::map<std::string, memory::File>& files() { return memory::system().files; }

class EqualizerRoutes : public OpenBridge {
 protected:
  void SetUp() override {
    OpenBridge::SetUp();
    preset_directory_override = directory;
  }
  std::string get() { return answer_of(get_eq, bridge_); }
  std::string put(const std::string& body) { return answer_of(put_eq, request_with(body), bridge_); }
  // The answer for a path that continues the path of the presets with `rest`.
  static std::string presets(const std::string& method, const std::string& rest,
                             const std::string& body = "") {
    return answer_of(serve_presets, request_with(body, method), collection + rest);
  }
  EqSettings live() {
    EqSettings settings;
    EXPECT_TRUE(bridge_.read_eq(settings));
    return settings;
  }
};

TEST_F(EqualizerRoutes, ShowsANewRecord) {
  const std::string answer = get();
  EXPECT_EQ(answer, expected_document(json_of(live())));
  EXPECT_NE(answer.find(R"({"type":0,"freq_hz":20000,"gain_db":0,"q":0.707}]})"), std::string::npos);
}

TEST_F(EqualizerRoutes, ShowsTheDefaultsIfTheRecordCannotBeRead) {
  EqSettings settings;
  settings.bypass = false;
  ASSERT_EQ(bridge_.publish_eq(settings), BridgeResult::done);
  ASSERT_EQ(get(), expected_document(json_of(settings)));
  word_at(0x0C0) = 3;  // a writer that never finishes
  EXPECT_EQ(get(), expected_document(json_of({})));
  word_at(0x0C0) = 4;
  EXPECT_EQ(get(), expected_document(json_of(settings)));
  bridge_.close();
  EXPECT_EQ(get(), expected_document(json_of({})));
}

TEST_F(EqualizerRoutes, ShowsTheSettingsThatWereSet) {
  const std::string band = eq_band_text("8.9", "32.757877", "-30", "0.1");
  EXPECT_EQ(put(eq_body(eq_bands_text(15, band), R"(,"bypass":false,"fade_ms":12.34)")), expected_ok());
  EqSettings expected;
  expected.bypass = false;
  expected.fade_ms = 12.3f;
  expected.bands.fill({8, 32.757877f, -30.0f, 0.1f});
  EXPECT_EQ(get(), expected_document(json_of(expected)));
  EXPECT_EQ(put(json_of(expected)), expected_ok());
  EXPECT_EQ(get(), expected_document(json_of(expected)));
}

TEST_F(EqualizerRoutes, KeepsBypassAndFadeIfTheBodyOmitsThem) {
  ASSERT_EQ(put(eq_body(eq_bands_text(15), R"(,"bypass":false,"fade_ms":77.7)")), expected_ok());
  EXPECT_EQ(put(eq_body(eq_bands_text(15, eq_band_text("3")))), expected_ok());
  EXPECT_FALSE(live().bypass);
  EXPECT_EQ(live().fade_ms, 77.7f);
  EXPECT_EQ(live().bands[14].type, 3);
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"bypass":true)")), expected_ok());
  EXPECT_TRUE(live().bypass);
  EXPECT_EQ(live().fade_ms, 77.7f);
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"fade_ms":1)")), expected_ok());
  EXPECT_TRUE(live().bypass);
  EXPECT_EQ(live().fade_ms, 1.0f);
}

TEST_F(EqualizerRoutes, KeepsAStoredFadeOutsideTheRange) {
  EqSettings settings;
  settings.fade_ms = 0.5f;
  ASSERT_EQ(bridge_.publish_eq(settings), BridgeResult::done);
  EXPECT_EQ(put(eq_body(eq_bands_text(15))), expected_ok());
  EXPECT_EQ(live().fade_ms, 0.5f);
}

TEST_F(EqualizerRoutes, CountsEachAcceptedUpdateOnce) {
  for (std::uint64_t count = 1; count <= 5; ++count) {
    EXPECT_EQ(put(eq_body()), expected_ok());
    EXPECT_EQ(live().revision, count);
    EXPECT_EQ(put(eq_body(eq_bands_text(14))), bad_count);
    EXPECT_EQ(get(), expected_document(json_of(live())));
    EXPECT_EQ(live().revision, count);
  }
  // A revision in the body is ignored.
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"revision":900)")), expected_ok());
  EXPECT_EQ(live().revision, 6u);
}

TEST_F(EqualizerRoutes, WritesOnlyTheEqualizerPartOfTheRecord) {
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

TEST_F(EqualizerRoutes, RefusesAnInvalidBodyAndPublishesNothing) {
  ASSERT_EQ(put(eq_body(eq_bands_text(15, eq_band_text("2")), R"(,"bypass":false)")), expected_ok());
  const std::vector<std::uint64_t> before = record();
  EXPECT_EQ(put(""), expected_error("400 Bad Request", "bands must be an array"));
  EXPECT_EQ(put(eq_body(eq_bands_text(14) + "," + eq_band_text("9"))),
            expected_error("400 Bad Request", "band type must be 0..8"));
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"fade_ms":201)")),
            expected_error("400 Bad Request", "fade_ms must be 1..200"));
  EXPECT_EQ(record(), before);
}

TEST_F(EqualizerRoutes, ChecksTheBodyBeforeTheBridge) {
  bridge_.close();
  EXPECT_EQ(put(eq_body()), publication_failed);
  EXPECT_EQ(put(eq_body(eq_bands_text(14))), bad_count);
}

TEST_F(EqualizerRoutes, PublishesOverAnUnreadableRecord) {
  ASSERT_EQ(put(eq_body(eq_bands_text(15), R"(,"bypass":false,"fade_ms":50)")), expected_ok());
  word_at(0x0C0) = 5;
  EXPECT_EQ(put(eq_body(eq_bands_text(15), R"(,"fade_ms":33)")), expected_ok());
  word_at(0x0C0) = 8;
  EXPECT_TRUE(live().bypass);  // the default, since the present value was unreadable
  EXPECT_EQ(live().fade_ms, 33.0f);
}

using PresetRoutes = EqualizerRoutes;

TEST_F(PresetRoutes, SaveListFetchAndDelete) {
  EXPECT_EQ(presets("PUT", "/my%20set", eq_body(eq_bands_text(15), R"(,"bypass":false,"fade_ms":50)")),
            expected_ok());
  EXPECT_EQ(presets("GET", ""), expected_document(R"({"presets":["my set"]})"));
  EqSettings expected;
  expected.bypass = false;
  expected.fade_ms = 50;
  EXPECT_EQ(presets("GET", "/my+set"), expected_document(json_of(expected)));
  EXPECT_EQ(presets("DELETE", "/my+set"), expected_ok());
  EXPECT_EQ(presets("DELETE", "/my+set"), no_such_preset);
  EXPECT_EQ(presets("GET", "/my+set"), no_such_preset);
  EXPECT_EQ(presets("GET", ""), expected_document(R"({"presets":[]})"));
}

TEST_F(PresetRoutes, StoreTheSettingsInsteadOfTheBody) {
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

TEST_F(PresetRoutes, DoNotAffectTheLiveEqualizer) {
  ASSERT_EQ(put(eq_body(eq_bands_text(15), R"(,"bypass":false,"fade_ms":77)")), expected_ok());
  const std::vector<std::uint64_t> before = record();
  EXPECT_EQ(presets("PUT", "/a", eq_body(eq_bands_text(15))), expected_ok());
  EXPECT_EQ(presets("GET", "/a"), expected_document(json_of({})));
  EXPECT_EQ(presets("DELETE", "/a"), expected_ok());
  EXPECT_EQ(record(), before);
  EXPECT_EQ(put(eq_body(eq_bands_text(15))), expected_ok());
  EXPECT_FALSE(live().bypass);
  bridge_.close();
  EXPECT_EQ(presets("PUT", "/a", eq_body(eq_bands_text(15))), expected_ok());
}

TEST_F(PresetRoutes, ReturnTheFileUnchanged) {
  files()[directory] = {FileKind::directory, ""};
  files()[directory + "\\a.json"] = {FileKind::regular, "edited by hand \xFF\r\n"};
  EXPECT_EQ(presets("GET", "/a"), expected_document("edited by hand \xFF\r\n"));
}

TEST_F(PresetRoutes, CheckTheNameBeforeMethodAndBody) {
  files()[directory] = {FileKind::directory, ""};
  files()["C:\\Velmora\\escape.json"] = {FileKind::regular, "beside"};
  std::vector<std::string> names = split(
      R"(. .. ..%2Fescape ..%2fescape ../escape ..%5Cescape ..\escape %2E%2E%2Fescape %2e %252e%252e%252fescape )"
      R"(%2541 a%2Bb / /a a/b a/ a%00 %00 C:%5Cx C%3A a%3Astream a%2A a%22 a%7C a. a+ +a %20 + a.json a% a%4 a#b)");
  names.push_back(std::string(65, 'a'));
  for (const std::string& name : names) {
    for (const std::string method : {"GET", "PUT", "DELETE", "POST", "get", ""}) {
      EXPECT_EQ(presets(method, "/" + name, eq_body()), bad_name) << method << " " << name;
    }
    EXPECT_EQ(presets("PUT", "/" + name, "bad body"), bad_name);
  }
  EXPECT_EQ(files().size(), 2u);
  EXPECT_EQ(files().at("C:\\Velmora\\escape.json").bytes, "beside");
}

TEST_F(PresetRoutes, DecodeTheNameOnce) {
  ASSERT_EQ(presets("PUT", "/%41%62%2d%5F9", eq_body()), expected_ok());
  ASSERT_EQ(presets("PUT", "/%E4%B8%AD%e6%96%87", eq_body()), expected_ok());
  ASSERT_EQ(presets("PUT", "/" + std::string(64, 'a'), eq_body()), expected_ok());
  EXPECT_EQ(presets("GET", ""), expected_document("{\"presets\":[\"Ab-_9\",\"" + std::string(64, 'a') +
                                                  "\",\"\xE4\xB8\xAD\xE6\x96\x87\"]}"));
  EXPECT_EQ(presets("GET", "/\xE4\xB8\xAD\xE6\x96\x87"), expected_document(json_of({})));
}

TEST_F(PresetRoutes, AcceptThreeMethodsForANamedPreset) {
  ASSERT_EQ(presets("PUT", "/a", eq_body()), expected_ok());
  for (const std::string method : {"POST", "HEAD", "PATCH", "OPTIONS", "get", "put", "delete", "GETX", ""}) {
    EXPECT_EQ(presets(method, "/a", eq_body()), bad_method) << method;
    EXPECT_EQ(presets(method, "/a", "bad body"), bad_method) << method;
    EXPECT_EQ(presets(method, "/missing"), bad_method) << method;
  }
  EXPECT_EQ(presets("GET", ""), expected_document(R"({"presets":["a"]})"));
}

TEST_F(PresetRoutes, FindNoRouteBesideTheListAndTheNames) {
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

TEST_F(PresetRoutes, WriteNothingForAnInvalidBody) {
  EXPECT_EQ(presets("PUT", "/a", eq_body(eq_bands_text(14))), bad_count);
  EXPECT_TRUE(files().empty());
  ASSERT_EQ(presets("PUT", "/a", eq_body()), expected_ok());
  EXPECT_EQ(presets("PUT", "/a", eq_body(eq_bands_text(14))), bad_count);
  EXPECT_EQ(presets("GET", "/a"), expected_document(json_of({})));
}

TEST_F(PresetRoutes, ReportAFailedWrite) {
  for (const std::string operation : {"CreateDirectoryW", "CreateFileW", "WriteFile"}) {
    memory::system().faults[operation] = {5};
    EXPECT_EQ(presets("PUT", "/a", eq_body()), not_written) << operation;
  }
  files()[directory + "\\a.json"] = {FileKind::directory, "unchanged"};
  EXPECT_EQ(presets("PUT", "/a", eq_body()), not_written);
  EXPECT_EQ(files().at(directory + "\\a.json").bytes, "unchanged");
}

TEST_F(PresetRoutes, ReportAPresetThatCannotBeReadOrDeletedAsMissing) {
  ASSERT_EQ(presets("PUT", "/a", eq_body()), expected_ok());
  memory::system().faults["CreateFileW"] = {32};
  EXPECT_EQ(presets("GET", "/a"), no_such_preset);
  memory::system().faults["DeleteFileW"] = {5};
  EXPECT_EQ(presets("DELETE", "/a"), no_such_preset);
  EXPECT_EQ(presets("GET", "/a"), expected_document(json_of({})));
}

TEST_F(PresetRoutes, UseTheDirectoryThatIsSetAtTheTimeOfTheRequest) {
  preset_directory_override.clear();
  ASSERT_EQ(presets("PUT", "/a", eq_body()), expected_ok());
  EXPECT_EQ(files().count("C:\\ProgramData\\Velmora\\presets\\a.json"), 1u);
  capture_directory_override = "E:\\data\\wav";
  EXPECT_EQ(presets("GET", "/a"), no_such_preset);
  ASSERT_EQ(presets("PUT", "/b", eq_body()), expected_ok());
  EXPECT_EQ(files().count("E:\\data\\presets\\b.json"), 1u);
}

}  // namespace
}  // namespace velmora
