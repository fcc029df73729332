// The service control manager, call by call. Errors are Win32 codes (winerror.h); 0 is success. A call that
// fails without an error code gives 31 (ERROR_GEN_FAILURE). Service names are case-insensitive.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/owner.h"

namespace velmora {

// Access rights of services (winsvc.h).
constexpr std::uint32_t service_query_status = 0x4;
constexpr std::uint32_t service_enumerate_dependents = 0x8;
constexpr std::uint32_t service_start = 0x10;
constexpr std::uint32_t service_stop = 0x20;

// Service states (winsvc.h).
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
// Owner of an open service. It may outlive the manager that opened it.
using Service = Owner<ServiceKind>;

// OpenSCManagerW of this machine with SC_MANAGER_CONNECT (1). `out` is assigned only on success.
[[nodiscard]] std::uint32_t open_service_manager(ServiceManager& out);

// OpenServiceW. 5: access denied; 1060: no such service. `out` is assigned only on success.
[[nodiscard]] std::uint32_t open_service(const ServiceManager& manager, std::u16string_view name,
                                         std::uint32_t access, Service& out);

// ControlService with SERVICE_CONTROL_STOP: requests a stop and does not wait for it. The manager waits up
// to 30 s for the service to accept the request. 1051: dependent services are running; 1053: no answer;
// 1062: it is not running.
[[nodiscard]] std::uint32_t ask_service_to_stop(const Service& service);

// StartServiceW without arguments. Waits up to 30 s for the process, but not until the service runs. 1056: it
// is already running; 1058: disabled; 1068: a dependency failed to start; 1075: a dependency does not exist.
[[nodiscard]] std::uint32_t start_service(const Service& service);

// QueryServiceStatusEx with SC_STATUS_PROCESS_INFO: the current state. `out` is assigned only on success.
[[nodiscard]] std::uint32_t query_service_state(const Service& service, std::uint32_t& out);

// Lists dependent services that are not stopped (EnumDependentServicesW, SERVICE_ACTIVE), in the system's
// order. Empty on failure.
[[nodiscard]] std::vector<std::u16string> active_dependents(const Service& service);

}  // namespace velmora
