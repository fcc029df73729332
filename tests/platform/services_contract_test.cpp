#include "platform/services.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::for_ever_ms;
using surroundings::install_service;
using surroundings::runs_under_wine;
using Names = std::vector<std::u16string>;

// winerror.h
constexpr std::uint32_t error_denied = 5;
constexpr std::uint32_t error_dependents_run = 1051;
constexpr std::uint32_t error_disabled = 1058;
constexpr std::uint32_t error_missing = 1060;
constexpr std::uint32_t error_control_not_taken = 1052;
constexpr std::uint32_t error_cannot_accept_control = 1061;

constexpr std::uint32_t every_access =
    service_query_status | service_enumerate_dependents | service_start | service_stop;
constexpr std::u16string_view one = u"VelmoraContractOne";
constexpr std::u16string_view other = u"VelmoraContractOther";

class ServicesContract : public surroundings::Arranged {
 protected:
  void SetUp() override {
    surroundings::Arranged::SetUp();
    surroundings::set_up_services();
  }
  void TearDown() override {
    surroundings::tear_down_services();
    surroundings::Arranged::TearDown();
  }
};

std::string bytes_of(std::u16string_view text) { return {text.begin(), text.end()}; }

Service open(std::u16string_view name, std::uint32_t access = every_access) {
  ServiceManager manager;
  Service service;
  EXPECT_EQ(open_service_manager(manager), 0u);
  EXPECT_EQ(open_service(manager, name, access, service), 0u);
  return service;
}

std::uint32_t state_of(const Service& service) {
  std::uint32_t state = 0;
  EXPECT_EQ(query_service_state(service, state), 0u);
  return state;
}

// The last state that was seen. Until then there is no other than `pending`.
std::uint32_t wait_for(const Service& service, std::uint32_t wanted, std::uint32_t pending) {
  constexpr std::int64_t limit_ns = 20'000'000'000;
  const std::int64_t start = steady_now_ns();
  std::uint32_t state = state_of(service);
  while (state == pending && state != wanted && steady_now_ns() - start < limit_ns) {
    sleep_ms(5);
    state = state_of(service);
  }
  return state;
}

std::uint32_t wait_until_running(const Service& service) {
  return wait_for(service, service_running, service_start_pending);
}

std::uint32_t wait_until_stopped(const Service& service) {
  return wait_for(service, service_stopped, service_stop_pending);
}

Service start_and_wait(std::u16string_view name) {
  Service service = open(name);
  EXPECT_EQ(start_service(service), 0u);
  EXPECT_EQ(wait_until_running(service), service_running);
  return service;
}

TEST_F(ServicesContract, ReportsAMissingService) {
  install_service({.name = std::u16string(one)});
  ServiceManager manager;
  ASSERT_EQ(open_service_manager(manager), 0u);
  for (const char16_t* name : {u"VelmoraContractAbsent", u"VelmoraContractOn", u"VelmoraContractOne2"}) {
    SCOPED_TRACE(bytes_of(name));
    for (const std::uint32_t access : {0u, service_query_status, every_access}) {
      Service service;
      EXPECT_EQ(open_service(manager, name, access, service), error_missing);
      EXPECT_FALSE(service.is_open());
    }
  }
}

TEST_F(ServicesContract, LeavesTheFormerServiceOpenWhenTheNextIsMissing) {
  install_service({.name = std::u16string(one)});
  ServiceManager manager;
  ASSERT_EQ(open_service_manager(manager), 0u);
  Service service = open(one);
  const auto former = service.native();
  EXPECT_EQ(open_service(manager, other, every_access, service), error_missing);
  EXPECT_EQ(service.native(), former);
  EXPECT_EQ(state_of(service), service_stopped);
}

TEST_F(ServicesContract, StartsAndStopsAService) {
  for (const std::uint32_t duration_ms : {0u, 50u}) {
    SCOPED_TRACE(duration_ms);
    install_service({.name = std::u16string(one), .start_ms = duration_ms, .stop_ms = duration_ms});
    const Service service = open(u"VELMORACONTRACTone");  // in any case
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(state_of(service), service_stopped);
      EXPECT_EQ(ask_service_to_stop(service), error_service_not_active);
      EXPECT_EQ(start_service(service), 0u);
      EXPECT_EQ(wait_until_running(service), service_running);
      EXPECT_EQ(start_service(service), error_service_already_running);
      EXPECT_EQ(state_of(service), service_running);
      EXPECT_EQ(ask_service_to_stop(service), 0u);
      EXPECT_EQ(wait_until_stopped(service), service_stopped);
    }
  }
}

TEST_F(ServicesContract, ShowsOneStateToEveryoneWhoHasTheServiceOpen) {
  install_service({.name = std::u16string(one)});
  const Service first = open(one);
  const Service second = open(one);
  EXPECT_EQ(start_service(first), 0u);
  EXPECT_EQ(wait_until_running(second), service_running);
  EXPECT_EQ(ask_service_to_stop(second), 0u);
  EXPECT_EQ(wait_until_stopped(first), service_stopped);
}

TEST_F(ServicesContract, KeepsAServiceOpenBeyondItsManager) {
  install_service({.name = std::u16string(one)});
  ServiceManager manager;
  Service service;
  ASSERT_EQ(open_service_manager(manager), 0u);
  ASSERT_EQ(open_service(manager, one, every_access, service), 0u);
  manager.close();
  EXPECT_FALSE(manager.is_open());
  EXPECT_EQ(state_of(service), service_stopped);
  EXPECT_EQ(start_service(service), 0u);
  EXPECT_EQ(wait_until_running(service), service_running);
}

// That it is closed is proven behind each test: what is held cannot be removed.
TEST_F(ServicesContract, ClosesEachServiceOnceWhoeverHasItInTheEnd) {
  install_service({.name = std::u16string(one)});
  Service first = open(one);
  Service second = open(one);
  const auto kept = second.native();
  first = std::move(second);
  EXPECT_EQ(first.native(), kept);
  EXPECT_EQ(state_of(first), service_stopped);
  Service third(std::move(first));
  EXPECT_EQ(state_of(third), service_stopped);
  third.close();
  third.close();
  EXPECT_FALSE(third.is_open());
}

TEST_F(ServicesContract, StartsNothingThatIsDisabled) {
  install_service({.name = std::u16string(one), .is_disabled = true});
  const Service service = open(one);
  EXPECT_EQ(start_service(service), error_disabled);
  EXPECT_EQ(state_of(service), service_stopped);
}

TEST_F(ServicesContract, AsksNothingOfAServiceThatNeverComesToRun) {
  install_service({.name = std::u16string(one), .start_ms = for_ever_ms});
  const Service service = open(one);
  EXPECT_EQ(start_service(service), 0u);
  EXPECT_EQ(state_of(service), service_start_pending);
  EXPECT_EQ(start_service(service), error_service_already_running);
  // Wine passes a stop on to a service that is on its way, if that takes it.
  EXPECT_EQ(ask_service_to_stop(service),
            runs_under_wine() ? error_control_not_taken : error_cannot_accept_control);
  EXPECT_EQ(state_of(service), service_start_pending);
}

TEST_F(ServicesContract, AsksNothingOfAServiceThatNeverComesToRest) {
  install_service({.name = std::u16string(one), .stop_ms = for_ever_ms});
  const Service service = start_and_wait(one);
  EXPECT_EQ(ask_service_to_stop(service), 0u);
  EXPECT_EQ(state_of(service), service_stop_pending);
  EXPECT_EQ(ask_service_to_stop(service), error_cannot_accept_control);
  EXPECT_EQ(start_service(service), error_service_already_running);
  EXPECT_EQ(state_of(service), service_stop_pending);
}

TEST_F(ServicesContract, ReportsWhyAServiceRefusesToStop) {
  install_service({.name = std::u16string(one), .stop_error = error_control_not_taken});
  const Service service = start_and_wait(one);
  EXPECT_EQ(ask_service_to_stop(service), error_control_not_taken);
  EXPECT_EQ(state_of(service), service_running);
}

struct AccessCase {
  std::uint32_t access;
  std::uint32_t query_error;
  std::uint32_t stop_error;  // of a service that runs
  std::uint32_t start_error;
};

TEST_F(ServicesContract, DoesWhatAServiceWasOpenedForAndNothingElse) {
  const std::vector<AccessCase> cases{
      {0, error_denied, error_denied, error_denied},
      {service_query_status, 0, error_denied, error_denied},
      {service_enumerate_dependents, error_denied, error_denied, error_denied},
      {service_start, error_denied, error_denied, error_service_already_running},
      {service_stop, error_denied, 0, error_denied},
      {every_access & ~service_query_status, error_denied, 0, 0},
      {every_access & ~service_start, 0, 0, error_denied},
      {every_access & ~service_stop, 0, error_denied, error_service_already_running},
      {every_access, 0, 0, 0}};
  install_service({.name = std::u16string(one)});
  const Service whole = open(one);
  for (const AccessCase& row : cases) {
    SCOPED_TRACE(row.access);
    if (state_of(whole) == service_stopped) {
      EXPECT_EQ(start_service(whole), 0u);
    }
    ASSERT_EQ(wait_until_running(whole), service_running);
    const Service service = open(one, row.access);
    std::uint32_t state = 77;
    EXPECT_EQ(query_service_state(service, state), row.query_error);
    EXPECT_EQ(state, row.query_error == 0 ? service_running : 77);
    EXPECT_EQ(ask_service_to_stop(service), row.stop_error);
    ASSERT_EQ(wait_until_stopped(whole), row.stop_error == 0 ? service_stopped : service_running);
    EXPECT_EQ(start_service(service), row.start_error);
  }
}

// Wine stores what a service needs, but neither lists nor follows it.
struct DependentsCase {
  bool one_runs;
  bool other_runs;
  Names dependents;
  std::uint32_t stop_error;
  Names dependents_under_wine = {};
  std::uint32_t stop_error_under_wine = 0;
};

TEST_F(ServicesContract, ListsTheDependentsThatAreNotStopped) {
  const std::vector<DependentsCase> cases{
      {false, false, {}, error_service_not_active, {}, error_service_not_active},
      {true, false, {}, 0},
      {true, true, {std::u16string(other)}, error_dependents_run}};
  install_service({.name = std::u16string(one)});
  install_service({.name = std::u16string(other), .needs = {std::u16string(one)}});
  const Service service = open(one);
  const Service dependent = open(other);
  for (const DependentsCase& row : cases) {
    SCOPED_TRACE(testing::Message() << row.one_runs << row.other_runs);
    if (row.one_runs) {
      EXPECT_EQ(start_service(service), 0u);
      EXPECT_EQ(wait_until_running(service), service_running);
    }
    if (row.other_runs) {
      EXPECT_EQ(start_service(dependent), 0u);
      EXPECT_EQ(wait_until_running(dependent), service_running);
    }
    EXPECT_EQ(active_dependents(service), runs_under_wine() ? row.dependents_under_wine : row.dependents);
    EXPECT_EQ(active_dependents(dependent), Names());
    EXPECT_EQ(ask_service_to_stop(service), runs_under_wine() ? row.stop_error_under_wine : row.stop_error);
    if (row.one_runs && row.stop_error == 0) {
      EXPECT_EQ(wait_until_stopped(service), service_stopped);
    }
  }
}

TEST_F(ServicesContract, ListsNoDependentsWithoutTheRight) {
  install_service({.name = std::u16string(one)});
  install_service({.name = std::u16string(other), .needs = {std::u16string(one)}});
  const Service running = start_and_wait(one);
  const Service dependent = start_and_wait(other);
  EXPECT_EQ(active_dependents(open(one, every_access & ~service_enumerate_dependents)), Names());
}

TEST_F(ServicesContract, StartsWithAServiceWhatItNeeds) {
  install_service({.name = std::u16string(one)});
  install_service({.name = std::u16string(other), .needs = {std::u16string(one)}});
  const Service needed = open(one);
  const Service service = start_and_wait(other);
  const std::uint32_t wanted = runs_under_wine() ? service_stopped : service_running;
  EXPECT_EQ(state_of(needed), wanted);
}

}  // namespace
}  // namespace velmora
