// The services of the machine in memory, told in a few words. Paths and names are typed apart from the code
// that is tested.
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

// States of a service, as a log of them shows them.
constexpr std::uint32_t stopped = 1;
constexpr std::uint32_t start_pending = 2;
constexpr std::uint32_t stop_pending = 3;
constexpr std::uint32_t running = 4;
constexpr std::uint32_t paused = 7;

constexpr std::uint32_t for_ever_ms = 0xFFFFFFFF;

inline std::string installed_path(const std::string& name) {
  return "SYSTEM\\CurrentControlSet\\Services\\" + name;
}

// Installs a service that starts by itself and needs others.
inline void install(const std::string& name, const std::vector<std::string>& needs = {}) {
  hosted::TreeKey& key = endpoint::key_at(memory::system().state.registry, installed_path(name));
  endpoint::put(key, "Start", endpoint::Value{endpoint::type_dword, endpoint::number_bytes(2, 4)});
  endpoint::put(key, "DependOnService",
                endpoint::Value{endpoint::type_multi_sz, endpoint::list_bytes(needs)});
}

// How a service behaves: "StopMs", "StartMs", "StopError", "StartError", "State".
inline void behave(const std::string& name, std::string_view what, std::uint32_t number) {
  hosted::TreeKey& key =
      endpoint::key_at(memory::system().state.registry, "SOFTWARE\\VelmoraStandIn\\Services\\" + name);
  endpoint::put(key, what, endpoint::Value{endpoint::type_dword, endpoint::number_bytes(number, 4)});
}

// Grants no more than this access to the service's key: with 0x20019 it may only be looked at.
inline void grant(const std::string& name, std::uint32_t access) {
  hosted::TreeKey& key =
      endpoint::key_at(memory::system().state.registry, "SOFTWARE\\VelmoraStandIn\\Access");
  endpoint::put(key, installed_path(name),
                endpoint::Value{endpoint::type_dword, endpoint::number_bytes(access, 4)});
}

inline void uninstall(const std::string& name) {
  hosted::remove_key(memory::system().state.registry,
                     endpoint::widen("HKEY_LOCAL_MACHINE\\" + installed_path(name)));
}

// From now on the service is in this state. `name` in lower case.
inline void set_state(std::u16string_view name, std::uint32_t state) {
  memory::system().state.services[std::u16string(name)] = {state, state, 0};
}
// 0 while nobody has asked for the service.
inline std::uint32_t state_of(std::u16string_view name) {
  const auto& all = memory::system().state.services;
  const auto found = all.find(std::u16string(name));
  return found == all.end() ? 0 : found->second.state;
}

// The usual machine: Mixer needs Audiosrv and Player needs Mixer, so that they are listed as Player, Mixer.
// Spooler has nothing to do with them.
inline void put_usual_services() {
  install("Audiosrv", {"RpcSs"});
  install("Mixer", {"Audiosrv"});
  install("Player", {"Mixer"});
  install("RpcSs");
  install("Spooler", {"RpcSs"});
}

// A machine like it, with a new log and no faults.
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

// What the machine was asked for about services.
inline Log service_calls() {
  Log calls = memory::system().log;
  std::erase_if(calls, [](const std::string& entry) { return !is_of_services(entry); });
  return calls;
}

// A restart of the usual machine in which everything goes well at once.
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

// A log with runs of equal entries told once, with their number: "QueryServiceStatusEx Mixer x100".
inline Log counted(const Log& log) {
  Log out;
  for (std::size_t begin = 0; begin < log.size();) {
    std::size_t end = begin;
    while (end < log.size() && log[end] == log[begin]) ++end;
    out.push_back(end - begin == 1 ? log[begin] : log[begin] + " x" + std::to_string(end - begin));
    begin = end;
  }
  return out;
}

}  // namespace velmora::services
