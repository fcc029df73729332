// Services of the hosted machine, behaving like the service control manager.
//
// Installed services and their dependencies are read where Windows keeps them
// (`SYSTEM\CurrentControlSet\Services`). Running states are kept in memory.
//
// The key `SOFTWARE\VelmoraStandIn\Services` configures behaviour, with one subkey per service. `StopMs` and
// `StartMs` are durations in milliseconds (0xFFFFFFFF: forever). `StopError` and `StartError` are Win32
// errors to return. `State` is the initial state.
//
// Each state change is published (`publish_service_state`). The end of a pending state is published
// at the next query.
#include "platform/services.h"

#include <algorithm>
#include <optional>

#include "base/ascii.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/hosted/machine_state.h"
#include "platform/registry.h"

namespace velmora {
namespace {

constexpr std::uint32_t key_read = 0x20019;  // winnt.h
// Start types (winsvc.h): lower values are boot, system and automatic.
constexpr std::uint32_t start_on_demand = 3;
constexpr std::uint32_t start_disabled = 4;

constexpr std::u16string_view services_path = u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\";
constexpr std::u16string_view own_path = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Services\\";
constexpr std::uint32_t for_ever_ms = 0xFFFFFFFF;
constexpr std::int64_t ns_per_ms = 1'000'000;

std::u16string joined(std::u16string_view path, std::u16string_view name) {
  return std::u16string(path).append(name);
}

const hosted::TreeKey* installed(std::u16string_view name) {
  return hosted::find_key(hosted::machine_state().registry, joined(services_path, name));
}

std::optional<std::uint32_t> own_number(std::u16string_view name, std::u16string_view value) {
  const hosted::TreeKey* key = hosted::find_key(hosted::machine_state().registry, joined(own_path, name));
  return hosted::find_number(key, value);
}

// Services with an automatic start, or without a start type, are running initially.
std::uint32_t first_state(std::u16string_view name) {
  if (const auto state = own_number(name, u"State")) return *state;
  const std::uint32_t start = hosted::find_number(installed(name), u"Start").value_or(0);
  return start < start_on_demand ? service_running : service_stopped;
}

std::u16string lower_case(std::u16string_view name) {
  std::u16string lower(name);
  for (char16_t& unit : lower) unit = ascii_lower(unit);
  return lower;
}

hosted::ServiceRun& run_of(std::u16string_view name) {
  auto& services = hosted::machine_state().services;
  const auto [entry, is_new] = services.try_emplace(lower_case(name));
  hosted::ServiceRun& run = entry->second;
  if (is_new) run.state = run.settled_state = first_state(name);
  if (run.state != run.settled_state && steady_now_ns() >= run.settles_at_ns) {
    run.state = run.settled_state;
    hosted::publish_service_state(name, run.state);
  }
  return run;
}

void begin_change(std::u16string_view name, std::u16string_view duration, std::uint32_t pending,
                  std::uint32_t settled) {
  hosted::ServiceRun& run = run_of(name);
  const std::uint32_t ms = own_number(name, duration).value_or(0);
  run.settled_state = settled;
  run.state = ms == 0 ? settled : pending;
  run.settles_at_ns = ms == for_ever_ms ? INT64_MAX : steady_now_ns() + ms * ns_per_ms;
  hosted::publish_service_state(name, run.state);
}

// Returns the dependencies of a service, without groups of services (names that start with a plus sign).
std::vector<std::u16string> needs_of(const hosted::TreeKey& service) {
  std::vector<std::u16string> needs = hosted::find_texts(&service, u"DependOnService");
  std::erase_if(needs, [](const std::u16string& name) { return name.starts_with(u'+'); });
  return needs;
}

bool contains_name(const std::vector<std::u16string>& names, std::u16string_view name) {
  return std::any_of(names.begin(), names.end(),
                     [&](const std::u16string& one) { return hosted::same_name(one, name); });
}

// Appends all dependents of a service, indirect ones first. In this order, which Windows uses too, they can
// be stopped one by one. `seen` holds visited services, so that a dependency cycle ends.
void collect_dependents(std::u16string_view name, std::vector<std::u16string>& seen,
                        std::vector<std::u16string>& out) {
  seen.emplace_back(name);
  const hosted::TreeKey* services =
      hosted::find_key(hosted::machine_state().registry, services_path.substr(0, services_path.size() - 1));
  if (services == nullptr) return;
  for (const hosted::TreeKey& service : services->keys) {
    if (!contains_name(needs_of(service), name) || contains_name(seen, service.name)) continue;
    collect_dependents(service.name, seen, out);
    out.push_back(service.name);
  }
}

std::vector<std::u16string> active_dependents_of(std::u16string_view name) {
  std::vector<std::u16string> seen;
  std::vector<std::u16string> names;
  collect_dependents(name, seen, names);
  std::erase_if(names, [](const std::u16string& one) { return run_of(one).state == service_stopped; });
  return names;
}

// Starts the dependencies of a service, then the service.
std::uint32_t start(std::u16string_view name, std::size_t depth) {
  constexpr std::size_t most_depth = 64;  // limits dependency cycles
  const hosted::TreeKey* service = installed(name);
  if (service == nullptr) return error_service_does_not_exist;
  if (depth == most_depth) return error_circular_dependency;
  if (run_of(name).state != service_stopped) return error_service_already_running;
  if (hosted::find_number(service, u"Start") == start_disabled) return error_service_disabled;
  for (const std::u16string& need : needs_of(*service)) {
    const std::uint32_t error = start(need, depth + 1);
    if (error == 0 || error == error_service_already_running) continue;
    if (error == error_circular_dependency) return error;
    return error == error_service_does_not_exist ? error_service_dependency_deleted
                                                 : error_service_dependency_fail;
  }
  if (const auto error = own_number(name, u"StartError")) return *error;
  begin_change(name, u"StartMs", service_start_pending, service_running);
  return 0;
}

std::uint32_t stop(std::u16string_view name) {
  const std::uint32_t state = run_of(name).state;
  if (state == service_stopped) return error_service_not_active;
  if (state == service_start_pending || state == service_stop_pending) {
    return error_service_cannot_accept_ctrl;
  }
  if (!active_dependents_of(name).empty()) return error_dependent_services_running;
  if (const auto error = own_number(name, u"StopError")) return *error;
  begin_change(name, u"StopMs", service_stop_pending, service_stopped);
  return 0;
}

std::uint32_t enter_call(std::string_view operation, std::u16string_view subject) {
  return static_cast<std::uint32_t>(hosted::enter(operation, subject));
}

const hosted::OpenService& opened(const Service& service) {
  return hosted::machine_state().open_services.at(service.native());
}

// Whether the service was opened with this access.
bool may(const Service& service, std::uint32_t access) { return (opened(service).access & access) == access; }

std::uintptr_t hold(std::u16string_view name, std::uint32_t access) {
  hosted::MachineState& machine = hosted::machine_state();
  const std::uintptr_t number = machine.next_service++;
  machine.open_services.emplace(number, hosted::OpenService{std::u16string(name), access});
  return number;
}

void let_go(std::uintptr_t native) {
  auto& services = hosted::machine_state().open_services;
  static_cast<void>(enter_call("CloseServiceHandle", services.at(native).name));
  services.erase(native);
}

std::u16string decimal(std::uint32_t number) {
  const std::string digits = std::to_string(number);
  return {digits.begin(), digits.end()};
}

}  // namespace

void ServiceManagerKind::release(Native native) noexcept { let_go(native); }
void ServiceKind::release(Native native) noexcept { let_go(native); }

std::uint32_t open_service_manager(ServiceManager& out) {
  if (const std::uint32_t error = enter_call("OpenSCManagerW", u"")) return error;
  out = ServiceManager(hold(u"", 0));
  return 0;
}

std::uint32_t open_service(const ServiceManager&, std::u16string_view name, std::uint32_t access,
                           Service& out) {
  if (const std::uint32_t error = enter_call("OpenServiceW", joined(name, u" ").append(decimal(access))))
    return error;
  if (installed(name) == nullptr) return error_service_does_not_exist;
  // Starting or stopping a service requires write access to its key.
  const bool changes = (access & (service_start | service_stop)) != 0;
  const std::uint32_t wanted = changes ? key_read | key_set_value : key_read;
  if (!hosted::is_granted(hosted::machine_state().registry, joined(services_path, name), wanted)) {
    return error_access_denied;
  }
  out = Service(hold(name, access));
  return 0;
}

std::uint32_t ask_service_to_stop(const Service& service) {
  if (const std::uint32_t error = enter_call("ControlService", opened(service).name)) return error;
  return may(service, service_stop) ? stop(opened(service).name) : error_access_denied;
}

std::uint32_t start_service(const Service& service) {
  if (const std::uint32_t error = enter_call("StartServiceW", opened(service).name)) return error;
  return may(service, service_start) ? start(opened(service).name, 0) : error_access_denied;
}

std::uint32_t query_service_state(const Service& service, std::uint32_t& out) {
  if (const std::uint32_t error = enter_call("QueryServiceStatusEx", opened(service).name)) return error;
  if (!may(service, service_query_status)) return error_access_denied;
  out = run_of(opened(service).name).state;
  return 0;
}

std::vector<std::u16string> active_dependents(const Service& service) {
  if (enter_call("EnumDependentServicesW", opened(service).name) != 0) return {};
  if (!may(service, service_enumerate_dependents)) return {};
  return active_dependents_of(opened(service).name);
}

}  // namespace velmora
