// The service control manager, call by call. Errors are Win32 codes (winerror.h); 0 is success, and a call
// that fails without saying why is 31 (ERROR_GEN_FAILURE). Names are found without regard to case.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/owner.h"

namespace velmora {

// Access to a service (winsvc.h).
constexpr std::uint32_t service_query_status = 0x4;
constexpr std::uint32_t service_enumerate_dependents = 0x8;
constexpr std::uint32_t service_start = 0x10;
constexpr std::uint32_t service_stop = 0x20;

// States of a service (winsvc.h).
constexpr std::uint32_t service_stopped = 1;
constexpr std::uint32_t service_start_pending = 2;
constexpr std::uint32_t service_stop_pending = 3;
constexpr std::uint32_t service_running = 4;

struct ServiceManagerKind {
  using Native = std::uintptr_t;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;  // CloseServiceHandle
};
// Owner of a connection to the manager.
using ServiceManager = Owner<ServiceManagerKind>;

struct ServiceKind {
  using Native = std::uintptr_t;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;  // CloseServiceHandle
};
// Owner of an open service. It outlives the manager that it was opened with.
using Service = Owner<ServiceKind>;

// OpenSCManagerW of this machine for connecting (access 1). `out` is assigned on success alone.
[[nodiscard]] std::uint32_t open_service_manager(ServiceManager& out);

// OpenServiceW. 5: the access is not granted; 1060: there is none. `out` is assigned on success alone.
[[nodiscard]] std::uint32_t open_service(const ServiceManager& manager, std::u16string_view name,
                                         std::uint32_t access, Service& out);

// ControlService with SERVICE_CONTROL_STOP: asks it to stop and does not wait for the stop; the manager waits
// up to 30 s for the service to take the request. 1051: services that depend on it run; 1053: it did not
// answer; 1062: it does not run.
[[nodiscard]] std::uint32_t ask_service_to_stop(const Service& service);

// StartServiceW without arguments: does not wait until it runs, but up to 30 s for its process. 1056: it runs
// already; 1058: it is disabled; 1068: what it needs does not start; 1075: what it needs is not there.
[[nodiscard]] std::uint32_t start_service(const Service& service);

// The present state (QueryServiceStatusEx, SC_STATUS_PROCESS_INFO). `out` is assigned on success alone.
[[nodiscard]] std::uint32_t query_service_state(const Service& service, std::uint32_t& out);

// The names of the services that depend on it and do not stand still (EnumDependentServicesW,
// SERVICE_ACTIVE), in the system's order. None when it cannot tell them.
[[nodiscard]] std::vector<std::u16string> active_dependents(const Service& service);

}  // namespace velmora
