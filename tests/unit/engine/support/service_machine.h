// The services of the memory machine. Paths and names are typed independently of the product.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "memory/system.h"
#include "unit/binding/support/endpoint_machine.h"

namespace velmora::services {

using Log = std::vector<std::string>;

// The states of a service.
constexpr std::uint32_t stopped = 1;
constexpr std::uint32_t start_pending = 2;
constexpr std::uint32_t stop_pending = 3;
constexpr std::uint32_t running = 4;

constexpr std::uint32_t for_ever_ms = 0xFFFFFFFF;

inline std::string installed_path(const std::string& name) {
  return "SYSTEM\\CurrentControlSet\\Services\\" + name;
}

// Installs a service that starts automatically and depends on others.
inline void install(const std::string& name, const std::vector<std::string>& needs = {}) {
  hosted::TreeKey& key = endpoint::key_at(memory::system().state.registry, installed_path(name));
  endpoint::put(key, "Start", endpoint::Value{endpoint::type_dword, endpoint::number_bytes(2, 4)});
  endpoint::put(key, "DependOnService",
                endpoint::Value{endpoint::type_multi_sz, endpoint::list_bytes(needs)});
}

// Sets how a service behaves: "StopMs", "StartMs", "StopError", "StartError", "State".
inline void behave(const std::string& name, std::string_view what, std::uint32_t number) {
  hosted::TreeKey& key =
      endpoint::key_at(memory::system().state.registry, "SOFTWARE\\VelmoraStandIn\\Services\\" + name);
  endpoint::put(key, what, endpoint::Value{endpoint::type_dword, endpoint::number_bytes(number, 4)});
}

// Grants only this access to the service's key: 0x20019 is read-only.
inline void grant(const std::string& name, std::uint32_t access) {
  endpoint::grant_access(installed_path(name), access);
}

inline void uninstall(const std::string& name) {
  hosted::remove_key(memory::system().state.registry,
                     endpoint::widen("HKEY_LOCAL_MACHINE\\" + installed_path(name)));
}

// Puts the service into this state. `name` is in lower case.
inline void set_state(std::u16string_view name, std::uint32_t state) {
  memory::system().state.services[std::u16string(name)] = {state, state, 0};
}
// 0 until the service is first queried.
inline std::uint32_t state_of(std::u16string_view name) {
  const auto& all = memory::system().state.services;
  const auto found = all.find(std::u16string(name));
  return found == all.end() ? 0 : found->second.state;
}

// The usual machine: Player depends on Mixer and Mixer on Audiosrv, so they are listed as Player, Mixer.
// Spooler is independent of them.
inline void put_usual_services() {
  install("Audiosrv", {"RpcSs"});
  install("Mixer", {"Audiosrv"});
  install("Player", {"Mixer"});
  install("RpcSs");
  install("Spooler", {"RpcSs"});
}

// The usual machine with an empty log and no faults.
inline void renew_usual_services() {
  memory::reset();
  put_usual_services();
}

inline bool is_of_services(std::string_view entry) {
  for (const std::string_view operation :
       {"OpenSCManagerW", "OpenServiceW", "ControlService", "StartServiceW", "QueryServiceStatusEx",
        "EnumDependentServicesW", "CloseServiceHandle"}) {
    if (entry.starts_with(operation)) return true;
  }
  return false;
}

// All calls on services.
inline Log service_calls() {
  Log calls = memory::system().log;
  std::erase_if(calls, [](const std::string& entry) { return !is_of_services(entry); });
  return calls;
}

// The calls of a restart of the usual machine without failures or waits.
inline const Log& usual_restart() {
  static const Log log = {
      "OpenSCManagerW",
      "OpenServiceW Audiosrv 60",
      "EnumDependentServicesW Audiosrv",
      "OpenServiceW Player 36",
      "ControlService Player",
      "QueryServiceStatusEx Player",
      "CloseServiceHandle Player",
      "OpenServiceW Mixer 36",
      "ControlService Mixer",
      "QueryServiceStatusEx Mixer",
      "CloseServiceHandle Mixer",
      "ControlService Audiosrv",
      "QueryServiceStatusEx Audiosrv",
      "StartServiceW Audiosrv",
      "QueryServiceStatusEx Audiosrv",
      "OpenServiceW Player 20",
      "StartServiceW Player",
      "CloseServiceHandle Player",
      "OpenServiceW Mixer 20",
      "StartServiceW Mixer",
      "CloseServiceHandle Mixer",
      "CloseServiceHandle Audiosrv",
      "CloseServiceHandle",
  };
  return log;
}

}  // namespace velmora::services
