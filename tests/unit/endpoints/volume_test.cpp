#include "endpoints/volume.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "unit/endpoints/support/audio_machine.h"

namespace velmora {
namespace {

using namespace audio;

const EndpointController nothing_chosen;
const EndpointController chosen{speakers_id, line_in_id};

class Volume : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    renew();
  }
  // Levels and mutes that differ in all endpoints.
  static void renew() {
    renew_usual_machine();
    put_text(own_key_of(speakers_id), u"Volume", u"0.25");
    put_text(own_key_of(headphones_id), u"Volume", u"0.75");
    put_text(own_key_of(microphone_id), u"Volume", u"0.125");
    put_number(own_key_of(speakers_id), u"Muted", 1);
    put_number(own_key_of(headphones_id), u"Muted", 0);
    memory::system().log.clear();
  }
  static void expect_state(const EndpointVolumeState& state, bool available, float volume, bool muted,
                           std::int32_t error_code) {
    EXPECT_EQ(state.available, available);
    EXPECT_EQ(state.volume, volume);
    EXPECT_FALSE(std::signbit(state.volume));
    EXPECT_EQ(state.muted, muted);
    EXPECT_EQ(state.error_code, error_code);
    EXPECT_TRUE(memory::system().state.audio_objects.empty());
  }
};

TEST_F(Volume, IsReadFromTheChosenEndpointOrTheDefault) {
  expect_state(read_endpoint_volume(nothing_chosen), true, 0.75f, false, 0);
  expect_state(read_endpoint_volume(chosen), true, 0.25f, true, 0);
  expect_state(read_endpoint_volume({u"", line_in_id}), true, 0.75f, false, 0);
  for (const float level : {0.0f, 1.0f}) {
    ASSERT_EQ(set_endpoint_volume(nothing_chosen, level), 0);
    expect_state(read_endpoint_volume(nothing_chosen), true, level, false, 0);
  }
}

TEST_F(Volume, IsUnavailableWhenAnyCallFails) {
  for (const EndpointController& controller : {nothing_chosen, chosen}) {
    renew();
    ASSERT_TRUE(read_endpoint_volume(controller).available);
    const std::vector<std::string> log = memory::system().log;
    std::size_t failing_calls = 0;
    for (std::size_t place = 0; place < log.size(); ++place) {
      for (const std::int32_t status : {not_found, access_denied, smallest_status, -1}) {
        SCOPED_TRACE(log[place]);
        renew();
        memory::system().fault_at = {place + 1, status};
        const EndpointVolumeState state = read_endpoint_volume(controller);
        if (!has_audio_status(log[place])) {
          EXPECT_TRUE(state.available);
          continue;
        }
        ++failing_calls;
        expect_state(state, false, 0, false, status);
      }
    }
    EXPECT_EQ(failing_calls, 20u);
  }
}

TEST_F(Volume, IgnoresPositiveStatusesWhenRead) {
  ASSERT_TRUE(read_endpoint_volume(chosen).available);
  const std::vector<std::string> log = memory::system().log;
  for (std::size_t place = 0; place < log.size(); ++place) {
    for (const std::int32_t status : {1, 0x7FFFFFFF}) {
      SCOPED_TRACE(log[place]);
      renew();
      memory::system().fault_at = {place + 1, status};
      expect_state(read_endpoint_volume(chosen), true, 0.25f, true, 0);
    }
  }
}

TEST_F(Volume, NeverFallsBackFromAMissingChosenEndpoint) {
  for (const std::int32_t status : {device_invalidated, not_found}) {
    if (status == not_found) {
      remove_endpoint(speakers);
    } else {
      set_active(speakers, false);
    }
    const hosted::RegistryTree before = memory::system().state.registry;
    expect_state(read_endpoint_volume(chosen), false, 0, false, status);
    EXPECT_EQ(set_endpoint_volume(chosen, 0.5f), status);
    EXPECT_EQ(set_endpoint_mute(chosen, true), status);
    EXPECT_EQ(memory::system().state.registry, before);
  }
  expect_state(read_endpoint_volume({headphones_id, u""}), true, 0.75f, false, 0);
}

TEST_F(Volume, IsUnavailableWithoutEndpoints) {
  memory::reset();
  expect_state(read_endpoint_volume(nothing_chosen), false, 0, false, not_found);
  EXPECT_EQ(set_endpoint_volume(nothing_chosen, 0.5f), not_found);
  EXPECT_EQ(set_endpoint_mute(nothing_chosen, true), not_found);
}

TEST_F(Volume, IsSetOnTheChosenEndpointOrTheDefault) {
  EXPECT_EQ(set_endpoint_volume(nothing_chosen, 0.5f), 0);
  EXPECT_EQ(set_endpoint_volume(chosen, 0.375f), 0);
  EXPECT_EQ(volume_text(headphones_id), "0.5");
  EXPECT_EQ(volume_text(speakers_id), "0.375");
  EXPECT_EQ(volume_text(microphone_id), "0.125");
  EXPECT_EQ(mute_value(headphones_id), false);
  EXPECT_EQ(mute_value(speakers_id), true);
}

TEST_F(Volume, AcceptsLevelsFrom0To1) {
  const struct {
    float level;
    std::string text;
  } rows[] = {{0.0f, "0"},
              {-0.0f, "-0"},
              {std::numeric_limits<float>::denorm_min(), "1.40129846e-45"},
              {0.1f, "0.100000001"},
              {std::nextafter(1.0f, 0.0f), "0.99999994"},
              {1.0f, "1"}};
  for (const auto& row : rows) {
    EXPECT_EQ(set_endpoint_volume(nothing_chosen, row.level), 0);
    EXPECT_EQ(volume_text(headphones_id), row.text);
  }
}

TEST_F(Volume, RefusesALevelOutOfRangeWithoutACall) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  constexpr float no_number = std::numeric_limits<float>::quiet_NaN();
  const hosted::RegistryTree before = memory::system().state.registry;
  for (const float level :
       {no_number, -no_number, infinity, -infinity, -0.1f, 1.0001f, std::nextafter(1.0f, 2.0f),
        -std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::max(), 2.0f, -1.0f}) {
    EXPECT_EQ(set_endpoint_volume(chosen, level), invalid_argument) << level;
    EXPECT_EQ(set_endpoint_volume(nothing_chosen, level), invalid_argument) << level;
  }
  EXPECT_TRUE(memory::system().log.empty());
  EXPECT_EQ(memory::system().state.registry, before);
}

TEST_F(Volume, IsMutedOnTheChosenEndpointOrTheDefault) {
  for (int round = 0; round < 2; ++round) {  // a second time without an error
    EXPECT_GE(set_endpoint_mute(nothing_chosen, true), 0);
    EXPECT_EQ(mute_value(headphones_id), true);
    EXPECT_EQ(mute_value(speakers_id), round == 0);
    EXPECT_GE(set_endpoint_mute(chosen, false), 0);
    EXPECT_EQ(mute_value(speakers_id), false);
    EXPECT_EQ(mute_value(headphones_id), true);
  }
  EXPECT_EQ(volume_text(speakers_id), "0.25");
}

struct Change {
  std::string name;
  std::function<std::int32_t()> make;
};
const Change changes[] = {
    {"volume", [] { return set_endpoint_volume(chosen, 0.5f); }},
    {"mute", [] { return set_endpoint_mute(chosen, false); }},
    {"volume of the default", [] { return set_endpoint_volume(nothing_chosen, 0.5f); }},
    {"mute of the default", [] { return set_endpoint_mute(nothing_chosen, true); }},
};

TEST_F(Volume, ReturnsTheStatusOfAFailedCallAndStays) {
  for (const Change& change : changes) {
    renew();
    const hosted::RegistryTree before = memory::system().state.registry;
    ASSERT_EQ(change.make(), 0);
    ASSERT_FALSE(memory::system().state.registry == before);
    const std::vector<std::string> log = memory::system().log;
    ASSERT_EQ(log.size(), 7u);
    for (std::size_t place = 0; place < log.size(); ++place) {
      for (const std::int32_t status : {not_found, access_denied, smallest_status, -1}) {
        SCOPED_TRACE(change.name + ": " + log[place]);
        renew();
        memory::system().fault_at = {place + 1, status};
        EXPECT_EQ(change.make(), has_audio_status(log[place]) ? status : 0);
        EXPECT_EQ(memory::system().state.registry == before, has_audio_status(log[place]));
        EXPECT_TRUE(memory::system().state.audio_objects.empty());
      }
    }
  }
}

TEST_F(Volume, ReturnsOnlyThePositiveStatusOfTheChange) {
  for (const Change& change : changes) {
    renew();
    ASSERT_EQ(change.make(), 0);
    const std::vector<std::string> log = memory::system().log;
    const hosted::RegistryTree after = memory::system().state.registry;
    for (std::size_t place = 0; place < log.size(); ++place) {
      SCOPED_TRACE(change.name + ": " + log[place]);
      renew();
      memory::system().fault_at = {place + 1, 1};
      EXPECT_EQ(change.make(), log[place].starts_with("Set") ? 1 : 0);
      EXPECT_EQ(memory::system().state.registry, after);
    }
  }
}

TEST_F(Volume, ReturnsTheStatusOfTheActivation) {
  for (const std::int32_t status : {access_denied, -1, 0, 1, 0x7FFFFFFF}) {
    memory::system().faults["Activate"] = {status};
    EndpointVolume volume;
    EXPECT_EQ(open_endpoint_volume(chosen, volume), status);
    EXPECT_EQ(volume.is_open(), status >= 0);
    // What led to it is closed again.
    EXPECT_EQ(memory::system().state.audio_objects.size(), status >= 0 ? 1u : 0u);
  }
  memory::system().faults["CoCreateInstance"] = {1};
  memory::system().faults["GetDevice"] = {1};
  EndpointVolume volume;
  EXPECT_EQ(open_endpoint_volume(chosen, volume), 0);
  float level = 0;
  EXPECT_EQ(get_volume_level(volume, level), 0);
  EXPECT_EQ(level, 0.25f);
}

}  // namespace
}  // namespace velmora
