// What a restart of the usual machine comes to when one of its calls fails: told apart from the code that is
// tested, on services that stop and start at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velmora::services {

struct RestartModel {
  // Which call fails, counted from 1, and with which Win32 error.
  std::size_t failing_call = 0;
  std::uint32_t failing_error = 0;

  std::vector<std::string> log = {};
  std::uint32_t sleeps = 0;
  std::int32_t status = 0;
  std::string detail = {};
  bool player = true;  // whether it runs
  bool mixer = true;
  bool audiosrv = true;

  void run() {
    if (const std::uint32_t error = call("OpenSCManagerW")) {
      return end(error, "the service control manager could not be opened");
    }
    if (const std::uint32_t error = call("OpenServiceW Audiosrv 60")) {
      end(error, "Audiosrv could not be opened (run the control service elevated)");
    } else {
      const bool listed = call("EnumDependentServicesW Audiosrv") == 0;
      if (listed) stop_dependent("Player", player, false);
      if (listed) stop_dependent("Mixer", mixer, player);
      restart_audiosrv();
      if (listed) start_dependent("Player", player);
      if (listed) start_dependent("Mixer", mixer);
      call("CloseServiceHandle Audiosrv");
    }
    call("CloseServiceHandle");
  }

 private:
  // The error that is put in its place, or 0: then it does its work.
  std::uint32_t call(const std::string& entry) {
    log.push_back(entry);
    return log.size() == failing_call ? failing_error : 0;
  }
  void end(std::uint32_t error, const std::string& text) {
    status = error == 0x80004005 ? static_cast<std::int32_t>(error)
             : error == 0        ? 0
                                 : static_cast<std::int32_t>(0x80070000u + error);
    detail = text;
  }
  std::uint32_t stop(const std::string& name, bool& service, bool needed) {
    if (const std::uint32_t error = call("ControlService " + name)) return error;
    if (needed) return 1051;
    service = false;
    return 0;
  }
  bool wait(const std::string& name, const bool& service, bool wanted) {
    for (int looks = 0; looks < 100; ++looks) {
      if (call("QueryServiceStatusEx " + name) != 0) return false;
      if (service == wanted) return true;
      ++sleeps;
    }
    return false;
  }
  void stop_dependent(const std::string& name, bool& service, bool needed) {
    if (call("OpenServiceW " + name + " 36") != 0) return;
    stop(name, service, needed);
    wait(name, service, false);
    call("CloseServiceHandle " + name);
  }
  // What it needs starts with it.
  void start_dependent(const std::string& name, bool& service) {
    if (call("OpenServiceW " + name + " 20") != 0) return;
    const bool starts = call("StartServiceW " + name) == 0 && !service;
    if (starts) service = mixer = audiosrv = true;
    call("CloseServiceHandle " + name);
  }
  void restart_audiosrv() {
    std::uint32_t error = stop("Audiosrv", audiosrv, player || mixer);
    if (error != 0 && error != 1062) return end(error, "Audiosrv did not accept the stop request");
    if (!wait("Audiosrv", audiosrv, false)) return end(0x80004005, "Audiosrv did not stop in time");
    error = call("StartServiceW Audiosrv");
    if (error == 0) audiosrv = true;
    if (error != 0 && error != 1056) return end(error, "Audiosrv did not restart");
    if (!wait("Audiosrv", audiosrv, true)) {
      return end(0x80004005, "Audiosrv did not reach the running state");
    }
    end(0, "audio stack restarted");
  }
};

}  // namespace velmora::services
