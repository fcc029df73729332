// Every call of every road, failed in turn on the same machine: what is told of it and what the registry
// holds then.
#include <gtest/gtest.h>

#include "binding/binding.h"
#include "unit/binding/support/endpoint_machine.h"

namespace velmora {
namespace {

using namespace endpoint;

constexpr std::int32_t injected = 1;  // in a table: the injected error as a status

struct Outcome {
  std::int32_t status;
  std::string detail;
  Words after;
};

// One call of a road, and the outcome when it fails; none: the same as without a failure.
struct Step {
  std::string call;
  std::optional<Outcome> failing = std::nullopt;
};

struct Road {
  std::string what;
  bool bind;
  Words before;
  Outcome done;
  std::vector<Step> steps;
};

std::vector<Road> roads() {
  std::vector<Road> all;
  Words before{.chain = "F", .modes = "x", .offload = "x"};
  Outcome unread{injected, not_read, before};
  Outcome unread_back{injected, not_read_back, {.chain = "F A", .modes = "x", .offload = "x"}};
  all.push_back({"bind",
                 true,
                 before,
                 {0, bound, {.chain = "F A", .modes = "x", .offload = "x"}},
                 {{"open fx", Outcome{injected, not_opened, before}},
                  {"query chain", unread},
                  {"query chain", unread},
                  {"class id", Outcome{failed, not_kept, {.chain = "F ''", .modes = "x", .offload = "x"}}},
                  {"query slot"},
                  {"set chain", Outcome{injected, not_written, before}},
                  {"get added"},
                  {"query modes"},
                  {"query modes"},
                  {"query offload"},
                  {"query offload"},
                  {"query chain", unread_back},
                  {"query chain", unread_back},
                  {"close fx"}}});

  before = {.chain = "F", .slot = "L"};
  Words after{.chain = "F L A", .modes = "ours", .offload = "ours", .added = "1", .moved = "L"};
  unread = {injected, not_read, before};
  unread_back = {
      injected, not_read_back, {.chain = "F L A", .slot = "L", .modes = "ours", .offload = "ours"}};
  const auto moved_but = [&](std::string Words::*value, const std::string& words) {
    Outcome outcome{0, bound_with_move, after};
    outcome.after.*value = words;
    return outcome;
  };
  const Outcome slot_unread{
      0, bound_with_list, {.chain = "F A", .slot = "L", .modes = "ours", .offload = "ours", .added = "1"}};
  all.push_back(
      {"bind that moves the legacy effect and adds both lists",
       true,
       before,
       {0, bound_with_move, after},
       {{"open fx", Outcome{injected, not_opened, before}},
        {"query chain", unread},
        {"query chain", unread},
        {"class id",
         Outcome{failed, not_kept, {.chain = "F L ''", .slot = "L", .modes = "ours", .offload = "ours"}}},
        {"query slot", slot_unread},
        {"query slot", slot_unread},
        {"set chain", Outcome{injected, not_written, before}},
        {"get added"},
        {"query modes", moved_but(&Words::modes, "-")},
        {"set modes", moved_but(&Words::modes, "-")},
        {"query offload", moved_but(&Words::offload, "-")},
        {"set offload", moved_but(&Words::offload, "-")},
        {"query chain", unread_back},
        {"query chain", unread_back},
        {"create record", moved_but(&Words::moved, "-")},
        {"set moved", moved_but(&Words::moved, "-")},
        {"close record"},
        {"delete slot", moved_but(&Words::slot, "L")},
        {"close fx"},
        {"create record", moved_but(&Words::added, "-")},
        {"set added", moved_but(&Words::added, "-")},
        {"close record"}}});

  before = {.chain = "A", .slot = "L", .modes = "x", .offload = "x"};
  after = {.chain = "A L", .modes = "x", .offload = "x", .moved = "L"};
  unread = {injected, not_read, before};
  unread_back = {injected, not_read_back, {.chain = "A L", .slot = "L", .modes = "x", .offload = "x"}};
  all.push_back(
      {"bind that moves the legacy effect and adds no list",
       true,
       before,
       {0, bound_with_move, after},
       {{"open fx", Outcome{injected, not_opened, before}},
        {"query chain", unread},
        {"query chain", unread},
        {"class id",
         Outcome{failed, not_kept, {.chain = "A L ''", .slot = "L", .modes = "x", .offload = "x"}}},
        {"query slot", Outcome{0, was_bound, before}},
        {"query slot", Outcome{0, was_bound, before}},
        {"set chain", Outcome{injected, not_written, before}},
        {"get added"},
        {"query modes"},
        {"query modes"},
        {"query offload"},
        {"query offload"},
        {"query chain", unread_back},
        {"query chain", unread_back},
        {"create record", moved_but(&Words::moved, "-")},
        {"set moved",
         Outcome{0, bound_with_move, {.chain = "A L", .modes = "x", .offload = "x", .empty_record = true}}},
        {"close record"},
        {"delete slot", moved_but(&Words::slot, "L")},
        {"close fx"}}});

  before = {.chain = "F A", .slot = "A", .modes = "x", .added = "1"};
  after = {.chain = "F A", .slot = "A", .modes = "ours", .offload = "ours", .added = "1"};
  unread = {injected, not_read, before};
  const auto refreshed_but = [&](std::string Words::*value, const std::string& words) {
    Outcome outcome{0, list_refreshed, after};
    outcome.after.*value = words;
    return outcome;
  };
  Outcome not_kept_here{failed, not_kept, after};
  not_kept_here.after.chain = "F A ''";
  all.push_back({"bind that refreshes the lists",
                 true,
                 before,
                 {0, list_refreshed, after},
                 {{"open fx", Outcome{injected, not_opened, before}},
                  {"query chain", unread},
                  {"query chain", unread},
                  {"class id", not_kept_here},
                  {"query slot"},
                  {"query slot"},
                  {"get added", refreshed_but(&Words::modes, "x")},
                  {"query modes", refreshed_but(&Words::modes, "x")},
                  {"query modes", refreshed_but(&Words::modes, "x")},
                  {"set modes", refreshed_but(&Words::modes, "x")},
                  {"query offload", refreshed_but(&Words::offload, "-")},
                  {"set offload", refreshed_but(&Words::offload, "-")},
                  {"create record"},
                  {"set added"},
                  {"close record"},
                  {"close fx"}}});

  before = {.chain = "a"};
  after = {.chain = "a", .modes = "ours", .offload = "ours", .added = "1"};
  unread = {injected, not_read, before};
  all.push_back(
      {"bind that adds the lists alone",
       true,
       before,
       {0, list_refreshed, after},
       {{"open fx", Outcome{injected, not_opened, before}},
        {"query chain", unread},
        {"query chain", unread},
        {"class id", Outcome{failed, not_kept, {.chain = "a ''", .modes = "ours", .offload = "ours"}}},
        {"query slot"},
        {"get added"},
        {"query modes", refreshed_but(&Words::modes, "-")},
        {"set modes", refreshed_but(&Words::modes, "-")},
        {"query offload", refreshed_but(&Words::offload, "-")},
        {"set offload", refreshed_but(&Words::offload, "-")},
        {"create record", refreshed_but(&Words::added, "-")},
        {"set added",
         Outcome{
             0, list_refreshed, {.chain = "a", .modes = "ours", .offload = "ours", .empty_record = true}}},
        {"close record"},
        {"close fx"}}});

  before = {.chain = "F A", .modes = "x", .offload = "x"};
  unread = {injected, not_read, before};
  all.push_back({"bind with nothing to do",
                 true,
                 before,
                 {0, was_bound, before},
                 {{"open fx", Outcome{injected, not_opened, before}},
                  {"query chain", unread},
                  {"query chain", unread},
                  {"class id", Outcome{failed, not_kept, {.chain = "F A ''", .modes = "x", .offload = "x"}}},
                  {"query slot"},
                  {"get added"},
                  {"query modes"},
                  {"query modes"},
                  {"query offload"},
                  {"query offload"},
                  {"close fx"}}});

  before = {.chain = "F A", .slot = "L", .modes = "ours", .added = "2"};
  after = {.chain = "F", .slot = "L", .modes = "ours"};
  unread = {injected, not_read, before};
  Words record_left = after;
  record_left.added = "2";
  all.push_back({"unbind",
                 false,
                 before,
                 {0, unbound, after},
                 {{"open fx", Outcome{injected, not_opened, before}},
                  {"query chain", unread},
                  {"query chain", unread},
                  {"class id", Outcome{0, was_not_bound, before}},
                  {"get moved"},
                  {"set chain", Outcome{injected, not_written, before}},
                  {"get added"},
                  {"query chain", Outcome{injected, not_read_back, record_left}},
                  {"query chain", Outcome{injected, not_read_back, record_left}},
                  {"close fx"},
                  {"open records", Outcome{0, unbound, record_left}},
                  {"delete record", Outcome{0, unbound, record_left}},
                  {"close records"}}});

  before = {.chain = "A"};
  unread = {injected, not_read, before};
  all.push_back({"unbind of the only entry",
                 false,
                 before,
                 {0, unbound, {}},
                 {{"open fx", Outcome{injected, not_opened, before}},
                  {"query chain", unread},
                  {"query chain", unread},
                  {"class id", Outcome{0, was_not_bound, before}},
                  {"get moved"},
                  {"delete chain", Outcome{injected, not_written, before}},
                  {"get added"},
                  {"query chain", Outcome{injected, not_read_back, {}}},
                  {"close fx"},
                  {"open records"}}});

  before = {.chain = "F M A", .modes = "ours", .offload = "x", .added = "1", .moved = "M"};
  after = {.chain = "F", .slot = "M"};
  unread = {injected, not_read, before};
  const auto restored_but = [&](std::string Words::*value, const std::string& words) {
    Outcome outcome{0, unbound_with_restore, after};
    outcome.after.*value = words;
    return outcome;
  };
  unread_back = {injected, not_read_back, {.chain = "F", .added = "1", .moved = "M"}};
  const Outcome record_kept{0, unbound_with_restore, {.chain = "F", .slot = "M", .added = "1", .moved = "M"}};
  all.push_back(
      {"unbind that restores the moved effect and removes the lists",
       false,
       before,
       {0, unbound_with_restore, after},
       {{"open fx", Outcome{injected, not_opened, before}},
        {"query chain", unread},
        {"query chain", unread},
        {"class id", restored_but(&Words::chain, "F A")},
        {"get moved", Outcome{0, unbound, {.chain = "F M"}}},
        {"set chain", Outcome{injected, not_written, before}},
        {"get added",
         Outcome{0, unbound_with_restore, {.chain = "F", .slot = "M", .modes = "ours", .offload = "x"}}},
        {"delete modes", restored_but(&Words::modes, "ours")},
        {"delete offload", restored_but(&Words::offload, "x")},
        {"query chain", unread_back},
        {"query chain", unread_back},
        {"set slot", restored_but(&Words::slot, "-")},
        {"close fx"},
        {"open records", record_kept},
        {"delete record", record_kept},
        {"close records"}}});

  before = {.chain = "F", .slot = "L", .modes = "ours", .offload = "ours", .added = "1"};
  unread = {injected, not_read, before};
  all.push_back({"unbind with nothing to do",
                 false,
                 before,
                 {0, was_not_bound, before},
                 {{"open fx", Outcome{injected, not_opened, before}},
                  {"query chain", unread},
                  {"query chain", unread},
                  {"class id"},
                  {"get moved"},
                  {"close fx"}}});
  return all;
}

std::vector<std::int32_t> errors_of(const std::string& call) {
  const bool reads = call.rfind("query", 0) == 0 || call.rfind("get", 0) == 0;
  return reads ? std::vector<std::int32_t>{5, 234, 1018, 1450} : std::vector<std::int32_t>{5, 1018, 1450};
}

class BindingFaults : public FreshMachine {
 protected:
  static void check(const Road& road, const Outcome& outcome, std::int32_t error) {
    set_up(road.before);
    memory::system().log.clear();
    std::string detail = "left over";
    const std::int32_t status =
        road.bind ? bind_endpoint_effect(id, detail) : unbind_endpoint_effect(id, detail);
    EXPECT_EQ(status, outcome.status == injected ? from_win32(error) : outcome.status);
    EXPECT_EQ(detail, outcome.detail);
    EXPECT_EQ(present_lines(), expected_lines(road.before, outcome.after));
    EXPECT_TRUE(memory::system().state.open_keys.empty());
  }
};

TEST_F(BindingFaults, OfEachCallOfEachRoadLeaveWhatWasDoneAndTellOfTheChainAlone) {
  int faults = 0;
  for (const Road& road : roads()) {
    SCOPED_TRACE(road.what);
    memory::system().fault_at.reset();
    check(road, road.done, 0);
    std::vector<std::string> expected;
    for (const Step& step : road.steps) expected.push_back(step.call);
    ASSERT_EQ(calls(), expected);
    for (std::size_t index = 0; index < road.steps.size(); ++index) {
      const Step& step = road.steps[index];
      for (const std::int32_t error : errors_of(step.call)) {
        SCOPED_TRACE(std::to_string(index + 1) + " " + step.call + ", error " + std::to_string(error));
        memory::system().fault_at = {index + 1, error};
        check(road, step.failing.value_or(road.done), error);
        ++faults;
      }
    }
  }
  RecordProperty("injected_faults", faults);
  EXPECT_GT(faults, 400);
}

TEST_F(BindingFaults, OfALookAreItsStatus) {
  const struct {
    std::string call;
    bool fails;
    bool key_present;
    std::string chain;
    bool bound;
  } rows[] = {
      {"", false, true, "F A", true},         {"open fx", true, false, "", false},
      {"query chain", true, true, "", false}, {"query chain", true, true, "", false},
      {"close fx", false, true, "F A", true}, {"class id", false, true, "F A", false},
  };
  const Words before{.chain = "F A", .slot = "L", .added = "1", .moved = "M"};
  for (std::size_t index = 0; index < std::size(rows); ++index) {
    for (const std::int32_t error : {5, 234, 1450}) {
      SCOPED_TRACE(rows[index].call + " " + std::to_string(error));
      set_up(before);
      memory::system().log.clear();
      if (index != 0) memory::system().fault_at = {index, error};
      EndpointBindingState state{false, true, {"left over"}, 77};
      const std::int32_t expected = rows[index].fails ? from_win32(error) : 0;
      EXPECT_EQ(inspect_endpoint_binding(id, state), expected);
      if (index == 0) {
        EXPECT_EQ(calls(), call_list("open fx, query chain x2, close fx, class id"));
      }
      EXPECT_EQ(state.error_code, expected);
      EXPECT_EQ(state.fx_key_present, rows[index].key_present);
      EXPECT_EQ(state.chain, spell(rows[index].chain));
      EXPECT_EQ(state.bound, rows[index].bound);
      EXPECT_EQ(present_lines(), lines_of(stored(before)));
      EXPECT_TRUE(memory::system().state.open_keys.empty());
    }
  }
}

// Several calls of one operation fail: the first failures by operation, and the outcome.
TEST_F(BindingFaults, ThatComeTogetherAddUp) {
  using Faults = std::map<std::string, std::deque<std::int64_t>>;
  const struct {
    Road road;
    Faults faults;
  } rows[] = {
      {{"the record cannot be made",
        true,
        {.chain = "F", .slot = "L"},
        {0, bound_with_move, {.chain = "F L A", .modes = "ours", .offload = "ours"}},
        {}},
       {{"RegCreateKeyExW", {5, 5}}}},
      {{"the record takes no value",
        true,
        {.chain = "F", .slot = "L"},
        {0, bound_with_move, {.chain = "F L A", .modes = "ours", .offload = "ours", .empty_record = true}},
        {}},
       {{"RegSetValueExW", {0, 0, 0, 5, 5}}}},
      {{"neither record nor slot can be written",
        true,
        {.chain = "F", .slot = "L"},
        {0, bound_with_move, {.chain = "F L A", .slot = "L", .modes = "ours", .offload = "ours"}},
        {}},
       {{"RegCreateKeyExW", {5, 5}}, {"RegDeleteValueW", {5}}}},
      {{"neither list can be written", true, {.chain = "F"}, {0, bound, {.chain = "F A"}}, {}},
       {{"RegSetValueExW", {0, 5, 1450}}}},
      {{"neither list of a bound endpoint can be written",
        true,
        {.chain = "A"},
        {0, was_bound, {.chain = "A"}},
        {}},
       {{"RegSetValueExW", {5, 1450}}}},
      {{"neither list can be removed",
        false,
        {.chain = "F A", .modes = "ours", .offload = "ours", .added = "1"},
        {0, unbound, {.chain = "F", .modes = "ours", .offload = "ours"}},
        {}},
       {{"RegDeleteValueW", {5, 2}}}},
      {{"neither value of the record can be read",
        false,
        {.chain = "M A", .modes = "ours", .offload = "ours", .added = "1", .moved = "M"},
        {0, unbound, {.chain = "M", .modes = "ours", .offload = "ours"}},
        {}},
       {{"RegGetValueW", {5, 5}}}},
      {{"neither slot nor record can be written",
        false,
        {.chain = "M A", .moved = "M"},
        {0, unbound_with_restore, {.moved = "M"}},
        {}},
       {{"RegSetValueExW", {5}}, {"RegDeleteKeyW", {5}}}},
      {{"the only entry is called missing and stays",
        false,
        {.chain = "A", .added = "2"},
        {failed, not_kept, {.chain = "A", .added = "2"}},
        {}},
       {{"RegDeleteValueW", {2}}}},
      {{"the chain is called missing at first",
        true,
        {.chain = "F", .modes = "x", .offload = "x"},
        {0, bound, {.chain = "A", .modes = "x", .offload = "x"}},
        {}},
       {{"RegQueryValueExW", {2}}}},
      {{"a list is called missing",
        true,
        {.chain = "A", .modes = "x", .offload = "x"},
        {0, list_refreshed, {.chain = "A", .modes = "ours", .offload = "x", .added = "1"}},
        {}},
       {{"RegQueryValueExW", {0, 0, 0, 2}}}},
      {{"a list vanishes while it is read",
        true,
        {.chain = "A", .modes = "x", .offload = "x"},
        {0, was_bound, {.chain = "A", .modes = "x", .offload = "x"}},
        {}},
       {{"RegQueryValueExW", {0, 0, 0, 0, 2}}}},
      {{"the id is called wrong",
        true,
        {.chain = "F"},
        {invalid_argument, no_identifier, {.chain = "F"}},
        {}},
       {{"RegOpenKeyExW", {87}}}},
      {{"the id is called wrong",
        false,
        {.chain = "A"},
        {invalid_argument, no_identifier, {.chain = "A"}},
        {}},
       {{"RegOpenKeyExW", {87}}}},
      {{"an error below zero", true, {.chain = "F"}, {-5, not_opened, {.chain = "F"}}, {}},
       {{"RegOpenKeyExW", {-5}}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.road.what);
    memory::system().faults = row.faults;
    check(row.road, row.road.done, 0);
    for (const auto& [operation, left] : memory::system().faults) EXPECT_TRUE(left.empty()) << operation;
  }
}

TEST_F(BindingFaults, OfKeepingTheRegistryLeaveItAsItWas) {
  memory::system().registry_kept = false;
  for (const Road& road : roads()) {
    SCOPED_TRACE(road.what);
    if (road.steps.size() < 6 || road.done.detail == was_bound || road.done.detail == was_not_bound) continue;
    const bool writes_chain = road.done.detail != list_refreshed;
    check(road,
          writes_chain ? Outcome{from_win32(1016), not_written, road.before}
                       : Outcome{0, was_bound, road.before},
          0);
  }
}

}  // namespace
}  // namespace velmora
