#include "api/inventory_json.h"

#include <gtest/gtest.h>

#include <limits>

#include "unit/endpoints/support/audio_machine.h"

namespace velmora {
namespace {

using namespace audio;
using namespace std::string_literals;

class InventoryJson : public FreshMachine {
 protected:
  // The entry of one render endpoint in the text.
  static std::string render_entry(const EndpointInfo& info) {
    EndpointInventory inventory;
    inventory.render = {info};
    return without(
        endpoint_inventory_json(inventory), "{\"render\":[",
        "],\"capture\":[],\"default_render_endpoint_id\":\"\",\"default_capture_endpoint_id\":\"\","
        "\"selected_render_endpoint_id\":\"\",\"selected_capture_endpoint_id\":\"\",\"error_code\":0}");
  }
  static std::string without(const std::string& text, const std::string& front, const std::string& back) {
    if (!text.starts_with(front) || !text.ends_with(back)) return "unexpected: " + text;
    return text.substr(front.size(), text.size() - front.size() - back.size());
  }
};

TEST_F(InventoryJson, ContainsEveryFieldWhenThereIsNothing) {
  EXPECT_EQ(endpoint_inventory_json({}),
            R"({"render":[],"capture":[],"default_render_endpoint_id":"","default_capture_endpoint_id":"",)"
            R"("selected_render_endpoint_id":"","selected_capture_endpoint_id":"","error_code":0})");
  EXPECT_TRUE(memory::system().log.empty());
}

TEST_F(InventoryJson, WritesTheFieldsInTheirOrder) {
  EndpointInventory inventory;
  inventory.render = {{"r1", "R one", true, false, 0.25f, {"a", "b"}}, {"r2", "R two", false, true, 0, {}}};
  inventory.capture = {{"c1", "C one", false, true, 1.0f, {"c"}}, {"c2", "C two", true, false, 0.1f, {}}};
  inventory.default_render_endpoint_id = "dr";
  inventory.default_capture_endpoint_id = "dc";
  inventory.selected_render_endpoint_id = "sr";
  inventory.selected_capture_endpoint_id = "sc";
  inventory.error_code = not_found;
  EXPECT_EQ(endpoint_inventory_json(inventory),
            R"({"render":[)"
            R"({"id":"r1","name":"R one","is_default":true,"is_selected":false,"peak":0.25,)"
            R"("sessions":["a","b"],"apo_bound":false},)"
            R"({"id":"r2","name":"R two","is_default":false,"is_selected":true,"peak":0,"sessions":[],)"
            R"("apo_bound":false}],"capture":[)"
            R"({"id":"c1","name":"C one","is_default":false,"is_selected":true,"peak":1,"sessions":["c"]},)"
            R"({"id":"c2","name":"C two","is_default":true,"is_selected":false,"peak":0.1,"sessions":[]}],)"
            R"("default_render_endpoint_id":"dr","default_capture_endpoint_id":"dc",)"
            R"("selected_render_endpoint_id":"sr","selected_capture_endpoint_id":"sc",)"
            R"("error_code":-2147023728})");
}

TEST_F(InventoryJson, WritesPeaksWithSixDigits) {
  const struct {
    float peak;
    std::string text;
  } rows[] = {{0.123456789f, "0.123457"}, {1e-5f, "1e-05"}, {-0.0f, "-0"}};
  for (const auto& row : rows) {
    EndpointInfo info;
    info.peak = row.peak;
    EXPECT_EQ(render_entry(info), R"({"id":"","name":"","is_default":false,"is_selected":false,"peak":)" +
                                      row.text + R"(,"sessions":[],"apo_bound":false})");
  }
}

TEST_F(InventoryJson, EscapesEveryText) {
  const std::string odd = "q\"b\\c\x01\n\x7F\xC3\xA4\xFF/";
  const std::string escaped = "\"q\\\"b\\\\c\\u0001\\n\x7F\xC3\xA4\xFF/\"";
  EndpointInfo info{odd, odd, false, false, 0, {odd, "plain", odd}};
  EndpointInventory inventory;
  inventory.render = {info};
  inventory.capture = {info};
  inventory.default_render_endpoint_id = inventory.default_capture_endpoint_id = odd;
  inventory.selected_render_endpoint_id = inventory.selected_capture_endpoint_id = odd;
  const std::string entry = "\"id\":" + escaped + ",\"name\":" + escaped +
                            ",\"is_default\":false,\"is_selected\":false,\"peak\":0,\"sessions\":[" +
                            escaped + ",\"plain\"," + escaped + "]";
  EXPECT_EQ(endpoint_inventory_json(inventory),
            "{\"render\":[{" + entry + ",\"apo_bound\":false}],\"capture\":[{" + entry +
                "}],\"default_render_endpoint_id\":" + escaped + ",\"default_capture_endpoint_id\":" +
                escaped + ",\"selected_render_endpoint_id\":" + escaped +
                ",\"selected_capture_endpoint_id\":" + escaped + ",\"error_code\":0}");
}

TEST_F(InventoryJson, WritesLongTexts) {
  const std::string length_60_kb(61440, 'x');
  EndpointInfo info;
  info.id = length_60_kb;
  EXPECT_EQ(render_entry(info), "{\"id\":\"" + length_60_kb +
                                    R"(","name":"","is_default":false,"is_selected":false,"peak":0,)"
                                    R"("sessions":[],"apo_bound":false})");
}

class BoundInJson : public InventoryJson {
 protected:
  void SetUp() override {
    InventoryJson::SetUp();
    put_usual_machine();
  }
  // The text after apo_bound in the entry of a render endpoint with this id.
  static std::string bound(const std::string& id) {
    EndpointInfo info;
    info.id = id;
    const std::string entry = render_entry(info);
    EXPECT_TRUE(memory::system().state.open_keys.empty());
    return entry.substr(entry.rfind(':') + 1);
  }
};

TEST_F(BoundInJson, IsReadForEachRenderEndpoint) {
  EXPECT_EQ(bound(narrow(speakers_id)), "true}");
  EXPECT_EQ(bound(narrow(headphones_id)), "false}");
  EndpointInventory inventory;
  inventory.render.resize(2);
  inventory.render[0].id = narrow(headphones_id);
  inventory.render[1].id = narrow(speakers_id);
  inventory.capture = inventory.render;
  const std::string text = endpoint_inventory_json(inventory);
  EXPECT_LT(text.find("\"apo_bound\":false},{"), text.find("\"apo_bound\":true}],\"capture\":[{"));
  EXPECT_EQ(text.find("apo_bound", text.find("\"capture\":")), std::string::npos);
  hosted::remove_key(memory::system().state.registry,
                     devices_path(EndpointFlow::render) + u"\\" + speakers.key + u"\\FxProperties");
  EXPECT_EQ(bound(narrow(speakers_id)), "false}");
}

TEST_F(BoundInJson, IsFalseIfTheEndpointCannotBeRead) {
  for (const std::string operation : {"RegOpenKeyExW", "RegQueryValueExW", "StringFromGUID2"}) {
    for (const std::int64_t error : {2, 5, 1018}) {
      memory::system().faults[operation] = {error};
      EXPECT_EQ(bound(narrow(speakers_id)), "false}") << operation;
    }
  }
  EXPECT_EQ(bound(narrow(speakers_id)), "true}");
  for (const std::string& id : {""s, "no id"s, narrow(speakers_id) + "x", narrow(microphone_id),
                                "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000000}"s}) {
    EXPECT_EQ(bound(id), "false}") << id;
  }
}

}  // namespace
}  // namespace velmora
