#include "endpoints/inventory.h"

#include <gtest/gtest.h>

#include <vector>

#include "api/inventory_json.h"
#include "unit/endpoints/support/audio_machine.h"
#include "unit/endpoints/support/expected_inventory.h"

namespace velmora {
namespace {

using namespace audio;

class Inventory : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    put_usual_machine();
  }

  static EndpointInventory inventory(const EndpointController& controller = {}) {
    EndpointInventory result;
    inventory_endpoints(controller, result);
    EXPECT_TRUE(memory::system().state.audio_objects.empty());
    return result;
  }
  static std::string json(const EndpointController& controller = {}) {
    return endpoint_inventory_json(inventory(controller));
  }
  // The listed entry of the only endpoint.
  static EndpointInfo listed_alone(const Endpoint& endpoint) {
    memory::reset();
    put_endpoint(endpoint);
    const EndpointInventory result = inventory();
    EXPECT_EQ(result.render.size(), 1u);
    return result.render.empty() ? EndpointInfo() : result.render.front();
  }
};

const EndpointController other_than_default{speakers_id, line_in_id};

ExpectedInventory inventory_of_others() {
  ExpectedInventory expected = usual_inventory();
  expected.chosen_id[0] = narrow(speakers_id);
  expected.chosen_id[1] = narrow(line_in_id);
  return expected;
}

TEST_F(Inventory, ListsBothFlowsInSystemOrder) {
  EXPECT_EQ(json(),
            R"({"render":[)"
            R"({"id":"{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}","name":"Speakers",)"
            R"("is_default":false,"is_selected":false,"peak":0.25,"sessions":["player.exe","system"],)"
            R"("apo_bound":true},)"
            R"({"id":"{0.0.0.00000000}.{1a2b3c4d-0000-1111-2222-333344445555}","name":"Headphones",)"
            R"("is_default":true,"is_selected":true,"peak":0.5,)"
            R"("sessions":["pid 1234","player.exe","player.exe"],"apo_bound":false}],)"
            R"("capture":[)"
            R"({"id":"{0.0.1.00000000}.{cccccccc-0000-1111-2222-333344445555}","name":"Microphone",)"
            R"("is_default":true,"is_selected":true,"peak":0.125,"sessions":["recorder.exe"]},)"
            R"({"id":"{0.0.1.00000000}.{bbbbbbbb-0000-1111-2222-333344445555}","name":"Line in",)"
            R"("is_default":false,"is_selected":false,"peak":0,"sessions":["player.exe","recorder.exe"]}],)"
            R"("default_render_endpoint_id":"{0.0.0.00000000}.{1a2b3c4d-0000-1111-2222-333344445555}",)"
            R"("default_capture_endpoint_id":"{0.0.1.00000000}.{cccccccc-0000-1111-2222-333344445555}",)"
            R"("selected_render_endpoint_id":"{0.0.0.00000000}.{1a2b3c4d-0000-1111-2222-333344445555}",)"
            R"("selected_capture_endpoint_id":"{0.0.1.00000000}.{cccccccc-0000-1111-2222-333344445555}",)"
            R"("error_code":0})");
  EXPECT_EQ(json(), json_of(usual_inventory()));
}

TEST_F(Inventory, MarksChosenEndpointsAndDefaults) {
  EXPECT_EQ(json(other_than_default), json_of(inventory_of_others()));
  ExpectedInventory expected = usual_inventory();
  expected.chosen_id[0] = narrow(speakers_id);
  EXPECT_EQ(json({speakers_id, u""}), json_of(expected));
  expected = usual_inventory();
  expected.chosen_id[1] = narrow(line_in_id);
  EXPECT_EQ(json({u"", line_in_id}), json_of(expected));
}

TEST_F(Inventory, MarksNoEntryForAMissingChosenEndpoint) {
  remove_endpoint(speakers);
  set_active(line_in, false);
  ExpectedInventory expected = inventory_of_others();
  expected.listed[0].erase(expected.listed[0].begin());
  expected.listed[1].pop_back();
  EXPECT_EQ(json(other_than_default), json_of(expected));
}

TEST_F(Inventory, MatchesTheExactId) {
  const EndpointInventory result =
      inventory({u"{0.0.0.00000000}.{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}", speakers_id});
  for (const EndpointInfo& info : result.render) EXPECT_FALSE(info.is_selected);
  for (const EndpointInfo& info : result.capture) EXPECT_FALSE(info.is_selected);
  EXPECT_EQ(result.selected_render_endpoint_id, "{0.0.0.00000000}.{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}");
  EXPECT_EQ(result.selected_capture_endpoint_id, narrow(speakers_id));
}

TEST_F(Inventory, ListsOnlyActiveEndpoints) {
  set_active(headphones, false);
  set_active(microphone, false);
  ExpectedInventory expected = usual_inventory();
  expected.listed[0].pop_back();
  expected.listed[1].erase(expected.listed[1].begin());
  expected.default_id[0] = narrow(speakers_id);
  expected.default_id[1] = narrow(line_in_id);
  EXPECT_EQ(json(), json_of(expected));
}

TEST_F(Inventory, ReplacesItsOutput) {
  EndpointInventory result = inventory(other_than_default);
  result.error_code = -1;
  inventory_endpoints({}, result);
  EXPECT_EQ(endpoint_inventory_json(result), json_of(usual_inventory()));
  memory::system().faults["CoCreateInstance"] = {access_denied};
  inventory_endpoints({}, result);
  EXPECT_EQ(
      endpoint_inventory_json(result),
      R"({"render":[],"capture":[],"default_render_endpoint_id":"","default_capture_endpoint_id":"",)"
      R"("selected_render_endpoint_id":"","selected_capture_endpoint_id":"","error_code":-2147024891})");
}

TEST_F(Inventory, LosesOnlyWhatTheFailedCallProvides) {
  for (const bool chosen : {false, true}) {
    const EndpointController controller = chosen ? other_than_default : EndpointController();
    const ExpectedInventory whole = chosen ? inventory_of_others() : usual_inventory();
    renew_usual_machine();
    ASSERT_EQ(json(controller), json_of(whole));
    const std::vector<std::string> log = memory::system().log;
    ASSERT_GT(log.size(), 60u);
    for (std::size_t place = 0; place < log.size(); ++place) {
      for (const std::int32_t status : {not_found, device_invalidated, smallest_status, -1}) {
        SCOPED_TRACE(log[place] + " at " + std::to_string(place));
        ExpectedInventory expected = whole;
        take_away(expected, log, place, status);
        renew_usual_machine();
        memory::system().fault_at = {place + 1, status};
        EXPECT_EQ(json(controller), json_of(expected));
        EXPECT_TRUE(memory::system().state.open_keys.empty());
      }
    }
  }
}

TEST_F(Inventory, IgnoresPositiveStatuses) {
  ASSERT_EQ(json(), json_of(usual_inventory()));
  const std::vector<std::string> log = memory::system().log;
  for (std::size_t place = 0; place < log.size(); ++place) {
    if (!has_audio_status(log[place])) continue;
    for (const std::int32_t status : {1, 0x7FFFFFFF}) {
      SCOPED_TRACE(log[place] + " at " + std::to_string(place));
      renew_usual_machine();
      memory::system().fault_at = {place + 1, status};
      EXPECT_EQ(json(), json_of(usual_inventory()));
    }
  }
}

TEST_F(Inventory, ReportsAMissingDefaultOnlyWithoutEndpoints) {
  constexpr std::int32_t of_list = -5;
  constexpr std::int32_t of_render = -6;
  constexpr std::int32_t of_capture = -7;
  const struct {
    bool render_listed;
    bool capture_listed;
    std::int32_t render_default;
    std::int32_t capture_default;
    std::int32_t capture_list;
    std::int32_t error_code;
  } rows[] = {
      {true, true, of_render, of_capture, 0, 0},
      {true, true, 1, 1, 1, 0},
      {true, true, 0, of_capture, 0, 0},
      {true, true, of_render, 0, 0, 0},
      {false, true, of_render, of_capture, 0, of_render},
      {false, true, of_render, 0, 0, of_render},
      {true, false, of_render, of_capture, 0, of_capture},
      {true, false, 0, of_capture, 0, of_capture},
      {false, false, of_render, of_capture, 0, of_render},
      {false, false, 0, of_capture, 0, not_found},  // the render default is missing by itself
      {false, true, 0, 0, 0, not_found},
      {true, false, 0, 0, 0, not_found},
      {false, false, of_render, of_capture, of_list, of_list},
      {true, false, of_render, of_capture, of_list, of_list},
      {true, true, of_render, of_capture, of_list, of_list},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    memory::reset();
    if (row.render_listed) put_endpoint(speakers);
    if (row.capture_listed) put_endpoint(microphone);
    memory::system().faults["GetDefaultAudioEndpoint"] = {row.render_default, row.capture_default};
    memory::system().faults["EnumAudioEndpoints"] = {0, row.capture_list};
    const EndpointInventory result = inventory();
    EXPECT_EQ(result.error_code, row.error_code);
    EXPECT_EQ(result.render.size(), row.render_listed ? 1u : 0u);
    EXPECT_EQ(result.capture.size(), row.capture_listed && row.capture_list >= 0 ? 1u : 0u);
    for (const EndpointInfo& info : result.render) {
      EXPECT_EQ(info.is_default, row.render_default >= 0);
      EXPECT_EQ(info.is_selected, row.render_default >= 0);
    }
    EXPECT_EQ(result.default_render_endpoint_id,
              row.render_listed && row.render_default >= 0 ? narrow(speakers_id) : "");
  }
}

TEST_F(Inventory, IsEmptyWithoutEndpoints) {
  memory::reset();
  const std::string empty =
      R"({"render":[],"capture":[],"default_render_endpoint_id":"","default_capture_endpoint_id":"",)"
      R"("selected_render_endpoint_id":"","selected_capture_endpoint_id":"","error_code":-2147023728})";
  EXPECT_EQ(json(), empty);
  Endpoint unplugged = speakers;
  unplugged.active = false;
  put_endpoint(unplugged);
  EXPECT_EQ(json(), empty);
}

TEST_F(Inventory, FallsBackToTheIdAsName) {
  Endpoint endpoint = speakers;
  endpoint.name.reset();
  const std::string id = narrow(speakers_id);
  EXPECT_EQ(listed_alone(endpoint).name, id);
  memory::reset();
  put_endpoint(speakers);
  memory::system().faults["OpenPropertyStore"] = {unexpected};
  const EndpointInventory result = inventory();
  EXPECT_EQ(result.render.at(0).name, id);
  EXPECT_EQ(result.error_code, not_found);  // of the capture default alone
}

TEST_F(Inventory, ShowsIllFormedTextsAsEmpty) {
  Endpoint endpoint = speakers;
  endpoint.name = u"Speak\xD83Dspeare";
  EXPECT_EQ(listed_alone(endpoint).name, "");
  EXPECT_EQ(listed_alone(endpoint).id, narrow(speakers_id));
  endpoint.name = u"";
  EXPECT_EQ(listed_alone(endpoint).name, "");
  endpoint.name = u"\xE4\x20AC\xD83D\xDE00";
  EXPECT_EQ(listed_alone(endpoint).name, "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");

  endpoint = {EndpointFlow::render, u"\xDC00", u"Odd", "0.5", {{1, 0}}};
  const EndpointInfo info = listed_alone(endpoint);
  EXPECT_EQ(info.id, "");
  EXPECT_EQ(info.name, "Odd");
  EXPECT_TRUE(info.is_default && info.is_selected);
  EXPECT_EQ(info.peak, 0.5f);
  EXPECT_EQ(info.sessions, std::vector<std::string>{"system"});
  endpoint.name.reset();
  EXPECT_EQ(listed_alone(endpoint).name, "");
  EXPECT_EQ(inventory().default_render_endpoint_id, "");
  EXPECT_EQ(inventory().selected_render_endpoint_id, "");
  EXPECT_EQ(inventory({u"\xD800", u"a\xD800"}).selected_capture_endpoint_id, "");
}

TEST_F(Inventory, DistinguishesIllFormedIds) {
  memory::reset();
  put_endpoint({EndpointFlow::render, u"\xD800", u"One"});
  put_endpoint({EndpointFlow::render, u"\xDC00", u"Other"});
  put_default(EndpointFlow::render, id_of(EndpointFlow::render, u"\xDC00"));
  const EndpointInventory result = inventory({id_of(EndpointFlow::render, u"\xD800"), u""});
  EXPECT_EQ(result.render.at(0).id, result.render.at(1).id);
  EXPECT_TRUE(!result.render.at(0).is_default && result.render.at(0).is_selected);
  EXPECT_TRUE(result.render.at(1).is_default && !result.render.at(1).is_selected);
}

TEST_F(Inventory, KeepsAnEndpointRemovedDuringThePass) {
  memory::system().before_machine_call = [](const std::string& entry) {
    if (entry == "Item 1") remove_endpoint(headphones);
  };
  ExpectedInventory expected = usual_inventory();
  expected.listed[0][1].name = expected.listed[0][1].id;
  expected.listed[0][1].peak = "0";
  expected.listed[0][1].sessions.clear();
  EndpointInventory result;
  inventory_endpoints({}, result);
  EXPECT_EQ(endpoint_inventory_json(result), json_of(expected));
}

TEST_F(Inventory, ListsManyEndpoints) {
  memory::reset();
  std::vector<std::string> ids;
  for (int number = 0; number < 100; ++number) {
    const Endpoint endpoint = {EndpointFlow::capture, endpoint::widen(std::to_string(number)), u"Many"};
    put_endpoint(endpoint);
    ids.push_back(narrow(id_of(endpoint)));
  }
  std::vector<std::string> listed;
  for (const EndpointInfo& info : inventory().capture) listed.push_back(info.id);
  EXPECT_EQ(listed, ids);
}

TEST_F(Inventory, AppendsToTheList) {
  DeviceEnumerator enumerator;
  ASSERT_EQ(create_device_enumerator(enumerator), 0);
  std::vector<EndpointInfo> list(1);
  list[0].id = "before";
  EXPECT_EQ(collect_endpoints(enumerator, EndpointFlow::render, speakers_id, headphones_id, list), 0);
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0].id, "before");
  EXPECT_TRUE(list[1].is_default && !list[1].is_selected);
  EXPECT_TRUE(!list[2].is_default && list[2].is_selected);
  for (const std::string operation : {"EnumAudioEndpoints", "Item", "GetId"}) {
    memory::system().faults[operation] = {access_denied};
    EXPECT_EQ(collect_endpoints(enumerator, EndpointFlow::capture, u"", u"", list), access_denied);
    EXPECT_EQ(list.size(), 3u) << operation;
  }
}

}  // namespace
}  // namespace velmora
