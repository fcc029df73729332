#include "binding/binding.h"

#include <gtest/gtest.h>

#include "unit/binding/support/endpoint_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;
using namespace endpoint;

class Binding : public FreshMachine {
 protected:
  struct Outcome {
    std::int32_t status;
    std::string detail;
    friend bool operator==(const Outcome&, const Outcome&) = default;
    friend void PrintTo(const Outcome& outcome, std::ostream* out) {
      *out << std::hex << static_cast<std::uint32_t>(outcome.status) << " " << outcome.detail;
    }
  };
  static Outcome run(bool bind, std::string_view endpoint_id = id) {
    Outcome outcome{-1, "left over"};
    memory::system().log.clear();
    outcome.status = bind ? bind_endpoint_effect(endpoint_id, outcome.detail)
                          : unbind_endpoint_effect(endpoint_id, outcome.detail);
    return outcome;
  }
  static Outcome bind(std::string_view endpoint_id = id) { return run(true, endpoint_id); }
  static Outcome unbind(std::string_view endpoint_id = id) { return run(false, endpoint_id); }
  static EndpointBindingState look(std::string_view endpoint_id = id) {
    EndpointBindingState state{true, true, {"left over"}, 77};
    const std::int32_t status = inspect_endpoint_binding(endpoint_id, state);
    EXPECT_EQ(status, state.error_code);
    return state;
  }
  static bool is_bound() {
    const bool bound = look().bound;
    EXPECT_EQ(endpoint_is_bound(id), bound);
    return bound;
  }
};

struct Row {
  std::string before;
  std::string detail;
  std::string after;
};

TEST_F(Binding, PutsTheEffectIntoTheChain) {
  const Row rows[] = {
      // The chain lacks the effect; the slot is empty or names the effect itself.
      {"lists x", bound, "chain A, lists x"},
      {"chain F, lists x", bound, "chain F A, lists x"},
      {"chain F, slot A, lists x", bound, "chain F A, slot A, lists x"},
      {"chain F", bound_with_list, "chain F A, lists ours, added 1"},
      {"chain F, modes x", bound_with_list, "chain F A, modes x, offload ours, added 1"},
      {"chain F, offload", bound_with_list, "chain F A, modes ours, offload, added 1"},
      {"chain F, lists ours, added 1, moved M", bound, "chain F A, lists ours, added 1, moved M"},
      {"chain F, modes x, offload ours, added 1", bound_with_list, "chain F A, lists ours, added 1"},
      // A slot of another type, or without text, is empty.
      {"chain F, slot dword:1, lists x", bound, "chain F A, slot dword:1, lists x"},
      {"chain F, slot qword:1, lists x", bound, "chain F A, slot qword:1, lists x"},
      {"chain F, slot sz:, lists x", bound, "chain F A, slot sz:, lists x"},
      {"chain F, slot expand:, lists x", bound, "chain F A, slot expand:, lists x"},
      {"chain F, slot multi:, lists x", bound, "chain F A, slot multi:, lists x"},
      // A list of another type is skipped.
      {"chain F, modes sz:x, offload dword:1", bound, "chain F A, modes sz:x, offload dword:1"},
      {"chain F, modes sz:x, offload dword:1, added 1", bound,
       "chain F A, modes sz:x, offload dword:1, added 1"},
      // The slot holds another effect.
      {"chain F, slot L, lists x", bound_with_move, "chain F L A, lists x, moved L"},
      {"chain F, slot L", bound_with_move, "chain F L A, lists ours, added 1, moved L"},
      {"chain L F, slot l, lists x", bound_with_move, "chain L F A, lists x, moved l"},
      {"slot expand:L, lists x", bound_with_move, "chain L A, lists x, moved L"},
      {"slot multi:L, lists x", bound_with_move, "chain L A, lists x, moved L"},
      {"slot multi:L F, lists x", bound_with_move, "chain L A, lists x, moved L"},
      // The effect's own id in lower case counts as another effect.
      {"chain F, slot a, lists x", bound_with_move, "chain F a, lists x, moved a"},
      {"chain F A, slot a, lists x", bound_with_move, "chain F A, lists x, moved a"},
      // The chain has the effect, and the slot another one.
      {"chain A F, slot L, lists x", bound_with_move, "chain A F L, lists x, moved L"},
      {"chain L A, slot L, lists x", bound_with_move, "chain L A, lists x, moved L"},
      {"chain L A, slot L", bound_with_move, "chain L A, lists ours, added 1, moved L"},
      {"chain L A, slot F, lists x, moved L", bound_with_move, "chain L A F, lists x, moved F"},
      // The chain has the effect, and there is nothing to move.
      {"chain F A", list_refreshed, "chain F A, lists ours, added 1"},
      {"chain F A, slot A, offload x", list_refreshed, "chain F A, slot A, modes ours, offload x, added 1"},
      {"chain F A, modes ours, offload, added 1, moved M", list_refreshed,
       "chain F A, lists ours, added 1, moved M"},
      // The record covers both lists: the driver's list now counts as the product's own.
      {"chain F A, modes x, offload ours, added 1", list_refreshed, "chain F A, lists ours, added 1"},
      {"chain A, lists, added 1", list_refreshed, "chain A, lists ours, added 1"},
      {"chain A, lists", was_bound, "chain A, lists"},
      {"chain A, lists, added 0", was_bound, "chain A, lists, added 0"},
      {"chain A, lists, added 2", was_bound, "chain A, lists, added 2"},
      {"chain A, lists, added sz:1", was_bound, "chain A, lists, added sz:1"},
      {"chain A, lists, added qword:1", was_bound, "chain A, lists, added qword:1"},
      {"chain F A, modes sz:x, offload dword:1", was_bound, "chain F A, modes sz:x, offload dword:1"},
      {"chain F A, lists x", was_bound, "chain F A, lists x"},
      {"chain F a, lists x", was_bound, "chain F a, lists x"},
      {"chain A, slot A, lists ours, added 1, moved M", was_bound,
       "chain A, slot A, lists ours, added 1, moved M"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.before);
    set_up(row.before);
    EXPECT_EQ(bind(), (Outcome{0, row.detail}));
    EXPECT_EQ(present_lines(), expected_lines(row.before, row.after));
    EXPECT_TRUE(is_bound());
  }
}

TEST_F(Binding, TakesTheEffectOutOfTheChain) {
  const Row rows[] = {
      {"chain F M A, modes ours, offload x, added 1, moved M", unbound_with_restore, "chain F, slot M"},
      {"chain A M, slot L, modes ours, moved M", unbound_with_restore, "slot M, modes ours"},
      {"chain F A, moved M", unbound_with_restore, "chain F, slot M"},
      {"chain F M, moved M", unbound_with_restore, "chain F, slot M"},
      {"chain F A, lists x, moved a", unbound_with_restore, "chain F, slot a, lists x"},
      {"chain L A, lists x, moved L", unbound_with_restore, "slot L, lists x"},
      {"chain a, added 1, moved M", unbound_with_restore, "slot M"},
      {"chain L A F, lists x, moved F", unbound_with_restore, "chain L, slot F, lists x"},
      {"chain F, slot dword:3, modes x, added 1, moved M", unbound_with_restore, "chain F, slot M"},
      {"chain F A, slot L, lists ours", unbound, "chain F, slot L, lists ours"},
      {"chain F A, modes sz:x, offload dword:1, added 1", unbound, "chain F"},
      {"chain F A, modes ours, offload x, added 1", unbound, "chain F"},
      {"chain A, added 2", unbound, ""},
      {"chain A, lists x", unbound, "lists x"},
      {"chain A F a f A", unbound, "chain F f"},
      {"chain F a, lists x", unbound, "chain F, lists x"},
      {"chain F A, slot A, lists x", unbound, "chain F, slot A, lists x"},
      // A moved effect that no record names stays in the chain.
      {"chain F L A, lists x, record", unbound, "chain F L, lists x"},
      {"chain F A M, moved", unbound, "chain F M"},
      {"chain F A M, moved dword:1", unbound, "chain F M"},
      {"chain F A M, moved multi:M", unbound, "chain F M"},
      // A record of another form claims no lists.
      {"chain F A, lists ours, added 0", unbound, "chain F, lists ours"},
      {"chain F A, lists ours, added 2", unbound, "chain F, lists ours"},
      {"chain F A, lists ours, added sz:1", unbound, "chain F, lists ours"},
      {"", was_not_bound, ""},
      {"chain F, slot L, modes ours, offload x", was_not_bound, "chain F, slot L, modes ours, offload x"},
      {"chain F, slot L, lists ours, added 1", was_not_bound, "chain F, slot L, lists ours, added 1"},
      {"chain F, slot A, record", was_not_bound, "chain F, slot A, record"},
      {"chain F, moved", was_not_bound, "chain F, moved"},
      {"chain F, moved dword:1", was_not_bound, "chain F, moved dword:1"},
      {"chain F, moved multi:M", was_not_bound, "chain F, moved multi:M"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.before);
    set_up(row.before);
    EXPECT_EQ(unbind(), (Outcome{0, row.detail}));
    EXPECT_EQ(present_lines(), expected_lines(row.before, row.after));
    EXPECT_FALSE(is_bound());
  }
}

// Another program changes the chain just before it is read back ("-": removes it).
TEST_F(Binding, ChecksTheChainThatItReadsBack) {
  const struct {
    bool bind;
    std::string before;
    std::string chain;
    Outcome outcome;
    std::string after;
  } rows[] = {
      {true, "chain F, slot L", "F L", {failed, not_kept}, "chain F L, slot L, lists ours"},
      {true, "chain F, slot L", "-", {failed, not_kept}, "slot L, lists ours"},
      {true, "chain F, lists x", "sz:A", {wrong_type, not_read_back}, "chain sz:A, lists x"},
      // The moved effect is gone from the chain, so the slot keeps it; in another case it is still there.
      {true, "chain F, slot L, lists x", "a F", {0, bound}, "chain a F, slot L, lists x"},
      {true,
       "chain F, slot L, offload x",
       "a F",
       {0, bound_with_list},
       "chain a F, slot L, modes ours, offload x, added 1"},
      {true, "chain F, slot L, lists x", "a l", {0, bound_with_move}, "chain a l, lists x, moved L"},
      {false,
       "chain M A, modes ours, added 1, moved M",
       "a",
       {failed, not_kept},
       "chain a, added 1, moved M"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.before + " | " + row.chain);
    set_up(row.before);
    before_call("query chain", 3, [&] { put_fx(chain_name, value_from_words(row.chain, "multi")); });
    EXPECT_EQ(run(row.bind), row.outcome);
    EXPECT_EQ(present_lines(), expected_lines(row.before, row.after));
    EXPECT_TRUE(memory::system().state.open_keys.empty());
  }
}

TEST_F(Binding, NamesTheEffectAsWindowsWritesClassIds) {
  EXPECT_EQ(effect_clsid_text(), class_a);
  memory::system().faults["StringFromGUID2"] = {1};
  EXPECT_EQ(effect_clsid_text(), "");
}

// All broken forms are in chain_test.cpp.
TEST_F(Binding, OpensNothingForAnIdWithoutAGuid) {
  set_up("chain A");
  for (const std::string& text : {""s, "{0.0.0.00000000}.{not-a-guid}"s, std::string(guid).substr(1)}) {
    EXPECT_EQ(bind(text), (Outcome{invalid_argument, no_identifier}));
    EXPECT_EQ(unbind(text), (Outcome{invalid_argument, no_identifier}));
    const EndpointBindingState state = look(text);
    EXPECT_EQ(state.error_code, invalid_argument);
    EXPECT_FALSE(state.fx_key_present);
    EXPECT_FALSE(state.bound);
    EXPECT_TRUE(state.chain.empty());
    EXPECT_TRUE(calls().empty());
  }
  EXPECT_EQ(present_lines(), lines_of("chain A"));
}

TEST_F(Binding, ReportsMissingAndRefusedKeysAlike) {
  const std::string missing = "{12345678-3407-471a-aa45-bcd41f1bb5f6}";
  set_up("chain A");
  const auto before = present_lines();
  EXPECT_EQ(bind(missing), (Outcome{from_win32(2), not_opened}));
  EXPECT_EQ(unbind(missing), (Outcome{from_win32(2), not_opened}));
  EXPECT_EQ(look(missing).error_code, from_win32(2));
  EXPECT_EQ(present_lines(), before);

  grant_access(fx_path(), 0x20019);
  EXPECT_EQ(bind(), (Outcome{from_win32(5), not_opened}));
  EXPECT_EQ(unbind(), (Outcome{from_win32(5), not_opened}));
  EXPECT_TRUE(is_bound());
}

TEST_F(Binding, RequestsWriteAccessOnlyForChanges) {
  set_up("chain F");
  std::vector<std::uint32_t> accesses;
  memory::system().before_machine_call = [&](const std::string& entry) {
    if (entry != "RegCloseKey HKEY_LOCAL_MACHINE\\" + fx_path()) return;
    for (const auto& [number, key] : memory::system().state.open_keys) accesses.push_back(key.access);
  };
  bind();
  unbind();
  look();
  EXPECT_EQ(accesses, (std::vector<std::uint32_t>{3, 3, 1}));
}

TEST_F(Binding, NeverOverwritesAChainOfAnotherType) {
  for (const std::string chain : {"sz:A", "expand:A", "dword:1", "sz:"}) {
    const std::string before = "chain " + chain + ", slot L, added 1, moved M";
    set_up(before);
    EXPECT_EQ(bind(), (Outcome{wrong_type, not_read}));
    EXPECT_EQ(unbind(), (Outcome{wrong_type, not_read}));
    const EndpointBindingState state = look();
    EXPECT_EQ(state.error_code, wrong_type);
    EXPECT_TRUE(state.fx_key_present);
    EXPECT_FALSE(state.bound);
    EXPECT_TRUE(state.chain.empty());
    EXPECT_EQ(present_lines(), lines_of(before));
  }
}

TEST_F(Binding, RestoresAnEffectOfUpTo127Characters) {
  for (const std::size_t length : {127u, 128u}) {
    const std::string text(length, 'x');
    const std::string after_bind = "chain " + text + " A, lists x, moved " + text;
    set_up("slot " + text + ", lists x");
    EXPECT_EQ(bind(), (Outcome{0, bound_with_move}));
    EXPECT_EQ(present_lines(), lines_of(after_bind));
    EXPECT_EQ(unbind(), (Outcome{0, length == 127 ? unbound_with_restore : unbound}));
    EXPECT_EQ(present_lines(),
              expected_lines(after_bind, (length == 127 ? "slot " : "chain ") + text + ", lists x"));
  }
}

TEST_F(Binding, ReachesTheSameRecordWithAndWithoutThePrefixOfTheId) {
  set_up("chain F, slot L");
  EXPECT_EQ(bind(id), (Outcome{0, bound_with_move}));
  EXPECT_EQ(unbind(guid), (Outcome{0, unbound_with_restore}));
  EXPECT_EQ(present_lines(), expected_lines("moved L", "chain F, slot L"));
}

TEST_F(Binding, KeepsTheCaseOfTheIdInKeyAndRecord) {
  const std::string upper = "{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}";
  set_up("chain F");
  EXPECT_EQ(bind("{0.0.0.00000000}." + upper), (Outcome{0, bound_with_list}));
  EXPECT_EQ(memory::system().log.front(), "RegOpenKeyExW " + fx_path(upper));
  EXPECT_EQ(calls_of("RegGetValueW " + record_path(upper) + " AddedModeList"), 1);
  const auto& records = key_at(memory::system().state.registry, records_path());
  ASSERT_EQ(records.keys.size(), 1u);
  EXPECT_EQ(records.keys.front().name, widen(upper));
}

TEST_F(Binding, CannotBindWithoutTheEffectsOwnId) {
  memory::system().faults["StringFromGUID2"] = {1, 1, 1, 1, 1};
  set_up("lists x");
  EXPECT_EQ(bind(), (Outcome{failed, not_kept}));
  EXPECT_EQ(present_lines(), lines_of("chain '', lists x"));
  // The slot's own text is another effect then.
  set_up("slot A, lists x");
  EXPECT_EQ(bind(), (Outcome{failed, not_kept}));
  EXPECT_EQ(present_lines(), lines_of("chain A '', slot A, lists x"));
  set_up("chain A");
  EXPECT_EQ(unbind(), (Outcome{0, was_not_bound}));
  EXPECT_FALSE(is_bound());
  EXPECT_EQ(present_lines(), lines_of("chain A"));
}

TEST_F(Binding, RewritesEntriesThatAreNotAsciiWithQuestionMarks) {
  set_up("lists x");
  put_fx(chain_name, Value{type_multi_sz, unit_bytes(u"a\xE9\0\x20AC\0\0"s)});
  EXPECT_EQ(look().chain, (Chain{"a?", "?"}));
  EXPECT_EQ(bind(), (Outcome{0, bound}));
  EXPECT_EQ(present_lines(), lines_of("chain a? ? A, lists x"));
}

TEST_F(Binding, LeavesEveryByteOfAChainThatNeedsNoChange) {
  const std::string odd = unit_bytes(u"\xE9\0"s) + text_bytes(class_a) + std::string(6, '\0') + "tail!";
  set_up("lists x");
  put_fx(chain_name, Value{type_multi_sz, odd});
  const auto before = present_lines();
  EXPECT_EQ(bind(), (Outcome{0, was_bound}));
  EXPECT_EQ(present_lines(), before);
}

TEST_F(Binding, InspectsOnlyTheChain) {
  const struct {
    std::string stored;
    std::string chain;
    bool bound;
  } rows[] = {{"", "", false},
              {"chain", "", false},
              {"chain F", "F", false},
              {"chain F, slot A, added 1, moved A", "F", false},
              {"chain F A l", "F A l", true},
              {"chain a", "a", true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.stored);
    set_up(row.stored);
    const EndpointBindingState state = look();
    EXPECT_TRUE(state.fx_key_present);
    EXPECT_EQ(state.error_code, 0);
    EXPECT_EQ(state.chain, spell(row.chain));
    EXPECT_EQ(state.bound, row.bound);
    EXPECT_EQ(present_lines(), lines_of(row.stored));
  }
}

}  // namespace
}  // namespace velmora
