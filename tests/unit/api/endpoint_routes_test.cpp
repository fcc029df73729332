#include "api/endpoint_routes.h"

#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "base/text.h"
#include "json/escape.h"
#include "unit/api/support/routes.h"
#include "unit/endpoints/support/audio_machine.h"
#include "unit/endpoints/support/expected_inventory.h"
#include "unit/support/split.h"

namespace velmora {
namespace {

using namespace audio;
using namespace std::string_literals;

const std::string render_path = "/api/v1/devices/render";
const std::string capture_path = "/api/v1/devices/capture";

const std::string id_refused = expected_error("400 Bad Request", "endpoint_id must be a non-empty string");
const std::string id_not_found =
    expected_error("404 Not Found", "active endpoint not found for this direction");
const std::string selection_failed =
    expected_error("503 Service Unavailable", "Windows endpoint selection failed");
const std::string volume_refused = expected_error("400 Bad Request", "volume must be between 0 and 1");
const std::string volume_failed =
    expected_error("503 Service Unavailable", "Windows endpoint volume update failed");
const std::string mute_refused = expected_error("400 Bad Request", "muted must be a boolean");
const std::string mute_failed =
    expected_error("503 Service Unavailable", "Windows endpoint mute update failed");

std::string id_body(const std::string& id) { return "{\"endpoint_id\":\"" + json_escape(id) + "\"}"; }
std::string id_body(const std::u16string& id) { return id_body(utf8_from_wide(id)); }

class EndpointRoutes : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    put_usual_machine();
  }

  std::string devices() { return answer_of(get_devices, controller_); }
  std::string select(const std::string& path, const std::string& body) {
    return answer_of(put_device, request_with(body), path, controller_);
  }
  std::string volume(const std::string& body) {
    return answer_of(put_volume, request_with(body), controller_);
  }
  std::string mute(const std::string& body) { return answer_of(put_mute, request_with(body), controller_); }
  // No operation on audio endpoints was called.
  static bool audio_is_untouched() {
    const auto& log = memory::system().log;
    return std::find_if(log.begin(), log.end(), has_audio_status) == log.end();
  }

  EndpointController controller_;
};

TEST_F(EndpointRoutes, ListsTheEndpoints) {
  EXPECT_EQ(devices(), expected_document(json_of(usual_inventory())));
}

TEST_F(EndpointRoutes, ListsWithStatus200WhenEnumerationFails) {
  for (const std::string operation : {"CoCreateInstance", "EnumAudioEndpoints"}) {
    memory::system().faults[operation] = {access_denied};
    const std::string answer = devices();
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 OK\r\nContent-Type: application/json; charset=utf-8\r\n"));
    EXPECT_TRUE(answer.ends_with(",\"error_code\":-2147024891}")) << answer;
  }
  memory::reset();
  EXPECT_EQ(devices(),
            expected_document(R"({"render":[],"capture":[],"default_render_endpoint_id":"",)"
                              R"("default_capture_endpoint_id":"","selected_render_endpoint_id":"",)"
                              R"("selected_capture_endpoint_id":"","error_code":-2147023728})"));
}

TEST_F(EndpointRoutes, SelectsAnEndpointForTheDirectionInThePath) {
  EXPECT_EQ(select(render_path, id_body(speakers_id)), expected_ok());
  EXPECT_EQ(select(capture_path, id_body(line_in_id)), expected_ok());
  EXPECT_EQ(controller_.selected_render_id, speakers_id);
  EXPECT_EQ(controller_.selected_capture_id, line_in_id);
  ExpectedInventory expected = usual_inventory();
  expected.chosen_id[0] = narrow(speakers_id);
  expected.chosen_id[1] = narrow(line_in_id);
  EXPECT_EQ(devices(), expected_document(json_of(expected)));
  // Every path that does not end in /render selects for capture.
  EXPECT_EQ(select("/render/", id_body(microphone_id)), expected_ok());
  EXPECT_EQ(controller_.selected_capture_id, microphone_id);
  EXPECT_EQ(select("render", id_body(line_in_id)), expected_ok());
  EXPECT_EQ(controller_.selected_capture_id, line_in_id);
}

TEST_F(EndpointRoutes, RequiresAnIdForASelection) {
  controller_ = {speakers_id, line_in_id};
  for (const std::string body :
       {"", R"({"endpoint_id":""})", R"({"endpoint_id":5})", R"({"endpoint_id":null})",
        R"({"endpoint_id":"unfinished)", R"({"endpoint_id":"a\u0041"})", R"({"Endpoint_Id":"a"})",
        R"({"endpoint_id":"","endpoint_id":"a"})"}) {
    for (const std::string& path : {render_path, capture_path})
      EXPECT_EQ(select(path, body), id_refused) << body;
  }
  EXPECT_TRUE(audio_is_untouched());
  EXPECT_EQ(controller_.selected_render_id, speakers_id);
  EXPECT_EQ(controller_.selected_capture_id, line_in_id);
}

TEST_F(EndpointRoutes, FindsNoEndpointOfTheOtherDirectionOrWithAnotherId) {
  controller_ = {speakers_id, line_in_id};
  const std::pair<std::string, std::string> rows[] = {
      {capture_path, narrow(headphones_id)},
      {render_path, narrow(microphone_id)},
      {render_path, "{0.0.0.00000000}.{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}"},
      {render_path, narrow(speakers_id) + " "},
      {render_path, "a\"b"},
      {capture_path, std::string(61440, 'x')},
      {capture_path, std::string(30000, '\\')},
  };
  for (const auto& [path, id] : rows) {
    EXPECT_EQ(select(path, id_body(id)), id_not_found) << id.substr(0, 80);
  }
  EXPECT_EQ(controller_.selected_render_id, speakers_id);
  EXPECT_EQ(controller_.selected_capture_id, line_in_id);
}

TEST_F(EndpointRoutes, FailsForAnIdThatIsNotUtf8) {
  for (const std::string& id : {"\xFF"s, "a\xC0\x80"s, "\xED\xA0\x80"s, narrow(speakers_id) + "\xE2\x82",
                                std::string(61440, '\x80')}) {
    EXPECT_EQ(select(render_path, id_body(id)), selection_failed)
        << ::testing::PrintToString(id.substr(0, 80));
  }
  EXPECT_TRUE(audio_is_untouched());
  EXPECT_EQ(controller_.selected_render_id, u"");
}

TEST_F(EndpointRoutes, SelectsAndListsEndpointsWithUnusualIds) {
  for (const std::u16string& key : {std::u16string(u"q\"uo\\te\t\n/"),
                                    std::u16string(u"\xE4\x20AC\xD83D\xDE00"), std::u16string(61000, u'k')}) {
    memory::reset();
    put_endpoint({EndpointFlow::render, key, std::nullopt});
    const std::string id = utf8_from_wide(id_of(EndpointFlow::render, key));
    const std::string text = "\"" + json_escape(id) + "\"";
    EXPECT_EQ(select(render_path, id_body(id)), expected_ok());
    EXPECT_EQ(devices(),
              expected_document(
                  "{\"render\":[{\"id\":" + text + ",\"name\":" + text +
                  R"(,"is_default":true,"is_selected":true,"peak":0,"sessions":[],"apo_bound":false}],)" +
                  R"("capture":[],"default_render_endpoint_id":)" + text +
                  R"(,"default_capture_endpoint_id":"","selected_render_endpoint_id":)" + text +
                  R"(,"selected_capture_endpoint_id":"","error_code":-2147023728})"));
  }
}

TEST_F(EndpointRoutes, AnswersAFailedSelectionByItsStatus) {
  const auto fail_once = [](const std::string& operation, std::int32_t status) {
    memory::system().faults[operation] = {status};
  };
  for (const std::string operation : {"CoCreateInstance", "EnumAudioEndpoints", "Item", "GetId"}) {
    SCOPED_TRACE(operation);
    controller_ = {speakers_id, microphone_id};
    fail_once(operation, not_found);
    EXPECT_EQ(select(render_path, id_body(headphones_id)), id_not_found);
    for (const std::int32_t status : {access_denied, smallest_status, -1}) {
      fail_once(operation, status);
      EXPECT_EQ(select(capture_path, id_body(line_in_id)), selection_failed);
    }
    EXPECT_EQ(controller_.selected_render_id, speakers_id);
    EXPECT_EQ(controller_.selected_capture_id, microphone_id);
    fail_once(operation, 1);
    EXPECT_EQ(select(render_path, id_body(headphones_id)), expected_ok());
  }
  memory::system().before_machine_call = [](const std::string& entry) {
    if (entry == "Item 0") throw std::bad_alloc();
  };
  EXPECT_EQ(select(render_path, id_body(speakers_id)), selection_failed);
}

TEST_F(EndpointRoutes, SetsTheVolume) {
  const std::pair<std::string, std::string> rows[] = {
      {"0", "0"},          {"1", "1"},      {"0.5", "0.5"},     {" 0.25 ", "0.25"},
      {"1.0", "1"},        {"-0", "-0"},    {"-0.0", "-0"},     {"1e-1", "0.100000001"},
      {"1.00000001", "1"}, {".75", "0.75"}, {"0x1p-2", "0.25"}, {"0.125abc", "0.125"},
  };
  for (const auto& [value, kept] : rows) {
    EXPECT_EQ(volume("{\"volume\":" + value + "}"), expected_ok()) << value;
    EXPECT_EQ(volume_text(headphones_id), kept);
  }
  EXPECT_EQ(volume_text(speakers_id), "");
}

TEST_F(EndpointRoutes, RefusesAVolumeThatIsNotANumberFrom0To1) {
  for (const std::string& value :
       split(R"("0.5" 1.0001 -0.1 1.0000001 -1e-45 2 -1 1e39 nan inf -inf null true [0.5])")) {
    EXPECT_EQ(volume("{\"volume\":" + value + "}"), volume_refused) << value;
  }
  for (const std::string body : {"", R"({"volume":})", R"({"Volume":0.5})", R"({"volume":2,"volume":0.5})"}) {
    EXPECT_EQ(volume(body), volume_refused) << body;
  }
  EXPECT_TRUE(audio_is_untouched());
}

TEST_F(EndpointRoutes, ReportsAFailedUpdate) {
  for (const std::string operation :
       {"CoCreateInstance", "GetDefaultAudioEndpoint", "Activate", "SetMasterVolumeLevelScalar", "SetMute"}) {
    for (const std::int32_t status : {not_found, access_denied, smallest_status, -1}) {
      SCOPED_TRACE(operation);
      memory::system().faults[operation] = {status};
      if (operation != "SetMute") {
        EXPECT_EQ(volume(R"({"volume":0.5})"), volume_failed);
      }
      memory::system().faults[operation] = {status};
      if (operation != "SetMasterVolumeLevelScalar") {
        EXPECT_EQ(mute(R"({"muted":true})"), mute_failed);
      }
      memory::system().faults.clear();
    }
    EXPECT_EQ(volume_text(headphones_id), "");
    EXPECT_EQ(mute_value(headphones_id), std::nullopt);
  }
  memory::system().faults["SetMasterVolumeLevelScalar"] = {1};
  EXPECT_EQ(volume(R"({"volume":0.5})"), expected_ok());
  EXPECT_EQ(volume_text(headphones_id), "0.5");
}

TEST_F(EndpointRoutes, MutesAndUnmutes) {
  EXPECT_EQ(mute(R"({"muted":true})"), expected_ok());
  EXPECT_EQ(mute_value(headphones_id), true);
  EXPECT_EQ(mute(R"({"muted":true})"), expected_ok());
  EXPECT_EQ(mute_value(headphones_id), true);
  EXPECT_EQ(mute(R"({"muted": false })"), expected_ok());
  EXPECT_EQ(mute_value(headphones_id), false);
  EXPECT_EQ(mute(R"({"muted":false})"), expected_ok());
  EXPECT_EQ(mute_value(speakers_id), std::nullopt);
}

TEST_F(EndpointRoutes, RefusesAMuteThatIsNotABoolean) {
  for (const std::string& body :
       split(R"({} {"muted":1} {"muted":"true"} {"muted":null} {"muted":TRUE} {"muted":[true]} )"
             R"({"muted":} {"Muted":true} {"muted":1,"muted":true})")) {
    EXPECT_EQ(mute(body), mute_refused) << body;
  }
  EXPECT_TRUE(audio_is_untouched());
}

TEST_F(EndpointRoutes, FailsOnARemovedEndpointUntilAnotherIsSelected) {
  ASSERT_EQ(select(render_path, id_body(speakers_id)), expected_ok());
  EXPECT_EQ(volume(R"({"volume":0.5})"), expected_ok());
  EXPECT_EQ(volume_text(speakers_id), "0.5");
  remove_endpoint(speakers);
  EXPECT_EQ(volume(R"({"volume":0.75})"), volume_failed);
  EXPECT_EQ(mute(R"({"muted":true})"), mute_failed);
  EXPECT_EQ(select(render_path, R"({"endpoint_id":""})"), id_refused);
  EXPECT_EQ(volume(R"({"volume":0.75})"), volume_failed);
  EXPECT_EQ(volume_text(headphones_id), "");
  EXPECT_EQ(select(render_path, id_body(headphones_id)), expected_ok());
  EXPECT_EQ(volume(R"({"volume":0.75})"), expected_ok());
  EXPECT_EQ(mute(R"({"muted":true})"), expected_ok());
  EXPECT_EQ(volume_text(headphones_id), "0.75");
  EXPECT_EQ(mute_value(headphones_id), true);
}

}  // namespace
}  // namespace velmora
