// Makes each call of each course of a bind, an unbind and a look fail, and checks the outcome and the
// registry.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "binding/binding.h"
#include "unit/binding/support/endpoint_machine.h"

namespace velmora {
namespace {

using namespace endpoint;

// The outcome when one of these calls fails. A call is named as calls() does; "#2" means only the second of
// its name, "read back" each query of the chain after it was read.
struct Fault {
  std::string calls;
  std::string detail;
  std::string after;
};

// One course. It ends as without a failure for each call that no fault names. In every course opening,
// reading and writing the chain fail as a whole; that is not repeated here.
struct Course {
  std::string what;
  bool bind;
  std::string before;
  std::string detail;
  std::string after;
  std::vector<Fault> faults;
};

const std::vector<Course> courses = {
    {"bind",
     true,
     "chain F, lists x",
     bound,
     "chain F A, lists x",
     {{"class id", not_kept, "chain F '', lists x"}, {"read back", not_read_back, "chain F A, lists x"}}},
    {"bind that moves the legacy effect and adds both lists",
     true,
     "chain F, slot L",
     bound_with_move,
     "chain F L A, lists ours, added 1, moved L",
     {{"class id", not_kept, "chain F L '', slot L, lists ours"},
      {"query slot", bound_with_list, "chain F A, slot L, lists ours, added 1"},
      {"query modes, set modes", bound_with_move, "chain F L A, offload ours, added 1, moved L"},
      {"query offload, set offload", bound_with_move, "chain F L A, modes ours, added 1, moved L"},
      {"read back", not_read_back, "chain F L A, slot L, lists ours"},
      {"create record#1, set moved", bound_with_move, "chain F L A, lists ours, added 1"},
      {"delete slot", bound_with_move, "chain F L A, slot L, lists ours, added 1, moved L"},
      {"create record#2, set added", bound_with_move, "chain F L A, lists ours, moved L"}}},
    {"bind that moves the legacy effect and adds no list",
     true,
     "chain A, slot L, lists x",
     bound_with_move,
     "chain A L, lists x, moved L",
     {{"class id", not_kept, "chain A L '', slot L, lists x"},
      {"query slot", was_bound, "chain A, slot L, lists x"},
      {"read back", not_read_back, "chain A L, slot L, lists x"},
      {"create record", bound_with_move, "chain A L, lists x"},
      {"set moved", bound_with_move, "chain A L, lists x, record"},
      {"delete slot", bound_with_move, "chain A L, slot L, lists x, moved L"}}},
    {"bind that refreshes the lists",
     true,
     "chain F A, slot A, modes x, added 1",
     list_refreshed,
     "chain F A, slot A, lists ours, added 1",
     {{"class id", not_kept, "chain F A '', slot A, lists ours, added 1"},
      {"get added, query modes, set modes", list_refreshed,
       "chain F A, slot A, modes x, offload ours, added 1"},
      {"query offload, set offload", list_refreshed, "chain F A, slot A, modes ours, added 1"}}},
    {"bind that only adds the lists",
     true,
     "chain a",
     list_refreshed,
     "chain a, lists ours, added 1",
     {{"class id", not_kept, "chain a '', lists ours"},
      {"query modes, set modes", list_refreshed, "chain a, offload ours, added 1"},
      {"query offload, set offload", list_refreshed, "chain a, modes ours, added 1"},
      {"create record", list_refreshed, "chain a, lists ours"},
      {"set added", list_refreshed, "chain a, lists ours, record"}}},
    {"bind with nothing to do",
     true,
     "chain F A, lists x",
     was_bound,
     "chain F A, lists x",
     {{"class id", not_kept, "chain F A '', lists x"}}},
    {"unbind",
     false,
     "chain F A, slot L, modes ours, added 2",
     unbound,
     "chain F, slot L, modes ours",
     {{"class id", was_not_bound, "chain F A, slot L, modes ours, added 2"},
      {"read back", not_read_back, "chain F, slot L, modes ours, added 2"},
      {"open records, delete record", unbound, "chain F, slot L, modes ours, added 2"}}},
    {"unbind of the only entry",
     false,
     "chain A",
     unbound,
     "",
     {{"class id", was_not_bound, "chain A"}, {"read back", not_read_back, ""}}},
    {"unbind that restores the moved effect and removes the lists",
     false,
     "chain F M A, modes ours, offload x, added 1, moved M",
     unbound_with_restore,
     "chain F, slot M",
     {{"class id", unbound_with_restore, "chain F A, slot M"},
      {"get moved", unbound, "chain F M"},
      {"get added", unbound_with_restore, "chain F, slot M, modes ours, offload x"},
      {"delete modes", unbound_with_restore, "chain F, slot M, modes ours"},
      {"delete offload", unbound_with_restore, "chain F, slot M, offload x"},
      {"read back", not_read_back, "chain F, added 1, moved M"},
      {"set slot", unbound_with_restore, "chain F"},
      {"open records, delete record", unbound_with_restore, "chain F, slot M, added 1, moved M"}}},
    {"unbind with nothing to do",
     false,
     "chain F, slot L, lists ours, added 1",
     was_not_bound,
     "chain F, slot L, lists ours, added 1",
     {}},
};

// The names by which a table may mean the last of these calls.
std::vector<std::string> names_of_last(const std::vector<std::string>& log) {
  const auto number = std::count(log.begin(), log.end(), log.back());
  if (log.back() == "query chain" && number > 2) return {"read back"};
  return {log.back(), log.back() + "#" + std::to_string(number)};
}

// The outcome of a course in which the last of these calls fails.
Fault expected_outcome(const Course& course, const std::vector<std::string>& log,
                       std::set<const Fault*>& used) {
  const std::vector<std::string> names = names_of_last(log);
  const std::string& name = names.front();
  if (name == "open fx") return {name, not_opened, course.before};
  if (name == "query chain") return {name, not_read, course.before};
  if (name == "set chain" || name == "delete chain") return {name, not_written, course.before};
  for (const Fault& fault : course.faults) {
    for (const std::string& wanted : names) {
      if ((fault.calls + ", ").find(wanted + ", ") == std::string::npos) continue;
      used.insert(&fault);
      return fault;
    }
  }
  return {name, course.detail, course.after};
}

std::int32_t status_of(const std::string& detail, std::int32_t error) {
  if (detail == not_kept) return failed;
  for (const std::string fails : {not_opened, not_read, not_written, not_read_back}) {
    if (detail == fails) return from_win32(error);
  }
  return 0;
}

class BindingFaults : public FreshMachine {
 protected:
  static void run(bool bind, const std::string& before) {
    set_up(before);
    memory::system().log.clear();
    detail_ = "left over";
    status_ = bind ? bind_endpoint_effect(id, detail_) : unbind_endpoint_effect(id, detail_);
    EXPECT_TRUE(memory::system().state.open_keys.empty());
  }
  static void expect(std::int32_t status, const std::string& detail, const std::string& before,
                     const std::string& after) {
    EXPECT_EQ(status_, status);
    EXPECT_EQ(detail_, detail);
    EXPECT_EQ(present_lines(), expected_lines(before, after));
  }

  static inline std::int32_t status_;
  static inline std::string detail_;
};

TEST_F(BindingFaults, KeepCompletedStepsAndReportOnlyChainFailures) {
  int faults = 0;
  for (const Course& course : courses) {
    memory::system().fault_at.reset();
    run(course.bind, course.before);
    expect(0, course.detail, course.before, course.after);
    const std::size_t call_count = calls().size();
    std::set<const Fault*> used;
    for (std::size_t index = 1; index <= call_count; ++index) {
      for (const std::int32_t error : {5, 234, 1018, 1450}) {
        SCOPED_TRACE(course.what + ", call " + std::to_string(index) + ", error " + std::to_string(error));
        memory::system().fault_at = {index, error};
        run(course.bind, course.before);
        std::vector<std::string> log = calls();
        ASSERT_GE(log.size(), index);
        log.resize(index);
        const Fault expected = expected_outcome(course, log, used);
        expect(status_of(expected.detail, error), expected.detail, course.before, expected.after);
        ++faults;
      }
    }
    EXPECT_EQ(used.size(), course.faults.size()) << course.what;  // each row of the table was needed
  }
  RecordProperty("injected_faults", faults);
  EXPECT_GT(faults, 500);
}

TEST_F(BindingFaults, FailALookWithTheStatusOfTheCall) {
  const std::string before = "chain F A, slot L, added 1, moved M";
  for (const std::size_t index : {0u, 1u, 2u, 3u, 4u, 5u}) {
    for (const std::int32_t error : {5, 234, 1450}) {
      set_up(before);
      memory::system().log.clear();
      memory::system().fault_at = {index, error};
      EndpointBindingState state{false, true, {"left over"}, 77};
      const std::int32_t status = inspect_endpoint_binding(id, state);
      const std::string call = index == 0 ? "none" : calls().at(index - 1);
      SCOPED_TRACE(call + " " + std::to_string(error));
      const bool fails = call == "open fx" || call == "query chain";
      EXPECT_EQ(status, fails ? from_win32(error) : 0);
      EXPECT_EQ(state.error_code, status);
      EXPECT_EQ(state.fx_key_present, call != "open fx");
      EXPECT_EQ(state.chain, spell(fails ? "" : "F A"));
      EXPECT_EQ(state.bound, !fails && call != "class id");
      EXPECT_EQ(present_lines(), lines_of(before));
      EXPECT_TRUE(memory::system().state.open_keys.empty());
    }
  }
}

// Several calls fail: for each operation the errors of its first calls.
TEST_F(BindingFaults, AddUp) {
  using Faults = std::map<std::string, std::deque<std::int64_t>>;
  const struct {
    std::string what;
    bool bind;
    std::string before;
    Faults faults;
    std::int32_t status;
    std::string detail;
    std::string after;
  } rows[] = {
      {"the record cannot be created", true, "chain F, slot L", Faults{{"RegCreateKeyExW", {5, 5}}}, 0,
       bound_with_move, "chain F L A, lists ours"},
      {"the record takes no value", true, "chain F, slot L", Faults{{"RegSetValueExW", {0, 0, 0, 5, 5}}}, 0,
       bound_with_move, "chain F L A, lists ours, record"},
      {"neither record nor slot can be written", true, "chain F, slot L",
       Faults{{"RegCreateKeyExW", {5, 5}}, {"RegDeleteValueW", {5}}}, 0, bound_with_move,
       "chain F L A, slot L, lists ours"},
      {"neither list can be written", true, "chain F", Faults{{"RegSetValueExW", {0, 5, 1450}}}, 0, bound,
       "chain F A"},
      {"neither list of a bound endpoint can be written", true, "chain A",
       Faults{{"RegSetValueExW", {5, 1450}}}, 0, was_bound, "chain A"},
      {"neither list can be removed", false, "chain F A, lists ours, added 1",
       Faults{{"RegDeleteValueW", {5, 2}}}, 0, unbound, "chain F, lists ours"},
      {"neither value of the record can be read", false, "chain M A, lists ours, added 1, moved M",
       Faults{{"RegGetValueW", {5, 5}}}, 0, unbound, "chain M, lists ours"},
      {"neither slot nor record can be written", false, "chain M A, moved M",
       Faults{{"RegSetValueExW", {5}}, {"RegDeleteKeyW", {5}}}, 0, unbound_with_restore, "moved M"},
      {"the only entry is called missing and stays", false, "chain A, added 2",
       Faults{{"RegDeleteValueW", {2}}}, failed, not_kept, "chain A, added 2"},
      {"the chain is called missing at first", true, "chain F, lists x", Faults{{"RegQueryValueExW", {2}}}, 0,
       bound, "chain A, lists x"},
      {"a list is called missing", true, "chain A, lists x", Faults{{"RegQueryValueExW", {0, 0, 0, 2}}}, 0,
       list_refreshed, "chain A, modes ours, offload x, added 1"},
      {"a list vanishes while it is read", true, "chain A, lists x",
       Faults{{"RegQueryValueExW", {0, 0, 0, 0, 2}}}, 0, was_bound, "chain A, lists x"},
      {"a bind's id is called wrong", true, "chain F", Faults{{"RegOpenKeyExW", {87}}}, invalid_argument,
       no_identifier, "chain F"},
      {"an unbind's id is called wrong", false, "chain A", Faults{{"RegOpenKeyExW", {87}}}, invalid_argument,
       no_identifier, "chain A"},
      {"an error below zero", true, "chain F", Faults{{"RegOpenKeyExW", {-5}}}, -5, not_opened, "chain F"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    memory::system().faults = row.faults;
    run(row.bind, row.before);
    expect(row.status, row.detail, row.before, row.after);
    for (const auto& [operation, left] : memory::system().faults) EXPECT_TRUE(left.empty()) << operation;
  }
}

TEST_F(BindingFaults, LeaveTheRegistryThatCannotBeSaved) {
  memory::system().registry_kept = false;
  for (const Course& course : courses) {
    SCOPED_TRACE(course.what);
    run(course.bind, course.before);
    if (course.detail == was_bound || course.detail == was_not_bound) {
      expect(0, course.detail, course.before, course.before);
    } else if (course.detail == list_refreshed) {
      expect(0, was_bound, course.before, course.before);
    } else {
      expect(from_win32(1016), not_written, course.before, course.before);
    }
  }
}

}  // namespace
}  // namespace velmora
