// The endpoints in the registry tree, for the machine in memory and the hosted machine. Only the
// surroundings_*.cpp of a program includes this.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "platform/audio_endpoints.h"
#include "platform/hosted/machine_state.h"
#include "platform/registry.h"
#include "platform/surroundings.h"

namespace velmora::surroundings {
namespace {

constexpr std::u16string_view devices_path =
    u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio";
constexpr std::u16string_view audio_path = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Audio";
constexpr std::size_t flow_mark_units = 17;  // "{0.0.0.00000000}."
constexpr std::u16string_view name_property = u"{a45c254e-df1c-4efd-8020-67d146a850e0},14";

void put_text(hosted::TreeKey& key, std::u16string_view name, std::u16string text) {
  text += u'\0';
  hosted::put_value(key, name, reg_sz,
                    {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)});
}

void put_number(hosted::TreeKey& key, std::u16string_view name, std::uint32_t number) {
  hosted::put_value(key, name, reg_dword, {reinterpret_cast<const char*>(&number), sizeof number});
}

std::u16string float_text(float number) {
  std::array<char, 32> digits{};
  std::snprintf(digits.data(), digits.size(), "%.9g", static_cast<double>(number));
  return wide_from_ascii(digits.data());
}

// In the order in which they come, and not in that of their names.
hosted::TreeKey& new_key(hosted::TreeKey& parent, std::u16string_view path) {
  return hosted::make_key(parent, path, hosted::KeyPlace::last);
}

void put_device(const ArrangedEndpoint& endpoint) {
  hosted::TreeKey& devices = new_key(hosted::machine_state().registry, devices_path);
  const std::u16string flow = endpoint.flow == EndpointFlow::render ? u"Render\\" : u"Capture\\";
  hosted::TreeKey& device = new_key(devices, flow + endpoint.id.substr(flow_mark_units));
  put_number(device, u"DeviceState", endpoint.state);
  hosted::TreeKey& properties = new_key(device, u"Properties");
  if (endpoint.name) put_text(properties, name_property, *endpoint.name);
  if (endpoint.name_is_number) put_number(properties, name_property, 7);
}

void put_own_values(const ArrangedEndpoint& endpoint) {
  hosted::TreeKey& audio = new_key(hosted::machine_state().registry, audio_path);
  if (endpoint.is_default) {
    put_text(audio, endpoint.flow == EndpointFlow::render ? u"DefaultRender" : u"DefaultCapture",
             endpoint.id);
  }
  hosted::TreeKey& own = new_key(audio, endpoint.id);
  put_text(own, u"Volume", float_text(endpoint.level));
  put_text(own, u"Peak", float_text(endpoint.peak));
  put_number(own, u"Muted", endpoint.muted ? 1 : 0);
  for (const AudioSession& session : endpoint.sessions) {
    hosted::TreeKey& sessions = new_key(own, u"Sessions");
    const auto number = wide_from_ascii(std::to_string(sessions.keys.size()));
    hosted::TreeKey& key = new_key(sessions, number);
    put_number(key, u"State", static_cast<std::uint32_t>(session.state));
    put_number(key, u"ProcessId", session.process_id);
  }
}

}  // namespace

void put_endpoints(const std::vector<ArrangedEndpoint>& endpoints) {
  hosted::remove_key(hosted::machine_state().registry, devices_path);
  hosted::remove_key(hosted::machine_state().registry, audio_path);
  for (const ArrangedEndpoint& endpoint : endpoints) {
    put_device(endpoint);
    put_own_values(endpoint);
  }
}

std::size_t held_audio_objects() { return hosted::machine_state().audio_objects.size(); }

}  // namespace velmora::surroundings
