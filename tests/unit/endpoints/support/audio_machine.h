// Audio endpoints in the memory machine's registry. Paths, names of values and ids are typed independently of
// the product.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "memory/system.h"
#include "platform/audio_endpoints.h"
#include "unit/binding/support/endpoint_machine.h"

namespace velmora::audio {

constexpr auto not_found = static_cast<std::int32_t>(0x80070490u);
constexpr auto invalid_argument = static_cast<std::int32_t>(0x80070057u);
constexpr auto out_of_memory = static_cast<std::int32_t>(0x8007000Eu);
constexpr auto access_denied = static_cast<std::int32_t>(0x80070005u);
constexpr auto device_invalidated = static_cast<std::int32_t>(0x88890004u);
constexpr auto unexpected = static_cast<std::int32_t>(0x8000FFFFu);
constexpr auto smallest_status = static_cast<std::int32_t>(0x80000000u);

struct Endpoint {
  EndpointFlow flow = EndpointFlow::render;
  std::u16string key;                  // its own part of the id
  std::optional<std::u16string> name;  // no value: it has no name property
  std::string peak = "0";              // as strtof reads it
  std::vector<AudioSession> sessions = {};
  bool bound = false;  // the effect is in its chain
  bool active = true;
};

inline std::u16string id_of(EndpointFlow flow, std::u16string_view key) {
  return std::u16string(flow == EndpointFlow::render ? u"{0.0.0.00000000}." : u"{0.0.1.00000000}.")
      .append(key);
}
inline std::u16string id_of(const Endpoint& endpoint) { return id_of(endpoint.flow, endpoint.key); }

inline std::u16string devices_path(EndpointFlow flow) {
  return std::u16string(
             u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\")
      .append(flow == EndpointFlow::render ? u"Render" : u"Capture");
}
inline constexpr std::u16string_view own_path = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Audio";

inline hosted::TreeKey& key_of(const std::u16string& path) {
  return hosted::make_key(memory::system().state.registry, path);
}
inline hosted::TreeKey& own_key_of(std::u16string_view id) {
  return key_of(std::u16string(own_path).append(u"\\").append(id));
}
inline void put_text(hosted::TreeKey& key, std::u16string_view name, std::u16string_view text) {
  hosted::put_value(key, name, 1, endpoint::unit_bytes(std::u16string(text) + u'\0'));
}
inline void put_number(hosted::TreeKey& key, std::u16string_view name, std::uint32_t number) {
  hosted::put_value(key, name, 4, endpoint::number_bytes(number, 4));
}

inline void put_default(EndpointFlow flow, std::u16string_view id) {
  put_text(key_of(std::u16string(own_path)),
           flow == EndpointFlow::render ? u"DefaultRender" : u"DefaultCapture", id);
}

// Adds it after the existing endpoints.
inline void put_endpoint(const Endpoint& endpoint) {
  hosted::TreeKey device;
  device.name = endpoint.key;
  put_number(device, u"DeviceState", endpoint.active ? 1 : 4);
  if (endpoint.name) {
    put_text(hosted::make_key(device, u"Properties"), u"{a45c254e-df1c-4efd-8020-67d146a850e0},14",
             *endpoint.name);
  }
  if (endpoint.bound) {
    hosted::put_value(hosted::make_key(device, u"FxProperties"), u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14",
                      7, endpoint::list_bytes({"{631D9145-CACF-44D7-861B-5D82ADD8C84F}"}));
  }
  key_of(devices_path(endpoint.flow)).keys.push_back(std::move(device));

  hosted::TreeKey& own = own_key_of(id_of(endpoint));
  put_text(own, u"Peak", endpoint::widen(endpoint.peak));
  hosted::TreeKey& sessions = hosted::make_key(own, u"Sessions");
  for (const AudioSession& session : endpoint.sessions) {
    hosted::TreeKey kept;
    kept.name = endpoint::widen(std::to_string(sessions.keys.size()));
    put_number(kept, u"State", static_cast<std::uint32_t>(session.state));
    put_number(kept, u"ProcessId", session.process_id);
    sessions.keys.push_back(std::move(kept));
  }
}

inline void set_active(const Endpoint& endpoint, bool active) {
  put_number(key_of(devices_path(endpoint.flow) + u"\\" + endpoint.key), u"DeviceState", active ? 1 : 4);
}
inline void remove_endpoint(const Endpoint& endpoint) {
  hosted::remove_key(memory::system().state.registry, devices_path(endpoint.flow) + u"\\" + endpoint.key);
}

// The stored volume and mute; empty text and no value if they were never set.
inline std::string volume_text(std::u16string_view id) {
  const hosted::TreeValue* value = hosted::find_value(own_key_of(id), u"Volume");
  std::string text;
  for (std::size_t index = 0; value != nullptr && index + 2 < value->bytes.size(); index += 2) {
    text += value->bytes[index];
  }
  return text;
}
inline std::optional<bool> mute_value(std::u16string_view id) {
  const hosted::TreeValue* value = hosted::find_value(own_key_of(id), u"Muted");
  if (value == nullptr) return std::nullopt;
  return value->bytes != std::string(4, '\0');
}

// The usual machine: two endpoints of each flow, not sorted by any name. The defaults are the second render
// and the first capture endpoint. Process 100 is a player, 300 a recorder, and 1234 cannot be opened.
inline const Endpoint speakers = {EndpointFlow::render,
                                  u"{feab839f-3407-471a-aa45-bcd41f1bb5f6}",
                                  u"Speakers",
                                  "0.25",
                                  {{1, 100}, {0, 100}, {1, 0}},
                                  true};
inline const Endpoint headphones = {EndpointFlow::render,
                                    u"{1a2b3c4d-0000-1111-2222-333344445555}",
                                    u"Headphones",
                                    "0.5",
                                    {{2, 100}, {1, 1234}, {1, 100}, {1, 100}}};
inline const Endpoint microphone = {
    EndpointFlow::capture, u"{cccccccc-0000-1111-2222-333344445555}", u"Microphone", "0.125", {{1, 300}}};
inline const Endpoint line_in = {
    EndpointFlow::capture, u"{bbbbbbbb-0000-1111-2222-333344445555}", u"Line in", "0", {{1, 100}, {1, 300}}};

inline const std::u16string speakers_id = u"{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}";
inline const std::u16string headphones_id = u"{0.0.0.00000000}.{1a2b3c4d-0000-1111-2222-333344445555}";
inline const std::u16string microphone_id = u"{0.0.1.00000000}.{cccccccc-0000-1111-2222-333344445555}";
inline const std::u16string line_in_id = u"{0.0.1.00000000}.{bbbbbbbb-0000-1111-2222-333344445555}";

inline void put_usual_machine() {
  for (const Endpoint& endpoint : {speakers, headphones, microphone, line_in}) put_endpoint(endpoint);
  put_default(EndpointFlow::render, headphones_id);
  put_default(EndpointFlow::capture, microphone_id);
  memory::system().process_paths = {{100, u"C:\\Programs\\player.exe"}, {300, u"D:\\recorder.exe"}};
}

// The usual machine with an empty log and no faults.
inline void renew_usual_machine() {
  memory::reset();
  put_usual_machine();
}

// Only for ASCII.
inline std::string narrow(std::u16string_view text) { return {text.begin(), text.end()}; }

// The operation in a log entry.
inline std::string operation_of(const std::string& entry) { return entry.substr(0, entry.find(' ')); }

// Whether the entry is an audio operation that returns a status.
inline bool has_audio_status(const std::string& entry) {
  for (const char* const operation :
       {"CoCreateInstance", "GetDefaultAudioEndpoint", "GetDevice", "EnumAudioEndpoints", "Item", "GetId",
        "OpenPropertyStore", "GetPeakValue", "Activate", "GetMasterVolumeLevelScalar",
        "SetMasterVolumeLevelScalar", "GetMute", "SetMute", "GetSessionEnumerator", "GetSession"}) {
    if (operation_of(entry) == operation) return true;
  }
  return false;
}

}  // namespace velmora::audio
