// One file because the calls of one seam header are proven on one table of endpoints.
#include "platform/audio_endpoints.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "base/status.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::ArrangedEndpoint;
using surroundings::held_audio_objects;
using surroundings::put_endpoints;
using Ids = std::vector<std::u16string>;

constexpr EndpointFlow flows[] = {EndpointFlow::render, EndpointFlow::capture};
constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

const std::u16string speakers = u"{0.0.0.00000000}.{f1d20c7e-5a3b-4c46-9d18-0a9be1c4d001}";
const std::u16string unplugged = u"{0.0.0.00000000}.{0e3b62a1-7c94-4f0d-8b55-61d2f7a4d002}";
const std::u16string headphones = u"{0.0.0.00000000}.{77ab90c4-13de-4e28-b6f0-2c81d95ed003}";
const std::u16string microphone = u"{0.0.1.00000000}.{5c0fe218-94b7-4a6d-a0c3-d7e1428bd004}";
const std::u16string disabled = u"{0.0.1.00000000}.{d8416b3f-2e07-4950-9fa2-8b6c305ed005}";
const std::u16string line_in = u"{0.0.1.00000000}.{1b97d0e5-6fa8-4c13-8e24-f50a7293d006}";
const std::u16string nobody = u"{0.0.0.00000000}.{99999999-9999-4999-8999-99999999d007}";

// Neither the first endpoint of a flow nor the first in the order of the ids is its default.
std::vector<ArrangedEndpoint> all_endpoints() {
  ArrangedEndpoint first{EndpointFlow::render, speakers};
  first.name = u"Speakers (High Definition Audio)";
  first.level = 0.75F;
  first.peak = 0.25F;
  first.sessions = {{1, 4321}, {0, 17}, {1, 0}, {2, 99}, {1, 0xFFFFFFFF}};
  ArrangedEndpoint second{EndpointFlow::render, unplugged, 8};
  second.name = u"Unplugged";
  ArrangedEndpoint third{EndpointFlow::render, headphones, 1, true};
  third.muted = true;
  ArrangedEndpoint fourth{EndpointFlow::capture, disabled, 2};
  fourth.name_is_number = true;
  ArrangedEndpoint fifth{EndpointFlow::capture, line_in};
  fifth.name_is_number = true;
  ArrangedEndpoint sixth{EndpointFlow::capture, microphone, 1, true};
  sixth.name = u"Mikrofon \u00FC\u4E2D\U0001F3A4";
  return {first, second, third, fourth, fifth, sixth};
}

class AudioEndpointsContract : public surroundings::Arranged {
 protected:
  void SetUp() override {
    surroundings::Arranged::SetUp();
    surroundings::set_up_audio();
    put_endpoints(all_endpoints());
  }
  void TearDown() override {
    surroundings::tear_down_audio();
    surroundings::Arranged::TearDown();
  }
};

DeviceEnumerator enumerator() {
  DeviceEnumerator made;
  EXPECT_GE(create_device_enumerator(made), 0);
  EXPECT_TRUE(made.is_open());
  return made;
}

AudioDevice device(std::u16string_view id) {
  AudioDevice found;
  EXPECT_GE(get_device(enumerator(), id, found), 0);
  EXPECT_TRUE(found.is_open());
  return found;
}

EndpointVolume volume(std::u16string_view id) {
  EndpointVolume activated;
  EXPECT_GE(activate_volume(device(id), activated), 0);
  EXPECT_TRUE(activated.is_open());
  return activated;
}

struct DeviceList {
  AudioDeviceList list;
  std::uint32_t count = 77;
};

DeviceList devices(EndpointFlow flow) {
  DeviceList found;
  EXPECT_GE(list_active_devices(enumerator(), flow, found.list, found.count), 0);
  EXPECT_TRUE(found.list.is_open());
  return found;
}

struct SessionList {
  AudioSessionList list;
  std::int32_t count = 77;
};

SessionList sessions(std::u16string_view id) {
  SessionList found;
  EXPECT_GE(list_sessions(device(id), found.list, found.count), 0);
  EXPECT_TRUE(found.list.is_open());
  return found;
}

std::u16string id_of(const AudioDevice& of) {
  std::u16string id = u"former";
  EXPECT_GE(get_device_id(of, id), 0);
  return id;
}

Ids ids_of(const DeviceList& listed) {
  Ids ids;
  for (std::uint32_t index = 0; index < listed.count; ++index) {
    AudioDevice item;
    EXPECT_GE(get_listed_device(listed.list, index, item), 0);
    ids.push_back(id_of(item));
  }
  return ids;
}

float level_of(const EndpointVolume& of) {
  float level = 77;
  EXPECT_GE(get_volume_level(of, level), 0);
  return level;
}

bool is_muted(const EndpointVolume& of) {
  // A single reading could be the former value.
  bool first = false;
  bool second = true;
  EXPECT_GE(get_mute(of, first), 0);
  EXPECT_GE(get_mute(of, second), 0);
  EXPECT_EQ(first, second);
  return first;
}

// Only bits distinguish one not-a-number from another.
std::uint32_t bits_of(float number) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &number, sizeof bits);
  return bits;
}

// Devices.

TEST_F(AudioEndpointsContract, GivesTheDefaultEndpointOfEachFlow) {
  const DeviceEnumerator made = enumerator();
  for (const EndpointFlow flow : flows) {
    SCOPED_TRACE(static_cast<int>(flow));
    AudioDevice found;
    EXPECT_GE(get_default_device(made, flow, found), 0);
    EXPECT_EQ(id_of(found), flow == EndpointFlow::render ? headphones : microphone);
  }
}

TEST_F(AudioEndpointsContract, FindsNoDefaultEndpointInAFlowWithoutAnActiveOne) {
  const auto all = all_endpoints();
  const struct {
    const char* what;
    std::vector<ArrangedEndpoint> endpoints;
    EndpointFlow flow;
  } rows[] = {{"render, of none", {}, EndpointFlow::render},
              {"capture, of none", {}, EndpointFlow::capture},
              {"render, where only another flow has one", {all[5]}, EndpointFlow::render},
              {"capture, where only another flow has one", {all[2]}, EndpointFlow::capture},
              {"render, where none is active", {all[1], all[5]}, EndpointFlow::render},
              {"capture, where none is active", {all[2], all[3]}, EndpointFlow::capture}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_endpoints(row.endpoints);
    AudioDevice found;
    EXPECT_EQ(get_default_device(enumerator(), row.flow, found), status_not_found);
    EXPECT_FALSE(found.is_open());
  }
}

TEST_F(AudioEndpointsContract, FindsEachEndpointInAnyStateByItsIdAndReadsItsName) {
  const DeviceEnumerator made = enumerator();
  for (const ArrangedEndpoint& endpoint : all_endpoints()) {
    SCOPED_TRACE(testing::PrintToString(endpoint.id));
    AudioDevice found;
    // The id need not end with a NUL.
    const std::u16string longer = endpoint.id + u"}}";
    EXPECT_GE(get_device(made, std::u16string_view(longer).substr(0, endpoint.id.size()), found), 0);
    EXPECT_EQ(id_of(found), endpoint.id);
    std::u16string name = u"former";
    EXPECT_EQ(read_endpoint_name(found, name), endpoint.name ? 0 : status_unexpected);
    EXPECT_EQ(name, endpoint.name.value_or(u"former"));
  }
}

TEST_F(AudioEndpointsContract, FindsNoEndpointByAnIdThatNoneHas) {
  const DeviceEnumerator made = enumerator();
  const std::u16string ids[] = {nobody,
                                speakers.substr(0, speakers.size() - 1),
                                speakers + u"}",
                                speakers.substr(17),
                                u"{0.0.1.00000000}." + speakers.substr(17),
                                u"no id at all"};
  for (const std::u16string& id : ids) {
    SCOPED_TRACE(testing::PrintToString(id));
    AudioDevice found;
    EXPECT_EQ(get_device(made, id, found), status_not_found);
    EXPECT_FALSE(found.is_open());
  }
}

// Lists.

TEST_F(AudioEndpointsContract, ListsTheActiveEndpointsOfAFlowInOrder) {
  const auto all = all_endpoints();
  const struct {
    const char* what;
    std::vector<ArrangedEndpoint> endpoints;
    Ids render;
    Ids capture;
  } rows[] = {{"all", all, {speakers, headphones}, {line_in, microphone}},
              {"none", {}, {}, {}},
              {"backwards", {all[5], all[4], all[2], all[0]}, {headphones, speakers}, {microphone, line_in}},
              {"one", {all[0]}, {speakers}, {}},
              {"inactive ones", {all[1], all[3]}, {}, {}},
              {"one not present", {{EndpointFlow::render, unplugged, 4}, all[0]}, {speakers}, {}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_endpoints(row.endpoints);
    const DeviceList render = devices(EndpointFlow::render);
    EXPECT_EQ(render.count, row.render.size());
    EXPECT_EQ(ids_of(render), row.render);
    const DeviceList capture = devices(EndpointFlow::capture);
    EXPECT_EQ(capture.count, row.capture.size());
    put_endpoints({});  // a list stays as it was made
    EXPECT_EQ(ids_of(capture), row.capture);
  }
}

TEST_F(AudioEndpointsContract, RefusesAnItemBeyondTheEndOfAList) {
  for (const EndpointFlow flow : flows) {
    const DeviceList listed = devices(flow);
    for (const std::uint32_t index : {listed.count, listed.count + 1, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
      SCOPED_TRACE(index);
      AudioDevice found;
      EXPECT_LT(get_listed_device(listed.list, index, found), 0);
      EXPECT_FALSE(found.is_open());
    }
  }
  put_endpoints({});
  AudioDevice found;
  EXPECT_LT(get_listed_device(devices(EndpointFlow::render).list, 0, found), 0);
  EXPECT_FALSE(found.is_open());
}

// What can be read of an endpoint.

TEST_F(AudioEndpointsContract, ReadsNamesOfEveryKindOfText) {
  const std::u16string names[] = {
      u"", u" ", u"\"quoted\" \\ back", u"\u00FC", u"lone \xD83C half", std::u16string(1000, u'n')};
  for (const std::u16string& name : names) {
    SCOPED_TRACE(testing::PrintToString(name));
    ArrangedEndpoint named{EndpointFlow::render, speakers};
    named.name = name;
    put_endpoints({named});
    std::u16string read = u"former";
    EXPECT_GE(read_endpoint_name(device(speakers), read), 0);
    EXPECT_EQ(read, name);
  }
}

TEST_F(AudioEndpointsContract, ReadsThePeakAsItComes) {
  const float peaks[] = {0, 0.25F, 1, 1.5F, -0.25F, 1e-30F, 0.1F, infinity, -infinity};
  for (const float peak : peaks) {
    SCOPED_TRACE(peak);
    ArrangedEndpoint loud{EndpointFlow::capture, microphone};
    loud.peak = peak;
    put_endpoints({loud});
    float read = 77;
    EXPECT_GE(read_peak_value(device(microphone), read), 0);
    EXPECT_EQ(read, peak);
  }
  ArrangedEndpoint broken{EndpointFlow::capture, microphone};
  broken.peak = not_a_number;
  put_endpoints({broken});
  float read = 77;
  EXPECT_GE(read_peak_value(device(microphone), read), 0);
  EXPECT_TRUE(std::isnan(read));
}

TEST_F(AudioEndpointsContract, ActivatesNothingOfAnEndpointThatIsNotActive) {
  for (const std::u16string& id : {unplugged, disabled}) {
    SCOPED_TRACE(testing::PrintToString(id));
    const AudioDevice inactive = device(id);
    EndpointVolume activated;
    EXPECT_LT(activate_volume(inactive, activated), 0);
    EXPECT_FALSE(activated.is_open());
    float peak = 77;
    EXPECT_LT(read_peak_value(inactive, peak), 0);
    EXPECT_EQ(peak, 77);
    SessionList none;
    EXPECT_LT(list_sessions(inactive, none.list, none.count), 0);
    EXPECT_FALSE(none.list.is_open());
    EXPECT_EQ(none.count, 77);
  }
}

// Volume and mute.

TEST_F(AudioEndpointsContract, ReadsTheVolumeAndTheMuteThatAnEndpointHas) {
  for (const ArrangedEndpoint& endpoint : all_endpoints()) {
    if (endpoint.state != 1) continue;
    SCOPED_TRACE(testing::PrintToString(endpoint.id));
    const EndpointVolume activated = volume(endpoint.id);
    EXPECT_EQ(level_of(activated), endpoint.level);
    EXPECT_EQ(is_muted(activated), endpoint.muted);
  }
}

TEST_F(AudioEndpointsContract, SetsTheVolumeToEveryLevelFrom0To1) {
  const EndpointVolume activated = volume(speakers);
  for (const float level : {0.0F, 1.0F, 0.25F, 0.1F, 0.333333343F, 0.999999940F, 1e-30F, 0.0F, 0.0F}) {
    SCOPED_TRACE(level);
    EXPECT_GE(set_volume_level(activated, level), 0);
    EXPECT_EQ(level_of(activated), level);
    EXPECT_EQ(level_of(volume(speakers)), level);
  }
  EXPECT_FALSE(is_muted(activated));
  EXPECT_EQ(level_of(volume(headphones)), 1);
}

TEST_F(AudioEndpointsContract, RefusesAVolumeBelow0OrAbove1AndLeavesItAsItWas) {
  const EndpointVolume activated = volume(speakers);
  for (const float level : {-0.001F, 1.00000012F, -1e-30F, 2.0F, -1.0F, infinity, -infinity, not_a_number}) {
    SCOPED_TRACE(level);
    EXPECT_EQ(set_volume_level(activated, level), status_invalid_argument);
    EXPECT_EQ(bits_of(level_of(activated)), bits_of(0.75F));
  }
}

TEST_F(AudioEndpointsContract, SetsTheMuteAndSucceedsWithoutAChange) {
  const EndpointVolume activated = volume(speakers);
  for (const bool muted : {true, true, false, false, true, false}) {
    SCOPED_TRACE(muted);
    EXPECT_GE(set_mute(activated, muted), 0);
    EXPECT_EQ(is_muted(activated), muted);
    EXPECT_EQ(is_muted(volume(speakers)), muted);
  }
  EXPECT_EQ(level_of(activated), 0.75F);
  EXPECT_TRUE(is_muted(volume(headphones)));
}

// Sessions.

TEST_F(AudioEndpointsContract, ListsTheSessionsOfAnEndpointAndAsksTheActiveOnesForTheirProcess) {
  const struct {
    std::int32_t state;
    std::uint32_t process_id;
  } expected[] = {{1, 4321}, {0, 0}, {1, 0}, {2, 0}, {1, 0xFFFFFFFF}};
  const SessionList found = sessions(speakers);
  ASSERT_EQ(found.count, 5);
  for (std::int32_t index = 0; index < found.count; ++index) {
    SCOPED_TRACE(index);
    AudioSession session{77, 77};
    EXPECT_GE(read_session(found.list, index, session), 0);
    EXPECT_EQ(session.state, expected[index].state);
    EXPECT_EQ(session.process_id, expected[index].process_id);
  }
  EXPECT_EQ(sessions(headphones).count, 0);
  EXPECT_EQ(sessions(microphone).count, 0);
}

TEST_F(AudioEndpointsContract, RefusesASessionBeyondTheEndOfTheList) {
  for (const std::u16string& id : {speakers, headphones}) {
    const SessionList found = sessions(id);
    constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    for (const std::int32_t index : {found.count, found.count + 1, most, -1, least}) {
      SCOPED_TRACE(index);
      AudioSession session{77, 77};
      EXPECT_LT(read_session(found.list, index, session), 0);
      EXPECT_EQ(session.state, 77);
      EXPECT_EQ(session.process_id, 77u);
    }
  }
}

// Owners.

// What an owner holds is released once, by whichever owner has it last.
template <typename Owned>
void expect_one_release(Owned owned) {
  ASSERT_TRUE(owned.is_open());
  const std::size_t held = held_audio_objects();
  Owned other = std::move(owned);
  EXPECT_FALSE(owned.is_open());
  EXPECT_TRUE(other.is_open());
  Owned& same = other;
  other = std::move(same);
  EXPECT_TRUE(other.is_open());
  EXPECT_EQ(held_audio_objects(), held);
  owned.close();
  EXPECT_EQ(held_audio_objects(), held);
  other.close();
  EXPECT_FALSE(other.is_open());
  EXPECT_EQ(held_audio_objects(), held - 1);
  other.close();
  EXPECT_EQ(held_audio_objects(), held - 1);
}

TEST_F(AudioEndpointsContract, ReleasesWhatEachOwnerHoldsOnce) {
  expect_one_release(enumerator());
  expect_one_release(device(speakers));
  expect_one_release(devices(EndpointFlow::render).list);
  expect_one_release(volume(speakers));
  expect_one_release(sessions(speakers).list);
  EXPECT_EQ(held_audio_objects(), 0u);
}

TEST_F(AudioEndpointsContract, HoldsNothingBehindAReading) {
  const AudioDevice speaking = device(speakers);
  const EndpointVolume activated = volume(speakers);
  const SessionList found = sessions(speakers);
  const std::size_t held = held_audio_objects();
  std::u16string text;
  float number = 0;
  EXPECT_GE(get_device_id(speaking, text), 0);
  EXPECT_GE(read_endpoint_name(speaking, text), 0);
  EXPECT_LT(read_endpoint_name(device(headphones), text), 0);
  EXPECT_LT(read_endpoint_name(device(line_in), text), 0);
  EXPECT_GE(read_peak_value(speaking, number), 0);
  EXPECT_LT(read_peak_value(device(unplugged), number), 0);
  EXPECT_GE(get_volume_level(activated, number), 0);
  for (std::int32_t index = 0; index <= found.count; ++index) {
    AudioSession session;
    EXPECT_EQ(read_session(found.list, index, session) >= 0, index < found.count);
  }
  EXPECT_EQ(held_audio_objects(), held);
}

TEST_F(AudioEndpointsContract, ReleasesWhatAnOwnerHeldWhenItIsAssignedAnew) {
  DeviceEnumerator made = enumerator();
  AudioDevice found = device(speakers);
  DeviceList listed = devices(EndpointFlow::render);
  EndpointVolume activated = volume(speakers);
  SessionList of_device = sessions(speakers);
  const std::size_t held = held_audio_objects();
  EXPECT_GE(create_device_enumerator(made), 0);
  EXPECT_GE(get_device(made, microphone, found), 0);
  EXPECT_GE(get_default_device(made, EndpointFlow::capture, found), 0);
  EXPECT_GE(list_active_devices(made, EndpointFlow::capture, listed.list, listed.count), 0);
  EXPECT_GE(get_listed_device(listed.list, 0, found), 0);
  EXPECT_GE(activate_volume(found, activated), 0);
  EXPECT_GE(list_sessions(found, of_device.list, of_device.count), 0);
  EXPECT_EQ(held_audio_objects(), held);
  EXPECT_EQ(id_of(found), line_in);
  EXPECT_EQ(level_of(activated), 1);
  EXPECT_EQ(of_device.count, 0);
}

TEST_F(AudioEndpointsContract, LeavesAnOpenOwnerUnchangedWhenACallFails) {
  const DeviceEnumerator made = enumerator();
  const DeviceList render = devices(EndpointFlow::render);
  const AudioDevice inactive = device(unplugged);
  AudioDevice found = device(microphone);
  EndpointVolume activated = volume(speakers);
  SessionList of_device = sessions(speakers);
  const std::size_t held = held_audio_objects();
  EXPECT_LT(get_device(made, nobody, found), 0);
  EXPECT_LT(get_listed_device(render.list, render.count, found), 0);
  EXPECT_LT(activate_volume(inactive, activated), 0);
  EXPECT_LT(list_sessions(inactive, of_device.list, of_device.count), 0);
  EXPECT_EQ(held_audio_objects(), held);
  EXPECT_EQ(id_of(found), microphone);
  EXPECT_EQ(level_of(activated), 0.75F);
  EXPECT_EQ(of_device.count, 5);
  AudioSession session;
  EXPECT_GE(read_session(of_device.list, 0, session), 0);
  EXPECT_EQ(session.process_id, 4321u);
}

TEST_F(AudioEndpointsContract, KeepsEachInterfaceUsableWhenWhatItCameFromHasBeenReleased) {
  DeviceEnumerator made = enumerator();
  DeviceList listed;
  AudioDevice by_default;
  EXPECT_GE(list_active_devices(made, EndpointFlow::render, listed.list, listed.count), 0);
  EXPECT_GE(get_default_device(made, EndpointFlow::capture, by_default), 0);
  made.close();
  EXPECT_EQ(id_of(by_default), microphone);
  EXPECT_EQ(ids_of(listed), (Ids{speakers, headphones}));
  AudioDevice found;
  EXPECT_GE(get_listed_device(listed.list, 0, found), 0);
  listed.list.close();
  EndpointVolume activated;
  SessionList of_device;
  EXPECT_GE(activate_volume(found, activated), 0);
  EXPECT_GE(list_sessions(found, of_device.list, of_device.count), 0);
  found.close();
  EXPECT_EQ(level_of(activated), 0.75F);
  EXPECT_GE(set_mute(activated, true), 0);
  AudioSession session;
  EXPECT_GE(read_session(of_device.list, 0, session), 0);
  EXPECT_EQ(session.process_id, 4321u);
}

}  // namespace
}  // namespace velmora
