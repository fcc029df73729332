// The services of the hosted machine beyond the contract: their behaviour is set in the registry, and tests
// move the clock.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "memory/system.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/registry.h"
#include "platform/services.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

using Names = std::vector<std::u16string>;
using Log = std::vector<std::string>;

// winerror.h
constexpr std::uint32_t error_denied = 5;
constexpr std::uint32_t error_dependents_run = 1051;
constexpr std::uint32_t error_disabled = 1058;
constexpr std::uint32_t error_missing = 1060;
constexpr std::uint32_t error_dependency_failed = 1068;
constexpr std::uint32_t error_dependency_deleted = 1075;
constexpr std::uint32_t error_cannot_accept_control = 1061;

// Types of start (winsvc.h).
constexpr std::uint32_t start_boot = 0;
constexpr std::uint32_t start_system = 1;
constexpr std::uint32_t start_automatic = 2;
constexpr std::uint32_t start_on_demand = 3;
constexpr std::uint32_t start_disabled = 4;

constexpr std::uint32_t reg_binary = 3;
constexpr std::uint32_t reg_multi_sz = 7;
constexpr std::uint32_t for_ever = 0xFFFFFFFF;
constexpr std::uint32_t every_access =
    service_query_status | service_enumerate_dependents | service_start | service_stop;

class HostedServices : public surroundings::Arranged {
 protected:
  void TearDown() override {
    EXPECT_TRUE(hosted::machine_state().open_services.empty());
    surroundings::Arranged::TearDown();
  }
};

hosted::TreeKey& key_at(std::u16string_view begin, std::u16string_view name) {
  return hosted::make_key(hosted::machine_state().registry, std::u16string(begin).append(name));
}
hosted::TreeKey& installed(std::u16string_view name) {
  return key_at(u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\", name);
}
hosted::TreeKey& behaviour(std::u16string_view name) {
  return key_at(u"HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Services\\", name);
}

void put_number(hosted::TreeKey& key, std::u16string_view name, std::uint32_t number) {
  hosted::put_value(key, name, reg_dword, {reinterpret_cast<const char*>(&number), sizeof number});
}

// As the registry keeps a list: each text with its end, and one more end behind the last.
std::string bytes_of(const Names& texts) {
  std::u16string joined;
  for (const std::u16string& text : texts) joined.append(text).append(1, u'\0');
  joined.append(1, u'\0');
  return {reinterpret_cast<const char*>(joined.data()), joined.size() * sizeof(char16_t)};
}

void install(std::u16string_view name, std::uint32_t start = start_automatic, const Names& needs = {}) {
  put_number(installed(name), u"Start", start);
  if (!needs.empty()) {
    hosted::put_value(installed(name), u"DependOnService", reg_multi_sz, bytes_of(needs));
  }
}

Service open(std::u16string_view name, std::uint32_t access = every_access) {
  ServiceManager manager;
  Service service;
  EXPECT_EQ(open_service_manager(manager), 0u);
  EXPECT_EQ(open_service(manager, name, access, service), 0u);
  return service;
}

std::uint32_t open_error(std::u16string_view name, std::uint32_t access) {
  ServiceManager manager;
  Service service;
  EXPECT_EQ(open_service_manager(manager), 0u);
  const std::uint32_t error = open_service(manager, name, access, service);
  EXPECT_EQ(service.is_open(), error == 0);
  return error;
}

std::uint32_t state_of(std::u16string_view name) {
  std::uint32_t state = 0;
  EXPECT_EQ(query_service_state(open(name), state), 0u);
  return state;
}
std::uint32_t start(std::u16string_view name) { return start_service(open(name)); }
std::uint32_t stop(std::u16string_view name) { return ask_service_to_stop(open(name)); }
Names dependents_of(std::u16string_view name) { return active_dependents(open(name)); }

TEST_F(HostedServices, RunAtFirstWhereTheyStartByThemselves) {
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> cases{
      {start_boot, service_running},      {start_system, service_running},
      {start_automatic, service_running}, {start_on_demand, service_stopped},
      {start_disabled, service_stopped},  {5, service_stopped}};
  for (const auto& [start_type, state] : cases) {
    SCOPED_TRACE(start_type);
    const std::string digits = std::to_string(start_type);
    const std::u16string name = u"Service" + std::u16string(digits.begin(), digits.end());
    install(name, start_type);
    EXPECT_EQ(state_of(name), state);
  }
  installed(u"Unset");
  hosted::put_value(installed(u"Binary"), u"Start", reg_binary, std::string("\x03\0\0\0", 4));
  EXPECT_EQ(state_of(u"Unset"), service_running);
  EXPECT_EQ(state_of(u"Binary"), service_running);
}

TEST_F(HostedServices, PublishEachChangeOfState) {
  install(u"Quick");
  install(u"Slow");
  put_number(behaviour(u"Slow"), u"StopMs", 1000);
  EXPECT_EQ(state_of(u"Quick"), service_running);
  EXPECT_EQ(memory::system().service_states, Log{});
  EXPECT_EQ(stop(u"Quick"), 0u);
  EXPECT_EQ(start(u"Quick"), 0u);
  EXPECT_NE(start(u"Quick"), 0u);
  EXPECT_EQ(memory::system().service_states, (Log{"Quick 1", "Quick 4"}));
  EXPECT_EQ(stop(u"Slow"), 0u);
  EXPECT_EQ(state_of(u"Slow"), service_stop_pending);
  memory::system().now_ns += 1'000'000'000;
  EXPECT_EQ(state_of(u"Slow"), service_stopped);
  EXPECT_EQ(state_of(u"Slow"), service_stopped);
  EXPECT_EQ(memory::system().service_states, (Log{"Quick 1", "Quick 4", "Slow 3", "Slow 1"}));
}

TEST_F(HostedServices, AreAtFirstInTheStateThatIsSet) {
  for (const std::uint32_t state :
       {service_stopped, service_start_pending, service_stop_pending, service_running, 7u}) {
    SCOPED_TRACE(state);
    const std::u16string name = u"Service" + std::u16string(1, static_cast<char16_t>(u'0' + state));
    install(name, start_on_demand);
    put_number(behaviour(name), u"State", state);
    EXPECT_EQ(state_of(name), state);
    memory::system().now_ns += 1'000'000'000'000;
    EXPECT_EQ(state_of(name), state);
    // It is read once.
    put_number(behaviour(name), u"State", state == service_stopped ? service_running : service_stopped);
    EXPECT_EQ(state_of(name), state);
  }
}

TEST_F(HostedServices, TakeExactlyTheTimeThatIsSet) {
  install(u"Audiosrv");
  put_number(behaviour(u"Audiosrv"), u"StopMs", 700);
  put_number(behaviour(u"Audiosrv"), u"StartMs", 300);
  const Service service = open(u"Audiosrv");
  EXPECT_EQ(ask_service_to_stop(service), 0u);
  EXPECT_EQ(state_of(u"Audiosrv"), service_stop_pending);
  memory::system().now_ns += 699'999'999;
  EXPECT_EQ(state_of(u"Audiosrv"), service_stop_pending);
  memory::system().now_ns += 1;
  EXPECT_EQ(state_of(u"Audiosrv"), service_stopped);
  EXPECT_EQ(start_service(service), 0u);
  memory::system().now_ns += 299'999'999;
  EXPECT_EQ(state_of(u"Audiosrv"), service_start_pending);
  memory::system().now_ns += 1;
  EXPECT_EQ(state_of(u"Audiosrv"), service_running);
}

TEST_F(HostedServices, ArriveAfterTheLongestTimeThatIsNotForEver) {
  install(u"Audiosrv");
  put_number(behaviour(u"Audiosrv"), u"StopMs", for_ever - 1);
  EXPECT_EQ(stop(u"Audiosrv"), 0u);
  memory::system().now_ns += std::int64_t{for_ever - 1} * 1'000'000 - 1;
  EXPECT_EQ(state_of(u"Audiosrv"), service_stop_pending);
  memory::system().now_ns += 1;
  EXPECT_EQ(state_of(u"Audiosrv"), service_stopped);
}

TEST_F(HostedServices, NeverArriveWhereItTakesForEver) {
  constexpr std::int64_t century_ns = 3'155'760'000'000'000'000;
  install(u"NeverStops");
  install(u"NeverRuns", start_on_demand);
  put_number(behaviour(u"NeverStops"), u"StopMs", for_ever);
  put_number(behaviour(u"NeverRuns"), u"StartMs", for_ever);
  EXPECT_EQ(stop(u"NeverStops"), 0u);
  EXPECT_EQ(start(u"NeverRuns"), 0u);
  memory::system().now_ns += century_ns;
  EXPECT_EQ(state_of(u"NeverStops"), service_stop_pending);
  EXPECT_EQ(state_of(u"NeverRuns"), service_start_pending);
}

TEST_F(HostedServices, CanBeAskedNothingOnTheirWay) {
  install(u"Stops");
  install(u"Starts", start_on_demand);
  put_number(behaviour(u"Stops"), u"StopMs", 100);
  put_number(behaviour(u"Starts"), u"StartMs", 100);
  EXPECT_EQ(stop(u"Stops"), 0u);
  EXPECT_EQ(start(u"Starts"), 0u);
  for (const char16_t* name : {u"Stops", u"Starts"}) {
    EXPECT_EQ(stop(name), error_cannot_accept_control);
    EXPECT_EQ(start(name), error_service_already_running);
  }
  memory::system().now_ns += 100'000'000;
  EXPECT_EQ(stop(u"Stops"), error_service_not_active);
  EXPECT_EQ(start(u"Starts"), error_service_already_running);
}

TEST_F(HostedServices, RefuseWithTheErrorThatIsSet) {
  install(u"Audiosrv");
  put_number(behaviour(u"Audiosrv"), u"StopError", 1053);
  EXPECT_EQ(stop(u"Audiosrv"), 1053u);
  EXPECT_EQ(state_of(u"Audiosrv"), service_running);
  install(u"Other", start_on_demand);
  put_number(behaviour(u"Other"), u"StartError", 1069);
  EXPECT_EQ(start(u"Other"), 1069u);
  EXPECT_EQ(state_of(u"Other"), service_stopped);
  // The present behaviour counts.
  hosted::remove_value(behaviour(u"Other"), u"StartError");
  EXPECT_EQ(start(u"Other"), 0u);
}

// The manager's own errors come before the service is asked.
TEST_F(HostedServices, GiveTheManagersReasonsBeforeTheirOwn) {
  install(u"Audiosrv");
  install(u"Dependent", start_automatic, {u"Audiosrv"});
  install(u"Disabled", start_disabled);
  install(u"Lost", start_on_demand, {u"Absent"});
  for (const char16_t* name : {u"Audiosrv", u"Disabled", u"Lost"}) {
    put_number(behaviour(name), u"StopError", 1053);
    put_number(behaviour(name), u"StartError", 1069);
  }
  EXPECT_EQ(stop(u"Audiosrv"), error_dependents_run);
  EXPECT_EQ(start(u"Audiosrv"), error_service_already_running);
  EXPECT_EQ(stop(u"Disabled"), error_service_not_active);
  EXPECT_EQ(start(u"Disabled"), error_disabled);
  EXPECT_EQ(start(u"Lost"), error_dependency_deleted);
}

TEST_F(HostedServices, ListEveryDependentInTheOrderInWhichTheyCanBeStopped) {
  install(u"A");
  install(u"B", start_automatic, {u"A"});
  install(u"C", start_automatic, {u"B"});
  install(u"D", start_automatic, {u"a", u"C"});
  install(u"E");
  EXPECT_EQ(dependents_of(u"A"), (Names{u"D", u"C", u"B"}));
  EXPECT_EQ(dependents_of(u"B"), (Names{u"D", u"C"}));
  EXPECT_EQ(dependents_of(u"C"), Names{u"D"});
  EXPECT_EQ(dependents_of(u"D"), Names());
  EXPECT_EQ(dependents_of(u"E"), Names());
  for (const std::u16string& name : dependents_of(u"A")) EXPECT_EQ(stop(name), 0u);
  EXPECT_EQ(stop(u"A"), 0u);
}

// A needs B and B needs A, and one needs itself.
TEST_F(HostedServices, VisitARingOfNeedsOnceAndDoNotStartFromIt) {
  install(u"A", start_automatic, {u"C"});
  install(u"B", start_automatic, {u"A"});
  install(u"C", start_automatic, {u"B"});
  install(u"Self", start_automatic, {u"Self"});
  install(u"OfSelf", start_automatic, {u"Self"});
  EXPECT_EQ(dependents_of(u"Self"), Names{u"OfSelf"});
  for (const char16_t* name : {u"A", u"B", u"C"}) {
    const Names dependents = dependents_of(name);
    EXPECT_EQ(std::set<std::u16string>(dependents.begin(), dependents.end()).size(), dependents.size());
    EXPECT_EQ(std::count(dependents.begin(), dependents.end(), name), 0);
    EXPECT_EQ(dependents.size(), 2u);
  }
  install(u"D", start_on_demand, {u"E"});
  install(u"E", start_on_demand, {u"D"});
  EXPECT_NE(start(u"D"), 0u);
  EXPECT_EQ(state_of(u"D"), service_stopped);
  EXPECT_EQ(state_of(u"E"), service_stopped);
}

TEST_F(HostedServices, OmitOnlyStoppedServicesFromTheDependents) {
  install(u"A");
  install(u"Runs", start_automatic, {u"A"});
  install(u"Starts", start_on_demand, {u"A"});
  install(u"Stopped", start_on_demand, {u"A"});
  install(u"Stops", start_automatic, {u"A"});
  put_number(behaviour(u"Starts"), u"StartMs", 100);
  put_number(behaviour(u"Stops"), u"StopMs", 100);
  EXPECT_EQ(start(u"Starts"), 0u);
  EXPECT_EQ(stop(u"Stops"), 0u);
  EXPECT_EQ(dependents_of(u"A"), (Names{u"Runs", u"Starts", u"Stops"}));
  memory::system().now_ns += 100'000'000;
  EXPECT_EQ(dependents_of(u"A"), (Names{u"Runs", u"Starts"}));
}

TEST_F(HostedServices, IgnoreGroupsAndWhatIsNoListAmongTheirNeeds) {
  install(u"Audio");
  install(u"InGroup", start_automatic, {u"+Audio"});
  install(u"InBoth", start_on_demand, {u"+Group", u"Audio"});
  EXPECT_EQ(dependents_of(u"Audio"), Names());
  EXPECT_EQ(start(u"InBoth"), 0u);
  hosted::put_value(installed(u"Text"), u"DependOnService", reg_sz, bytes_of({u"Audio"}));  // no list
  EXPECT_EQ(dependents_of(u"Audio"), Names{u"InBoth"});
}

TEST_F(HostedServices, DoNotStopBeforeTheirDependents) {
  install(u"A");
  install(u"B", start_automatic, {u"A"});
  put_number(behaviour(u"B"), u"StopMs", 100);
  EXPECT_EQ(stop(u"A"), error_dependents_run);
  EXPECT_EQ(stop(u"B"), 0u);
  EXPECT_EQ(stop(u"A"), error_dependents_run);
  EXPECT_EQ(state_of(u"A"), service_running);
  memory::system().now_ns += 100'000'000;
  EXPECT_EQ(stop(u"A"), 0u);
}

TEST_F(HostedServices, StartWhatTheyNeedFirst) {
  install(u"A", start_on_demand);
  install(u"B", start_on_demand, {u"A"});
  install(u"C", start_on_demand, {u"b"});
  install(u"D", start_on_demand);
  EXPECT_EQ(start(u"C"), 0u);
  for (const char16_t* name : {u"A", u"B", u"C"}) EXPECT_EQ(state_of(name), service_running);
  EXPECT_EQ(state_of(u"D"), service_stopped);
}

struct NeedCase {
  std::uint32_t start_type;
  std::uint32_t start_error;  // of what is needed
  std::uint32_t error;
};

TEST_F(HostedServices, StayStoppedWhenWhatTheyNeedDoesNotStart) {
  for (const NeedCase& row : std::vector<NeedCase>{{start_disabled, 0, error_dependency_failed},
                                                   {start_on_demand, 1069, error_dependency_failed},
                                                   {start_on_demand, 0, 0},
                                                   {start_automatic, 1069, 0}}) {
    SCOPED_TRACE(testing::Message() << row.start_type << ' ' << row.start_error);
    memory::reset();
    install(u"Needed", row.start_type);
    if (row.start_error != 0) put_number(behaviour(u"Needed"), u"StartError", row.start_error);
    install(u"Needs", start_on_demand, {u"Needed"});
    EXPECT_EQ(start(u"Needs"), row.error);
    EXPECT_EQ(state_of(u"Needs"), row.error == 0 ? service_running : service_stopped);
  }
}

TEST_F(HostedServices, StartAtTheEndOfALongRowOfNeeds) {
  install(u"S00", start_on_demand);
  for (char16_t number = 1; number < 60; ++number) {
    const auto name = [](char16_t of) {
      return std::u16string{u'S', static_cast<char16_t>(u'0' + of / 10),
                            static_cast<char16_t>(u'0' + of % 10)};
    };
    install(name(number), start_on_demand, {name(static_cast<char16_t>(number - 1))});
  }
  EXPECT_EQ(start(u"S59"), 0u);
  EXPECT_EQ(state_of(u"S00"), service_running);
  EXPECT_EQ(dependents_of(u"S00").size(), 59u);
}

TEST_F(HostedServices, AreMissingOnceTheyAreRemoved) {
  install(u"Audiosrv");
  const Service service = open(u"Audiosrv");
  EXPECT_EQ(ask_service_to_stop(service), 0u);
  hosted::remove_key(hosted::machine_state().registry,
                     u"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Audiosrv");
  EXPECT_EQ(start_service(service), error_missing);
  EXPECT_EQ(open_error(u"Audiosrv", service_query_status), error_missing);
  EXPECT_EQ(open_error(u"Absent", every_access), error_missing);
}

TEST_F(HostedServices, AreOpenedForNoMoreThanTheAccessListGrants) {
  constexpr std::uint32_t reading = 0x20019;
  install(u"Audiosrv");
  install(u"Other");
  const std::u16string path = u"SYSTEM\\CurrentControlSet\\Services\\Audiosrv";
  {
    const auto granted = surroundings::grant(path, reading);
    EXPECT_EQ(open_error(u"Audiosrv", service_query_status | service_enumerate_dependents), 0u);
    EXPECT_EQ(open_error(u"Audiosrv", 0), 0u);
    for (const std::uint32_t access : {service_start, service_stop, every_access}) {
      EXPECT_EQ(open_error(u"Audiosrv", access), error_denied);
    }
    EXPECT_EQ(open_error(u"Other", every_access), 0u);
  }
  {
    const auto granted = surroundings::grant(path, 0);
    EXPECT_EQ(open_error(u"Audiosrv", service_query_status), error_denied);
    EXPECT_EQ(open_error(u"audiosrv", every_access), error_denied);
  }
  EXPECT_EQ(open_error(u"Audiosrv", every_access), 0u);
}

TEST_F(HostedServices, FailAtEachCallWithItsFault) {
  constexpr std::int64_t injected = 1722;
  install(u"Audiosrv");
  install(u"Dependent", start_automatic, {u"Audiosrv"});
  ServiceManager manager;
  Service service;
  std::uint32_t state = 77;
  memory::system().faults["OpenSCManagerW"] = {injected};
  EXPECT_EQ(open_service_manager(manager), injected);
  EXPECT_FALSE(manager.is_open());
  ASSERT_EQ(open_service_manager(manager), 0u);
  memory::system().faults["OpenServiceW"] = {injected};
  EXPECT_EQ(open_service(manager, u"Audiosrv", every_access, service), injected);
  EXPECT_FALSE(service.is_open());
  ASSERT_EQ(open_service(manager, u"Audiosrv", every_access, service), 0u);
  memory::system().faults["QueryServiceStatusEx"] = {injected};
  EXPECT_EQ(query_service_state(service, state), injected);
  EXPECT_EQ(state, 77u);
  memory::system().faults["EnumDependentServicesW"] = {injected};
  EXPECT_EQ(active_dependents(service), Names());
  EXPECT_EQ(active_dependents(service), Names{u"Dependent"});
  EXPECT_EQ(stop(u"Dependent"), 0u);
  memory::system().faults["ControlService"] = {injected};
  EXPECT_EQ(ask_service_to_stop(service), injected);
  EXPECT_EQ(state_of(u"Audiosrv"), service_running);
  EXPECT_EQ(ask_service_to_stop(service), 0u);
  memory::system().faults["StartServiceW"] = {injected};
  EXPECT_EQ(start_service(service), injected);
  EXPECT_EQ(state_of(u"Audiosrv"), service_stopped);
}

}  // namespace
}  // namespace velmora
