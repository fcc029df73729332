// One file because the tests of one header share their helpers.
#include "platform/registry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::runs_under_wine;
using Names = std::vector<std::u16string>;

// winerror.h
constexpr std::int32_t error_missing = 2;
constexpr std::int32_t error_denied = 5;
constexpr std::int32_t error_more_data = 234;
constexpr std::int32_t error_key_deleted = 1018;
constexpr std::int32_t error_other_type = 1630;

// winnt.h
constexpr std::uint32_t reg_none = 0;
constexpr std::uint32_t reg_binary = 3;
constexpr std::uint32_t reg_qword = 11;
constexpr std::uint32_t type_of_nobody = 0x77;
constexpr std::uint32_t key_read = 0x20019;
constexpr std::uint32_t key_both = key_query_value | key_set_value;

// Fills what no call has written. It ends no text.
constexpr char untouched = '\xCC';

class RegistryContract : public surroundings::Arranged {
 protected:
  void SetUp() override {
    surroundings::Arranged::SetUp();
    surroundings::set_up_registry();
  }
  void TearDown() override {
    surroundings::tear_down_registry();
    surroundings::Arranged::TearDown();
  }
};

std::u16string below(std::u16string_view name) {
  return std::u16string(surroundings::registry_scratch).append(u"\\").append(name);
}

RegistryKey create(std::u16string_view name, std::uint32_t access = key_both) {
  RegistryKey key;
  EXPECT_EQ(create_registry_key(below(name), access, key), 0);
  return key;
}

std::int32_t open_error(std::u16string_view path, std::uint32_t access) {
  RegistryKey key;
  const std::int32_t error = open_registry_key(path, access, key);
  EXPECT_EQ(key.is_open(), error == 0);
  return error;
}

std::string bytes_of(std::u16string_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)};
}

// The character behind the data is never NUL: a call that looks there takes it for the end of a text.
std::int32_t set(const RegistryKey& key, std::u16string_view name, std::uint32_t type,
                 const std::string& data) {
  const std::string padded = data + std::string(4, 'Z');
  return set_registry_value(key, name, type, padded.data(), static_cast<std::uint32_t>(data.size()));
}

struct Reading {
  RegistryQuery query;
  std::string bytes;   // as many as the query reports
  std::string behind;  // the eight bytes behind the value, or behind the buffer's begin where there is none
};

// What follows is generous: some system may write behind what it was given.
constexpr std::size_t slack = 64;

Reading take_reading(RegistryQuery query, const std::string& buffer) {
  const std::size_t size = query.error == 0 ? query.size : 0;
  return {query, buffer.substr(2, size), buffer.substr(2 + size, 8)};
}

// Two bytes precede the value: the rule about a text's end may look at them.
Reading query(const RegistryKey& key, std::u16string_view name, std::size_t capacity) {
  std::string buffer(2 + capacity + slack, untouched);
  const RegistryQuery query =
      query_registry_value(key, name, buffer.data() + 2, static_cast<std::uint32_t>(capacity));
  EXPECT_EQ(buffer.substr(0, 2), std::string(2, untouched));
  return take_reading(query, buffer);
}

Reading get(std::u16string_view key, std::u16string_view name, std::uint32_t restriction,
            std::size_t capacity) {
  std::string buffer(2 + capacity + slack, untouched);
  const RegistryQuery query = get_registry_value(below(key), name, restriction, buffer.data() + 2,
                                                 static_cast<std::uint32_t>(capacity));
  EXPECT_EQ(buffer.substr(2 + capacity), std::string(slack, untouched));
  return take_reading(query, buffer);
}

void expect_value(const RegistryKey& key, std::u16string_view name, std::uint32_t type,
                  const std::string& data) {
  const RegistryQuery size = query_registry_value(key, name, nullptr, 0);
  EXPECT_EQ(size.error, 0);
  EXPECT_EQ(size.type, type);
  EXPECT_EQ(size.size, data.size());
  const Reading reading = query(key, name, data.size() + 8);
  EXPECT_EQ(reading.query.error, 0);
  EXPECT_EQ(reading.query.type, type);
  EXPECT_EQ(reading.query.size, data.size());
  EXPECT_EQ(reading.bytes, data);
}

TEST_F(RegistryContract, ReportsThatAKeyIsMissing) {
  create(u"There");
  for (const char16_t* name : {u"Absent", u"There\\Absent", u"Absent\\There", u"The", u"There2"}) {
    SCOPED_TRACE(bytes_of(name));
    for (const std::uint32_t access : {key_query_value, key_set_value, key_write, key_read}) {
      EXPECT_EQ(open_error(below(name), access), error_missing);
    }
  }
}

TEST_F(RegistryContract, LeavesTheFormerKeyInPlaceWhenTheNextCannotBeOpened) {
  RegistryKey key = create(u"There");
  const auto former = key.native();
  EXPECT_EQ(open_registry_key(below(u"Absent"), key_query_value, key), error_missing);
  ASSERT_TRUE(key.is_open());
  EXPECT_EQ(key.native(), former);
  EXPECT_EQ(set(key, u"v", reg_binary, "x"), 0);
}

TEST_F(RegistryContract, FindsKeysAndValuesWithoutRegardToCaseAndKeepsTheNamesFirstWritten) {
  const RegistryKey key = create(u"MixedCase\\Inner");
  EXPECT_EQ(set(key, u"{0A}Name", reg_binary, "first"), 0);
  const RegistryKey same = create(u"MIXEDCASE\\iNNER");
  expect_value(same, u"{0a}nAME", reg_binary, "first");
  EXPECT_EQ(set(same, u"{0a}NAME", reg_binary, "second"), 0);
  expect_value(key, u"{0A}Name", reg_binary, "second");
  EXPECT_EQ(open_error(below(u"mixedcase\\inner"), key_query_value), 0);
  EXPECT_EQ(surroundings::key_names(surroundings::registry_scratch), Names{u"MixedCase"});
  EXPECT_EQ(surroundings::key_names(below(u"mixedcase")), Names{u"Inner"});
  EXPECT_EQ(surroundings::value_names(below(u"mixedcase\\inner")), Names{u"{0A}Name"});
  create(u"MixedCase");
  expect_value(create(u"MixedCase\\Inner"), u"{0A}Name", reg_binary, "second");
  EXPECT_EQ(delete_registry_value(same, u"{0a}name"), 0);
  EXPECT_EQ(surroundings::value_names(below(u"MixedCase\\Inner")), Names{});
}

TEST_F(RegistryContract, MakesAllKeysOnTheWayAndListsKeysByName) {
  create(u"a\\b\\c");
  EXPECT_EQ(surroundings::key_names(below(u"a")), Names{u"b"});
  EXPECT_EQ(surroundings::key_names(below(u"a\\b")), Names{u"c"});
  EXPECT_EQ(surroundings::key_names(below(u"a\\b\\c")), Names{});
  EXPECT_EQ(surroundings::value_names(below(u"a\\b\\c")), Names{});
  for (const char16_t* name : {u"b", u"C", u"{1}", u"aa", u"0"}) create(name);
  EXPECT_EQ(surroundings::key_names(surroundings::registry_scratch),
            (Names{u"0", u"a", u"aa", u"b", u"C", u"{1}"}));
}

TEST_F(RegistryContract, OpensForTheAccessThatIsAskedForAndNoMore) {
  EXPECT_EQ(set(create(u"Key"), u"v", reg_binary, "kept"), 0);
  RegistryKey reader;
  RegistryKey writer;
  ASSERT_EQ(open_registry_key(below(u"Key"), key_query_value, reader), 0);
  ASSERT_EQ(open_registry_key(below(u"Key"), key_set_value, writer), 0);
  for (const char16_t* name : {u"v", u"absent"}) {
    EXPECT_EQ(query_registry_value(writer, name, nullptr, 0).error, error_denied);
    EXPECT_EQ(query(writer, name, 16).query.error, error_denied);
    EXPECT_EQ(set(reader, name, reg_binary, "x"), error_denied);
    EXPECT_EQ(delete_registry_value(reader, name), error_denied);
  }
  expect_value(reader, u"v", reg_binary, "kept");
  EXPECT_EQ(set(writer, u"v", reg_binary, "changed"), 0);
  expect_value(reader, u"v", reg_binary, "changed");
  EXPECT_EQ(delete_registry_value(writer, u"v"), 0);
  // A key that is made is opened for no more either.
  const RegistryKey made = create(u"Made", key_set_value);
  EXPECT_EQ(query_registry_value(made, u"v", nullptr, 0).error, error_denied);
  EXPECT_EQ(set(create(u"Made2", key_write), u"v", reg_binary, "x"), 0);
}

TEST_F(RegistryContract, KeepsTheDefaultValueUnderTheEmptyName) {
  const RegistryKey key = create(u"Key");
  EXPECT_EQ(set(key, u"", reg_sz, bytes_of({u"text\0", 5})), 0);
  EXPECT_EQ(set(key, u"other", reg_binary, "x"), 0);
  expect_value(key, u"", reg_sz, bytes_of({u"text\0", 5}));
  EXPECT_EQ(get(u"Key", u"", rrf_rt_reg_sz, 64).bytes, bytes_of({u"text\0", 5}));
  EXPECT_EQ(surroundings::value_names(below(u"Key")), (Names{u"", u"other"}));
  EXPECT_EQ(delete_registry_value(key, u""), 0);
  EXPECT_EQ(surroundings::value_names(below(u"Key")), Names{u"other"});
}

TEST_F(RegistryContract, KeepsDataOfEveryTypeAsItIs) {
  const RegistryKey key = create(u"Key");
  const std::string data[] = {"",
                              "a",
                              "abc",
                              "abcde",
                              std::string(1, '\0'),
                              std::string(3, '\0'),
                              "ab",
                              "abcdefgh",
                              bytes_of(u"no terminator"),
                              bytes_of({u"one\0", 4}),
                              bytes_of({u"one\0two\0\0", 9}),
                              bytes_of({u"one\0\0three\0\0", 12}),
                              bytes_of({u"\0", 1}),
                              bytes_of({u"\0\0", 2}),
                              bytes_of(u"\xD800\xFFFF\x00F6\x4E00"),
                              bytes_of(std::u16string(32768, u'x')),
                              std::string(65537, 'x')};
  for (const std::uint32_t type :
       {reg_none, reg_sz, reg_expand_sz, reg_binary, reg_dword, reg_multi_sz, reg_qword, type_of_nobody}) {
    for (const std::string& bytes : data) {
      SCOPED_TRACE(std::to_string(type) + ", " + std::to_string(bytes.size()) + " bytes");
      EXPECT_EQ(set(key, u"v", type, bytes), 0);
      expect_value(key, u"v", type, bytes);
    }
  }
}

TEST_F(RegistryContract, FillsABufferOfExactlyTheSizeAndReportsTheSizeToASmallerOne) {
  const RegistryKey key = create(u"Key");
  for (const std::uint32_t type : {reg_sz, reg_binary, reg_dword, reg_multi_sz}) {
    for (const std::string& bytes : {std::string("ab"), std::string("abcd"), bytes_of({u"text\0", 5})}) {
      SCOPED_TRACE(std::to_string(type) + ", " + std::to_string(bytes.size()) + " bytes");
      EXPECT_EQ(set(key, u"v", type, bytes), 0);
      const Reading exact = query(key, u"v", bytes.size());
      EXPECT_EQ(exact.query.error, 0);
      EXPECT_EQ(exact.query.type, type);
      EXPECT_EQ(exact.bytes, bytes);
      EXPECT_EQ(exact.behind, std::string(8, untouched));
      for (const std::size_t capacity : {bytes.size() - 1, bytes.size() / 2, std::size_t{0}}) {
        const Reading small = query(key, u"v", capacity);
        EXPECT_EQ(small.query.error, error_more_data);
        EXPECT_EQ(small.query.type, type);
        EXPECT_EQ(small.query.size, bytes.size());
      }
    }
  }
}

TEST_F(RegistryContract, EndsATextThatLacksItsTerminatorWhereThereIsRoom) {
  const RegistryKey key = create(u"Key");
  const struct {
    const char* what;
    std::string data;
    std::size_t room;  // bytes of the buffer behind the data
    bool ended;        // if the value's type is one of text
  } cases[] = {{"no room", "ABCD", 0, false},
               {"half the room", "ABCD", 1, false},
               {"exactly the room", "ABCD", 2, true},
               {"more room", "ABCD", 8, true},
               {"one character", "AB", 2, true},
               {"an odd size", "ABC", 2, true},
               {"a single byte", "A", 2, true},
               {"a single byte, half the room", "A", 1, false},
               {"half a terminator", std::string("AB\0", 3), 2, true},
               {"a terminator", std::string("AB\0\0", 4), 8, false},
               {"nothing", "", 8, false}};
  for (const std::uint32_t type :
       {reg_none, reg_sz, reg_expand_sz, reg_binary, reg_dword, reg_multi_sz, type_of_nobody}) {
    const bool is_text = type == reg_sz || type == reg_expand_sz || type == reg_multi_sz;
    for (const auto& entry : cases) {
      SCOPED_TRACE(std::to_string(type) + ", " + entry.what);
      EXPECT_EQ(set(key, u"v", type, entry.data), 0);
      const Reading reading = query(key, u"v", entry.data.size() + entry.room);
      EXPECT_EQ(reading.query.error, 0);
      EXPECT_EQ(reading.bytes, entry.data);
      const std::string end(is_text && entry.ended ? 2 : 0, '\0');
      EXPECT_EQ(reading.behind, end + std::string(8 - end.size(), untouched));
    }
  }
}

TEST_F(RegistryContract, LetsTheTypeThatIsAskedForThroughAndNoOther) {
  const RegistryKey key = create(u"Key");
  const std::string data("A\0\0\0", 4);
  for (std::uint32_t type = 0; type <= 12; ++type) {
    for (const std::uint32_t restriction : {rrf_rt_reg_sz, rrf_rt_reg_dword}) {
      SCOPED_TRACE("type " + std::to_string(type) + ", restriction " + std::to_string(restriction));
      EXPECT_EQ(set(key, u"v", type, data), 0);
      const bool is_text = type == reg_sz || type == reg_expand_sz;
      const bool passes = restriction == rrf_rt_reg_sz ? is_text : type == reg_dword;
      const Reading reading = get(u"Key", u"v", restriction, 64);
      EXPECT_EQ(reading.query.error, passes ? 0 : error_other_type);
      if (passes) {
        EXPECT_EQ(reading.query.type, is_text ? reg_sz : reg_dword);
        EXPECT_EQ(reading.bytes, data);
      }
      // That it does not fit either comes second.
      EXPECT_EQ(get(u"Key", u"v", restriction, 2).query.error, passes ? error_more_data : error_other_type);
    }
  }
  EXPECT_EQ(set(key, u"v", type_of_nobody, data), 0);
  EXPECT_EQ(get(u"Key", u"v", rrf_rt_reg_sz, 64).query.error, error_other_type);
  EXPECT_EQ(get(u"Key", u"v", rrf_rt_reg_dword, 64).query.error, error_other_type);
}

// A buffer of 256 bytes, as a reader of short texts has.
TEST_F(RegistryContract, GivesATextOfARestrictedReadingWithItsTerminatorOrNotAtAll) {
  struct Outcome {
    std::int32_t error;
    std::uint32_t size;
  };
  const std::u16string longest(127, u'x');
  const struct {
    const char* what;
    std::u16string text;
    Outcome windows;
    // Wine 8 counts a terminator that is not stored neither as needed nor as given.
    Outcome wine;
  } cases[] = {{"with terminator, exact fit", longest + u'\0', {0, 256}, {0, 256}},
               {"with terminator that does not fit", longest + u"x" + u'\0', {234, 258}, {234, 258}},
               {"without terminator, which fits", longest, {0, 256}, {0, 254}},
               {"without terminator, which does not fit", longest + u"x", {234, 258}, {0, 256}},
               {"without terminator, much too long", longest + longest, {234, 510}, {234, 508}},
               {"an empty text", std::u16string(1, u'\0'), {0, 2}, {0, 2}},
               {"no data", u"", {0, 2}, {0, 0}}};
  const RegistryKey key = create(u"Key");
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.what);
    EXPECT_EQ(set(key, u"v", reg_sz, bytes_of(entry.text)), 0);
    const Reading reading = get(u"Key", u"v", rrf_rt_reg_sz, 256);
    const Outcome& expected = runs_under_wine() ? entry.wine : entry.windows;
    EXPECT_EQ(reading.query.error, expected.error);
    EXPECT_EQ(reading.query.size, expected.size);
    if (expected.error != 0) continue;
    EXPECT_EQ(reading.query.type, reg_sz);
    std::string text = bytes_of(entry.text);
    text.resize(expected.size, '\0');
    EXPECT_EQ(reading.bytes, text);
  }
}

TEST_F(RegistryContract, GivesANumberOfARestrictedReadingWhateverItsSize) {
  const RegistryKey key = create(u"Key");
  for (const std::string& data :
       {std::string("1234"), std::string("12"), std::string("12345678"), std::string("123"), std::string()}) {
    SCOPED_TRACE(data);
    EXPECT_EQ(set(key, u"v", reg_dword, data), 0);
    const Reading reading = get(u"Key", u"v", rrf_rt_reg_dword, 16);
    EXPECT_EQ(reading.query.error, 0);
    EXPECT_EQ(reading.query.type, reg_dword);
    EXPECT_EQ(reading.query.size, data.size());
    EXPECT_EQ(reading.bytes, data);
    EXPECT_EQ(reading.behind, std::string(8, untouched));
    const Reading four = get(u"Key", u"v", rrf_rt_reg_dword, 4);
    EXPECT_EQ(four.query.error, data.size() > 4 ? error_more_data : 0);
    EXPECT_EQ(four.query.size, data.size());
  }
}

TEST_F(RegistryContract, ExpandsTheTextOfARestrictedReading) {
  const RegistryKey key = create(u"Key");
  EXPECT_EQ(set(key, u"plain", reg_sz, bytes_of({u"%SystemRoot%\0", 13})), 0);
  EXPECT_EQ(get(u"Key", u"plain", rrf_rt_reg_sz, 512).bytes, bytes_of({u"%SystemRoot%\0", 13}));
  EXPECT_EQ(set(key, u"root", reg_expand_sz, bytes_of({u"%SystemRoot%\0", 13})), 0);
  const std::string root = get(u"Key", u"root", rrf_rt_reg_sz, 512).bytes;
  ASSERT_GT(root.size(), 2u);
  const std::string bare = root.substr(0, root.size() - 2);
  EXPECT_EQ(root.substr(bare.size()), std::string(2, '\0'));
  EXPECT_EQ(root.find('%'), std::string::npos);
  const auto text = [](std::u16string_view characters) { return bytes_of(characters); };
  const struct {
    const char* what;
    std::string stored;
    std::string expanded;
  } cases[] = {{"with terminator", text({u"%SystemRoot%\\x\0", 15}), bare + text({u"\\x\0", 3})},
               {"in the middle, in another case", text({u"a%SYSTEMroot%b\0", 15}),
                text(u"a") + bare + text({u"b\0", 2})},
               {"twice", text({u"%SystemRoot%%SystemRoot%\0", 25}), bare + bare + text({u"\0", 1})},
               {"unknown", text({u"%VelmoraNobody%\\x\0", 18}), text({u"%VelmoraNobody%\\x\0", 18})},
               {"unknown, then known", text({u"%VelmoraNobody%%SystemRoot%\0", 28}),
                text(u"%VelmoraNobody%") + bare + text({u"\0", 1})},
               {"never closed", text({u"50%\0", 4}), text({u"50%\0", 4})},
               {"two of them", text({u"%%\0", 3}), text({u"%%\0", 3})},
               {"nothing to expand", text({u"plain\0", 6}), text({u"plain\0", 6})},
               {"an empty text", text({u"\0", 1}), text({u"\0", 1})}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.what);
    EXPECT_EQ(set(key, u"v", reg_expand_sz, entry.stored), 0);
    expect_value(key, u"v", reg_expand_sz, entry.stored);
    for (const std::size_t room : {std::size_t{64}, std::size_t{0}}) {
      const Reading reading = get(u"Key", u"v", rrf_rt_reg_sz, entry.expanded.size() + room);
      EXPECT_EQ(reading.query.error, 0);
      EXPECT_EQ(reading.query.type, reg_sz);
      EXPECT_EQ(reading.bytes, entry.expanded);
    }
    const Reading small = get(u"Key", u"v", rrf_rt_reg_sz, entry.expanded.size() - 1);
    EXPECT_EQ(small.query.error, error_more_data);
    EXPECT_EQ(small.query.size, entry.expanded.size());
    EXPECT_EQ(get(u"Key", u"v", rrf_rt_reg_dword, 512).query.error, error_other_type);
  }
  EXPECT_EQ(set(key, u"v", reg_expand_sz, text(u"%SystemRoot%\\x")), 0);
  const Reading unterminated = get(u"Key", u"v", rrf_rt_reg_sz, 512);
  const std::string expanded = bare + text({u"\\x\0", 3});
  EXPECT_EQ(unterminated.query.error, 0);
  EXPECT_EQ(unterminated.bytes.substr(0, expanded.size() - 2), expanded.substr(0, expanded.size() - 2));
  // Wine 8 goes on into whatever lies behind a text without terminator.
  EXPECT_TRUE(unterminated.bytes == expanded || runs_under_wine());
}

TEST_F(RegistryContract, ReplacesTypeAndDataOfAValue) {
  const RegistryKey key = create(u"Key");
  const struct {
    std::uint32_t type;
    std::string data;
  } steps[] = {{reg_sz, bytes_of({u"a long text\0", 12})},
               {reg_dword, "1234"},
               {reg_multi_sz, bytes_of({u"one\0two\0\0", 9})},
               {reg_binary, ""},
               {type_of_nobody, "x"},
               {reg_sz, ""}};
  for (const auto& step : steps) {
    SCOPED_TRACE(step.type);
    EXPECT_EQ(set(key, u"v", step.type, step.data), 0);
    expect_value(key, u"v", step.type, step.data);
    EXPECT_EQ(surroundings::value_names(below(u"Key")), Names{u"v"});
  }
  EXPECT_EQ(set_registry_value(key, u"v", reg_binary, nullptr, 0), 0);
  expect_value(key, u"v", reg_binary, "");
}

TEST_F(RegistryContract, DeletesAValueOnceAndReportsMissingValues) {
  const RegistryKey key = create(u"Key");
  for (const char16_t* name : {u"a", u"b", u"c"}) EXPECT_EQ(set(key, name, reg_binary, "x"), 0);
  EXPECT_EQ(delete_registry_value(key, u"b"), 0);
  for (const char16_t* name : {u"absent", u"", u"aa", u"b"}) {
    SCOPED_TRACE(bytes_of(name));
    EXPECT_EQ(delete_registry_value(key, name), error_missing);
    EXPECT_EQ(query_registry_value(key, name, nullptr, 0).error, error_missing);
    EXPECT_EQ(query(key, name, 16).query.error, error_missing);
    for (const std::uint32_t restriction : {rrf_rt_reg_sz, rrf_rt_reg_dword}) {
      for (const char16_t* path : {u"Key", u"Absent", u"Key\\Absent"}) {
        EXPECT_EQ(get(path, name, restriction, 64).query.error, error_missing);
      }
    }
  }
  EXPECT_EQ(surroundings::value_names(below(u"Key")), (Names{u"a", u"c"}));
}

TEST_F(RegistryContract, DeletesAKeyWithItsValuesThoughNotOneWithKeysBelowIt) {
  EXPECT_EQ(set(create(u"Parent\\Child\\Grandchild"), u"v", reg_binary, "x"), 0);
  RegistryKey parent;
  ASSERT_EQ(open_registry_key(below(u"Parent"), key_query_value, parent), 0);
  EXPECT_EQ(delete_registry_key(parent, u"Absent"), error_missing);
  EXPECT_EQ(delete_registry_key(parent, u"Child\\Absent"), error_missing);
  EXPECT_EQ(delete_registry_key(parent, u"Child"), error_denied);
  EXPECT_EQ(surroundings::value_names(below(u"Parent\\Child\\Grandchild")), Names{u"v"});
  EXPECT_EQ(delete_registry_key(parent, u"cHILD\\gRANDCHILD"), 0);
  EXPECT_EQ(delete_registry_key(parent, u"Child\\Grandchild"), error_missing);
  EXPECT_EQ(delete_registry_key(parent, u"Child"), 0);
  EXPECT_EQ(surroundings::key_names(below(u"Parent")), Names{});
  EXPECT_EQ(open_error(below(u"Parent\\Child"), key_query_value), error_missing);
}

void expect_key_gone(const RegistryKey& key) {
  EXPECT_EQ(query_registry_value(key, u"v", nullptr, 0).error, error_key_deleted);
  EXPECT_EQ(query(key, u"v", 16).query.error, error_key_deleted);
  EXPECT_EQ(set(key, u"v", reg_binary, "x"), error_key_deleted);
  EXPECT_EQ(delete_registry_value(key, u"v"), error_key_deleted);
  EXPECT_EQ(delete_registry_key(key, u"Below"), error_key_deleted);
}

TEST_F(RegistryContract, ReportsThatAnOpenKeyIsGoneThoughAnotherHasItsName) {
  const RegistryKey parent = create(u"Parent");
  const RegistryKey gone = create(u"Parent\\Key");
  const RegistryKey gone_too = create(u"PARENT\\KEY");
  EXPECT_EQ(set(gone, u"v", reg_binary, "old"), 0);
  EXPECT_EQ(delete_registry_key(parent, u"Key"), 0);
  expect_key_gone(gone);
  expect_key_gone(gone_too);
  const RegistryKey anew = create(u"Parent\\Key");
  EXPECT_EQ(surroundings::value_names(below(u"Parent\\Key")), Names{});
  EXPECT_EQ(set(anew, u"v", reg_binary, "new"), 0);
  expect_key_gone(gone);
  expect_key_gone(gone_too);
  expect_value(anew, u"v", reg_binary, "new");
}

TEST_F(RegistryContract, LooksAtTheAccessOfAnOpenKeyBeforeItLooksForTheKey) {
  const RegistryKey parent = create(u"Parent");
  create(u"Parent\\Key");
  RegistryKey reader;
  RegistryKey writer;
  ASSERT_EQ(open_registry_key(below(u"Parent\\Key"), key_query_value, reader), 0);
  ASSERT_EQ(open_registry_key(below(u"Parent\\Key"), key_set_value, writer), 0);
  EXPECT_EQ(delete_registry_key(parent, u"Key"), 0);
  EXPECT_EQ(set(reader, u"v", reg_binary, "x"), error_denied);
  EXPECT_EQ(delete_registry_value(reader, u"v"), error_denied);
  EXPECT_EQ(query_registry_value(writer, u"v", nullptr, 0).error, error_denied);
}

TEST_F(RegistryContract, OpensAGuardedKeyOnlyForWhatItGrants) {
  const struct {
    std::uint32_t granted;
    std::uint32_t access;
    std::int32_t error;
  } cases[] = {{key_read, key_query_value, 0},
               {key_read, key_read, 0},
               {key_read, key_set_value, error_denied},
               {key_read, key_write, error_denied},
               {key_read, key_both, error_denied},
               {key_write, key_set_value, 0},
               {key_write, key_write, 0},
               {key_write, key_query_value, error_denied},
               {0, key_query_value, error_denied},
               {0, key_set_value, error_denied},
               {0xF003F, key_both, 0}};
  EXPECT_EQ(set(create(u"Guarded"), u"v", reg_sz, bytes_of({u"x\0", 2})), 0);
  for (const auto& entry : cases) {
    SCOPED_TRACE(std::to_string(entry.granted) + " granted, " + std::to_string(entry.access) + " asked");
    const surroundings::Grant grant = surroundings::grant(below(u"Guarded"), entry.granted);
    EXPECT_EQ(open_error(below(u"guarded"), entry.access), entry.error);
    RegistryKey key;
    EXPECT_EQ(create_registry_key(below(u"Guarded"), entry.access, key), entry.error);
    EXPECT_EQ(key.is_open(), entry.error == 0);
    const bool may_query = (entry.granted & key_query_value) != 0;
    EXPECT_EQ(get(u"Guarded", u"v", rrf_rt_reg_sz, 64).query.error, may_query ? 0 : error_denied);
  }
  EXPECT_EQ(open_error(below(u"Guarded"), key_both), 0);
}

TEST_F(RegistryContract, KeepsAKeyOpenThoughItGrantsLessSince) {
  const RegistryKey key = create(u"Guarded");
  const surroundings::Grant grant = surroundings::grant(below(u"Guarded"), 0);
  EXPECT_EQ(set(key, u"v", reg_binary, "x"), 0);
  expect_value(key, u"v", reg_binary, "x");
}

// Wine 8 looks only at the access list of the key that is opened, not at that of the key above one that is
// made, and grants the right to delete in any case.
TEST_F(RegistryContract, NeitherMakesKeysBelowAGuardedOneNorDeletesIt) {
  const std::int32_t expected = runs_under_wine() ? 0 : error_denied;
  const RegistryKey parent = create(u"Parent");
  create(u"Parent\\Guarded");
  surroundings::Grant grant = surroundings::grant(below(u"Parent\\Guarded"), key_read);
  RegistryKey key;
  EXPECT_EQ(create_registry_key(below(u"Parent\\Guarded\\New"), key_query_value, key), expected);
  key.close();
  EXPECT_EQ(delete_registry_key(parent, u"Guarded\\New"), runs_under_wine() ? 0 : error_missing);
  EXPECT_EQ(surroundings::key_names(below(u"Parent\\Guarded")), Names{});
  EXPECT_EQ(delete_registry_key(parent, u"Guarded"), expected);
  grant.close();
  EXPECT_EQ(delete_registry_key(parent, u"Guarded"), runs_under_wine() ? error_missing : 0);
}

TEST_F(RegistryContract, HoldsEachKeyOnceAndClosesTheFormerOne) {
  RegistryKey first = create(u"First");
  const auto first_native = first.native();
  RegistryKey second = create(u"Second");
  const auto second_native = second.native();
  EXPECT_NE(first_native, second_native);
  first = std::move(second);
  EXPECT_FALSE(surroundings::is_held(first_native));
  EXPECT_TRUE(surroundings::is_held(second_native));
  EXPECT_EQ(first.native(), second_native);
  EXPECT_FALSE(second.is_open());
  RegistryKey& same = first;
  first = std::move(same);
  EXPECT_TRUE(surroundings::is_held(second_native));
  first.close();
  EXPECT_FALSE(surroundings::is_held(second_native));
  first.close();
  RegistryKey opened = create(u"First");
  const auto opened_native = opened.native();
  EXPECT_EQ(open_registry_key(below(u"Second"), key_query_value, opened), 0);
  EXPECT_TRUE(surroundings::is_held(opened.native()));
  EXPECT_NE(opened.native(), opened_native);
  EXPECT_FALSE(surroundings::is_held(opened_native));
}

}  // namespace
}  // namespace velmora
