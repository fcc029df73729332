#include "platform/services.h"

#include <memory>

#include "platform/errors.h"
#include "platform/windows/native.h"

#include <winsvc.h>

namespace velmora {
namespace {

static_assert(service_query_status == SERVICE_QUERY_STATUS && service_start == SERVICE_START &&
              service_enumerate_dependents == SERVICE_ENUMERATE_DEPENDENTS && service_stop == SERVICE_STOP);
static_assert(service_stopped == SERVICE_STOPPED && service_start_pending == SERVICE_START_PENDING &&
              service_stop_pending == SERVICE_STOP_PENDING && service_running == SERVICE_RUNNING);
static_assert(error_service_already_running == ERROR_SERVICE_ALREADY_RUNNING &&
              error_service_not_active == ERROR_SERVICE_NOT_ACTIVE);
static_assert(sizeof(SERVICE_STATUS_PROCESS) == 36);

SC_HANDLE service_handle(std::uintptr_t native) { return reinterpret_cast<SC_HANDLE>(native); }

}  // namespace

void ServiceManagerKind::release(Native native) noexcept { CloseServiceHandle(service_handle(native)); }
void ServiceKind::release(Native native) noexcept { CloseServiceHandle(service_handle(native)); }

std::uint32_t open_service_manager(ServiceManager& out) {
  const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  if (manager == nullptr) return last_error();
  out = ServiceManager(reinterpret_cast<std::uintptr_t>(manager));
  return 0;
}

std::uint32_t open_service(const ServiceManager& manager, std::u16string_view name, std::uint32_t access,
                           Service& out) {
  const std::wstring wide_name = wide_text(name);
  const SC_HANDLE service = OpenServiceW(service_handle(manager.native()), wide_name.c_str(), access);
  if (service == nullptr) return last_error();
  out = Service(reinterpret_cast<std::uintptr_t>(service));
  return 0;
}

std::uint32_t ask_service_to_stop(const Service& service) {
  SERVICE_STATUS status{};
  const BOOL taken = ControlService(service_handle(service.native()), SERVICE_CONTROL_STOP, &status);
  return taken ? 0 : last_error();
}

std::uint32_t start_service(const Service& service) {
  return StartServiceW(service_handle(service.native()), 0, nullptr) ? 0 : last_error();
}

std::uint32_t query_service_state(const Service& service, std::uint32_t& out) {
  SERVICE_STATUS_PROCESS status{};
  DWORD needed = 0;
  if (!QueryServiceStatusEx(service_handle(service.native()), SC_STATUS_PROCESS_INFO,
                            reinterpret_cast<BYTE*>(&status), sizeof status, &needed)) {
    return last_error();
  }
  out = status.dwCurrentState;
  return 0;
}

std::vector<std::u16string> active_dependents(const Service& service) {
  const SC_HANDLE handle = service_handle(service.native());
  DWORD needed = 0;
  DWORD count = 0;
  if (EnumDependentServicesW(handle, SERVICE_ACTIVE, nullptr, 0, &needed, &count)) return {};
  if (GetLastError() != ERROR_MORE_DATA || needed == 0) return {};
  // The buffer holds the entries first, then the texts that they point to.
  const std::size_t entries = needed / sizeof(ENUM_SERVICE_STATUSW) + 1;
  const auto buffer = std::make_unique<ENUM_SERVICE_STATUSW[]>(entries);
  if (!EnumDependentServicesW(handle, SERVICE_ACTIVE, buffer.get(), needed, &needed, &count)) return {};
  std::vector<std::u16string> names;
  for (DWORD index = 0; index < count; ++index) {
    if (buffer[index].lpServiceName == nullptr) continue;
    const std::wstring_view name = buffer[index].lpServiceName;
    names.emplace_back(name.begin(), name.end());
  }
  return names;
}

}  // namespace velmora
