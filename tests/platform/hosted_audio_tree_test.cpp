// The endpoints of a machine, read out of exports.
#include "platform/hosted/audio_tree.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/text.h"
#include "platform/hosted/registry_export.h"
#include "platform/registry.h"

namespace velmora::hosted {
namespace {

const std::string devices = R"(HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio)";
const std::string own = R"(HKEY_LOCAL_MACHINE\SOFTWARE\VelmoraStandIn\Audio)";
const std::string name_values = "{a45c254e-df1c-4efd-8020-67d146a850e0}";
const std::string interface_value = "{b3f8fa53-0004-438e-9003-51a46e139bfc},6";
const std::u16string render_mark = u"{0.0.0.00000000}.";
const std::u16string capture_mark = u"{0.0.1.00000000}.";
const std::u16string speakers = render_mark + u"{aa}";

RegistryTree tree_of(const std::string& keys) {
  auto parsed = parse_export("Windows Registry Editor Version 5.00\n\n" + keys);
  if (const auto* trouble = std::get_if<ExportTrouble>(&parsed)) {
    ADD_FAILURE() << trouble->line << ": " << trouble->why;
    return {};
  }
  return std::get<ParsedExport>(parsed).tree;
}

std::string key(const std::string& path, const std::string& values = "") {
  return "[" + path + "]\n" + values + "\n";
}

std::string device(const std::string& flow, const std::string& name, int state = 1) {
  return key(devices + "\\" + flow + "\\" + name,
             "\"DeviceState\"=dword:0000000" + std::to_string(state) + "\n");
}

// A tree with these values below the hosted machine's own key of the speakers.
RegistryTree with_own(const std::string& values) {
  return tree_of(device("Render", "{aa}") + key(own + "\\{0.0.0.00000000}.{aa}", values));
}

RegistryTree with_properties(const std::string& values) {
  return tree_of(device("Render", "{aa}") + key(devices + "\\Render\\{aa}\\Properties", values));
}

std::vector<std::string> listed(const RegistryTree& tree, EndpointFlow flow) {
  std::vector<std::string> lines;
  for (const TreeEndpoint& endpoint : endpoints_of(tree, flow)) {
    lines.push_back((endpoint.active ? "+" : "-") + utf8_from_wide(endpoint.id));
  }
  return lines;
}

using Lines = std::vector<std::string>;

TEST(AudioTree, ListsTheEndpointsOfEachFlowInTheOrderOfTheirKeys) {
  const RegistryTree tree = tree_of(device("Render", "{bb}") + device("Capture", "{cc}") +
                                    device("Render", "{aa}") + device("Capture", "{ab}"));
  EXPECT_EQ(listed(tree, EndpointFlow::render), (Lines{"+{0.0.0.00000000}.{bb}", "+{0.0.0.00000000}.{aa}"}));
  EXPECT_EQ(listed(tree, EndpointFlow::capture), (Lines{"+{0.0.1.00000000}.{cc}", "+{0.0.1.00000000}.{ab}"}));
}

TEST(AudioTree, ListsNothingWhereTheKeysAreMissing) {
  for (const std::string& keys : {std::string(), key(devices), key(devices + "\\Render"), key(own)}) {
    SCOPED_TRACE(keys);
    const RegistryTree tree = tree_of(keys);
    EXPECT_EQ(listed(tree, EndpointFlow::render), Lines{});
    EXPECT_EQ(listed(tree, EndpointFlow::capture), Lines{});
    EXPECT_FALSE(find_endpoint(tree, speakers).has_value());
    EXPECT_EQ(default_endpoint_of(tree, EndpointFlow::render), u"");
  }
}

TEST(AudioTree, TakesAnEndpointForActiveInTheState1Alone) {
  const struct {
    const char* state;
    bool active;
  } rows[] = {{"\"DeviceState\"=dword:00000001\n", true},
              {"\"devicestate\"=dword:00000001\n", true},
              {"\"DeviceState\"=dword:00000000\n", false},
              {"\"DeviceState\"=dword:00000002\n", false},
              {"\"DeviceState\"=dword:00000004\n", false},
              {"\"DeviceState\"=dword:00000008\n", false},
              {"\"DeviceState\"=dword:10000001\n", false},
              {"\"DeviceState\"=\"1\"\n", false},
              {"\"DeviceState\"=hex:01,00,00,00\n", false},
              {"\"DeviceState\"=hex(4):01,00\n", false},
              {"\"DeviceState\"=hex(b):01,00,00,00,00,00,00,00\n", false},
              {"", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.state);
    const RegistryTree tree = tree_of(key(devices + "\\Render\\{aa}", row.state));
    const auto found = find_endpoint(tree, speakers);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->active, row.active);
    EXPECT_EQ(default_endpoint_of(tree, EndpointFlow::render), row.active ? speakers : u"");
  }
}

TEST(AudioTree, FindsAnEndpointByItsExactIdAlone) {
  const RegistryTree tree = tree_of(device("Render", "{aa}") + device("Capture", "{bb}", 8));
  ASSERT_TRUE(find_endpoint(tree, speakers).has_value());
  EXPECT_EQ(find_endpoint(tree, speakers)->id, speakers);
  EXPECT_TRUE(find_endpoint(tree, speakers)->active);
  ASSERT_TRUE(find_endpoint(tree, capture_mark + u"{bb}").has_value());
  EXPECT_FALSE(find_endpoint(tree, capture_mark + u"{bb}")->active);
  const std::u16string rejects[] = {u"",
                                    u"{aa}",
                                    render_mark,
                                    render_mark + u"{AA}",
                                    render_mark + u"{aa",
                                    render_mark + u"{aa}}",
                                    render_mark + u"{bb}",
                                    capture_mark + u"{aa}",
                                    u"{0.0.2.00000000}.{aa}",
                                    u"{0.0.0.00000000}{aa}"};
  for (const std::u16string& id : rejects) {
    SCOPED_TRACE(testing::PrintToString(id));
    EXPECT_FALSE(find_endpoint(tree, id).has_value());
  }
}

TEST(AudioTree, TakesTheNamedDefaultAndElseTheFirstActiveEndpoint) {
  const std::string all = device("Render", "{aa}", 8) + device("Render", "{bb}") + device("Render", "{cc}") +
                          device("Capture", "{dd}");
  const struct {
    const char* what;
    const char* value;
    std::u16string found;
  } rows[] = {
      {"named", "\"DefaultRender\"=\"{0.0.0.00000000}.{cc}\"\n", render_mark + u"{cc}"},
      {"none named", "", render_mark + u"{bb}"},
      {"named and inactive", "\"DefaultRender\"=\"{0.0.0.00000000}.{aa}\"\n", render_mark + u"{bb}"},
      {"named and not there", "\"DefaultRender\"=\"{0.0.0.00000000}.{ee}\"\n", render_mark + u"{bb}"},
      {"named in other case", "\"DefaultRender\"=\"{0.0.0.00000000}.{CC}\"\n", render_mark + u"{bb}"},
      {"one of the other flow", "\"DefaultRender\"=\"{0.0.1.00000000}.{dd}\"\n", render_mark + u"{bb}"},
      {"an empty name", "\"DefaultRender\"=\"\"\n", render_mark + u"{bb}"},
      {"no text", "\"DefaultRender\"=dword:00000001\n", render_mark + u"{bb}"},
      {"the other flow's", "\"DefaultCapture\"=\"{0.0.0.00000000}.{cc}\"\n", render_mark + u"{bb}"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const RegistryTree tree = tree_of(all + key(own, row.value));
    EXPECT_EQ(default_endpoint_of(tree, EndpointFlow::render), row.found);
    EXPECT_EQ(default_endpoint_of(tree, EndpointFlow::capture), capture_mark + u"{dd}");
  }
  const RegistryTree inactive = tree_of(device("Render", "{aa}", 2) + device("Render", "{bb}", 4) +
                                        key(own, "\"DefaultRender\"=\"{0.0.0.00000000}.{aa}\"\n"));
  EXPECT_EQ(default_endpoint_of(inactive, EndpointFlow::render), u"");
}

TEST(AudioTree, TakesTheFriendlyNameOrMakesItOfTheDescriptionAndTheInterface) {
  const std::string friendly = "\"" + name_values + ",14\"=";
  const std::string description = "\"" + name_values + ",2\"=";
  const std::string interface_name = "\"" + interface_value + "\"=";
  const struct {
    std::string values;
    std::optional<std::u16string> name;
  } rows[] = {{friendly + "\"Friendly\"\n", u"Friendly"},
              {friendly + "\"Friendly\"\n" + description + "\"Speakers\"\n" + interface_name + "\"Card\"\n",
               u"Friendly"},
              {friendly + "\"\"\n" + description + "\"Speakers\"\n", u""},
              {description + "\"Speakers\"\n" + interface_name + "\"Card\"\n", u"Speakers (Card)"},
              {description + "\"Speakers\"\n", u"Speakers"},
              {description + "\"Speakers\"\n" + interface_name + "dword:00000001\n", u"Speakers"},
              {description + "\"Speakers\"\n" + interface_name + "\"\"\n", u"Speakers ()"},
              {friendly + "hex(1):55,00,00,00,56,00,00,00\n", u"U"},  // up to the first NUL
              {friendly + "hex(1):55,00,3c,d8\n", u"U\xD83C"},        // no NUL, and half a pair
              {friendly + "hex(1):55,00,56\n", u"U"},                 // an odd byte
              {friendly + "hex(1):\n", u""},
              {interface_name + "\"Card\"\n", std::nullopt},
              {description + "dword:00000001\n" + interface_name + "\"Card\"\n", std::nullopt},
              {friendly + "dword:00000001\n" + description + "\"Speakers\"\n", std::nullopt},
              {friendly + "hex(2):55,00,00,00\n", std::nullopt},
              {"", std::nullopt}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.values);
    EXPECT_EQ(endpoint_name_of(with_properties(row.values), speakers), row.name);
  }
  EXPECT_EQ(endpoint_name_of(tree_of(device("Render", "{aa}")), speakers), std::nullopt);
  const RegistryTree named = with_properties(friendly + "\"Friendly\"\n");
  for (const std::u16string& id : {render_mark + u"{bb}", capture_mark + u"{aa}", std::u16string(u"{aa}")}) {
    EXPECT_EQ(endpoint_name_of(named, id), std::nullopt);
  }
}

TEST(AudioTree, ReadsAVolumeFrom0To1AndTakes1ForAllElse) {
  const struct {
    const char* value;
    float level;
  } rows[] = {{"\"0\"", 0},         {"\"1\"", 1},       {"\"0.25\"", 0.25F}, {"\"2.5e-1\"", 0.25F},
              {"\".5\"", 0.5F},     {"\" 0.5\"", 0.5F}, {"\"0.5x\"", 0.5F},  {"\"0.100000001\"", 0.1F},
              {"\"1.001\"", 1},     {"\"-0.1\"", 1},    {"\"2\"", 1},        {"\"nan\"", 1},
              {"\"inf\"", 1},       {"\"-inf\"", 1},    {"\"\"", 1},         {"\"loud\"", 1},
              {"dword:00000000", 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.value);
    EXPECT_EQ(volume_of(with_own(std::string("\"Volume\"=") + row.value + "\n"), speakers), row.level);
  }
  EXPECT_EQ(volume_of(with_own(""), speakers), 1);
  EXPECT_EQ(volume_of(tree_of(device("Render", "{aa}")), speakers), 1);
}

TEST(AudioTree, ReadsAPeakOfEveryNumberAndTakes0ForAllElse) {
  const struct {
    const char* value;
    float peak;
  } rows[] = {{"\"0.25\"", 0.25F},     {"\"1.5\"", 1.5F}, {"\"-2\"", -2},  {"\"inf\"", INFINITY},
              {"\"-inf\"", -INFINITY}, {"\"\"", 0},       {"\"loud\"", 0}, {"dword:00000001", 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.value);
    EXPECT_EQ(peak_of(with_own(std::string("\"Peak\"=") + row.value + "\n"), speakers), row.peak);
  }
  EXPECT_TRUE(std::isnan(peak_of(with_own("\"Peak\"=\"nan\"\n"), speakers)));
  EXPECT_EQ(peak_of(with_own("\"Volume\"=\"0.5\"\n"), speakers), 0);
  EXPECT_EQ(peak_of(tree_of(""), speakers), 0);
}

TEST(AudioTree, SwingsAPeakAboutItsMiddleWithTheClock) {
  const RegistryTree still = with_own("\"Peak\"=\"0.5\"\n");
  const RegistryTree swinging = with_own("\"Peak\"=\"0.5\"\n\"PeakSwing\"=\"0.25\"\n");
  const struct {
    std::int64_t ms;
    float peak;
  } rows[] = {{0, 0.25F}, {375, 0.5F}, {750, 0.75F}, {1125, 0.5F}, {1500, 0.25F}, {15'750, 0.75F}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ms);
    EXPECT_EQ(peak_at(still, speakers, row.ms * 1'000'000), 0.5F);
    EXPECT_NEAR(peak_at(swinging, speakers, row.ms * 1'000'000), row.peak, 1e-6F);
  }
}

TEST(AudioTree, ReadsAMuteThatIsANumberOtherThan0) {
  const struct {
    const char* value;
    bool muted;
  } rows[] = {{"\"Muted\"=dword:00000001\n", true},   {"\"Muted\"=dword:80000000\n", true},
              {"\"Muted\"=dword:00000000\n", false},  {"\"Muted\"=\"1\"\n", false},
              {"\"Muted\"=hex:01,00,00,00\n", false}, {"", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.value);
    EXPECT_EQ(muted_of(with_own(row.value), speakers), row.muted);
  }
  EXPECT_FALSE(muted_of(tree_of(""), speakers));
}

TEST(AudioTree, ReadsTheSessionsInTheOrderOfTheirKeys) {
  const std::string sessions = own + "\\{0.0.0.00000000}.{aa}\\Sessions";
  const RegistryTree tree =
      tree_of(key(sessions + "\\z", "\"State\"=dword:00000001\n\"ProcessId\"=dword:000004d2\n") +
              key(sessions + "\\b", "\"State\"=dword:00000002\n") +
              key(sessions + "\\a", "\"ProcessId\"=dword:ffffffff\n") + key(sessions + "\\c") +
              key(sessions + "\\d", "\"State\"=dword:ffffffff\n\"ProcessId\"=\"7\"\n"));
  const AudioSession expected[] = {{1, 1234}, {2, 0}, {0, 0xFFFFFFFF}, {0, 0}, {-1, 0}};
  const auto found = sessions_of(tree, speakers);
  ASSERT_EQ(found.size(), std::size(expected));
  for (std::size_t index = 0; index < found.size(); ++index) {
    SCOPED_TRACE(index);
    EXPECT_EQ(found[index].state, expected[index].state);
    EXPECT_EQ(found[index].process_id, expected[index].process_id);
  }
  EXPECT_TRUE(sessions_of(tree, render_mark + u"{bb}").empty());
  EXPECT_TRUE(sessions_of(with_own(""), speakers).empty());
}

float float_of_bits(std::uint32_t bits) {
  float number = 0;
  std::memcpy(&number, &bits, sizeof number);
  return number;
}

// The floats from 0 to 1 in even steps of their bits, of which there are 0x3F800000.
TEST(AudioTree, KeepsEveryVolumeToTheBit) {
  RegistryTree tree = with_own("");
  constexpr std::uint32_t bits_of_one = 0x3F800000;
  for (std::uint32_t bits = 0; bits <= bits_of_one; bits += 0x3F7F) {
    const float level = float_of_bits(bits);
    put_volume(tree, speakers, level);
    ASSERT_EQ(volume_of(tree, speakers), level) << bits;
  }
  for (const float level : {0.0F, 1.0F, 0.1F, float_of_bits(1), float_of_bits(bits_of_one - 1)}) {
    put_volume(tree, speakers, level);
    EXPECT_EQ(volume_of(tree, speakers), level);
  }
}

TEST(AudioTree, WritesAVolumeAndAMuteAsAnExportHasThem) {
  RegistryTree tree = tree_of(device("Render", "{aa}"));
  put_volume(tree, speakers, 0.25F);
  put_muted(tree, speakers, true);
  const TreeKey* const written = find_key(tree, wide_from_utf8(own) + u"\\" + speakers);
  ASSERT_NE(written, nullptr);
  const std::string text("0\0.\0002\0005\0\0\0", 10);
  EXPECT_EQ(written->values, (std::vector<TreeValue>{{u"Volume", reg_sz, text},
                                                     {u"Muted", reg_dword, std::string("\1\0\0\0", 4)}}));
  EXPECT_EQ(volume_of(tree, speakers), 0.25F);
  EXPECT_TRUE(muted_of(tree, speakers));
  put_muted(tree, speakers, false);
  EXPECT_FALSE(muted_of(tree, speakers));
}

TEST(AudioTree, ChangesNothingOfAnotherEndpointNorAnyOtherValue) {
  const std::string values =
      "\"Peak\"=\"0.5\"\n\"Volume\"=\"0.5\"\n\"Muted\"=dword:00000000\n\"Other\"=\"kept\"\n";
  const auto tree_with = [&](const std::string& changed) {
    return tree_of(device("Render", "{aa}") + device("Render", "{bb}") +
                   key(own, "\"DefaultRender\"=\"{0.0.0.00000000}.{bb}\"\n") +
                   key(own + "\\{0.0.0.00000000}.{bb}", values) +
                   key(own + "\\{0.0.0.00000000}.{aa}", changed) +
                   key(own + "\\{0.0.0.00000000}.{aa}\\Sessions\\0", "\"State\"=dword:00000001\n"));
  };
  RegistryTree tree = tree_with(values);
  put_volume(tree, speakers, 0.25F);
  put_muted(tree, speakers, true);
  EXPECT_EQ(
      tree,
      tree_with("\"Peak\"=\"0.5\"\n\"Volume\"=\"0.25\"\n\"Muted\"=dword:00000001\n\"Other\"=\"kept\"\n"));
}

}  // namespace
}  // namespace velmora::hosted
