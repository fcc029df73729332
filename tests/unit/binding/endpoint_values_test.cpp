#include "binding/endpoint_values.h"

#include <gtest/gtest.h>

#include <functional>

#include "unit/binding/support/endpoint_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;
using namespace endpoint;

// `spelled` as the registry stores it, without a terminator.
std::string wide(std::string_view spelled) { return unit_bytes(widen(spelled)); }

class EndpointValues : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    set_up("");
    ASSERT_EQ(open_fx_properties(guid, 3, key_), 0);
  }
  void TearDown() override {
    key_.close();
    FreshMachine::TearDown();
  }

  static void put_fx(std::string_view name, std::uint32_t type, std::string_view bytes) {
    endpoint::put_fx(name, Value{type, std::string(bytes)});
  }

  struct ReadList {
    std::int32_t status;
    bool present;
    Chain list;
    friend bool operator==(const ReadList&, const ReadList&) = default;
    friend void PrintTo(const ReadList& read, std::ostream* out) {
      *out << std::hex << read.status << (read.present ? " present " : " missing ")
           << ::testing::PrintToString(read.list);
    }
  };
  // The outputs start with wrong values, to show that they are set.
  ReadList read_list() {
    ReadList read{-1, !present_fx(chain_name), {"left over"}};
    read.status = read_multi_string_value(key_, widen(chain_name), read.list, read.present);
    return read;
  }
  // The slot's text; empty when it has none.
  std::string read_slot() {
    std::string text = "left over";
    const bool found = read_legacy_mode_effect(key_, text);
    EXPECT_EQ(found, !text.empty());
    return text;
  }
  // Changes a value between the two calls that read it.
  static void change_while_reading(const std::function<void()>& change) {
    memory::system().log.clear();
    memory::system().before_machine_call = [change](const std::string&) {
      if (memory::system().log.size() == 2) change();
    };
  }

  RegistryKey key_;
};

TEST_F(EndpointValues, OpenOnlyAnExistingKey) {
  RegistryKey key;
  EXPECT_EQ(open_fx_properties(guid, 1, key), 0);
  ASSERT_TRUE(key.is_open());
  EXPECT_EQ(memory::system().state.open_keys.at(key.native()).access, 1u);
  EXPECT_EQ(memory::system().state.open_keys.at(key.native()).path,
            widen("HKEY_LOCAL_MACHINE\\" + fx_path()));

  const auto before = present_lines();
  RegistryKey missing;
  EXPECT_EQ(open_fx_properties("{12345678-3407-471a-aa45-bcd41f1bb5f6}", 3, missing), from_win32(2));
  EXPECT_FALSE(missing.is_open());
  EXPECT_EQ(present_lines(), before);
}

TEST_F(EndpointValues, ReturnErrorsOfOpening) {
  for (const auto& [error, status] :
       std::initializer_list<std::pair<std::int64_t, std::int32_t>>{{2, from_win32(2)},
                                                                    {5, from_win32(5)},
                                                                    {87, invalid_argument},
                                                                    {1450, from_win32(1450)},
                                                                    {-3, -3}}) {
    RegistryKey key;
    memory::system().faults["RegOpenKeyExW"] = {error};
    EXPECT_EQ(open_fx_properties(guid, 3, key), status);
    EXPECT_FALSE(key.is_open());
  }
}

TEST_F(EndpointValues, ReadAListUpToItsFirstEmptyEntry) {
  const std::string nul(2, '\0');
  std::string many;
  Chain entries;
  for (int index = 0; index < 4096; ++index) {
    entries.push_back("entry" + std::to_string(1000 + index % 9000));
    many += text_bytes(entries.back());
  }
  const struct {
    std::string what;
    std::string bytes;
    Chain list;
  } rows[] = {
      {"two entries", wide("ab") + nul + wide("c") + nul + nul, {"ab", "c"}},
      {"one entry", wide("ab") + nul + nul, {"ab"}},
      {"no terminator at all", wide("ab"), {"ab"}},
      {"no terminator behind the second entry", wide("ab") + nul + wide("c"), {"ab", "c"}},
      {"one terminator", wide("ab") + nul, {"ab"}},
      {"three terminators", wide("ab") + nul + nul + nul, {"ab"}},
      {"an empty entry in the middle", wide("ab") + nul + nul + wide("c") + nul + nul, {"ab"}},
      {"an empty entry in front", nul + wide("ab") + nul + nul, {}},
      {"only a terminator", nul, {}},
      {"only two terminators", nul + nul, {}},
      {"one character", wide("x"), {"x"}},
      {"an entry twice", wide("x") + nul + wide("x") + nul + nul, {"x", "x"}},
      {"blanks", wide(" ") + nul + wide("\t") + nul + nul, {" ", "\t"}},
      {"an odd size, the last byte a part of a character", wide("ab") + "c", {"abc"}},
      {"an odd size, zero behind the entry", wide("ab") + "\0"s, {"ab"}},
      {"an odd size behind the end", wide("ab") + nul + nul + "c", {"ab"}},
      {"an odd size behind one terminator", wide("ab") + nul + "c", {"ab", "c"}},
      {"three bytes", "a\0b"s, {"ab"}},
      {"not ASCII", unit_bytes(u"a\xE9\x20AC\xD83D\xDE00\x7F\x80"s + u'\0' + u'\0'), {"a????\x7F?"}},
      {"a character whose low byte is 0", unit_bytes(u"\x100z\0\0"s), {"?z"}},
      {"64 KB", many + nul, entries},
      {"64 KB in one entry", wide(std::string(32768, 'x')), {std::string(32768, 'x')}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_fx(chain_name, type_multi_sz, row.bytes);
    EXPECT_EQ(read_list(), (ReadList{0, true, row.list}));
    EXPECT_EQ(present_fx(chain_name), (Value{type_multi_sz, row.bytes}));
  }
}

// The second call, which would read the bytes, is set to fail.
TEST_F(EndpointValues, ReadOnceWhatHasNoCharacterOrNoListOrNoText) {
  const std::string list = list_bytes({class_a});
  for (const std::uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 0x80000007u}) {
    for (const std::string& bytes : {""s, "a"s, "\0"s, list}) {
      SCOPED_TRACE(std::to_string(type) + ", " + std::to_string(bytes.size()) + " bytes");
      if (type != type_multi_sz || bytes != list) {
        put_fx(chain_name, type, bytes);
        memory::system().faults["RegQueryValueExW"] = {0, 5};
        EXPECT_EQ(read_list(), (ReadList{type == type_multi_sz ? 0 : wrong_type, true, {}}));
      }
      const bool is_text = type == type_sz || type == type_expand_sz || type == type_multi_sz;
      if (!is_text || bytes != list) {
        put_fx(slot_name, type, bytes);
        memory::system().faults["RegQueryValueExW"] = {0, 5};
        EXPECT_EQ(read_slot(), "");
      }
    }
  }
}

TEST_F(EndpointValues, ReadAMissingListAsEmptyAndNotPresent) {
  memory::system().faults["RegQueryValueExW"] = {0, 5};
  EXPECT_EQ(read_list(), (ReadList{0, false, {}}));
}

TEST_F(EndpointValues, ReturnErrorsOfReadingAList) {
  put_fx(chain_name, type_multi_sz, list_bytes({"x"}));
  for (const std::int32_t error : {5, 87, 234, 1018, 1450}) {
    memory::system().faults["RegQueryValueExW"] = {error};
    EXPECT_EQ(read_list(), (ReadList{from_win32(error), false, {}}));
    memory::system().faults["RegQueryValueExW"] = {0, error};
    EXPECT_EQ(read_list(), (ReadList{from_win32(error), true, {}}));
  }
  memory::system().faults["RegQueryValueExW"] = {-7};
  EXPECT_EQ(read_list(), (ReadList{-7, false, {}}));
  memory::system().faults["RegQueryValueExW"] = {2};
  EXPECT_EQ(read_list(), (ReadList{0, false, {}}));
}

TEST_F(EndpointValues, ReadAChangedListAsFarAsItFits) {
  const std::string nul(2, '\0');
  const std::string first = wide("ab") + nul + wide("cd");  // no terminator: room for two characters more
  const struct {
    std::string what;
    std::optional<Value> changed;
    ReadList read;
  } rows[] = {
      {"grows by one character", Value{type_multi_sz, first + wide("e")}, {0, true, {"ab", "cde"}}},
      {"grows by two characters", Value{type_multi_sz, first + wide("ef")}, {0, true, {"ab", "cdef"}}},
      {"grows by one entry of one character",
       Value{type_multi_sz, first + nul + wide("e")},
       {0, true, {"ab", "cd", "e"}}},
      {"grows by three characters", Value{type_multi_sz, first + wide("efg")}, {from_win32(234), true, {}}},
      {"grows by two characters and a byte",
       Value{type_multi_sz, first + wide("ef") + "g"},
       {from_win32(234), true, {}}},
      {"becomes another list of the same size", Value{type_multi_sz, wide("fghij")}, {0, true, {"fghij"}}},
      {"shrinks", Value{type_multi_sz, wide("z") + nul + nul}, {0, true, {"z"}}},
      {"shrinks to nothing", Value{type_multi_sz, ""}, {0, true, {}}},
      {"vanishes", std::nullopt, {from_win32(2), true, {}}},
      {"changes its type", Value{type_sz, wide("z") + nul}, {0, true, {"z"}}},
      {"becomes a number", Value{type_dword, "a\0b\0"s}, {0, true, {"ab"}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_fx(chain_name, type_multi_sz, first);
    change_while_reading([&] { endpoint::put_fx(chain_name, row.changed); });
    EXPECT_EQ(read_list(), row.read);
  }
}

TEST_F(EndpointValues, TerminateEachEntryAndTheList) {
  const struct {
    Chain list;
    std::u16string units;
  } rows[] = {
      {{"x"}, u"x\0\0"s},       {{"x", "yz"}, u"x\0yz\0\0"s}, {{""}, u"\0\0"s},
      {{"x", ""}, u"x\0\0\0"s}, {{"", "x"}, u"\0x\0\0"s},     {{"\xE9\xFF"}, u"\xE9\xFF\0\0"s},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(write_multi_string_value(key_, widen(chain_name), row.list), 0);
    EXPECT_EQ(present_fx(chain_name), (Value{type_multi_sz, unit_bytes(row.units)}));
  }
}

TEST_F(EndpointValues, RemoveAListThatIsEmpty) {
  put_fx(chain_name, type_multi_sz, list_bytes({"x"}));
  EXPECT_EQ(write_multi_string_value(key_, widen(chain_name), {}), 0);
  EXPECT_EQ(present_fx(chain_name), std::nullopt);
  EXPECT_EQ(write_multi_string_value(key_, widen(chain_name), {}), 0);
}

TEST_F(EndpointValues, ReturnErrorsOfWritingAList) {
  put_fx(chain_name, type_multi_sz, list_bytes({"x"}));
  for (const std::int32_t error : {2, 5, 234, 1450}) {
    memory::system().faults["RegSetValueExW"] = {error};
    EXPECT_EQ(write_multi_string_value(key_, widen(chain_name), {"y"}), from_win32(error));
  }
  for (const std::int32_t error : {5, 234, 1450}) {
    memory::system().faults["RegDeleteValueW"] = {error};
    EXPECT_EQ(write_multi_string_value(key_, widen(chain_name), {}), from_win32(error));
  }
  EXPECT_EQ(present_fx(chain_name), (Value{type_multi_sz, list_bytes({"x"})}));
}

TEST_F(EndpointValues, ReadTheLegacySlotUpToItsFirstTerminator) {
  const std::string nul(2, '\0');
  const struct {
    std::string what;
    std::string bytes;
    std::string text;
  } rows[] = {
      {"a text", wide("abc") + nul, "abc"},
      {"no terminator", wide("abc"), "abc"},
      {"a text behind the terminator", wide("abc") + nul + wide("def") + nul, "abc"},
      {"a list of two", list_bytes({"abc", "def"}), "abc"},
      {"one character", wide("x"), "x"},
      {"three bytes", "a\0b"s, "ab"},
      {"not ASCII", unit_bytes(u"a\xE9\x20AC\0"s), "a??"},
      {"blanks", text_bytes(" x "), " x "},
      {"64 KB", wide(std::string(32768, 'x')), std::string(32768, 'x')},
      {"a variable, which is not expanded", text_bytes("%SystemRoot%"), "%SystemRoot%"},
      {"only a terminator", nul, ""},
      {"only two terminators", nul + nul, ""},
      {"a terminator in front", nul + wide("abc"), ""},
  };
  for (const auto& row : rows) {
    for (const std::uint32_t type : {type_sz, type_expand_sz, type_multi_sz}) {
      SCOPED_TRACE(row.what + " " + std::to_string(type));
      put_fx(slot_name, type, row.bytes);
      EXPECT_EQ(read_slot(), row.text);
      EXPECT_EQ(present_fx(slot_name), (Value{type, row.bytes}));
    }
  }
}

TEST_F(EndpointValues, ReadAnUnreadableLegacySlotAsEmpty) {
  EXPECT_EQ(read_slot(), "");
  put_fx(slot_name, type_sz, text_bytes("abc"));
  for (const std::int32_t error : {2, 5, 234, 1450}) {
    for (const std::deque<std::int64_t>& faults : {std::deque<std::int64_t>{error}, {0, error}}) {
      memory::system().faults["RegQueryValueExW"] = faults;
      EXPECT_EQ(read_slot(), "");
    }
  }
}

TEST_F(EndpointValues, ReadAChangedLegacySlotAsFarAsItFits) {
  const struct {
    std::string what;
    std::optional<Value> changed;
    std::string text;
  } rows[] = {
      {"grows by one character", Value{type_sz, wide("abcd")}, "abcd"},
      {"grows by two characters", Value{type_sz, wide("abcde")}, "abcde"},
      {"grows by more", Value{type_sz, wide("abcdef")}, ""},
      {"shrinks", Value{type_sz, wide("x")}, "x"},
      {"vanishes", std::nullopt, ""},
      {"changes its type", Value{type_dword, "a\0b\0"s}, "ab"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_fx(slot_name, type_sz, wide("abc"));
    change_while_reading([&] { endpoint::put_fx(slot_name, row.changed); });
    EXPECT_EQ(read_slot(), row.text);
  }
}

TEST_F(EndpointValues, WriteTheLegacySlotAsATerminatedText) {
  put_fx(slot_name, type_dword, "1234");
  EXPECT_EQ(write_legacy_mode_effect(key_, "abc"), 0);
  EXPECT_EQ(present_fx(slot_name), (Value{type_sz, unit_bytes(u"abc\0"s)}));
  EXPECT_EQ(write_legacy_mode_effect(key_, "\xE9"), 0);
  EXPECT_EQ(present_fx(slot_name), (Value{type_sz, unit_bytes(u"\xE9\0"s)}));
  for (const std::int32_t error : {2, 5, 1450}) {
    memory::system().faults["RegSetValueExW"] = {error};
    EXPECT_EQ(write_legacy_mode_effect(key_, "z"), from_win32(error));
  }
}

// One mode list, and whether ensure_mode_lists() writes it.
struct ModeListRow {
  std::string before;
  bool added_earlier;
  bool written;
};

const ModeListRow mode_list_rows[] = {
    {"-", false, true},
    {"-", true, true},
    {"ours", false, false},
    {"ours", true, false},
    {"{C18E2F7E-933D-4965-B7D1-1EEF228D2AF3}", false, false},
    {"{C18E2F7E-933D-4965-B7D1-1EEF228D2AF3}", true, true},
    {"ours more", false, false},
    {"ours more", true, true},
    {"more ours", true, true},
    {"ours ours", true, true},
    {"{c18e2f7e-933d-4965-b7d1-1eef228d2af3}", true, true},
    {"", false, false},
    {"", true, true},
    {"dword:1", false, false},
    {"dword:1", true, false},
    {"sz:ours", false, false},
    {"sz:ours", true, false},
    {"expand:x", true, false},
};

TEST_F(EndpointValues, WriteMissingModeListsAndTheirOwnChangedOnes) {
  for (const ModeListRow& modes : mode_list_rows) {
    for (const ModeListRow& offload : mode_list_rows) {
      if (modes.added_earlier != offload.added_earlier) continue;
      SCOPED_TRACE("modes \"" + modes.before + "\", offload \"" + offload.before + "\"" +
                   (modes.added_earlier ? ", added earlier" : ""));
      Words words;
      words.modes = modes.before;
      words.offload = offload.before;
      set_up(words);
      EXPECT_EQ(ensure_mode_lists(key_, modes.added_earlier), modes.written || offload.written);
      if (modes.written) words.modes = "ours";
      if (offload.written) words.offload = "ours";
      EXPECT_EQ(present_lines(), lines_of(stored(words)));
    }
  }
}

TEST_F(EndpointValues, RewriteModesInAnotherCaseOrOrder) {
  std::vector<std::string> lower = six_modes();
  for (char& byte : lower[3]) byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + 32) : byte;
  std::vector<std::string> swapped = six_modes();
  std::swap(swapped[4], swapped[5]);
  for (const std::vector<std::string>& list : {lower, swapped}) {
    put_fx(modes_name, type_multi_sz, list_bytes(list));
    put_fx(offload_name, type_multi_sz, list_bytes(list));
    EXPECT_FALSE(ensure_mode_lists(key_, false));
    EXPECT_EQ(present_fx(modes_name), (Value{type_multi_sz, list_bytes(list)}));
    EXPECT_TRUE(ensure_mode_lists(key_, true));
    EXPECT_EQ(present_fx(modes_name), (Value{type_multi_sz, list_bytes(six_modes())}));
    EXPECT_EQ(present_fx(offload_name), (Value{type_multi_sz, list_bytes(six_modes())}));
  }
}

// Lists are compared by the entries read, not by their bytes.
TEST_F(EndpointValues, LeaveOurModesWithMoreOrFewerTerminators) {
  const std::string whole = list_bytes(six_modes());
  for (const std::string& bytes : {whole.substr(0, whole.size() - 2), whole.substr(0, whole.size() - 4),
                                   whole + std::string(2, '\0'), whole + wide("more")}) {
    put_fx(modes_name, type_multi_sz, bytes);
    put_fx(offload_name, type_multi_sz, bytes);
    EXPECT_FALSE(ensure_mode_lists(key_, true));
    EXPECT_EQ(present_fx(modes_name), (Value{type_multi_sz, bytes}));
  }
}

TEST_F(EndpointValues, SkipAModeListThatCannotBeReadOrWritten) {
  // The calls query and set the modes, then the offload modes.
  for (const std::size_t call : {1u, 2u, 3u, 4u}) {
    set_up("");
    memory::system().log.clear();
    memory::system().fault_at = {call, 5};
    EXPECT_TRUE(ensure_mode_lists(key_, false));
    EXPECT_EQ(present_lines(), lines_of(call <= 2 ? "offload ours" : "modes ours"));
  }
  memory::system().fault_at.reset();
  set_up("");
  memory::system().faults["RegSetValueExW"] = {5, 1450};
  EXPECT_FALSE(ensure_mode_lists(key_, false));
  EXPECT_EQ(present_lines(), lines_of(""));
}

TEST_F(EndpointValues, RemoveBothModeListsWhateverTheyHold) {
  for (const std::string lists : {"lists ours", "lists x", "lists", "lists dword:1", "lists -"}) {
    set_up("chain F, slot L, " + lists);
    remove_mode_lists(key_);
    EXPECT_EQ(present_lines(), lines_of("chain F, slot L"));
  }
  set_up("lists ours");
  memory::system().faults["RegDeleteValueW"] = {5};
  remove_mode_lists(key_);
  EXPECT_EQ(present_lines(), lines_of("modes ours"));
}

}  // namespace
}  // namespace velmora
