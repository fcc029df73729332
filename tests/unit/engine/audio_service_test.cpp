// The restart on services whose time the tests move. One file because the waits, the roads and the failures
// are held against one usual log, and the model is held against it too.
#include "engine/audio_service.h"

#include <gtest/gtest.h>

#include <functional>

#include "unit/engine/support/restart_model.h"
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

// The dependents' part of a restart in which each is started again, whatever became of Audiosrv.
const Log started_again = {
    "OpenServiceW Player 20",      "StartServiceW Player", "CloseServiceHandle Player",
    "OpenServiceW Mixer 20",       "StartServiceW Mixer",  "CloseServiceHandle Mixer",
    "CloseServiceHandle Audiosrv", "CloseServiceHandle",
};

std::int32_t from_win32(std::uint32_t error) {
  return endpoint::from_win32(static_cast<std::int32_t>(error));
}

Log tail_of(const Log& log, std::size_t count) {
  return {log.end() - static_cast<std::ptrdiff_t>(std::min(count, log.size())), log.end()};
}

// The usual log with some entries replaced by others.
Log usual_but(const std::vector<std::pair<std::string, Log>>& replacements) {
  Log out;
  for (const std::string& entry : services::usual_restart()) {
    const auto found = std::find_if(replacements.begin(), replacements.end(),
                                    [&](const auto& replacement) { return replacement.first == entry; });
    if (found == replacements.end()) {
      out.push_back(entry);
    } else {
      out.insert(out.end(), found->second.begin(), found->second.end());
    }
  }
  return out;
}

class AudioService : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    services::put_usual_services();
  }
  // Another program acts just before this call, the first time that it comes.
  static void before(const std::string& call, const std::function<void()>& act) {
    memory::system().before_machine_call = [call, act, done = false](const std::string& entry) mutable {
      if (done || entry != call) return;
      done = true;
      act();
    };
  }
  void restart() {
    const std::int64_t begin = memory::system().now_ns;
    detail_ = "what stood here before";
    status_ = restart_audio_service(detail_);
    took_ms_ = (memory::system().now_ns - begin) / ns_per_ms;
    EXPECT_TRUE(memory::system().state.open_services.empty());
  }
  static Log log() { return services::counted(memory::system().log); }
  static Log states() {
    Log told;
    for (const std::u16string_view name : {u"audiosrv", u"mixer", u"player", u"spooler"}) {
      told.push_back(std::to_string(services::state_of(name)));
    }
    return told;
  }

  std::int32_t status_ = 1;
  std::string detail_;
  std::int64_t took_ms_ = -1;
};

const Log all_run = {"4", "4", "4", "0"};
const Log all_stand = {"1", "1", "1", "0"};

TEST_F(AudioService, StopsWhatDependsOnItThenItselfAndStartsAllOfThemAgain) {
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(detail_, restarted);
  EXPECT_EQ(log(), services::usual_restart());
  EXPECT_EQ(states(), all_run);
  EXPECT_EQ(took_ms_, 0);
  EXPECT_EQ(memory::system().sleeps, 0u);
}

TEST_F(AudioService, AsksForEachServiceUntilItHasStoppedAndForItselfUntilItRuns) {
  services::behave("Player", "StopMs", 150);
  services::behave("Mixer", "StopMs", 100);
  services::behave("Audiosrv", "StopMs", 201);
  services::behave("Audiosrv", "StartMs", 1);
  services::behave("Player", "StartMs", services::for_ever_ms);
  services::behave("Mixer", "StartMs", 5000);
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(detail_, restarted);
  EXPECT_EQ(log(), (Log{
                       "OpenSCManagerW",
                       "OpenServiceW Audiosrv 60",
                       "EnumDependentServicesW Audiosrv",
                       "OpenServiceW Player 36",
                       "ControlService Player",
                       "QueryServiceStatusEx Player x3",
                       "CloseServiceHandle Player",
                       "OpenServiceW Mixer 36",
                       "ControlService Mixer",
                       "QueryServiceStatusEx Mixer x2",
                       "CloseServiceHandle Mixer",
                       "ControlService Audiosrv",
                       "QueryServiceStatusEx Audiosrv x4",
                       "StartServiceW Audiosrv",
                       "QueryServiceStatusEx Audiosrv x2",
                       "OpenServiceW Player 20",
                       "StartServiceW Player",
                       "CloseServiceHandle Player",
                       "OpenServiceW Mixer 20",
                       "StartServiceW Mixer",
                       "CloseServiceHandle Mixer",
                       "CloseServiceHandle Audiosrv",
                       "CloseServiceHandle",
                   }));
  EXPECT_EQ(took_ms_, 200 + 100 + 300 + 100);
  EXPECT_EQ(states(), (Log{"4", "2", "2", "0"}));  // nobody waits for the start of what depends on it
}

TEST_F(AudioService, RestartsAloneWhereNothingThatDependsOnItRuns) {
  services::behave("Mixer", "State", services::stopped);
  services::behave("Player", "State", services::stopped);
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(detail_, restarted);
  EXPECT_EQ(log(),
            (Log{"OpenSCManagerW", "OpenServiceW Audiosrv 60", "EnumDependentServicesW Audiosrv",
                 "ControlService Audiosrv", "QueryServiceStatusEx Audiosrv", "StartServiceW Audiosrv",
                 "QueryServiceStatusEx Audiosrv", "CloseServiceHandle Audiosrv", "CloseServiceHandle"}));
  EXPECT_EQ(states(), (Log{"4", "1", "1", "0"}));
}

TEST_F(AudioService, StopsAndStartsDependentsInTheOneOrderInWhichTheyAreNamed) {
  services::uninstall("Player");
  services::install("Alpha", {"Audiosrv"});
  services::install("Zulu", {"Audiosrv", "RpcSs"});
  services::install("Bravo", {"Zulu"});
  services::install("Quiet", {"Audiosrv"});
  services::behave("Quiet", "State", services::stopped);
  restart();
  EXPECT_EQ(status_, 0);
  Log stops;
  Log starts;
  for (const std::string& entry : memory::system().log) {
    if (entry.starts_with("ControlService ")) stops.push_back(entry.substr(15));
    if (entry.starts_with("StartServiceW ")) starts.push_back(entry.substr(14));
  }
  EXPECT_EQ(stops, (Log{"Alpha", "Mixer", "Bravo", "Zulu", "Audiosrv"}));
  EXPECT_EQ(starts, (Log{"Audiosrv", "Alpha", "Mixer", "Bravo", "Zulu"}));
  EXPECT_EQ(services::state_of(u"quiet"), services::stopped);
}

TEST_F(AudioService, CallsNothingMoreWhenTheManagerCannotBeOpened) {
  memory::system().faults["OpenSCManagerW"] = {5};
  restart();
  EXPECT_EQ(status_, from_win32(5));
  EXPECT_EQ(detail_, no_manager);
  EXPECT_EQ(log(), Log{"OpenSCManagerW"});
}

TEST_F(AudioService, CallsNothingMoreWhenItCannotBeOpenedItself) {
  const struct {
    std::string what;
    std::function<void()> arrange;
    std::int32_t status;
  } rows[] = {
      {"a fault", [] { memory::system().faults["OpenServiceW"] = {1115}; }, from_win32(1115)},
      {"not installed", [] { services::uninstall("Audiosrv"); }, from_win32(1060)},
      {"may only be looked at", [] { services::grant("Audiosrv", 0x20019); }, from_win32(5)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    services::renew_usual_services();
    row.arrange();
    restart();
    EXPECT_EQ(status_, row.status);
    EXPECT_EQ(detail_, no_service);
    EXPECT_EQ(log(), (Log{"OpenSCManagerW", "OpenServiceW Audiosrv 60", "CloseServiceHandle"}));
    EXPECT_EQ(states(), (Log{"0", "0", "0", "0"}));
  }
}

TEST_F(AudioService, KeepsTheLow16BitsOfAnErrorInItsStatus) {
  memory::system().faults["OpenSCManagerW"] = {0x12345};
  restart();
  EXPECT_EQ(status_, static_cast<std::int32_t>(0x80072345u));
}

TEST_F(AudioService, IsSimplyStartedWhenItHasStoppedAlready) {
  services::behave("Audiosrv", "State", services::stopped);
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(detail_, restarted);
  EXPECT_EQ(log(), services::usual_restart());
  EXPECT_EQ(states(), all_run);
}

TEST_F(AudioService, IsWaitedForWhenItStopsBetweenTheListAndTheRequest) {
  before("ControlService Audiosrv", [] { services::set_state(u"audiosrv", services::stopped); });
  services::behave("Audiosrv", "StartMs", 1000);
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(detail_, restarted);
  EXPECT_EQ(took_ms_, 1000);
}

TEST_F(AudioService, IsWaitedForWhenAnotherProgramHasStartedIt) {
  before("StartServiceW Audiosrv", [] {
    memory::system().state.services[u"audiosrv"] = {services::start_pending, services::running,
                                                    memory::system().now_ns + 250 * ns_per_ms};
  });
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(detail_, restarted);
  EXPECT_EQ(took_ms_, 300);
  EXPECT_EQ(states(), all_run);
}

TEST_F(AudioService, HasNotRestartedWhenWhatAnotherProgramStartedDoesNotComeToRun) {
  before("StartServiceW Audiosrv", [] { services::set_state(u"audiosrv", services::start_pending); });
  restart();
  EXPECT_EQ(status_, endpoint::failed);
  EXPECT_EQ(detail_, not_running);
  EXPECT_EQ(took_ms_, 10'000);
  EXPECT_EQ(tail_of(log(), 8), started_again);
}

// Each way in which Audiosrv itself fails.
TEST_F(AudioService, StartsItsDependentsAgainHoweverItFails) {
  const Log refused = usual_but({{"QueryServiceStatusEx Audiosrv", {}}, {"StartServiceW Audiosrv", {}}});
  Log stays = refused;
  stays.insert(stays.begin() + 12, "QueryServiceStatusEx Audiosrv x100");
  Log unasked = refused;
  unasked.insert(unasked.begin() + 12, "QueryServiceStatusEx Audiosrv");
  Log not_to_be_started = refused;
  not_to_be_started.insert(not_to_be_started.begin() + 12,
                           {"QueryServiceStatusEx Audiosrv", "StartServiceW Audiosrv"});
  Log never_runs = not_to_be_started;
  never_runs.insert(never_runs.begin() + 14, "QueryServiceStatusEx Audiosrv x100");
  const struct {
    std::string what;
    std::function<void()> arrange;
    std::int32_t status;
    std::string detail;
    Log log;
    Log states;
    std::int64_t took_ms;
  } rows[] = {
      {"the stop is refused", [] { services::behave("Audiosrv", "StopError", 1052); }, from_win32(1052),
       not_accepted, refused, all_run, 0},
      {"the stop is denied", [] { services::behave("Audiosrv", "StopError", 5); }, from_win32(5),
       not_accepted, refused, all_run, 0},
      {"the stop is refused with the error of a start",
       [] { services::behave("Audiosrv", "StopError", 1056); }, from_win32(1056), not_accepted, refused,
       all_run, 0},
      {"it is on its way",
       [] { services::behave("Audiosrv", "State", services::start_pending); },
       from_win32(1061),
       not_accepted,
       refused,
       {"2", "4", "4", "0"},
       0},
      {"it never stops",
       [] { services::behave("Audiosrv", "StopMs", services::for_ever_ms); },
       endpoint::failed,
       not_stopped,
       stays,
       {"3", "4", "4", "0"},
       10'000},
      {"it stops too late", [] { services::behave("Audiosrv", "StopMs", 10'000); }, endpoint::failed,
       not_stopped, stays, all_run, 10'000},
      {"the start is refused", [] { services::behave("Audiosrv", "StartError", 1069); }, from_win32(1069),
       not_started, not_to_be_started, all_stand, 0},
      {"the start is refused with the error of a stop",
       [] { services::behave("Audiosrv", "StartError", 1062); }, from_win32(1062), not_started,
       not_to_be_started, all_stand, 0},
      {"it never runs",
       [] { services::behave("Audiosrv", "StartMs", services::for_ever_ms); },
       endpoint::failed,
       not_running,
       never_runs,
       {"2", "4", "4", "0"},
       10'000},
      {"it runs too late", [] { services::behave("Audiosrv", "StartMs", 9'901); }, endpoint::failed,
       not_running, never_runs, all_run, 10'000},
      {"its start is said to be there and is not", [] { memory::system().faults["StartServiceW"] = {1056}; },
       endpoint::failed, not_running, never_runs, all_run, 10'000},
      {"its stop is said to be there and is not",
       [] {
         memory::system().faults["ControlService"] = {0, 0, 1062};
       },
       endpoint::failed, not_stopped, stays, all_run, 10'000},
      {"it cannot be asked whether it stopped",
       [] {
         memory::system().faults["QueryServiceStatusEx"] = {0, 0, 6};
       },
       endpoint::failed, not_stopped, unasked, all_run, 0},
      {"it cannot be asked whether it runs",
       [] {
         memory::system().faults["QueryServiceStatusEx"] = {0, 0, 0, 6};
       },
       endpoint::failed, not_running, services::usual_restart(), all_run, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    services::renew_usual_services();
    row.arrange();
    restart();
    EXPECT_EQ(status_, row.status);
    EXPECT_EQ(detail_, row.detail);
    EXPECT_EQ(log(), row.log);
    // What was too late for the restart has come by the time that somebody looks again.
    memory::system().now_ns += 10'000 * ns_per_ms;
    ServiceManager manager;
    Service service;
    ASSERT_EQ(open_service_manager(manager), 0u);
    ASSERT_EQ(open_service(manager, u"Audiosrv", service_query_status, service), 0u);
    std::uint32_t state = 0;
    ASSERT_EQ(query_service_state(service, state), 0u);
    EXPECT_EQ(states(), row.states);
    EXPECT_EQ(took_ms_, row.took_ms);
    EXPECT_EQ(memory::system().sleeps, static_cast<std::uint64_t>(row.took_ms / 100));
  }
}

TEST_F(AudioService, LeavesADependentThatCannotBeOpenedAndGoesOnWithTheNext) {
  services::grant("Player", 0x20019);
  restart();
  // What still runs keeps Mixer and Audiosrv from stopping.
  EXPECT_EQ(status_, from_win32(1051));
  EXPECT_EQ(detail_, not_accepted);
  EXPECT_EQ(log(),
            (Log{"OpenSCManagerW", "OpenServiceW Audiosrv 60", "EnumDependentServicesW Audiosrv",
                 "OpenServiceW Player 36", "OpenServiceW Mixer 36", "ControlService Mixer",
                 "QueryServiceStatusEx Mixer x100", "CloseServiceHandle Mixer", "ControlService Audiosrv",
                 "OpenServiceW Player 20", "OpenServiceW Mixer 20", "StartServiceW Mixer",
                 "CloseServiceHandle Mixer", "CloseServiceHandle Audiosrv", "CloseServiceHandle"}));
  EXPECT_EQ(states(), all_run);
  EXPECT_EQ(took_ms_, 10'000);
}

TEST_F(AudioService, RestartsWithoutADependentThatIsRemovedMeanwhile) {
  before("OpenServiceW Player 36", [] { services::uninstall("Player"); });
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(detail_, restarted);
  EXPECT_EQ(log(), usual_but({{"ControlService Player", {}},
                              {"QueryServiceStatusEx Player", {}},
                              {"StartServiceW Player", {}},
                              {"CloseServiceHandle Player", {}}}));
  EXPECT_EQ(services::state_of(u"mixer"), services::running);
}

TEST_F(AudioService, StartsADependentThatCouldOnlyBeOpenedForTheStart) {
  before("OpenServiceW Mixer 36", [] { services::set_state(u"mixer", services::stopped); });
  memory::system().faults["OpenServiceW"] = {0, 0, 5};
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(log(), usual_but({{"ControlService Mixer", {}},
                              {"QueryServiceStatusEx Mixer", {}},
                              {"CloseServiceHandle Mixer", {}},
                              {"StartServiceW Mixer", {"StartServiceW Mixer", "CloseServiceHandle Mixer"}}}));
  EXPECT_EQ(states(), all_run);
}

TEST_F(AudioService, LeavesADependentThatCannotBeOpenedForTheStart) {
  services::install("Alpha", {"Audiosrv"});
  memory::system().faults["OpenServiceW"] = {0, 0, 0, 0, 5};
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(detail_, restarted);
  EXPECT_EQ(tail_of(log(), 9),
            (Log{"OpenServiceW Alpha 20", "OpenServiceW Player 20", "StartServiceW Player",
                 "CloseServiceHandle Player", "OpenServiceW Mixer 20", "StartServiceW Mixer",
                 "CloseServiceHandle Mixer", "CloseServiceHandle Audiosrv", "CloseServiceHandle"}));
  EXPECT_EQ(services::state_of(u"alpha"), services::stopped);
  EXPECT_EQ(states(), all_run);
}

// Ten seconds each, and Audiosrv then stops for all that.
TEST_F(AudioService, GivesEachDependentThatDoesNotStopItsTenSecondsAndGoesOn) {
  const struct {
    std::string what;
    std::function<void()> arrange;
  } rows[] = {
      {"they refuse",
       [] {
         services::behave("Player", "StopError", 1052);
         services::behave("Mixer", "StopError", 1052);
       }},
      {"they never stop",
       [] {
         services::behave("Player", "StopMs", services::for_ever_ms);
         services::behave("Mixer", "State", services::stop_pending);
       }},
      {"they are held up", [] { services::behave("Player", "State", services::start_pending); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    services::renew_usual_services();
    row.arrange();
    before("ControlService Audiosrv", [] {
      services::set_state(u"player", services::stopped);
      services::set_state(u"mixer", services::stopped);
    });
    restart();
    EXPECT_EQ(status_, 0);
    EXPECT_EQ(detail_, restarted);
    EXPECT_EQ(log(), usual_but({{"QueryServiceStatusEx Player", {"QueryServiceStatusEx Player x100"}},
                                {"QueryServiceStatusEx Mixer", {"QueryServiceStatusEx Mixer x100"}}}));
    EXPECT_EQ(memory::system().sleeps, 200u);
    EXPECT_EQ(took_ms_, 20'000);
    EXPECT_EQ(states(), all_run);
  }
}

TEST_F(AudioService, IsNotStoppedWhileADependentRunsOn) {
  services::behave("Player", "StopMs", services::for_ever_ms);
  restart();
  EXPECT_EQ(status_, from_win32(1051));
  EXPECT_EQ(detail_, not_accepted);
  EXPECT_EQ(took_ms_, 20'000);
  EXPECT_EQ(tail_of(log(), 9).front(), "ControlService Audiosrv");
  EXPECT_EQ(tail_of(log(), 8), started_again);
  EXPECT_EQ(states(), (Log{"4", "4", "3", "0"}));
}

TEST_F(AudioService, CountsAsRestartedWhenADependentDoesNotComeBack) {
  services::behave("Player", "StartError", 1069);
  services::behave("Mixer", "StartError", 1053);
  restart();
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(detail_, restarted);
  EXPECT_EQ(log(), services::usual_restart());
  EXPECT_EQ(states(), (Log{"4", "1", "1", "0"}));
}

TEST_F(AudioService, StopsAndStartsNothingBesideItWhereItsDependentsCannotBeListed) {
  memory::system().faults["EnumDependentServicesW"] = {5};
  restart();
  EXPECT_EQ(status_, from_win32(1051));
  EXPECT_EQ(detail_, not_accepted);
  EXPECT_EQ(log(), (Log{"OpenSCManagerW", "OpenServiceW Audiosrv 60", "EnumDependentServicesW Audiosrv",
                        "ControlService Audiosrv", "CloseServiceHandle Audiosrv", "CloseServiceHandle"}));
  EXPECT_EQ(states(), all_run);
}

// Every call of the usual restart, failed in turn.
TEST_F(AudioService, EndsAsToldWhicheverCallFails) {
  const struct {
    std::string call;
    std::int32_t status;
    std::string detail;
    Log running;  // at the end
  } rows[] = {
      {"OpenSCManagerW", from_win32(5), no_manager, {"0", "0", "0", "0"}},
      {"OpenServiceW Audiosrv 60", from_win32(5), no_service, {"0", "0", "0", "0"}},
      {"EnumDependentServicesW Audiosrv", from_win32(1051), not_accepted, all_run},
      {"OpenServiceW Player 36", from_win32(1051), not_accepted, all_run},
      {"ControlService Player", from_win32(1051), not_accepted, all_run},
      {"QueryServiceStatusEx Player", 0, restarted, all_run},
      {"CloseServiceHandle Player", 0, restarted, all_run},
      {"OpenServiceW Mixer 36", from_win32(1051), not_accepted, all_run},
      {"ControlService Mixer", from_win32(1051), not_accepted, all_run},
      {"QueryServiceStatusEx Mixer", 0, restarted, all_run},
      {"CloseServiceHandle Mixer", 0, restarted, all_run},
      {"ControlService Audiosrv", from_win32(5), not_accepted, all_run},
      {"QueryServiceStatusEx Audiosrv", endpoint::failed, not_stopped, all_run},
      {"StartServiceW Audiosrv", from_win32(5), not_started, all_run},
      {"QueryServiceStatusEx Audiosrv", endpoint::failed, not_running, all_run},
      {"OpenServiceW Player 20", 0, restarted, {"4", "4", "1", "0"}},
      {"StartServiceW Player", 0, restarted, {"4", "4", "1", "0"}},
      {"CloseServiceHandle Player", 0, restarted, all_run},
      {"OpenServiceW Mixer 20", 0, restarted, all_run},  // Player needs it and has brought it up
      {"StartServiceW Mixer", 0, restarted, all_run},
      {"CloseServiceHandle Mixer", 0, restarted, all_run},
      {"CloseServiceHandle Audiosrv", 0, restarted, all_run},
      {"CloseServiceHandle", 0, restarted, all_run},
  };
  ASSERT_EQ(std::size(rows), services::usual_restart().size());
  for (std::size_t index = 0; index < std::size(rows); ++index) {
    SCOPED_TRACE(std::to_string(index + 1) + " " + rows[index].call);
    services::renew_usual_services();
    memory::system().fault_at = {index + 1, 5};
    restart();
    ASSERT_GT(memory::system().log.size(), index);
    EXPECT_EQ(memory::system().log[index], rows[index].call);
    EXPECT_EQ(status_, rows[index].status);
    EXPECT_EQ(detail_, rows[index].detail);
    EXPECT_EQ(states(), rows[index].running);
  }
}

TEST_F(AudioService, DoesAsItsModelWhicheverCallFailsWithWhicheverError) {
  for (const std::uint32_t error : {5u, 31u, 1051u, 1056u, 1060u, 1062u}) {
    for (std::size_t call = 0; call <= services::usual_restart().size(); ++call) {
      SCOPED_TRACE("error " + std::to_string(error) + " at call " + std::to_string(call));
      services::RestartModel model{.failing_call = call, .failing_error = error};
      model.run();
      services::renew_usual_services();
      memory::system().fault_at = {call, error};
      restart();
      EXPECT_EQ(status_, model.status);
      EXPECT_EQ(detail_, model.detail);
      EXPECT_EQ(log(), services::counted(model.log));
      EXPECT_EQ(memory::system().sleeps, model.sleeps);
      EXPECT_EQ(took_ms_, std::int64_t{model.sleeps} * 100);
      const auto runs = [](std::u16string_view name) {
        return services::state_of(name) != services::stopped;  // also where nobody has asked for it
      };
      EXPECT_EQ(runs(u"audiosrv"), model.audiosrv);
      EXPECT_EQ(runs(u"mixer"), model.mixer);
      EXPECT_EQ(runs(u"player"), model.player);
    }
  }
}

class ServiceWait : public AudioService {
 protected:
  void SetUp() override {
    AudioService::SetUp();
    ASSERT_EQ(open_service_manager(manager_), 0u);
    ASSERT_EQ(open_service(manager_, u"Spooler", service_query_status | service_stop, spooler_), 0u);
    memory::system().log.clear();
  }
  void TearDown() override {
    spooler_.close();
    manager_.close();
    AudioService::TearDown();
  }
  static std::ptrdiff_t looks() { return calls_of("QueryServiceStatusEx Spooler"); }
  // It is in this state from the look of this number on.
  static void come_to(std::uint32_t state, std::uint64_t look) {
    if (look == 1) return services::set_state(u"spooler", state);
    memory::system().on_sleep = [state, look] {
      if (memory::system().sleeps == look - 1) services::set_state(u"spooler", state);
    };
  }

  ServiceManager manager_;
  Service spooler_;
};

TEST_F(ServiceWait, LooksEvery100MsAnd100TimesAtMost) {
  const struct {
    std::uint64_t comes_at;
    bool result;
    std::ptrdiff_t looks;
    std::uint64_t sleeps;
  } rows[] = {{1, true, 1, 0},    {2, true, 2, 1},      {3, true, 3, 2},        {50, true, 50, 49},
              {99, true, 99, 98}, {100, true, 100, 99}, {101, false, 100, 100}, {1000, false, 100, 100}};
  for (const std::uint32_t wanted : {service_stopped, service_running}) {
    for (const auto& row : rows) {
      SCOPED_TRACE("state " + std::to_string(wanted) + " at look " + std::to_string(row.comes_at));
      memory::System& machine = memory::system();
      machine.log.clear();
      machine.sleeps = 0;
      machine.on_sleep = nullptr;
      services::set_state(u"spooler", wanted == service_stopped ? services::stop_pending : services::stopped);
      come_to(wanted, row.comes_at);
      const std::int64_t begin = machine.now_ns;
      EXPECT_EQ(wait_for_service_state(spooler_, wanted), row.result);
      EXPECT_EQ(looks(), row.looks);
      EXPECT_EQ(machine.log.size(), static_cast<std::size_t>(row.looks));
      EXPECT_EQ(machine.sleeps, row.sleeps);
      EXPECT_EQ(machine.now_ns - begin, static_cast<std::int64_t>(row.sleeps) * 100 * ns_per_ms);
    }
  }
}

TEST_F(ServiceWait, SeesAStopUpTo9900MsAndNoneLater) {
  const struct {
    std::uint32_t stop_ms;
    bool result;
    std::uint64_t sleeps;
  } rows[] = {{0, true, 0},     {1, true, 1},       {100, true, 1},      {101, true, 2},
              {9900, true, 99}, {9901, false, 100}, {10'000, false, 100}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.stop_ms);
    services::set_state(u"spooler", services::running);
    services::behave("Spooler", "StopMs", row.stop_ms);
    memory::system().sleeps = 0;
    ASSERT_EQ(ask_service_to_stop(spooler_), 0u);
    EXPECT_EQ(wait_for_service_state(spooler_, service_stopped), row.result);
    EXPECT_EQ(memory::system().sleeps, row.sleeps);
  }
}

TEST_F(ServiceWait, TakesNoOtherStateForTheOneThatItWaitsFor) {
  for (const std::uint32_t wanted : {service_stopped, service_running}) {
    for (const std::uint32_t state : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 0xFFFFFFFFu}) {
      SCOPED_TRACE(std::to_string(state) + " for " + std::to_string(wanted));
      services::set_state(u"spooler", state);
      memory::system().sleeps = 0;
      EXPECT_EQ(wait_for_service_state(spooler_, wanted), state == wanted);
      EXPECT_EQ(memory::system().sleeps, state == wanted ? 0u : 100u);
    }
  }
}

TEST_F(ServiceWait, EndsAtTheFirstLookThatFails) {
  for (const std::size_t failing : {1u, 2u, 5u, 99u, 100u}) {
    SCOPED_TRACE(failing);
    memory::System& machine = memory::system();
    machine.log.clear();
    machine.sleeps = 0;
    machine.faults["QueryServiceStatusEx"].assign(failing - 1, 0);
    machine.faults["QueryServiceStatusEx"].push_back(6);
    services::set_state(u"spooler", services::running);
    // It would be seen to have stopped, then and ever after.
    come_to(services::stopped, failing);
    EXPECT_FALSE(wait_for_service_state(spooler_, service_stopped));
    EXPECT_EQ(looks(), static_cast<std::ptrdiff_t>(failing));
    EXPECT_EQ(machine.sleeps, failing - 1);
    EXPECT_TRUE(machine.faults["QueryServiceStatusEx"].empty());
    machine.on_sleep = nullptr;
  }
}

}  // namespace
}  // namespace velmora
