#include "api/endpoint_routes.h"

#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "base/text.h"
#include "json/escape.h"
#include "unit/endpoints/support/audio_machine.h"
#include "unit/endpoints/support/expected_inventory.h"
#include "unit/support/expected_response.h"

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

std::string listed(const std::string& body) {
  return expected_response("200 OK", "application/json; charset=utf-8", body);
}
std::string id_body(const std::string& id) { return "{\"endpoint_id\":\"" + json_escape(id) + "\"}"; }
std::string id_body(const std::u16string& id) { return id_body(utf8_from_wide(id)); }

class EndpointRoutes : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    put_usual_machine();
  }

  std::string devices() {
    const Accepted client = accept_client({});
    get_devices(client.socket, controller_);
    return client.client->from_service;
  }
  std::string select(const std::string& path, const std::string& body) {
    const Accepted client = accept_client({});
    put_device(client.socket, with_body(body), path, controller_);
    return client.client->from_service;
  }
  std::string volume(const std::string& body) {
    const Accepted client = accept_client({});
    put_volume(client.socket, with_body(body), controller_);
    return client.client->from_service;
  }
  std::string mute(const std::string& body) {
    const Accepted client = accept_client({});
    put_mute(client.socket, with_body(body), controller_);
    return client.client->from_service;
  }
  // No operation on endpoints has been asked for.
  static bool nothing_asked() {
    const auto& log = memory::system().log;
    return std::find_if(log.begin(), log.end(), has_audio_status) == log.end();
  }

  EndpointController controller_;

 private:
  static ApiRequest with_body(const std::string& body) {
    ApiRequest request;
    request.body = body;
    return request;
  }
};

TEST_F(EndpointRoutes, ListTheEndpoints) {
  EXPECT_EQ(devices(), listed(json_of(usual_inventory())));
  EXPECT_EQ(calls_of("send"), 1);
}

TEST_F(EndpointRoutes, ListWhatFailedAsA200) {
  for (const std::string operation : {"CoCreateInstance", "EnumAudioEndpoints"}) {
    memory::system().faults[operation] = {access_denied};
    const std::string answer = devices();
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 OK\r\nContent-Type: application/json; charset=utf-8\r\n"));
    EXPECT_TRUE(answer.ends_with(",\"error_code\":-2147024891}")) << answer;
  }
  memory::reset();
  EXPECT_EQ(devices(), listed(R"({"render":[],"capture":[],"default_render_endpoint_id":"",)"
                              R"("default_capture_endpoint_id":"","selected_render_endpoint_id":"",)"
                              R"("selected_capture_endpoint_id":"","error_code":-2147023728})"));
}

TEST_F(EndpointRoutes, SelectByThePathAndShowTheSelection) {
  EXPECT_EQ(select(render_path, id_body(speakers_id)), expected_ok());
  ExpectedInventory expected = usual_inventory();
  expected.chosen_id[0] = narrow(speakers_id);
  EXPECT_EQ(devices(), listed(json_of(expected)));
  EXPECT_EQ(select(capture_path, id_body(line_in_id)), expected_ok());
  expected.chosen_id[1] = narrow(line_in_id);
  EXPECT_EQ(devices(), listed(json_of(expected)));
  EXPECT_EQ(controller_.selected_render_id, speakers_id);
  EXPECT_EQ(controller_.selected_capture_id, line_in_id);
}

TEST_F(EndpointRoutes, SelectForCaptureByEveryPathThatDoesNotEndInRender) {
  EXPECT_EQ(select("/render/", id_body(line_in_id)), expected_ok());
  EXPECT_EQ(select("render", id_body(microphone_id)), expected_ok());
  EXPECT_EQ(controller_.selected_render_id, u"");
  EXPECT_EQ(select("/render", id_body(speakers_id)), expected_ok());
}

TEST_F(EndpointRoutes, RefuseASelectionWithoutAnId) {
  controller_ = {speakers_id, line_in_id};
  for (const std::string& body :
       {""s, "{}"s, R"({"endpoint_id":""})"s, R"({"endpoint_id":5})"s, R"({"endpoint_id":null})"s,
        R"({"endpoint_id":true})"s, R"({"endpoint_id":["a"]})"s, R"({"endpoint_id":{"a":"b"}})"s,
        R"({"endpoint_id"})"s, R"({"endpoint_id":"unfinished)"s, R"({"endpoint_id":"a\u0041"})"s,
        R"({"endpoint_id":"a\x"})"s, "{\"endpoint_id\":\"a\nb\"}"s, "{\"endpoint_id\":\"a\0b\"}"s,
        "{\"endpoint_id\":\"\x1F\"}"s, R"({"id":"a"})"s, R"({"Endpoint_Id":"a"})"s,
        R"({"endpoint_id":"","endpoint_id":"a"})"s}) {
    for (const std::string& path : {render_path, capture_path}) {
      SCOPED_TRACE(::testing::PrintToString(body));
      EXPECT_EQ(select(path, body), id_refused);
    }
  }
  EXPECT_TRUE(nothing_asked());
  EXPECT_EQ(controller_.selected_render_id, speakers_id);
  EXPECT_EQ(controller_.selected_capture_id, line_in_id);
}

TEST_F(EndpointRoutes, FindNoEndpointOfTheOtherFlowNorByAnotherId) {
  controller_ = {speakers_id, line_in_id};
  const struct {
    std::string path;
    std::string id;
  } rows[] = {
      {capture_path, narrow(headphones_id)},
      {render_path, narrow(microphone_id)},
      {render_path, "{0.0.0.00000000}.{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}"},
      {render_path, narrow(speakers_id) + " "},
      {render_path, "a\"b"},
      {render_path, "C:\\a\\b"},
      {render_path, "\b\t\n\f\r"},
      {render_path, "\x7F\xC3\xA4"},
      {capture_path, std::string(61440, 'x')},
      {capture_path, std::string(30000, '\\')},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(select(row.path, id_body(row.id)), id_not_found) << row.id.substr(0, 80);
  }
  EXPECT_EQ(controller_.selected_render_id, speakers_id);
  EXPECT_EQ(controller_.selected_capture_id, line_in_id);
}

TEST_F(EndpointRoutes, FailForAnIdThatIsNoUtf8) {
  for (const std::string& id : {"\xFF"s, "a\xC0\x80"s, "\xED\xA0\x80"s, narrow(speakers_id) + "\xE2\x82",
                                std::string(61440, '\x80')}) {
    EXPECT_EQ(select(render_path, id_body(id)), selection_failed)
        << ::testing::PrintToString(id.substr(0, 80));
  }
  EXPECT_TRUE(nothing_asked());
  EXPECT_EQ(controller_.selected_render_id, u"");
}

TEST_F(EndpointRoutes, SelectAndListEndpointsWithUnusualIds) {
  for (const std::u16string& key : {std::u16string(u"q\"uo\\te\t\n/"),
                                    std::u16string(u"\xE4\x20AC\xD83D\xDE00"), std::u16string(61000, u'k')}) {
    memory::reset();
    put_endpoint({EndpointFlow::render, key, std::nullopt});
    const std::string id = utf8_from_wide(id_of(EndpointFlow::render, key));
    const std::string text = "\"" + json_escape(id) + "\"";
    EXPECT_EQ(select(render_path, id_body(id)), expected_ok());
    EXPECT_EQ(devices(),
              listed("{\"render\":[{\"id\":" + text + ",\"name\":" + text +
                     R"(,"is_default":true,"is_selected":true,"peak":0,"sessions":[],"apo_bound":false}],)" +
                     R"("capture":[],"default_render_endpoint_id":)" + text +
                     R"(,"default_capture_endpoint_id":"","selected_render_endpoint_id":)" + text +
                     R"(,"selected_capture_endpoint_id":"","error_code":-2147023728})"));
  }
}

TEST_F(EndpointRoutes, AnswerAFailedSelectionByItsStatusWhereverItComesFrom) {
  for (const std::string operation : {"CoCreateInstance", "EnumAudioEndpoints", "Item", "GetId"}) {
    for (const std::string& path : {render_path, capture_path}) {
      const std::string body = id_body(path == render_path ? headphones_id : line_in_id);
      controller_ = {speakers_id, microphone_id};
      memory::system().faults[operation] = {not_found};
      EXPECT_EQ(select(path, body), id_not_found) << operation;
      for (const std::int32_t status : {access_denied, device_invalidated, smallest_status, -1}) {
        memory::system().faults[operation] = {status};
        EXPECT_EQ(select(path, body), selection_failed) << operation;
      }
      EXPECT_EQ(controller_.selected_render_id, speakers_id);
      EXPECT_EQ(controller_.selected_capture_id, microphone_id);
      memory::system().faults[operation] = {1};
      EXPECT_EQ(select(path, body), expected_ok()) << operation;
    }
  }
}

TEST_F(EndpointRoutes, FailForWantOfMemory) {
  memory::system().before_machine_call = [](const std::string& entry) {
    if (entry == "Item 0") throw std::bad_alloc();
  };
  EXPECT_EQ(select(render_path, id_body(speakers_id)), selection_failed);
  EXPECT_EQ(select(capture_path, id_body(line_in_id)), selection_failed);
  EXPECT_EQ(controller_.selected_render_id, u"");
}

TEST_F(EndpointRoutes, SetTheVolume) {
  const struct {
    std::string value;
    std::string kept;
  } rows[] = {
      {"0", "0"},          {"1", "1"},      {"0.5", "0.5"},     {" 0.25 ", "0.25"},
      {"1.0", "1"},        {"-0", "-0"},    {"-0.0", "-0"},     {"1e-1", "0.100000001"},
      {"1.00000001", "1"}, {".75", "0.75"}, {"0x1p-2", "0.25"}, {"0.125abc", "0.125"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(volume("{\"volume\":" + row.value + "}"), expected_ok()) << row.value;
    EXPECT_EQ(volume_text(headphones_id), row.kept);
  }
  EXPECT_EQ(volume_text(speakers_id), "");
}

TEST_F(EndpointRoutes, RefuseAVolumeThatIsNoneOrOutOfRange) {
  for (const std::string& body : {""s,
                                  "{}"s,
                                  R"({"volume":"0.5"})"s,
                                  R"({"volume":1.0001})"s,
                                  R"({"volume":-0.1})"s,
                                  R"({"volume":1.0000001})"s,
                                  R"({"volume":-1e-45})"s,
                                  R"({"volume":2})"s,
                                  R"({"volume":-1})"s,
                                  R"({"volume":1e39})"s,
                                  R"({"volume":nan})"s,
                                  R"({"volume":inf})"s,
                                  R"({"volume":-inf})"s,
                                  R"({"volume":null})"s,
                                  R"({"volume":true})"s,
                                  R"({"volume":[0.5]})"s,
                                  R"({"volume":})"s,
                                  R"({"Volume":0.5})"s,
                                  R"({"level":0.5})"s,
                                  R"({"volume":2,"volume":0.5})"s}) {
    EXPECT_EQ(volume(body), volume_refused) << body;
  }
  EXPECT_TRUE(nothing_asked());
  EXPECT_EQ(volume_text(headphones_id), "");
}

TEST_F(EndpointRoutes, FailToSetTheVolume) {
  for (const std::string operation :
       {"CoCreateInstance", "GetDefaultAudioEndpoint", "Activate", "SetMasterVolumeLevelScalar"}) {
    for (const std::int32_t status : {not_found, access_denied, smallest_status, -1}) {
      memory::system().faults[operation] = {status};
      EXPECT_EQ(volume(R"({"volume":0.5})"), volume_failed) << operation;
    }
    EXPECT_EQ(volume_text(headphones_id), "");
  }
  memory::system().faults["SetMasterVolumeLevelScalar"] = {1};
  EXPECT_EQ(volume(R"({"volume":0.5})"), expected_ok());
  EXPECT_EQ(volume_text(headphones_id), "0.5");
}

TEST_F(EndpointRoutes, MuteAndUnmute) {
  EXPECT_EQ(mute(R"({"muted":true})"), expected_ok());
  EXPECT_EQ(mute_value(headphones_id), true);
  EXPECT_EQ(mute(R"({"muted":true})"), expected_ok());
  EXPECT_EQ(mute_value(headphones_id), true);
  EXPECT_EQ(mute(R"({"muted": false })"), expected_ok());
  EXPECT_EQ(mute_value(headphones_id), false);
  EXPECT_EQ(mute(R"({"muted":false})"), expected_ok());
  EXPECT_EQ(mute_value(speakers_id), std::nullopt);
}

TEST_F(EndpointRoutes, RefuseAMuteThatIsNoBoolean) {
  for (const std::string& body : {""s, "{}"s, R"({"muted":1})"s, R"({"muted":0})"s, R"({"muted":"true"})"s,
                                  R"({"muted":null})"s, R"({"muted":TRUE})"s, R"({"muted":[true]})"s,
                                  R"({"muted":})"s, R"({"Muted":true})"s, R"({"muted":1,"muted":true})"s}) {
    EXPECT_EQ(mute(body), mute_refused) << body;
  }
  EXPECT_TRUE(nothing_asked());
  EXPECT_EQ(mute_value(headphones_id), std::nullopt);
}

TEST_F(EndpointRoutes, FailToMute) {
  for (const std::string operation : {"CoCreateInstance", "GetDefaultAudioEndpoint", "Activate", "SetMute"}) {
    for (const std::int32_t status : {not_found, access_denied, smallest_status, -1}) {
      memory::system().faults[operation] = {status};
      EXPECT_EQ(mute(R"({"muted":true})"), mute_failed) << operation;
    }
    EXPECT_EQ(mute_value(headphones_id), std::nullopt);
  }
}

TEST_F(EndpointRoutes, FailOnASelectedEndpointThatHasGoneUntilAnotherIsSelected) {
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
