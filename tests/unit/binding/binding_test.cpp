// One file because every road is told on the same machine in the same words: first the tables of what a bind
// and an unbind do to any endpoint, then each case that the tables do not show.
#include "binding/binding.h"

#include <gtest/gtest.h>

#include <functional>

#include "unit/binding/support/endpoint_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;
using namespace endpoint;

constexpr char opening[] = "open fx, query chain x2, class id";

class Binding : public FreshMachine {
 protected:
  struct Told {
    std::int32_t status;
    std::string detail;
    friend bool operator==(const Told&, const Told&) = default;
    friend void PrintTo(const Told& told, std::ostream* out) {
      *out << std::hex << static_cast<std::uint32_t>(told.status) << " " << told.detail;
    }
  };
  static Told bind(std::string_view endpoint_id = id) {
    Told told{-1, "left over"};
    memory::system().log.clear();
    told.status = bind_endpoint_effect(endpoint_id, told.detail);
    return told;
  }
  static Told unbind(std::string_view endpoint_id = id) {
    Told told{-1, "left over"};
    memory::system().log.clear();
    told.status = unbind_endpoint_effect(endpoint_id, told.detail);
    return told;
  }
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
  // Does something once, right before the so-manieth call of this short name.
  static void before_call(const std::string& name, int number, std::function<void()> act) {
    memory::system().before_machine_call = [name, number, act = std::move(act)](const std::string&) {
      const std::vector<std::string> so_far = calls();
      if (so_far.back() == name && std::count(so_far.begin(), so_far.end(), name) == number) act();
    };
  }
  static void put_fx(std::string_view name, const std::optional<Value>& value) {
    hosted::TreeKey& key = key_at(memory::system().state.registry, fx_path());
    if (value) put(key, name, value);
    if (!value) hosted::remove_value(key, widen(name));
  }
};

struct Row {
  Words before;
  std::string detail;
  Words after;
  std::string calls;
};

TEST_F(Binding, PutsTheEffectIntoTheChain) {
  const std::string lists_stay = "get added, query modes x2, query offload x2";
  const std::string lists_added = "get added, query modes, set modes, query offload, set offload";
  const std::string record = ", create record, set added, close record";
  const std::string move = "query chain x2, create record, set moved, close record, delete slot, close fx";
  const Row rows[] = {
      // The chain lacks the effect; the slot is empty or names the effect itself.
      {{.chain = "F", .modes = "x", .offload = "x"},
       bound,
       {.chain = "F A", .modes = "x", .offload = "x"},
       "query slot, set chain, " + lists_stay + ", query chain x2, close fx"},
      {{.chain = "F", .slot = "A", .modes = "x", .offload = "x"},
       bound,
       {.chain = "F A", .slot = "A", .modes = "x", .offload = "x"},
       "query slot x2, set chain, " + lists_stay + ", query chain x2, close fx"},
      {{.chain = "F"},
       bound_with_list,
       {.chain = "F A", .modes = "ours", .offload = "ours", .added = "1"},
       "query slot, set chain, " + lists_added + ", query chain x2, close fx" + record},
      {{.chain = "F", .modes = "x"},
       bound_with_list,
       {.chain = "F A", .modes = "x", .offload = "ours", .added = "1"},
       "query slot, set chain, get added, query modes x2, query offload, set offload, query chain x2, close "
       "fx" +
           record},
      {{.chain = "F", .offload = ""},
       bound_with_list,
       {.chain = "F A", .modes = "ours", .offload = "", .added = "1"},
       "query slot, set chain, get added, query modes, set modes, query offload x2, query chain x2, close "
       "fx" +
           record},
      {{.chain = "F", .modes = "ours", .offload = "ours", .added = "1", .moved = "M"},
       bound,
       {.chain = "F A", .modes = "ours", .offload = "ours", .added = "1", .moved = "M"},
       "query slot, set chain, " + lists_stay + ", query chain x2, close fx"},
      {{.chain = "F", .modes = "x", .offload = "ours", .added = "1"},
       bound_with_list,
       {.chain = "F A", .modes = "ours", .offload = "ours", .added = "1"},
       "query slot, set chain, get added, query modes x2, set modes, query offload x2, query chain x2, close "
       "fx" +
           record},
      // The slot holds another effect.
      {{.chain = "F", .slot = "L", .modes = "x", .offload = "x"},
       bound_with_move,
       {.chain = "F L A", .modes = "x", .offload = "x", .moved = "L"},
       "query slot x2, set chain, " + lists_stay + ", " + move},
      {{.chain = "F", .slot = "L"},
       bound_with_move,
       {.chain = "F L A", .modes = "ours", .offload = "ours", .added = "1", .moved = "L"},
       "query slot x2, set chain, " + lists_added + ", " + move + record},
      {{.chain = "L F", .slot = "l", .modes = "x", .offload = "x"},
       bound_with_move,
       {.chain = "L F A", .modes = "x", .offload = "x", .moved = "l"},
       "query slot x2, set chain, " + lists_stay + ", " + move},
      // The chain has the effect, and the slot another one.
      {{.chain = "A F", .slot = "L", .modes = "x", .offload = "x"},
       bound_with_move,
       {.chain = "A F L", .modes = "x", .offload = "x", .moved = "L"},
       "query slot x2, set chain, " + lists_stay + ", " + move},
      {{.chain = "L A", .slot = "L", .modes = "x", .offload = "x"},
       bound_with_move,
       {.chain = "L A", .modes = "x", .offload = "x", .moved = "L"},
       "query slot x2, " + lists_stay + ", " + move},
      {{.chain = "L A", .slot = "L"},
       bound_with_move,
       {.chain = "L A", .modes = "ours", .offload = "ours", .added = "1", .moved = "L"},
       "query slot x2, " + lists_added + ", " + move + record},
      // The chain has the effect, and there is nothing to move.
      {{.chain = "F A"},
       list_refreshed,
       {.chain = "F A", .modes = "ours", .offload = "ours", .added = "1"},
       "query slot, " + lists_added + record + ", close fx"},
      {{.chain = "F A", .slot = "A", .offload = "x"},
       list_refreshed,
       {.chain = "F A", .slot = "A", .modes = "ours", .offload = "x", .added = "1"},
       "query slot x2, get added, query modes, set modes, query offload x2" + record + ", close fx"},
      {{.chain = "F A", .modes = "ours", .offload = "", .added = "1", .moved = "M"},
       list_refreshed,
       {.chain = "F A", .modes = "ours", .offload = "ours", .added = "1", .moved = "M"},
       "query slot, get added, query modes x2, query offload x2, set offload" + record + ", close fx"},
      {{.chain = "F A", .modes = "x", .offload = "x"},
       was_bound,
       {.chain = "F A", .modes = "x", .offload = "x"},
       "query slot, " + lists_stay + ", close fx"},
      {{.chain = "A", .slot = "A", .modes = "ours", .offload = "ours", .added = "1", .moved = "M"},
       was_bound,
       {.chain = "A", .slot = "A", .modes = "ours", .offload = "ours", .added = "1", .moved = "M"},
       "query slot x2, " + lists_stay + ", close fx"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("chain \"" + row.before.chain + "\", slot \"" + row.before.slot + "\", modes \"" +
                 row.before.modes + "\", offload \"" + row.before.offload + "\"");
    set_up(row.before);
    EXPECT_EQ(bind(), (Told{0, row.detail}));
    EXPECT_EQ(calls(), call_list(std::string(opening) + ", " + row.calls));
    EXPECT_EQ(present_lines(), expected_lines(row.before, row.after));
    EXPECT_TRUE(is_bound());
  }
}

TEST_F(Binding, TakesTheEffectOutOfTheChain) {
  const std::string record_goes = ", close fx, open records, delete record, close records";
  const std::string lists_go = "get added, delete modes, delete offload, ";
  const Row rows[] = {
      {{.chain = "F M A", .modes = "ours", .offload = "x", .added = "1", .moved = "M"},
       unbound_with_restore,
       {.chain = "F", .slot = "M"},
       "get moved, set chain, " + lists_go + "query chain x2, set slot" + record_goes},
      {{.chain = "A M", .slot = "L", .modes = "ours", .moved = "M"},
       unbound_with_restore,
       {.slot = "M", .modes = "ours"},
       "get moved, delete chain, get added, query chain, set slot" + record_goes},
      {{.chain = "F A", .moved = "M"},
       unbound_with_restore,
       {.chain = "F", .slot = "M"},
       "get moved, set chain, get added, query chain x2, set slot" + record_goes},
      {{.chain = "F M", .moved = "M"},
       unbound_with_restore,
       {.chain = "F", .slot = "M"},
       "get moved, set chain, get added, query chain x2, set slot" + record_goes},
      {{.chain = "F", .slot = "dword:3", .modes = "x", .added = "1", .moved = "M"},
       unbound_with_restore,
       {.chain = "F", .slot = "M"},
       "get moved, " + lists_go + "query chain x2, set slot" + record_goes},
      {{.chain = "F A", .slot = "L", .modes = "ours", .offload = "ours"},
       unbound,
       {.chain = "F", .slot = "L", .modes = "ours", .offload = "ours"},
       "get moved, set chain, get added, query chain x2, close fx, open records"},
      {{.chain = "F A", .modes = "ours", .offload = "dword:1", .added = "1"},
       unbound,
       {.chain = "F"},
       "get moved, set chain, " + lists_go + "query chain x2" + record_goes},
      {{.chain = "A", .added = "2"},
       unbound,
       {},
       "get moved, delete chain, get added, query chain" + record_goes},
      {{.chain = "A F a f A"},
       unbound,
       {.chain = "F f"},
       "get moved, set chain, get added, query chain x2, close fx, open records"},
      {{.chain = "F", .slot = "L", .modes = "ours", .offload = "ours", .added = "1"},
       was_not_bound,
       {.chain = "F", .slot = "L", .modes = "ours", .offload = "ours", .added = "1"},
       "get moved, close fx"},
      {{.chain = "F", .slot = "A", .empty_record = true},
       was_not_bound,
       {.chain = "F", .slot = "A", .empty_record = true},
       "get moved, close fx"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("chain \"" + row.before.chain + "\", slot \"" + row.before.slot + "\", record \"" +
                 row.before.added + " " + row.before.moved + "\"");
    set_up(row.before);
    EXPECT_EQ(unbind(), (Told{0, row.detail}));
    EXPECT_EQ(calls(), call_list(std::string(opening) + ", " + row.calls));
    EXPECT_EQ(present_lines(), expected_lines(row.before, row.after));
    EXPECT_FALSE(is_bound());
  }
}

TEST_F(Binding, NamesTheEffectAsWindowsWritesClassIds) {
  EXPECT_EQ(effect_clsid_text(), class_a);
  memory::system().faults["StringFromGUID2"] = {1};
  EXPECT_EQ(effect_clsid_text(), "");
}

TEST_F(Binding, OpensNothingForAnIdWithoutAGuid) {
  set_up(Words{.chain = "A"});
  const std::string good = guid;
  for (const std::string& text :
       {""s, "x"s, "{"s, ".{"s, "{0.0.0.00000000}.{not-a-guid}"s, good.substr(1), good + "0", good + " ",
        good + "\0"s, "{0.0.0.00000000}." + good + ".{", "\xC3\x28." + good.substr(1),
        std::string(65536, '{'), good.substr(0, 9) + "0" + good.substr(10), good.substr(0, 36) + "g}"}) {
    SCOPED_TRACE(::testing::PrintToString(text.substr(0, 80)));
    EXPECT_EQ(bind(text), (Told{invalid_argument, no_identifier}));
    EXPECT_EQ(unbind(text), (Told{invalid_argument, no_identifier}));
    const EndpointBindingState state = look(text);
    EXPECT_EQ(state.error_code, invalid_argument);
    EXPECT_FALSE(state.fx_key_present);
    EXPECT_FALSE(state.bound);
    EXPECT_TRUE(state.chain.empty());
    EXPECT_EQ(calls(), call_list(""));
  }
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "A"})));
}

TEST_F(Binding, TellsAMissingKeyAndARefusedOneAlikeAndMakesNone) {
  const std::string missing = "{12345678-3407-471a-aa45-bcd41f1bb5f6}";
  set_up(Words{.chain = "A"});
  const auto before = present_lines();
  EXPECT_EQ(bind(missing), (Told{from_win32(2), not_opened}));
  EXPECT_EQ(unbind(missing), (Told{from_win32(2), not_opened}));
  EXPECT_EQ(look(missing).error_code, from_win32(2));
  EXPECT_EQ(present_lines(), before);

  // Reading alone is granted.
  put(key_at(memory::system().state.registry, "SOFTWARE\\VelmoraStandIn\\Access"), fx_path(),
      Value{type_dword, number_bytes(0x20019, 4)});
  EXPECT_EQ(bind(), (Told{from_win32(5), not_opened}));
  EXPECT_EQ(unbind(), (Told{from_win32(5), not_opened}));
  EXPECT_EQ(calls(), call_list("open fx"));
  EXPECT_TRUE(is_bound());
}

TEST_F(Binding, AsksForQueryAndSetToChangeAndForQueryToLook) {
  set_up(Words{.chain = "F"});
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

TEST_F(Binding, CountsTheEffectInLowerCaseAsBound) {
  const Words before{.chain = "F a", .modes = "x", .offload = "x"};
  set_up(before);
  EXPECT_TRUE(is_bound());
  EXPECT_EQ(bind(), (Told{0, was_bound}));
  EXPECT_EQ(present_lines(), lines_of(stored(before)));
  EXPECT_EQ(unbind(), (Told{0, unbound}));
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "F", .modes = "x", .offload = "x"})));
}

TEST_F(Binding, MovesItsOwnIdInLowerCaseOutOfTheSlotAndAddsItOnce) {
  set_up(Words{.chain = "F A", .slot = "a", .modes = "x", .offload = "x"});
  EXPECT_EQ(bind(), (Told{0, bound_with_move}));
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "F A", .modes = "x", .offload = "x", .moved = "a"})));
  EXPECT_EQ(unbind(), (Told{0, unbound_with_restore}));
  EXPECT_EQ(present_lines(),
            expected_lines({.moved = "a"}, {.chain = "F", .slot = "a", .modes = "x", .offload = "x"}));

  set_up(Words{.chain = "F", .slot = "a", .modes = "x", .offload = "x"});
  EXPECT_EQ(bind(), (Told{0, bound_with_move}));
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "F a", .modes = "x", .offload = "x", .moved = "a"})));
}

TEST_F(Binding, LeavesASlotThatHoldsExactlyTheEffect) {
  set_up(Words{.chain = "F", .slot = "A", .modes = "x", .offload = "x"});
  EXPECT_EQ(bind(), (Told{0, bound}));
  EXPECT_EQ(unbind(), (Told{0, unbound}));
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "F", .slot = "A", .modes = "x", .offload = "x"})));
  EXPECT_FALSE(is_bound());
}

TEST_F(Binding, MakesTheChainWhereThereIsNoneAndRemovesItWithItsOnlyEntry) {
  set_up(Words{.modes = "x", .offload = "x"});
  EXPECT_EQ(bind(), (Told{0, bound}));
  EXPECT_EQ(calls(),
            call_list("open fx, query chain, class id, query slot, set chain, get added, query modes x2, "
                      "query offload x2, query chain x2, close fx"));
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "A", .modes = "x", .offload = "x"})));
  EXPECT_EQ(unbind(), (Told{0, unbound}));
  EXPECT_EQ(present_lines(), lines_of(stored({.modes = "x", .offload = "x"})));
}

TEST_F(Binding, NeverOverwritesAChainOfAnotherType) {
  for (const std::string& chain : {"sz:A"s, "expand:A"s, "dword:1"s, "sz:"s}) {
    const Words before{.chain = chain, .slot = "L", .added = "1", .moved = "M"};
    set_up(before);
    EXPECT_EQ(bind(), (Told{wrong_type, not_read}));
    EXPECT_EQ(calls(), call_list("open fx, query chain, close fx"));
    EXPECT_EQ(unbind(), (Told{wrong_type, not_read}));
    const EndpointBindingState state = look();
    EXPECT_EQ(state.error_code, wrong_type);
    EXPECT_TRUE(state.fx_key_present);
    EXPECT_FALSE(state.bound);
    EXPECT_TRUE(state.chain.empty());
    EXPECT_EQ(present_lines(), lines_of(stored(before)));
  }
}

TEST_F(Binding, TakesASlotOfAnotherTypeOrWithoutTextForEmpty) {
  for (const std::string& slot : {"dword:1"s, "qword:1"s, "sz:"s, "expand:"s, "multi:"s}) {
    set_up(Words{.chain = "F", .slot = slot, .modes = "x", .offload = "x"});
    EXPECT_EQ(bind(), (Told{0, bound})) << slot;
    EXPECT_EQ(present_lines(),
              lines_of(stored({.chain = "F A", .slot = slot, .modes = "x", .offload = "x"})));
  }
}

TEST_F(Binding, MovesTheFirstTextOfASlotOfAnyTextTypeAndRestoresItAsAPlainOne) {
  for (const std::string& slot : {"L"s, "expand:L"s, "multi:L"s, "multi:L F"s}) {
    set_up(Words{.slot = slot, .modes = "x", .offload = "x"});
    EXPECT_EQ(bind(), (Told{0, bound_with_move})) << slot;
    EXPECT_EQ(present_lines(),
              lines_of(stored({.chain = "L A", .modes = "x", .offload = "x", .moved = "L"})));
    EXPECT_EQ(unbind(), (Told{0, unbound_with_restore}));
    EXPECT_EQ(present_lines(), expected_lines({.moved = "L"}, {.slot = "L", .modes = "x", .offload = "x"}));
  }
}

TEST_F(Binding, SkipsAModeListOfAnotherTypeInSilence) {
  for (const std::string& added : {"-"s, "1"s}) {
    set_up(Words{.chain = "F", .modes = "sz:x", .offload = "dword:1", .added = added});
    EXPECT_EQ(bind(), (Told{0, bound}));
    EXPECT_EQ(present_lines(),
              lines_of(stored({.chain = "F A", .modes = "sz:x", .offload = "dword:1", .added = added})));
    EXPECT_EQ(bind(), (Told{0, was_bound}));
  }
}

TEST_F(Binding, LeavesAnEmptyModeListUnlessItAddedTheLists) {
  for (const std::string& added : {"-"s, "0"s, "2"s, "sz:1"s, "qword:1"s}) {
    set_up(Words{.chain = "A", .modes = "", .offload = "", .added = added});
    EXPECT_EQ(bind(), (Told{0, was_bound})) << added;
    EXPECT_EQ(present_lines(), lines_of(stored({.chain = "A", .modes = "", .offload = "", .added = added})));
  }
  set_up(Words{.chain = "A", .modes = "", .offload = "", .added = "1"});
  EXPECT_EQ(bind(), (Told{0, list_refreshed}));
  EXPECT_EQ(present_lines(),
            lines_of(stored({.chain = "A", .modes = "ours", .offload = "ours", .added = "1"})));
}

TEST_F(Binding, LeavesTheListsToAnUnbindWhoseRecordIsOfAnotherForm) {
  for (const std::string& added : {"0"s, "2"s, "sz:1"s}) {
    set_up(Words{.chain = "F A", .modes = "ours", .offload = "ours", .added = added});
    EXPECT_EQ(unbind(), (Told{0, unbound})) << added;
    EXPECT_EQ(present_lines(),
              expected_lines({.added = added}, {.chain = "F", .modes = "ours", .offload = "ours"}));
  }
}

// The record speaks of both lists at once: having added one, the next bind takes the driver's for one of its
// own.
TEST_F(Binding, ClaimsTheOtherListWithTheOneThatItAdded) {
  set_up(Words{.chain = "F", .modes = "x"});
  EXPECT_EQ(bind(), (Told{0, bound_with_list}));
  EXPECT_EQ(present_lines(),
            lines_of(stored({.chain = "F A", .modes = "x", .offload = "ours", .added = "1"})));
  EXPECT_EQ(bind(), (Told{0, list_refreshed}));
  EXPECT_EQ(present_lines(),
            lines_of(stored({.chain = "F A", .modes = "ours", .offload = "ours", .added = "1"})));
  EXPECT_EQ(bind(), (Told{0, was_bound}));
}

TEST_F(Binding, RemovesTheListsThatItAddedWhateverBecameOfThem) {
  set_up(Words{.chain = "F"});
  EXPECT_EQ(bind(), (Told{0, bound_with_list}));
  put_fx(modes_name, Value{type_sz, text_bytes("changed")});
  put_fx(offload_name, Value{type_multi_sz, list_bytes({"changed"})});
  EXPECT_EQ(unbind(), (Told{0, unbound}));
  EXPECT_EQ(present_lines(), expected_lines({.added = "1"}, {.chain = "F"}));
}

TEST_F(Binding, EmptiesTheSlotEvenWhenTheRecordCannotBeWritten) {
  for (const std::string& operation : {"RegCreateKeyExW"s, "RegSetValueExW"s}) {
    set_up(Words{.chain = "F", .slot = "L", .modes = "x", .offload = "x"});
    memory::system().faults[operation] =
        operation == "RegCreateKeyExW" ? std::deque<std::int64_t>{5} : std::deque<std::int64_t>{0, 5};
    EXPECT_EQ(bind(), (Told{0, bound_with_move}));
    // Nobody remembers the moved effect now: it stays in the chain, and the slot stays empty.
    EXPECT_EQ(unbind(), (Told{0, unbound}));
    EXPECT_EQ(present_lines(), expected_lines({.empty_record = operation == "RegSetValueExW"},
                                              {.chain = "F L", .modes = "x", .offload = "x"}));
  }
}

TEST_F(Binding, TouchesNothingOnAnEndpointThatWasNeverBound) {
  for (const Words& before : {Words{}, Words{.chain = "F", .slot = "L", .modes = "ours", .offload = "x"}}) {
    set_up(before);
    EXPECT_EQ(unbind(), (Told{0, was_not_bound}));
    EXPECT_EQ(present_lines(), lines_of(stored(before)));
  }
}

TEST_F(Binding, ForgetsTheEarlierEffectWhenASecondOneIsMoved) {
  set_up(Words{.slot = "L", .modes = "x", .offload = "x"});
  EXPECT_EQ(bind(), (Told{0, bound_with_move}));
  put_fx(slot_name, Value{type_sz, text_bytes(class_f)});
  EXPECT_EQ(bind(), (Told{0, bound_with_move}));
  EXPECT_EQ(present_lines(),
            lines_of(stored({.chain = "L A F", .modes = "x", .offload = "x", .moved = "F"})));
  EXPECT_EQ(unbind(), (Told{0, unbound_with_restore}));
  EXPECT_EQ(present_lines(),
            expected_lines({.moved = "F"}, {.chain = "L", .slot = "F", .modes = "x", .offload = "x"}));
}

TEST_F(Binding, RestoresNoEffectFromAnEmptyOrTooLongRecord) {
  for (const std::string& moved : {""s, std::string(128, 'x'), "dword:1"s, "multi:M"s}) {
    set_up(Words{.chain = "F A M", .moved = moved});
    EXPECT_EQ(unbind(), (Told{0, unbound})) << moved;
    EXPECT_EQ(present_lines(), expected_lines({.moved = moved}, {.chain = "F M"}));
    set_up(Words{.chain = "F", .moved = moved});
    EXPECT_EQ(unbind(), (Told{0, was_not_bound}));
    EXPECT_EQ(present_lines(), lines_of(stored({.chain = "F", .moved = moved})));
  }
}

TEST_F(Binding, RestoresAnEffectOfUpTo127Characters) {
  for (const std::size_t length : {127u, 128u}) {
    const std::string text(length, 'x');
    set_up(Words{.slot = text, .modes = "x", .offload = "x"});
    EXPECT_EQ(bind(), (Told{0, bound_with_move}));
    EXPECT_EQ(present_lines(),
              lines_of(stored({.chain = text + " A", .modes = "x", .offload = "x", .moved = text})));
    EXPECT_EQ(unbind(), (Told{0, length == 127 ? unbound_with_restore : unbound}));
    EXPECT_EQ(present_lines(),
              length == 127 ? expected_lines({.moved = text}, {.slot = text, .modes = "x", .offload = "x"})
                            : expected_lines({.moved = text}, {.chain = text, .modes = "x", .offload = "x"}));
  }
}

TEST_F(Binding, ReachesTheSameRecordWithAndWithoutThePrefixOfTheId) {
  set_up(Words{.chain = "F", .slot = "L"});
  EXPECT_EQ(bind(id), (Told{0, bound_with_move}));
  EXPECT_EQ(unbind(guid), (Told{0, unbound_with_restore}));
  EXPECT_EQ(present_lines(), expected_lines({.moved = "L"}, {.chain = "F", .slot = "L"}));
}

TEST_F(Binding, NamesKeyAndRecordByTheCaseOfTheId) {
  const std::string upper = "{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}";
  set_up(Words{.chain = "F"});
  EXPECT_EQ(bind("{0.0.0.00000000}." + upper), (Told{0, bound_with_list}));
  const auto& log = memory::system().log;
  EXPECT_EQ(log.front(), "RegOpenKeyExW " + fx_path(upper));
  EXPECT_EQ(std::count(log.begin(), log.end(), "RegGetValueW " + record_path(upper) + " AddedModeList"), 1);
  EXPECT_EQ(std::count(log.begin(), log.end(), "RegCreateKeyExW " + record_path(upper)), 1);
  const auto* records =
      hosted::find_key(memory::system().state.registry, widen("HKEY_LOCAL_MACHINE\\" + records_path()));
  ASSERT_NE(records, nullptr);
  ASSERT_EQ(records->keys.size(), 1u);
  EXPECT_EQ(records->keys.front().name, widen(upper));
}

TEST_F(Binding, TellsThatTheChainDidNotKeepTheChange) {
  // Another program takes the entry out again, or puts it back, right before it is read back.
  const Words before{.chain = "F", .slot = "L"};
  set_up(before);
  before_call("query chain", 3, [] { put_fx(chain_name, Value{type_multi_sz, list_bytes(spell("F L"))}); });
  EXPECT_EQ(bind(), (Told{failed, not_kept}));
  EXPECT_EQ(present_lines(),
            lines_of(stored({.chain = "F L", .slot = "L", .modes = "ours", .offload = "ours"})));

  set_up(before);
  before_call("query chain", 3, [] { put_fx(chain_name, std::nullopt); });
  EXPECT_EQ(bind(), (Told{failed, not_kept}));
  EXPECT_EQ(present_lines(), lines_of(stored({.slot = "L", .modes = "ours", .offload = "ours"})));

  set_up(Words{.chain = "M A", .modes = "ours", .added = "1", .moved = "M"});
  before_call("query chain", 3, [] { put_fx(chain_name, Value{type_multi_sz, list_bytes(spell("a"))}); });
  EXPECT_EQ(unbind(), (Told{failed, not_kept}));
  EXPECT_EQ(calls().back(), "close fx");
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "a", .added = "1", .moved = "M"})));
  // The record is still there, so that the next unbind can do it all.
  memory::system().before_machine_call = nullptr;
  EXPECT_EQ(unbind(), (Told{0, unbound_with_restore}));
  EXPECT_EQ(present_lines(), expected_lines({.moved = "M"}, {.slot = "M"}));
}

TEST_F(Binding, TellsThatAChainOfAnotherTypeCouldNotBeReadBack) {
  set_up(Words{.chain = "F", .modes = "x", .offload = "x"});
  before_call("query chain", 3, [] { put_fx(chain_name, Value{type_sz, text_bytes(class_a)}); });
  EXPECT_EQ(bind(), (Told{wrong_type, not_read_back}));
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "sz:A", .modes = "x", .offload = "x"})));
}

TEST_F(Binding, LeavesTheSlotWhereTheMovedEffectIsNotInTheChainWhenItIsReadBack) {
  for (const std::string& modes : {"x"s, "-"s}) {
    set_up(Words{.chain = "F", .slot = "L", .modes = modes, .offload = "x"});
    before_call("query chain", 3, [] { put_fx(chain_name, Value{type_multi_sz, list_bytes(spell("a F"))}); });
    EXPECT_EQ(bind(), (Told{0, modes == "x" ? bound : bound_with_list}));
    EXPECT_EQ(present_lines(), lines_of(stored({.chain = "a F",
                                                .slot = "L",
                                                .modes = modes == "x" ? "x" : "ours",
                                                .offload = "x",
                                                .added = modes == "x" ? "-" : "1"})));
  }
  // In another case it is there.
  set_up(Words{.chain = "F", .slot = "L", .modes = "x", .offload = "x"});
  before_call("query chain", 3, [] { put_fx(chain_name, Value{type_multi_sz, list_bytes(spell("a l"))}); });
  EXPECT_EQ(bind(), (Told{0, bound_with_move}));
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "a l", .modes = "x", .offload = "x", .moved = "L"})));
}

TEST_F(Binding, CannotDoWithoutTheEffectsOwnId) {
  memory::system().faults["StringFromGUID2"] = {1, 1, 1, 1, 1};
  set_up(Words{.modes = "x", .offload = "x"});
  EXPECT_EQ(bind(), (Told{failed, not_kept}));
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "''", .modes = "x", .offload = "x"})));
  // The slot's own text is another effect then.
  set_up(Words{.slot = "A", .modes = "x", .offload = "x"});
  EXPECT_EQ(bind(), (Told{failed, not_kept}));
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "A ''", .slot = "A", .modes = "x", .offload = "x"})));
  set_up(Words{.chain = "A"});
  EXPECT_EQ(unbind(), (Told{0, was_not_bound}));
  EXPECT_FALSE(is_bound());
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "A"})));
}

TEST_F(Binding, RewritesEntriesThatAreNotAsciiWithQuestionMarks) {
  set_up(Words{.modes = "x", .offload = "x"});
  put_fx(chain_name, Value{type_multi_sz, unit_bytes(u"a\xE9\0\x20AC\0\0"s)});
  EXPECT_EQ(look().chain, (Chain{"a?", "?"}));
  EXPECT_EQ(bind(), (Told{0, bound}));
  EXPECT_EQ(present_lines(), lines_of(stored({.chain = "a? ? A", .modes = "x", .offload = "x"})));
}

TEST_F(Binding, LeavesAChainThatNeedsNoChangeByteByByte) {
  const std::string odd = unit_bytes(u"\xE9\0"s) + text_bytes(class_a) + std::string(6, '\0') + "tail!";
  set_up(Words{.modes = "x", .offload = "x"});
  put_fx(chain_name, Value{type_multi_sz, odd});
  const auto before = present_lines();
  EXPECT_EQ(bind(), (Told{0, was_bound}));
  EXPECT_EQ(present_lines(), before);
}

TEST_F(Binding, LooksAtTheChainAlone) {
  const struct {
    Words words;
    std::string chain;
    bool bound;
    std::string calls;
  } rows[] = {
      {{}, "", false, "open fx, query chain, close fx, class id"},
      {{.chain = ""}, "", false, "open fx, query chain x2, close fx, class id"},
      {{.chain = "F"}, "F", false, "open fx, query chain x2, close fx, class id"},
      {{.chain = "F", .slot = "A", .added = "1", .moved = "A"},
       "F",
       false,
       "open fx, query chain x2, close fx, class id"},
      {{.chain = "F A l"}, "F A l", true, "open fx, query chain x2, close fx, class id"},
      {{.chain = "a"}, "a", true, "open fx, query chain x2, close fx, class id"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.words.chain);
    set_up(row.words);
    memory::system().log.clear();
    const EndpointBindingState state = look();
    EXPECT_TRUE(state.fx_key_present);
    EXPECT_EQ(state.error_code, 0);
    EXPECT_EQ(state.chain, spell(row.chain));
    EXPECT_EQ(state.bound, row.bound);
    EXPECT_EQ(calls(), call_list(row.calls));
    EXPECT_EQ(present_lines(), lines_of(stored(row.words)));
  }
}

}  // namespace
}  // namespace velmora
