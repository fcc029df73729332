#include "binding/binding_record.h"

#include <gtest/gtest.h>

#include <set>

#include "unit/binding/support/endpoint_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;
using namespace endpoint;

class BindingRecord : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    set_up(Words{});
  }
  static void put_record(std::string_view name, std::uint32_t type, std::string_view bytes) {
    put(key_at(memory::system().state.registry, record_path()), name, Value{type, std::string(bytes)});
  }
  struct Read {
    bool found;
    std::string text;
  };
  static Read read_moved() {
    Read read{true, "left over"};
    read.found = read_migrated_mode_effect(guid, read.text);
    return read;
  }
};

TEST_F(BindingRecord, TellsOfAddedModeListsForTheNumber1Alone) {
  const struct {
    std::string what;
    std::uint32_t type;
    std::string bytes;
    bool added;
  } rows[] = {
      {"1", type_dword, number_bytes(1, 4), true},
      {"0", type_dword, number_bytes(0, 4), false},
      {"2", type_dword, number_bytes(2, 4), false},
      {"257", type_dword, number_bytes(257, 4), false},
      {"1 in the other byte order", type_dword, number_bytes(0x01000000, 4), false},
      {"all bits", type_dword, number_bytes(0xFFFFFFFF, 4), false},
      {"8 bytes", type_dword, number_bytes(1, 8), false},
      {"a text", type_sz, text_bytes("1"), false},
      {"a text whose bytes are the number", type_sz, number_bytes(1, 4), false},
      {"a list", type_multi_sz, list_bytes({"1"}), false},
      {"bytes", type_binary, number_bytes(1, 4), false},
      {"64 bits", type_qword, number_bytes(1, 8), false},
      {"the other byte order", 5, number_bytes(1, 4), false},
      {"no type", 0, number_bytes(1, 4), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_record("AddedModeList", row.type, row.bytes);
    EXPECT_EQ(read_added_mode_list(guid), row.added);
  }
}

TEST_F(BindingRecord, TellsOfNoAddedModeListsWhereTheyAreMissingOrCannotBeRead) {
  EXPECT_FALSE(read_added_mode_list(guid));
  set_up(Words{.moved = "M"});
  EXPECT_FALSE(read_added_mode_list(guid));
  set_up(Words{.added = "1"});
  for (const std::int32_t error : {2, 5, 234, 1450, 1630}) {
    memory::system().faults["RegGetValueW"] = {error};
    EXPECT_FALSE(read_added_mode_list(guid)) << error;
  }
  memory::system().log.clear();
  EXPECT_TRUE(read_added_mode_list(guid));
  EXPECT_FALSE(read_added_mode_list(other_guid));
  EXPECT_EQ(memory::system().log,
            (std::vector{"RegGetValueW " + record_path() + " AddedModeList",
                         "RegGetValueW " + record_path(other_guid) + " AddedModeList"}));
}

TEST_F(BindingRecord, RemembersAMovedEffectOfUpTo127Characters) {
  const std::string most(127, 'x');
  const std::string nul(2, '\0');
  const struct {
    std::string what;
    std::uint32_t type;
    std::string bytes;
    std::string text;
  } rows[] = {
      {"a class id", type_sz, text_bytes(class_f), class_f},
      {"lower case", type_sz, text_bytes(class_a_lower), class_a_lower},
      {"one character", type_sz, text_bytes("x"), "x"},
      {"no terminator", type_sz, unit_bytes(widen(class_f)), class_f},
      {"text behind the terminator", type_sz, text_bytes("abc") + text_bytes("def"), "abc"},
      {"not ASCII", type_sz, unit_bytes(u"a\xE9\x20AC\0"s), "a??"},
      {"127 characters", type_sz, text_bytes(most), most},
      {"127 characters without a terminator", type_sz, unit_bytes(widen(most)), most},
      {"a text that may be expanded", type_expand_sz, text_bytes(class_f), class_f},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_record("MigratedLegacyModeEffect", row.type, row.bytes);
    const Read read = read_moved();
    EXPECT_TRUE(read.found);
    EXPECT_EQ(read.text, row.text);
  }
}

TEST_F(BindingRecord, RemembersNoMovedEffectInAnyOtherForm) {
  const std::string nul(2, '\0');
  const struct {
    std::string what;
    std::uint32_t type;
    std::string bytes;
  } rows[] = {
      {"128 characters", type_sz, text_bytes(std::string(128, 'x'))},
      {"128 characters without a terminator", type_sz, unit_bytes(widen(std::string(128, 'x')))},
      {"short, with too much behind it", type_sz, text_bytes("x") + std::string(256, '\0')},
      {"64 KB", type_sz, text_bytes(std::string(32768, 'x'))},
      {"empty", type_sz, nul},
      {"no bytes", type_sz, ""},
      {"a terminator in front", type_sz, nul + text_bytes("x")},
      {"a list", type_multi_sz, list_bytes({class_f})},
      {"bytes", type_binary, text_bytes(class_f)},
      {"a number", type_dword, number_bytes('x', 4)},
      {"no type", 0, text_bytes(class_f)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_record("MigratedLegacyModeEffect", row.type, row.bytes);
    const Read read = read_moved();
    EXPECT_FALSE(read.found);
    EXPECT_EQ(read.text, "");
  }
}

TEST_F(BindingRecord, RemembersNoMovedEffectWhereItIsMissingOrCannotBeRead) {
  EXPECT_FALSE(read_moved().found);
  EXPECT_EQ(read_moved().text, "");
  set_up(Words{.added = "1"});
  EXPECT_FALSE(read_moved().found);
  set_up(Words{.moved = "M"});
  for (const std::int32_t error : {2, 5, 234, 1450, 1630}) {
    memory::system().faults["RegGetValueW"] = {error};
    const Read read = read_moved();
    EXPECT_FALSE(read.found) << error;
    EXPECT_EQ(read.text, "");
  }
  memory::system().log.clear();
  EXPECT_TRUE(read_moved().found);
  EXPECT_EQ(calls(), call_list("get moved"));
}

TEST_F(BindingRecord, IsMadeByItsFirstValueAndKeepsTheOther) {
  write_added_mode_list(guid);
  EXPECT_EQ(calls(), call_list("create record, set added, close record"));
  EXPECT_EQ(present_lines(), lines_of(stored({.added = "1"})));
  memory::system().log.clear();
  write_migrated_mode_effect(guid, spell_one("M"));
  EXPECT_EQ(calls(), call_list("create record, set moved, close record"));
  EXPECT_EQ(present_lines(), lines_of(stored({.added = "1", .moved = "M"})));

  set_up(Words{});
  write_migrated_mode_effect(guid, spell_one("M"));
  EXPECT_EQ(present_lines(), lines_of(stored({.moved = "M"})));
  write_added_mode_list(guid);
  EXPECT_EQ(present_lines(), lines_of(stored({.added = "1", .moved = "M"})));
}

TEST_F(BindingRecord, ReplacesWhatStoodThere) {
  set_up(Words{.added = "sz:no", .moved = "dword:7"});
  write_added_mode_list(guid);
  write_migrated_mode_effect(guid, spell_one("l"));
  EXPECT_EQ(present_lines(), lines_of(stored({.added = "1", .moved = "l"})));
  write_migrated_mode_effect(guid, "");
  EXPECT_EQ(present_lines(), lines_of(stored({.added = "1", .moved = ""})));
  write_migrated_mode_effect(guid, "\xE9");
  EXPECT_EQ(
      hosted::find_value(key_at(memory::system().state.registry, record_path()), u"MigratedLegacyModeEffect")
          ->bytes,
      unit_bytes(u"\xE9\0"s));
}

TEST_F(BindingRecord, AsksForNoMoreAccessThanItNeeds) {
  std::vector<std::uint32_t> accesses;
  memory::system().before_machine_call = [&](const std::string& entry) {
    if (entry.rfind("RegCloseKey", 0) != 0) return;
    accesses.push_back(memory::system().state.open_keys.begin()->second.access);
  };
  write_added_mode_list(guid);
  write_migrated_mode_effect(guid, "x");
  delete_binding_record(guid);
  EXPECT_EQ(accesses, (std::vector<std::uint32_t>{2, 2, 0x20006}));
}

TEST_F(BindingRecord, GoesWithBothValuesAndLeavesTheKeyAboveAndTheOthers) {
  Stored all = stored({.added = "1", .moved = "M"});
  all.another_record = true;
  set_up(all);
  delete_binding_record(guid);
  EXPECT_EQ(calls(), call_list("open records, delete record, close records"));
  all.added.reset();
  all.moved.reset();
  all.record_key = false;
  EXPECT_EQ(present_lines(), lines_of(all));
  delete_binding_record(guid);
  EXPECT_EQ(present_lines(), lines_of(all));
  delete_binding_record(other_guid);
  all.another_record = false;
  EXPECT_EQ(present_lines(), lines_of(all));
}

TEST_F(BindingRecord, TellsNothingOfItsFailures) {
  const struct {
    std::string what;
    std::string operation;
    Words before;
    std::function<void()> act;
    Words after;
    std::string calls;
  } rows[] = {
      {"added, no key", "RegCreateKeyExW", {}, [] { write_added_mode_list(guid); }, {}, "create record"},
      {"moved, no key",
       "RegCreateKeyExW",
       {},
       [] { write_migrated_mode_effect(guid, "x"); },
       {},
       "create record"},
      {"added, no value",
       "RegSetValueExW",
       {},
       [] { write_added_mode_list(guid); },
       {.empty_record = true},
       "create record, set added, close record"},
      {"moved, no value",
       "RegSetValueExW",
       {.moved = "M"},
       [] { write_migrated_mode_effect(guid, "x"); },
       {.moved = "M"},
       "create record, set moved, close record"},
      {"no key above",
       "RegOpenKeyExW",
       {.added = "1"},
       [] { delete_binding_record(guid); },
       {.added = "1"},
       "open records"},
      {"not deleted",
       "RegDeleteKeyW",
       {.added = "1"},
       [] { delete_binding_record(guid); },
       {.added = "1"},
       "open records, delete record, close records"},
  };
  for (const auto& row : rows) {
    for (const std::int32_t error : {5, 1450}) {
      SCOPED_TRACE(row.what);
      set_up(row.before);
      memory::system().log.clear();
      memory::system().faults[row.operation] = {error};
      row.act();
      EXPECT_EQ(calls(), call_list(row.calls));
      EXPECT_EQ(present_lines(), expected_lines(row.before, row.after));
      EXPECT_TRUE(memory::system().state.open_keys.empty());
    }
  }
}

TEST_F(BindingRecord, IsMissingWithoutTheKeyAboveToo) {
  delete_binding_record(guid);
  EXPECT_EQ(calls(), call_list("open records"));
  EXPECT_EQ(present_lines(), lines_of(stored({})));
}

}  // namespace
}  // namespace velmora
