#include "engine/audio_service.h"

#include <gtest/gtest.h>

#include <functional>

#include "unit/engine/support/service_machine.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using services::Log;

constexpr std::int64_t ns_per_ms = 1'000'000;
const std::string restarted = "audio stack restarted";
const std::string not_accepted = "Audiosrv did not accept the stop request";
const std::string not_stopped = "Audiosrv did not stop in time";
const std::string not_started = "Audiosrv did not restart";
const std::string not_running = "Audiosrv did not reach the running state";
const std::string no_manager = "the service control manager could not be opened";
const std::string no_service = "Audiosrv could not be opened (run the control service elevated)";

constexpr std::int32_t from_win32(std::uint32_t error) {
  return endpoint::from_win32(static_cast<std::int32_t>(error));
}

// The names in the calls that begin with this operation.
Log names_in(const std::string& operation) {
  Log names;
  for (const std::string& entry : memory::system().log) {
    if (entry.starts_with(operation + " ")) names.push_back(entry.substr(operation.size() + 1));
  }
  return names;
}
Log stops() { return names_in("ControlService"); }
Log starts() { return names_in("StartServiceW"); }

class AudioService : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    services::put_usual_services();
  }
  // Another program acts just before the first call of this name.
  static void before(const std::string& call, const std::function<void()>& act) {
    memory::system().before_machine_call = [call, act, done = false](const std::string& entry) mutable {
      if (done || entry != call) return;
      done = true;
      act();
    };
  }
  void restart() {
    const std::int64_t begin = memory::system().now_ns;
    detail_ = "left over";
    status_ = restart_audio_service(detail_);
    took_ms_ = (memory::system().now_ns - begin) / ns_per_ms;
    EXPECT_TRUE(memory::system().state.open_services.empty());
    EXPECT_EQ(memory::system().sleeps, static_cast<std::uint64_t>(took_ms_ / 100));
  }
  void expect(std::int32_t status, const std::string& detail, std::int64_t took_ms) {
    EXPECT_EQ(status_, status);
    EXPECT_EQ(detail_, detail);
    EXPECT_EQ(took_ms_, took_ms);
  }
  // The states of Audiosrv, Mixer and Player; 0 for each that was never queried.
  static std::string states() {
    EXPECT_EQ(services::state_of(u"spooler"), 0u);
    std::string digits;
    for (const std::u16string_view name : {u"audiosrv", u"mixer", u"player"}) {
      digits += std::to_string(services::state_of(name));
    }
    return digits;
  }

  std::int32_t status_ = 1;
  std::string detail_;
  std::int64_t took_ms_ = -1;
};

TEST_F(AudioService, RestartsWithItsDependents) {
  restart();
  expect(0, restarted, 0);
  EXPECT_EQ(stops(), (Log{"Player", "Mixer", "Audiosrv"}));
  EXPECT_EQ(starts(), (Log{"Audiosrv", "Player", "Mixer"}));
  EXPECT_EQ(states(), "444");
}

TEST_F(AudioService, WaitsForEachStopAndItsOwnStart) {
  services::behave("Player", "StopMs", 150);
  services::behave("Mixer", "StopMs", 100);
  services::behave("Audiosrv", "StopMs", 201);
  services::behave("Audiosrv", "StartMs", 1);
  services::behave("Player", "StartMs", services::for_ever_ms);
  services::behave("Mixer", "StartMs", 5000);
  restart();
  expect(0, restarted, 200 + 100 + 300 + 100);
  EXPECT_EQ(states(), "422");  // the dependents' starts are not awaited
}

TEST_F(AudioService, LeavesStoppedDependentsStopped) {
  services::behave("Mixer", "State", services::stopped);
  services::behave("Player", "State", services::stopped);
  restart();
  expect(0, restarted, 0);
  EXPECT_EQ(stops(), Log{"Audiosrv"});
  EXPECT_EQ(starts(), Log{"Audiosrv"});
  EXPECT_EQ(states(), "411");
}

TEST_F(AudioService, StopsAndStartsDependentsInTheListedOrder) {
  services::uninstall("Player");
  services::install("Alpha", {"Audiosrv"});
  services::install("Zulu", {"Audiosrv", "RpcSs"});
  services::install("Bravo", {"Zulu"});
  services::install("Quiet", {"Audiosrv"});
  services::behave("Quiet", "State", services::stopped);
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(stops(), (Log{"Alpha", "Mixer", "Bravo", "Zulu", "Audiosrv"}));
  EXPECT_EQ(starts(), (Log{"Audiosrv", "Alpha", "Mixer", "Bravo", "Zulu"}));
  EXPECT_EQ(services::state_of(u"quiet"), services::stopped);
}

// Each way in which Audiosrv itself fails. Dependents are started again, and only after it.
TEST_F(AudioService, StartsDependentsAgainAfterAnyFailure) {
  using services::behave;
  using services::for_ever_ms;
  memory::System& machine = memory::system();
  const struct {
    std::string what;
    std::function<void()> arrange;
    std::int32_t status;
    std::string detail;
    std::string states;
    std::int64_t took_ms;
  } rows[] = {
      {"the stop is refused", [] { behave("Audiosrv", "StopError", 1052); }, from_win32(1052), not_accepted,
       "444", 0},
      {"the stop is denied", [] { behave("Audiosrv", "StopError", 5); }, from_win32(5), not_accepted, "444",
       0},
      {"the stop is refused with the error of a start", [] { behave("Audiosrv", "StopError", 1056); },
       from_win32(1056), not_accepted, "444", 0},
      {"it is starting", [] { behave("Audiosrv", "State", services::start_pending); }, from_win32(1061),
       not_accepted, "244", 0},
      {"it never stops", [] { behave("Audiosrv", "StopMs", for_ever_ms); }, endpoint::failed, not_stopped,
       "344", 10'000},
      {"it stops too late", [] { behave("Audiosrv", "StopMs", 10'000); }, endpoint::failed, not_stopped,
       "444", 10'000},
      {"the start is refused", [] { behave("Audiosrv", "StartError", 1069); }, from_win32(1069), not_started,
       "111", 0},
      {"the start is refused with the error of a stop", [] { behave("Audiosrv", "StartError", 1062); },
       from_win32(1062), not_started, "111", 0},
      {"it never runs", [] { behave("Audiosrv", "StartMs", for_ever_ms); }, endpoint::failed, not_running,
       "244", 10'000},
      {"it runs too late", [] { behave("Audiosrv", "StartMs", 9'901); }, endpoint::failed, not_running, "444",
       10'000},
      {"another program starts it, and it never runs",
       [] {
         before("StartServiceW Audiosrv", [] { services::set_state(u"audiosrv", services::start_pending); });
       },
       endpoint::failed, not_running, "244", 10'000},
      {"its start falsely reports that it runs", [&] { machine.faults["StartServiceW"] = {1056}; },
       endpoint::failed, not_running, "444", 10'000},
      {"its stop falsely reports that it is stopped",
       [&] {
         machine.faults["ControlService"] = {0, 0, 1062};
       },
       endpoint::failed, not_stopped, "444", 10'000},
      {"its state cannot be queried after the stop",
       [&] {
         machine.faults["QueryServiceStatusEx"] = {0, 0, 6};
       },
       endpoint::failed, not_stopped, "444", 0},
      {"its state cannot be queried after the start",
       [&] {
         machine.faults["QueryServiceStatusEx"] = {0, 0, 0, 6};
       },
       endpoint::failed, not_running, "444", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    services::renew_usual_services();
    row.arrange();
    restart();
    expect(row.status, row.detail, row.took_ms);
    const Log started = starts();
    ASSERT_GE(started.size(), 2u);
    EXPECT_EQ(Log(started.end() - 2, started.end()), (Log{"Player", "Mixer"}));
    // A change that came too late for the restart is complete at the next query.
    machine.now_ns += 10'000 * ns_per_ms;
    ServiceManager manager;
    Service service;
    ASSERT_EQ(open_service_manager(manager), 0u);
    ASSERT_EQ(open_service(manager, u"Audiosrv", service_query_status, service), 0u);
    std::uint32_t state = 0;
    ASSERT_EQ(query_service_state(service, state), 0u);
    EXPECT_EQ(states(), row.states);
  }
}

// Each call of the usual restart fails in turn. Whatever fails, all services run at the end, but for a
// dependent whose own start fails, and no wait takes more than ten seconds.
TEST_F(AudioService, LeavesServicesRunningWhicheverCallFails) {
  constexpr std::int32_t injected = 1;
  const struct {
    std::string call;
    int number;  // of the calls of this name, from 1
    std::int32_t status;
    std::string detail;
  } failing[] = {
      {"OpenSCManagerW", 1, injected, no_manager},
      {"OpenServiceW Audiosrv 60", 1, injected, no_service},
      {"EnumDependentServicesW Audiosrv", 1, from_win32(1051), not_accepted},
      {"OpenServiceW Player 36", 1, from_win32(1051), not_accepted},
      {"ControlService Player", 1, from_win32(1051), not_accepted},
      {"OpenServiceW Mixer 36", 1, from_win32(1051), not_accepted},
      {"ControlService Mixer", 1, from_win32(1051), not_accepted},
      {"ControlService Audiosrv", 1, injected, not_accepted},
      {"QueryServiceStatusEx Audiosrv", 1, endpoint::failed, not_stopped},
      {"StartServiceW Audiosrv", 1, injected, not_started},
      {"QueryServiceStatusEx Audiosrv", 2, endpoint::failed, not_running},
  };
  std::size_t failures = 0;
  for (const std::uint32_t error : {5u, 31u, 1051u, 1056u, 1060u, 1062u}) {
    for (std::size_t index = 1; index <= services::usual_restart().size(); ++index) {
      services::renew_usual_services();
      memory::system().fault_at = {index, error};
      restart();
      const Log& log = memory::system().log;
      ASSERT_GE(log.size(), index);
      const std::string call = log[index - 1];
      SCOPED_TRACE(call + ", error " + std::to_string(error));
      // The two that count as success are in StartsDependentsAgainAfterAnyFailure.
      const bool means_success = (call == "ControlService Audiosrv" && error == 1062) ||
                                 (call == "StartServiceW Audiosrv" && error == 1056);
      if (!means_success) {
        const auto number = std::count(log.begin(), log.begin() + static_cast<std::ptrdiff_t>(index), call);
        const auto* row = std::find_if(std::begin(failing), std::end(failing), [&](const auto& each) {
          return each.call == call && each.number == number;
        });
        const bool fails = row != std::end(failing);
        failures += fails ? 1 : 0;
        EXPECT_EQ(status_, !fails ? 0 : row->status == injected ? from_win32(error) : row->status);
        EXPECT_EQ(detail_, fails ? row->detail : restarted);
      }
      const bool opened = call != "OpenSCManagerW" && call != "OpenServiceW Audiosrv 60";
      const bool player_fails = call == "OpenServiceW Player 20" || call == "StartServiceW Player";
      EXPECT_EQ(states(), !opened ? "000" : player_fails ? "441" : "444");
      EXPECT_LE(took_ms_, 20'000);
    }
  }
  EXPECT_EQ(failures, std::size(failing) * 6 - 2);
}

TEST_F(AudioService, StopsNothingWhenItCannotBeOpened) {
  const struct {
    std::string what;
    std::function<void()> arrange;
    std::int32_t status;
    std::string detail;
  } rows[] = {
      {"no manager", [] { memory::system().faults["OpenSCManagerW"] = {5}; }, from_win32(5), no_manager},
      {"an error of 17 bits", [] { memory::system().faults["OpenSCManagerW"] = {0x12345}; },
       static_cast<std::int32_t>(0x80072345u), no_manager},
      {"a fault", [] { memory::system().faults["OpenServiceW"] = {1115}; }, from_win32(1115), no_service},
      {"not installed", [] { services::uninstall("Audiosrv"); }, from_win32(1060), no_service},
      {"read-only", [] { services::grant("Audiosrv", 0x20019); }, from_win32(5), no_service},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    services::renew_usual_services();
    row.arrange();
    restart();
    expect(row.status, row.detail, 0);
    EXPECT_EQ(states(), "000");
  }
}

TEST_F(AudioService, RestartsWhenItsOwnStateChangesMeanwhile) {
  const struct {
    std::string what;
    std::function<void()> arrange;
    std::int64_t took_ms;
  } rows[] = {
      {"it is stopped", [] { services::behave("Audiosrv", "State", services::stopped); }, 0},
      {"it stops just before the request",
       [] {
         services::behave("Audiosrv", "StartMs", 1000);
         before("ControlService Audiosrv", [] { services::set_state(u"audiosrv", services::stopped); });
       },
       1000},
      {"another program starts it",
       [] {
         before("StartServiceW Audiosrv", [] {
           memory::system().state.services[u"audiosrv"] = {services::start_pending, services::running,
                                                           memory::system().now_ns + 250 * ns_per_ms};
         });
       },
       300},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    services::renew_usual_services();
    row.arrange();
    restart();
    expect(0, restarted, row.took_ms);
    EXPECT_EQ(states(), "444");
  }
}

TEST_F(AudioService, SkipsADependentThatCannotBeOpened) {
  // Player keeps running, so Mixer and Audiosrv cannot stop.
  services::grant("Player", 0x20019);
  restart();
  expect(from_win32(1051), not_accepted, 10'000);
  EXPECT_EQ(starts(), Log{"Mixer"});
  EXPECT_EQ(states(), "444");

  services::renew_usual_services();
  before("OpenServiceW Player 36", [] { services::uninstall("Player"); });
  restart();
  expect(0, restarted, 0);
  EXPECT_EQ(services::state_of(u"mixer"), services::running);
}

TEST_F(AudioService, OpensDependentsForStopAndStartIndependently) {
  before("OpenServiceW Mixer 36", [] { services::set_state(u"mixer", services::stopped); });
  memory::system().faults["OpenServiceW"] = {0, 0, 5};
  restart();
  expect(0, restarted, 0);
  EXPECT_EQ(states(), "444");

  services::renew_usual_services();
  services::install("Alpha", {"Audiosrv"});
  memory::system().faults["OpenServiceW"] = {0, 0, 0, 0, 5};
  restart();
  expect(0, restarted, 0);
  EXPECT_EQ(starts(), (Log{"Audiosrv", "Player", "Mixer"}));
  EXPECT_EQ(services::state_of(u"alpha"), services::stopped);
  EXPECT_EQ(states(), "444");
}

// Audiosrv then stops nevertheless.
TEST_F(AudioService, WaitsTenSecondsForEachDependent) {
  const std::function<void()> rows[] = {
      [] {
        services::behave("Player", "StopError", 1052);
        services::behave("Mixer", "StopError", 1052);
      },
      [] {
        services::behave("Player", "StopMs", services::for_ever_ms);
        services::behave("Mixer", "State", services::stop_pending);
      },
      [] { services::behave("Player", "State", services::start_pending); },
  };
  for (const auto& arrange : rows) {
    SCOPED_TRACE(&arrange - rows);
    services::renew_usual_services();
    arrange();
    before("ControlService Audiosrv", [] {
      services::set_state(u"player", services::stopped);
      services::set_state(u"mixer", services::stopped);
    });
    restart();
    expect(0, restarted, 20'000);
    EXPECT_EQ(states(), "444");
  }
}

TEST_F(AudioService, CannotStopWhileADependentRuns) {
  services::behave("Player", "StopMs", services::for_ever_ms);
  restart();
  expect(from_win32(1051), not_accepted, 20'000);
  EXPECT_EQ(starts(), (Log{"Player", "Mixer"}));
  EXPECT_EQ(states(), "443");

  services::renew_usual_services();
  memory::system().faults["EnumDependentServicesW"] = {5};
  restart();
  expect(from_win32(1051), not_accepted, 0);
  EXPECT_EQ(stops(), Log{"Audiosrv"});
  EXPECT_EQ(starts(), Log());
  EXPECT_EQ(states(), "444");
}

TEST_F(AudioService, SucceedsWhenADependentDoesNotStart) {
  services::behave("Player", "StartError", 1069);
  services::behave("Mixer", "StartError", 1053);
  restart();
  expect(0, restarted, 0);
  EXPECT_EQ(states(), "411");
}

class ServiceWait : public AudioService {
 protected:
  void SetUp() override {
    AudioService::SetUp();
    ASSERT_EQ(open_service_manager(manager_), 0u);
    ASSERT_EQ(open_service(manager_, u"Spooler", service_query_status | service_stop, spooler_), 0u);
  }
  void TearDown() override {
    spooler_.close();
    manager_.close();
    AudioService::TearDown();
  }
  // Waits for a state that the service has from this query on.
  bool wait(std::uint32_t wanted, std::uint32_t first, std::uint64_t query) {
    memory::System& machine = memory::system();
    machine.log.clear();
    machine.sleeps = 0;
    services::set_state(u"spooler", query == 1 ? wanted : first);
    machine.on_sleep = [&machine, wanted, query] {
      if (machine.sleeps == query - 1) services::set_state(u"spooler", wanted);
    };
    const std::int64_t begin = machine.now_ns;
    const bool reached = wait_for_service_state(spooler_, wanted);
    EXPECT_EQ(machine.now_ns - begin, static_cast<std::int64_t>(machine.sleeps) * 100 * ns_per_ms);
    machine.on_sleep = nullptr;
    return reached;
  }
  static void expect_queries(std::ptrdiff_t queries, std::uint64_t sleeps) {
    EXPECT_EQ(calls_of("QueryServiceStatusEx Spooler"), queries);
    EXPECT_EQ(memory::system().sleeps, sleeps);
  }

  ServiceManager manager_;
  Service spooler_;
};

TEST_F(ServiceWait, QueriesUpTo100TimesEvery100Ms) {
  const struct {
    std::uint64_t comes_at;
    bool result;
    std::ptrdiff_t queries;
    std::uint64_t sleeps;
  } rows[] = {{1, true, 1, 0},    {2, true, 2, 1},      {3, true, 3, 2},        {50, true, 50, 49},
              {99, true, 99, 98}, {100, true, 100, 99}, {101, false, 100, 100}, {1000, false, 100, 100}};
  for (const std::uint32_t wanted : {service_stopped, service_running}) {
    for (const auto& row : rows) {
      SCOPED_TRACE("state " + std::to_string(wanted) + " at query " + std::to_string(row.comes_at));
      const std::uint32_t first = wanted == service_stopped ? services::stop_pending : services::stopped;
      EXPECT_EQ(wait(wanted, first, row.comes_at), row.result);
      expect_queries(row.queries, row.sleeps);
    }
  }
}

TEST_F(ServiceWait, AcceptsOnlyTheWantedState) {
  for (const std::uint32_t wanted : {service_stopped, service_running}) {
    for (const std::uint32_t state : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 0xFFFFFFFFu}) {
      SCOPED_TRACE(std::to_string(state) + " for " + std::to_string(wanted));
      EXPECT_EQ(wait(wanted, state, 1000), state == wanted);
      expect_queries(state == wanted ? 1 : 100, state == wanted ? 0u : 100u);
    }
  }
}

// The service reaches the wanted state at the very query that fails.
TEST_F(ServiceWait, EndsAtTheFirstQueryThatFails) {
  for (const std::size_t failing : {1u, 2u, 5u, 99u, 100u}) {
    SCOPED_TRACE(failing);
    auto& faults = memory::system().faults["QueryServiceStatusEx"];
    faults.assign(failing - 1, 0);
    faults.push_back(6);
    EXPECT_FALSE(wait(service_stopped, services::running, failing));
    expect_queries(static_cast<std::ptrdiff_t>(failing), failing - 1);
    EXPECT_TRUE(faults.empty());
  }
}

}  // namespace
}  // namespace velmora
