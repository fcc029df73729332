// The expected inventory of a machine as JSON, and what a failed call removes from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "unit/endpoints/support/audio_machine.h"

namespace velmora::audio {

struct ExpectedSession {
  std::string pid;   // shown when the process has no name
  std::string name;  // empty: not shown
};

struct ExpectedEndpoint {
  std::string id;
  std::string name;
  std::string peak;
  std::vector<ExpectedSession> sessions;
  bool bound = false;
};

// Index 0 is render, 1 capture.
struct ExpectedInventory {
  std::vector<ExpectedEndpoint> listed[2];
  std::string default_id[2];
  std::string chosen_id[2];  // empty: the default is used
  bool ids_known = true;     // false: nothing is known
  std::int32_t error_code = 0;
};

inline ExpectedEndpoint expected_endpoint(const Endpoint& endpoint) {
  const std::map<std::uint32_t, std::string> names = {
      {0, "system"}, {100, "player.exe"}, {300, "recorder.exe"}, {1234, "pid 1234"}};
  ExpectedEndpoint expected{narrow(id_of(endpoint)),
                            narrow(endpoint.name.value_or(id_of(endpoint))),
                            endpoint.peak,
                            {},
                            endpoint.bound};
  for (const AudioSession& session : endpoint.sessions) {
    expected.sessions.push_back({"pid " + std::to_string(session.process_id),
                                 session.state == 1 ? names.at(session.process_id) : std::string()});
  }
  return expected;
}

inline ExpectedInventory usual_inventory() {
  ExpectedInventory expected;
  expected.listed[0] = {expected_endpoint(speakers), expected_endpoint(headphones)};
  expected.listed[1] = {expected_endpoint(microphone), expected_endpoint(line_in)};
  expected.default_id[0] = narrow(headphones_id);
  expected.default_id[1] = narrow(microphone_id);
  return expected;
}

// Texts are copied without escaping.
inline std::string json_of(const ExpectedInventory& expected) {
  const auto quoted = [](const std::string& text) { return "\"" + text + "\""; };
  const auto word = [](bool value) { return std::string(value ? "true" : "false"); };
  const auto working = [&](int flow) {
    if (!expected.ids_known) return std::string();
    return expected.chosen_id[flow].empty() ? expected.default_id[flow] : expected.chosen_id[flow];
  };
  std::string text = "{";
  for (int flow = 0; flow < 2; ++flow) {
    text += flow == 0 ? "\"render\":[" : ",\"capture\":[";
    for (const ExpectedEndpoint& endpoint : expected.listed[flow]) {
      if (text.back() == '}') text += ",";
      text += "{\"id\":" + quoted(endpoint.id) + ",\"name\":" + quoted(endpoint.name) +
              ",\"is_default\":" + word(endpoint.id == expected.default_id[flow]) +
              ",\"is_selected\":" + word(endpoint.id == working(flow)) + ",\"peak\":" + endpoint.peak +
              ",\"sessions\":[";
      for (const ExpectedSession& session : endpoint.sessions) {
        if (session.name.empty()) continue;
        if (text.back() == '"') text += ",";
        text += quoted(session.name);
      }
      text += "]";
      if (flow == 0) text += ",\"apo_bound\":" + word(endpoint.bound);
      text += "}";
    }
    text += "]";
  }
  text += ",\"default_render_endpoint_id\":" + quoted(expected.default_id[0]);
  text += ",\"default_capture_endpoint_id\":" + quoted(expected.default_id[1]);
  text += ",\"selected_render_endpoint_id\":" + quoted(working(0));
  text += ",\"selected_capture_endpoint_id\":" + quoted(working(1));
  return text + ",\"error_code\":" + std::to_string(expected.error_code) + "}";
}

// Removes what the call at `place` (from 0) of an undisturbed log provides, as if it had failed with
// `status`.
inline void take_away(ExpectedInventory& expected, const std::vector<std::string>& log, std::size_t place,
                      std::int32_t status) {
  // The position in the pass: the flow, the endpoint and its session, and the render endpoint whose chain is
  // read.
  std::size_t flow = 0;
  bool listing = false;
  std::size_t index = 0;
  std::size_t session = 0;
  std::size_t looks = 0;
  const auto number_in = [](const std::string& entry) {
    return static_cast<std::size_t>(std::stoul(entry.substr(entry.find(' ') + 1)));
  };
  for (std::size_t at = 0; at <= place; ++at) {
    const std::string operation = operation_of(log.at(at));
    if (operation == "GetDefaultAudioEndpoint") flow = number_in(log[at]);
    if (operation == "EnumAudioEndpoints") {
      flow = number_in(log[at]);
      listing = true;
    }
    if (operation == "Item") index = number_in(log[at]);
    if (operation == "GetSession") session = number_in(log[at]);
    if (operation == "RegOpenKeyExW") ++looks;
  }
  const std::string operation = operation_of(log.at(place));
  auto& list = expected.listed[flow];
  const auto end_lists = [&](std::size_t left) {
    list.resize(left);
    if (flow == 0) expected.listed[1].clear();
    expected.error_code = status;
  };
  if (operation == "CoCreateInstance") {
    expected = {};
    expected.ids_known = false;
    expected.error_code = status;
  } else if (operation == "GetDefaultAudioEndpoint" || (operation == "GetId" && !listing)) {
    expected.default_id[flow].clear();
  } else if (operation == "EnumAudioEndpoints") {
    end_lists(0);
  } else if (operation == "Item" || operation == "GetId") {
    end_lists(index);
  } else if (operation == "OpenPropertyStore") {
    list.at(index).name = list.at(index).id;
  } else if (operation == "GetPeakValue") {
    list.at(index).peak = "0";
  } else if (operation == "GetSessionEnumerator") {
    list.at(index).sessions.clear();
  } else if (operation == "GetSession") {
    list.at(index).sessions.at(session).name.clear();
  } else if (operation == "QueryFullProcessImageNameW") {
    ExpectedSession& shown = list.at(index).sessions.at(session);
    shown.name = shown.pid;
  } else if ((operation.starts_with("Reg") && operation != "RegCloseKey") || operation == "StringFromGUID2") {
    expected.listed[0].at(looks - 1).bound = false;
  }
}

}  // namespace velmora::audio
