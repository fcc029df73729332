#include "engine/audio_service.h"

#include <string_view>
#include <vector>

#include "base/status.h"
#include "platform/clock.h"
#include "platform/errors.h"

namespace velmora {
namespace {

constexpr std::u16string_view audio_service_name = u"Audiosrv";
constexpr std::uint32_t access_to_restart =
    service_query_status | service_enumerate_dependents | service_start | service_stop;
constexpr std::uint32_t access_to_stop = service_query_status | service_stop;
constexpr std::uint32_t access_to_start = service_query_status | service_start;

constexpr std::uint32_t poll_interval_ms = 100;
constexpr int max_polls = 100;

std::int32_t set_detail(std::string& detail, std::string_view text, std::int32_t status) {
  detail = text;
  return status;
}

// If one dependent does not stop, the others are still stopped.
void stop_dependents(const ServiceManager& manager, const std::vector<std::u16string>& names) {
  for (const std::u16string& name : names) {
    Service dependent;
    if (open_service(manager, name, access_to_stop, dependent) != 0) continue;
    static_cast<void>(ask_service_to_stop(dependent));
    static_cast<void>(wait_for_service_state(dependent, service_stopped));
  }
}

void start_dependents(const ServiceManager& manager, const std::vector<std::u16string>& names) {
  for (const std::u16string& name : names) {
    Service dependent;
    if (open_service(manager, name, access_to_start, dependent) != 0) continue;
    static_cast<void>(start_service(dependent));
  }
}

std::int32_t stop_and_start(const Service& service, std::string& detail) {
  std::uint32_t error = ask_service_to_stop(service);
  if (error != 0 && error != error_service_not_active) {
    return set_detail(detail, "Audiosrv did not accept the stop request", hresult_from_win32(error));
  }
  if (!wait_for_service_state(service, service_stopped)) {
    return set_detail(detail, "Audiosrv did not stop in time", status_failed);
  }
  error = start_service(service);
  if (error != 0 && error != error_service_already_running) {
    return set_detail(detail, "Audiosrv did not restart", hresult_from_win32(error));
  }
  if (!wait_for_service_state(service, service_running)) {
    return set_detail(detail, "Audiosrv did not reach the running state", status_failed);
  }
  return set_detail(detail, "audio stack restarted", 0);
}

}  // namespace

bool wait_for_service_state(const Service& service, std::uint32_t wanted) {
  for (int polls = 0; polls < max_polls; ++polls) {
    std::uint32_t state = 0;
    if (query_service_state(service, state) != 0) return false;
    if (state == wanted) return true;
    sleep_ms(poll_interval_ms);
  }
  return false;
}

std::int32_t restart_audio_service(std::string& detail) {
  ServiceManager manager;
  std::uint32_t error = open_service_manager(manager);
  if (error != 0) {
    return set_detail(detail, "the service control manager could not be opened", hresult_from_win32(error));
  }
  Service service;
  error = open_service(manager, audio_service_name, access_to_restart, service);
  if (error != 0) {
    return set_detail(detail, "Audiosrv could not be opened (run the control service elevated)",
                      hresult_from_win32(error));
  }
  const std::vector<std::u16string> dependents = active_dependents(service);
  stop_dependents(manager, dependents);
  const std::int32_t status = stop_and_start(service, detail);
  start_dependents(manager, dependents);
  return status;
}

}  // namespace velmora
