// Random endpoints, compared with a model of binding that works on plain values.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "binding/binding.h"
#include "unit/binding/support/endpoint_machine.h"

namespace velmora {
namespace {

using namespace endpoint;

using List = std::vector<std::string>;

std::string folded(std::string text) {
  for (char& byte : text) {
    if (byte >= 'a' && byte <= 'z') byte = static_cast<char>(byte - 32);
  }
  return text;
}

bool holds(const List& list, const std::string& entry) {
  for (const std::string& other : list) {
    if (folded(other) == folded(entry)) return true;
  }
  return false;
}

List without(const List& list, const std::string& entry) {
  List left;
  for (const std::string& other : list) {
    if (folded(other) != folded(entry)) left.push_back(other);
  }
  return left;
}

// The texts between the terminators, as 8-bit text; a last one may lack its terminator, and half a character
// counts as one whose upper half is 0.
List texts_of(std::string bytes) {
  if (bytes.size() % 2 != 0) bytes.push_back('\0');
  List texts(1);
  for (std::size_t index = 0; index < bytes.size(); index += 2) {
    const auto low = static_cast<unsigned char>(bytes[index]);
    const auto high = static_cast<unsigned char>(bytes[index + 1]);
    if (low == 0 && high == 0) {
      texts.emplace_back();
    } else {
      texts.back().push_back(high == 0 && low < 128 ? static_cast<char>(low) : '?');
    }
  }
  return texts;
}

// The list in a value; none when it is of another type.
std::optional<List> list_in(const std::optional<Value>& value) {
  if (!value) return List();
  if (value->type != type_multi_sz) return std::nullopt;
  if (value->bytes.size() < 2) return List();
  List list = texts_of(value->bytes);
  list.erase(std::find(list.begin(), list.end(), ""), list.end());
  return list;
}

std::string slot_text(const Stored& all) {
  if (!all.slot || all.slot->bytes.size() < 2) return "";
  const std::uint32_t type = all.slot->type;
  return type == type_sz || type == type_expand_sz || type == type_multi_sz
             ? texts_of(all.slot->bytes).front()
             : "";
}

std::string remembered_text(const Stored& all) {
  if (!all.moved || (all.moved->type != type_sz && all.moved->type != type_expand_sz)) return "";
  const std::string& bytes = all.moved->bytes;
  const bool terminated = bytes.size() >= 2 && bytes[bytes.size() - 2] == 0 && bytes.back() == 0;
  return bytes.size() + (terminated ? 0 : 2) > 256 ? "" : texts_of(bytes).front();
}

bool remembers_lists(const Stored& all) { return all.added == Value{type_dword, number_bytes(1, 4)}; }

struct Outcome {
  std::int32_t status;
  std::string detail;
  friend bool operator==(const Outcome&, const Outcome&) = default;
};

bool model_lists(Stored& all) {
  bool written = false;
  for (std::optional<Value> Stored::*member : {&Stored::modes, &Stored::offload}) {
    std::optional<Value>& value = all.*member;
    const std::optional<List> list = list_in(value);
    const bool is_drivers = value && !remembers_lists(all);
    if (!list || is_drivers || (value && *list == six_modes())) continue;
    value = Value{type_multi_sz, list_bytes(six_modes())};
    written = true;
  }
  return written;
}

void remember_lists(Stored& all) {
  all.added = Value{type_dword, number_bytes(1, 4)};
  all.record_key = all.records_key = true;
}

Outcome model_bind(Stored& all) {
  const std::optional<List> chain = list_in(all.chain);
  if (!chain) return {wrong_type, not_read};
  const std::string slot = slot_text(all);
  const bool migrates = !slot.empty() && slot != class_a;
  List wanted = *chain;
  if (migrates && !holds(wanted, slot)) wanted.push_back(slot);
  if (!holds(wanted, class_a)) wanted.emplace_back(class_a);
  const bool changes = wanted != *chain;
  if (changes) all.chain = Value{type_multi_sz, list_bytes(wanted)};
  const bool added = model_lists(all);
  if (added) remember_lists(all);
  if (migrates) {
    all.moved = Value{type_sz, text_bytes(slot)};
    all.record_key = all.records_key = true;
    all.slot.reset();
    return {0, bound_with_move};
  }
  if (changes) return {0, added ? bound_with_list : bound};
  return {0, added ? list_refreshed : was_bound};
}

Outcome model_unbind(Stored& all) {
  const std::optional<List> chain = list_in(all.chain);
  if (!chain) return {wrong_type, not_read};
  const std::string moved = remembered_text(all);
  List wanted = without(*chain, class_a);
  if (!moved.empty()) wanted = without(wanted, moved);
  if (wanted == *chain && moved.empty()) return {0, was_not_bound};
  if (wanted != *chain)
    all.chain = wanted.empty() ? std::nullopt : std::optional(Value{type_multi_sz, list_bytes(wanted)});
  if (remembers_lists(all)) {
    all.modes.reset();
    all.offload.reset();
  }
  if (!moved.empty()) all.slot = Value{type_sz, text_bytes(moved)};
  all.added.reset();
  all.moved.reset();
  all.record_key = false;
  return {0, moved.empty() ? unbound : unbound_with_restore};
}

// Generates endpoints with any mixture of everything that each value can hold.
class Dice {
 public:
  explicit Dice(std::uint32_t seed) : engine_(seed) {}
  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(engine_() % limit); }

  std::string entry() {
    static const char* const words[] = {"A", "a", "F", "f", "L", "l", "M",
                                        "m", "x", "y", "z", "F", "L", "\xE9"};
    return spell_one(words[below(14)]);
  }
  std::string list() {
    std::vector<std::string> entries;
    for (std::uint32_t left = below(6); left > 0; --left) entries.push_back(entry());
    if (below(6) == 0) entries = six_modes();
    if (below(12) == 0) entries.emplace_back();
    if (below(12) == 0) entries.push_back(entry());
    return list_bytes(entries);
  }
  // Cuts and lengthens the bytes now and then.
  std::string bent(std::string bytes) {
    const std::uint32_t way = below(24);
    if (way < 5) bytes.resize(bytes.size() - std::min<std::size_t>(way, bytes.size()));
    if (way == 5) bytes += "t\0a\0i\0l";
    if (way == 6) bytes += std::string(300, '\0');
    return bytes;
  }
  std::uint32_t type(std::uint32_t usual) {
    constexpr std::uint32_t types[] = {0, 1, 2, 3, 4, 7, 11};
    return below(8) == 0 ? types[below(7)] : usual;
  }
  std::optional<Value> list_value(std::uint32_t missing_of_4) {
    if (below(4) < missing_of_4) return std::nullopt;
    const std::string bytes = bent(list());
    return Value{type(type_multi_sz), bytes};
  }
  std::optional<Value> text_value() {
    if (below(3) == 0) return std::nullopt;
    constexpr std::size_t lengths[] = {0, 1, 126, 127, 128, 129};
    const std::string text = below(6) == 0 ? std::string(lengths[below(6)], 'x') : entry();
    const std::string bytes = bent(text_bytes(text));
    return Value{type(type_sz), bytes};
  }

  Stored endpoint() {
    Stored all;
    all.chain = list_value(1);
    all.slot = text_value();
    all.modes = list_value(2);
    all.offload = list_value(2);
    if (below(2) == 0) {
      all.record_key = true;
      if (below(4) != 0) all.added = Value{type(type_dword), number_bytes(below(4) == 0 ? below(3) : 1, 4)};
      all.moved = text_value();
    }
    all.another_record = below(3) == 0;
    all.records_key = all.record_key || all.another_record || below(4) == 0;
    return all;
  }

 private:
  std::mt19937 engine_;
};

constexpr std::uint32_t endpoints = 1500;

class BindingProperty : public FreshMachine {
 protected:
  static Outcome run(bool bind) {
    Outcome outcome{-1, "left over"};
    outcome.status =
        bind ? bind_endpoint_effect(id, outcome.detail) : unbind_endpoint_effect(id, outcome.detail);
    memory::system().log.clear();
    return outcome;
  }
  static Outcome bind() { return run(true); }
  static Outcome unbind() { return run(false); }
  static void expect_look(const Stored& all) {
    EndpointBindingState state;
    const std::optional<List> chain = list_in(all.chain);
    EXPECT_EQ(inspect_endpoint_binding(id, state), chain ? 0 : wrong_type);
    EXPECT_TRUE(state.fx_key_present);
    EXPECT_EQ(state.chain, chain.value_or(List()));
    EXPECT_EQ(state.bound, chain && holds(*chain, class_a));
  }
  static void expect(const Outcome& outcome, const Outcome& expected, const Stored& all) {
    EXPECT_EQ(outcome.status, expected.status);
    EXPECT_EQ(outcome.detail, expected.detail);
    ASSERT_EQ(present_lines(), lines_of(all));
    expect_look(all);
  }
};

// The chain's entries that are neither the effect nor `moved`.
List foreign_entries(const Stored& all, const std::string& moved) {
  List list = without(list_in(all.chain).value_or(List()), class_a);
  return moved.empty() ? list : without(list, moved);
}

// Compares the whole registry, with the neighbours of the endpoint's values.
TEST_F(BindingProperty, MatchesTheModel) {
  std::map<std::string, int> details;
  for (std::uint32_t seed = 0; seed < endpoints; ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    Stored all = dice.endpoint();
    set_up(all);
    for (std::uint32_t left = 4; left > 0; --left) {
      const bool binds = dice.below(2) == 0;
      const Outcome expected = binds ? model_bind(all) : model_unbind(all);
      expect(run(binds), expected, all);
      ++details[expected.detail];
      if (HasFailure()) return;
    }
  }
  EXPECT_EQ(details.size(), 9u);  // every outcome that needs no failing call
  for (const auto& [detail, count] : details) EXPECT_GT(count, 50) << detail;
}

// One exception: a bind that adds one of the two mode lists claims both, so the next bind writes the other.
TEST_F(BindingProperty, BindsOnlyOnce) {
  int claimed = 0;
  for (std::uint32_t seed = 0; seed < endpoints; ++seed) {
    SCOPED_TRACE(seed);
    Stored all = Dice(seed).endpoint();
    set_up(all);
    const Outcome first = bind();
    if (first.status != 0) {
      ASSERT_EQ(bind(), first);
      ASSERT_EQ(present_lines(), lines_of(all));
      continue;
    }
    model_bind(all);
    ASSERT_EQ(present_lines(), lines_of(all));
    const bool claims_another = model_lists(all);
    claimed += claims_another ? 1 : 0;
    ASSERT_EQ(bind(), (Outcome{0, claims_another ? list_refreshed : was_bound}));
    ASSERT_EQ(present_lines(), lines_of(all));
    ASSERT_EQ(bind(), (Outcome{0, was_bound}));
    ASSERT_EQ(present_lines(), lines_of(all));
  }
  EXPECT_GT(claimed, 10);
}

TEST_F(BindingProperty, UnbindsOnlyOnce) {
  for (std::uint32_t seed = 0; seed < endpoints; ++seed) {
    SCOPED_TRACE(seed);
    set_up(Dice(seed).endpoint());
    const Outcome first = unbind();
    const auto once = present_lines();
    const Outcome second = unbind();
    ASSERT_EQ(present_lines(), once);
    if (first.status != 0) {
      ASSERT_EQ(second, first);
    } else {
      ASSERT_EQ(second, (Outcome{0, was_not_bound}));
    }
  }
}

// After a bind and an unbind, the chain lacks the effect and the moved effect and keeps the others in order.
// The slot holds the moved effect; the record and the lists that it claimed are gone. An endpoint without a
// record is unchanged if its values had the form that the product writes.
TEST_F(BindingProperty, RestoresTheRecordedStateByUnbinding) {
  int whole = 0;
  for (std::uint32_t seed = 0; seed < endpoints; ++seed) {
    SCOPED_TRACE(seed);
    const Stored before = Dice(seed).endpoint();
    set_up(before);
    if (bind().status != 0) continue;
    const std::string slot = slot_text(before);
    const bool migrates = !slot.empty() && slot != class_a;
    Stored middle = before;
    if (migrates) middle.moved = Value{type_sz, text_bytes(slot)};
    const std::string moved = remembered_text(middle);
    Stored lists = before;
    const bool claims_lists = model_lists(lists) || remembers_lists(before);

    Stored expected = before;
    const List foreign = foreign_entries(before, moved);
    List left = foreign;
    if (migrates && moved.empty() && !holds(foreign, slot) && folded(slot) != folded(class_a))
      left.push_back(slot);
    expected.chain = left.empty() ? std::nullopt : std::optional(Value{type_multi_sz, list_bytes(left)});
    if (migrates) expected.slot.reset();
    if (!moved.empty()) expected.slot = Value{type_sz, text_bytes(moved)};
    if (claims_lists) {
      expected.modes.reset();
      expected.offload.reset();
    }
    if (migrates || claims_lists) expected.records_key = true;
    expected.record_key = false;
    expected.added.reset();
    expected.moved.reset();
    ASSERT_EQ(unbind().status, 0);
    ASSERT_EQ(present_lines(), lines_of(expected));
    Stored but_records = expected;
    but_records.records_key = before.records_key;
    if (but_records == before) ++whole;
  }
  EXPECT_GT(whole, 5);
}

TEST_F(BindingProperty, NeverLosesOrReordersAForeignEntry) {
  for (std::uint32_t seed = 0; seed < endpoints; ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    const Stored before = dice.endpoint();
    set_up(before);
    const bool binds = dice.below(2) == 0;
    const std::string moved = binds ? slot_text(before) : remembered_text(before);
    // In every second round one call fails.
    if (dice.below(2) == 0) memory::system().fault_at = {1 + dice.below(24), 5};
    memory::system().log.clear();
    static_cast<void>(run(binds));
    memory::system().fault_at.reset();
    EXPECT_TRUE(memory::system().state.open_keys.empty());
    EndpointBindingState state;
    if (inspect_endpoint_binding(id, state) != 0) continue;
    List present = without(state.chain, class_a);
    if (!moved.empty()) present = without(present, moved);
    ASSERT_EQ(present, foreign_entries(before, moved));
  }
}

}  // namespace
}  // namespace velmora
