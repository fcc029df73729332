#include "binding/binding_record.h"

#include <gtest/gtest.h>

#include "unit/binding/support/endpoint_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;
using namespace endpoint;

class BindingRecord : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    set_up("");
  }
  static void put_record(std::string_view name, std::uint32_t type, std::string_view bytes) {
    put(key_at(memory::system().state.registry, record_path()), name, Value{type, std::string(bytes)});
  }
  // The moved effect that the record names; empty when it names none.
  static std::string read_moved() {
    std::string text = "left over";
    const bool found = read_migrated_mode_effect(guid, text);
    EXPECT_EQ(found, !text.empty());
    return text;
  }
};

TEST_F(BindingRecord, ReportsAddedModeListsOnlyForTheNumber1) {
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

TEST_F(BindingRecord, ReportsNoAddedModeListsWhenMissingOrUnreadable) {
  EXPECT_FALSE(read_added_mode_list(guid));
  set_up("moved M");
  EXPECT_FALSE(read_added_mode_list(guid));
  set_up("added 1");
  for (const std::int32_t error : {2, 5, 234, 1450, 1630}) {
    memory::system().faults["RegGetValueW"] = {error};
    EXPECT_FALSE(read_added_mode_list(guid)) << error;
  }
  EXPECT_TRUE(read_added_mode_list(guid));
  EXPECT_FALSE(read_added_mode_list(other_guid));
}

TEST_F(BindingRecord, ReadsAMovedEffectOfUpTo127Characters) {
  const std::string most(127, 'x');
  const std::string too_many(128, 'x');
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
      {"128 characters", type_sz, text_bytes(too_many), ""},
      {"128 characters without a terminator", type_sz, unit_bytes(widen(too_many)), ""},
      {"short, with too much behind it", type_sz, text_bytes("x") + std::string(256, '\0'), ""},
      {"64 KB", type_sz, text_bytes(std::string(32768, 'x')), ""},
      {"empty", type_sz, nul, ""},
      {"no bytes", type_sz, "", ""},
      {"a terminator in front", type_sz, nul + text_bytes("x"), ""},
      {"a list", type_multi_sz, list_bytes({class_f}), ""},
      {"bytes", type_binary, text_bytes(class_f), ""},
      {"a number", type_dword, number_bytes('x', 4), ""},
      {"no type", 0, text_bytes(class_f), ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_record("MigratedLegacyModeEffect", row.type, row.bytes);
    EXPECT_EQ(read_moved(), row.text);
  }
}

TEST_F(BindingRecord, ReadsNoMovedEffectWhenMissingOrUnreadable) {
  EXPECT_EQ(read_moved(), "");
  set_up("added 1");
  EXPECT_EQ(read_moved(), "");
  set_up("moved M");
  for (const std::int32_t error : {2, 5, 234, 1450, 1630}) {
    memory::system().faults["RegGetValueW"] = {error};
    EXPECT_EQ(read_moved(), "") << error;
  }
  EXPECT_EQ(read_moved(), spell_one("M"));
}

TEST_F(BindingRecord, KeepsTheOtherValueWhenOneIsWritten) {
  write_added_mode_list(guid);
  EXPECT_EQ(present_lines(), lines_of("added 1"));
  write_migrated_mode_effect(guid, spell_one("M"));
  EXPECT_EQ(present_lines(), lines_of("added 1, moved M"));

  set_up("");
  write_migrated_mode_effect(guid, spell_one("M"));
  EXPECT_EQ(present_lines(), lines_of("moved M"));
  write_added_mode_list(guid);
  EXPECT_EQ(present_lines(), lines_of("added 1, moved M"));
}

TEST_F(BindingRecord, ReplacesExistingValues) {
  set_up("added sz:no, moved dword:7");
  write_added_mode_list(guid);
  write_migrated_mode_effect(guid, spell_one("l"));
  EXPECT_EQ(present_lines(), lines_of("added 1, moved l"));
  write_migrated_mode_effect(guid, "");
  EXPECT_EQ(present_lines(), lines_of(stored({.added = "1", .moved = ""})));
  write_migrated_mode_effect(guid, "\xE9");
  EXPECT_EQ(
      hosted::find_value(key_at(memory::system().state.registry, record_path()), u"MigratedLegacyModeEffect")
          ->bytes,
      unit_bytes(u"\xE9\0"s));
}

TEST_F(BindingRecord, RequestsOnlyTheAccessItNeeds) {
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

TEST_F(BindingRecord, RemovesOnlyItsOwnKey) {
  delete_binding_record(guid);
  EXPECT_EQ(present_lines(), lines_of(""));

  Stored all = stored(words("added 1, moved M"));
  all.another_record = true;
  set_up(all);
  delete_binding_record(guid);
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

TEST_F(BindingRecord, LeavesTheRegistryWhenACallFails) {
  const auto write_added = [] { write_added_mode_list(guid); };
  const auto write_moved = [] { write_migrated_mode_effect(guid, "x"); };
  const auto remove = [] { delete_binding_record(guid); };
  const struct {
    std::string operation;
    std::string before;
    std::function<void()> act;
    std::string after;
  } rows[] = {
      {"RegCreateKeyExW", "", write_added, ""},        {"RegCreateKeyExW", "", write_moved, ""},
      {"RegSetValueExW", "", write_added, "record"},   {"RegSetValueExW", "moved M", write_moved, "moved M"},
      {"RegOpenKeyExW", "added 1", remove, "added 1"}, {"RegDeleteKeyW", "added 1", remove, "added 1"},
  };
  for (const auto& row : rows) {
    for (const std::int32_t error : {5, 1450}) {
      SCOPED_TRACE(row.operation + ", " + row.before);
      set_up(row.before);
      memory::system().faults[row.operation] = {error};
      row.act();
      EXPECT_TRUE(memory::system().faults[row.operation].empty());
      EXPECT_EQ(present_lines(), expected_lines(row.before, row.after));
      EXPECT_TRUE(memory::system().state.open_keys.empty());
    }
  }
}

}  // namespace
}  // namespace velmora
