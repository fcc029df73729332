#include "endpoints/meters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "unit/endpoints/support/audio_machine.h"

namespace velmora {
namespace {

using namespace audio;

class Meters : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    put_usual_machine();
  }

  static AudioDevice device_of(const std::u16string& id) {
    DeviceEnumerator enumerator;
    EXPECT_EQ(create_device_enumerator(enumerator), 0);
    AudioDevice device;
    EXPECT_EQ(get_device(enumerator, id, device), 0);
    return device;
  }
  static std::vector<std::string> sessions(const std::u16string& id) {
    return read_endpoint_sessions(device_of(id));
  }
  // The session names of the only endpoint, which has these sessions.
  static std::vector<std::string> sessions(const std::vector<AudioSession>& of_endpoint) {
    memory::reset();
    Endpoint endpoint = speakers;
    endpoint.sessions = of_endpoint;
    put_endpoint(endpoint);
    return sessions(speakers_id);
  }
};

using Names = std::vector<std::string>;

TEST_F(Meters, ReturnThePeakUnchanged) {
  const struct {
    std::string text;
    float peak;
  } rows[] = {{"0", 0},          {"1", 1},        {"0.25", 0.25f}, {"1.5", 1.5f},  {"-0.5", -0.5f},
              {"1e-40", 1e-40f}, {"3e38", 3e38f}, {"-1", -1},      {"100", 100.f}, {"0.333333343", 1.0f / 3}};
  for (const auto& row : rows) {
    put_text(own_key_of(speakers_id), u"Peak", endpoint::widen(row.text));
    EXPECT_EQ(read_endpoint_peak(device_of(speakers_id)), row.peak) << row.text;
  }
}

TEST_F(Meters, ReturnZeroForAPeakThatIsNotFinite) {
  for (const std::string text : {"nan", "-nan", "inf", "-inf", "1e39", "-1e39"}) {
    put_text(own_key_of(speakers_id), u"Peak", endpoint::widen(text));
    const float peak = read_endpoint_peak(device_of(speakers_id));
    EXPECT_EQ(peak, 0.0f) << text;
    EXPECT_FALSE(std::signbit(peak)) << text;
  }
}

TEST_F(Meters, ReturnZeroForAnUnreadablePeak) {
  for (const std::int32_t status : {access_denied, device_invalidated, smallest_status, -1}) {
    memory::system().faults["GetPeakValue"] = {status};
    EXPECT_EQ(read_endpoint_peak(device_of(speakers_id)), 0.0f);
  }
  for (const std::int32_t status : {1, 0x7FFFFFFF}) {
    memory::system().faults["GetPeakValue"] = {status};
    EXPECT_EQ(read_endpoint_peak(device_of(speakers_id)), 0.25f);
  }
  const AudioDevice device = device_of(speakers_id);
  set_active(speakers, false);
  EXPECT_EQ(read_endpoint_peak(device), 0.0f);
  remove_endpoint(speakers);
  EXPECT_EQ(read_endpoint_peak(device), 0.0f);
}

TEST_F(Meters, NameEachActiveSessionInSystemOrder) {
  EXPECT_EQ(sessions(speakers_id), (Names{"player.exe", "system"}));
  EXPECT_EQ(sessions(line_in_id), (Names{"player.exe", "recorder.exe"}));
  EXPECT_EQ(sessions(headphones_id), (Names{"pid 1234", "player.exe", "player.exe"}));
}

TEST_F(Meters, SkipSessionsThatAreNotActive) {
  EXPECT_EQ(sessions({{0, 7}, {2, 7}, {3, 7}, {-1, 7}, {smallest_status, 7}, {257, 7}, {65537, 7}}), Names());
  EXPECT_EQ(calls_of("QueryFullProcessImageNameW"), 0);
  EXPECT_EQ(sessions({{0, 1}, {1, 2}, {2, 3}, {1, 4}, {0, 0}}), (Names{"pid 2", "pid 4"}));
  EXPECT_EQ(sessions(std::vector<AudioSession>()), Names());
}

TEST_F(Meters, NameNothingWhenSessionsCannotBeListed) {
  for (const std::int32_t status : {access_denied, device_invalidated, smallest_status, -1}) {
    memory::system().faults["GetSessionEnumerator"] = {status};
    EXPECT_EQ(sessions(speakers_id), Names());
  }
  EXPECT_EQ(calls_of("QueryFullProcessImageNameW"), 0);
  for (const std::int32_t status : {1, 0x7FFFFFFF}) {
    memory::system().faults["GetSessionEnumerator"] = {status};
    EXPECT_EQ(sessions(speakers_id), (Names{"player.exe", "system"}));
  }
  const AudioDevice device = device_of(speakers_id);
  remove_endpoint(speakers);
  EXPECT_EQ(read_endpoint_sessions(device), Names());
}

TEST_F(Meters, SkipOnlyTheSessionThatFails) {
  const Names all = {"pid 1234", "player.exe", "player.exe"};
  for (const std::int32_t status : {access_denied, device_invalidated, smallest_status, -1, 1, 0x7FFFFFFF}) {
    for (std::size_t failing = 0; failing < 4; ++failing) {
      Names expected = all;
      // The first of the four is not active.
      if (status < 0 && failing > 0)
        expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(failing) - 1);
      auto& faults = memory::system().faults["GetSession"];
      faults.assign(failing, 0);
      faults.push_back(status);
      EXPECT_EQ(sessions(headphones_id), expected) << status << " at " << failing;
      EXPECT_TRUE(memory::system().state.audio_objects.empty());
      memory::system().faults.clear();
    }
  }
}

TEST_F(Meters, ReadSessionsAsOfTheirEnumeration) {
  const Names before = sessions(headphones_id);
  memory::system().before_machine_call = [](const std::string& entry) {
    if (entry == "GetSession 1") own_key_of(headphones_id).keys.clear();
  };
  EXPECT_EQ(sessions(headphones_id), before);
  EXPECT_GT(before.size(), 1u);
  EXPECT_EQ(sessions(headphones_id), Names{});
}

TEST_F(Meters, NameAProcessByTheFileNameOfItsProgram) {
  const struct {
    std::u16string path;
    std::string name;
  } rows[] = {
      {u"C:\\Programs\\player.exe", "player.exe"},
      {u"\\Device\\HarddiskVolume3\\a b.exe", "a b.exe"},
      {u"player.exe", "player.exe"},
      {u"\\player.exe", "player.exe"},
      {u"a\\b", "b"},
      {u"/usr/bin/player", "/usr/bin/player"},
      {u"C:\\x/y", "x/y"},
      {u"C:\\\xE4\x20AC\xD83D\xDE00", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {u"C:\\\xD800\\player.exe", "player.exe"},
      {std::u16string(259, u'x'), std::string(259, 'x')},
      {u"", "pid 77"},
      {u"\\", "pid 77"},
      {u"C:\\Programs\\", "pid 77"},
      {u"C:\\play\xD800.exe", "pid 77"},
      {u"\xDC00", "pid 77"},
  };
  for (const auto& row : rows) {
    memory::system().process_paths[77] = row.path;
    EXPECT_EQ(process_display_name(77), row.name) << ::testing::PrintToString(row.path);
  }
}

TEST_F(Meters, NameAProcessByItsIdWithoutAPath) {
  EXPECT_EQ(process_display_name(1), "pid 1");
  EXPECT_EQ(process_display_name(1234), "pid 1234");
  EXPECT_EQ(process_display_name(0x80000000u), "pid 2147483648");
  EXPECT_EQ(process_display_name(0xFFFFFFFFu), "pid 4294967295");
  memory::system().faults["QueryFullProcessImageNameW"] = {5};
  EXPECT_EQ(process_display_name(100), "pid 100");
  EXPECT_EQ(process_display_name(100), "player.exe");
}

TEST_F(Meters, NameProcessZeroWithoutACall) {
  memory::system().process_paths[0] = u"C:\\zero.exe";
  EXPECT_EQ(process_display_name(0), "system");
  EXPECT_TRUE(memory::system().log.empty());
}

}  // namespace
}  // namespace velmora
