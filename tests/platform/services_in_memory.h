// The services in the registry tree, for the machine in memory and the hosted machine. Only the
// service_surroundings_*.cpp of a program includes this.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/hosted/machine_state.h"
#include "platform/registry.h"
#include "platform/surroundings.h"

namespace velmora::surroundings {
namespace {

void put_number(hosted::TreeKey& key, std::u16string_view name, std::uint32_t number) {
  hosted::put_value(key, name, reg_dword, {reinterpret_cast<const char*>(&number), sizeof number});
}

void put_texts(hosted::TreeKey& key, std::u16string_view name, const std::vector<std::u16string>& texts) {
  constexpr std::uint32_t reg_multi_sz = 7;  // winnt.h
  std::u16string joined;
  for (const std::u16string& text : texts) joined.append(text).append(1, u'\0');
  joined.append(1, u'\0');
  hosted::put_value(key, name, reg_multi_sz,
                    {reinterpret_cast<const char*>(joined.data()), joined.size() * sizeof(char16_t)});
}

// Any number or list that says nothing is left out, as a real machine does.
void put_service(const ArrangedService& service) {
  constexpr std::uint32_t on_demand = 3;  // winsvc.h
  constexpr std::uint32_t disabled = 4;
  hosted::RegistryTree& registry = hosted::machine_state().registry;
  hosted::TreeKey& installed = hosted::make_key(
      registry,
      std::u16string(u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\").append(service.name));
  put_number(installed, u"Start", service.is_disabled ? disabled : on_demand);
  if (!service.needs.empty()) put_texts(installed, u"DependOnService", service.needs);
  hosted::TreeKey& behaviour = hosted::make_key(
      registry,
      std::u16string(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Services\\").append(service.name));
  if (service.start_ms != 0) put_number(behaviour, u"StartMs", service.start_ms);
  if (service.stop_ms != 0) put_number(behaviour, u"StopMs", service.stop_ms);
  if (service.stop_error != 0) put_number(behaviour, u"StopError", service.stop_error);
}

void forget_services() {
  EXPECT_TRUE(hosted::machine_state().open_services.empty());
  hosted::machine_state().services.clear();
}

}  // namespace
}  // namespace velmora::surroundings
