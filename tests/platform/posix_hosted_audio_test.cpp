// The endpoints of the native program's machine in the file that VELMORA_MACHINE names.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "base/status.h"
#include "platform/audio_endpoints.h"
#include "platform/hosted/machine_state.h"
#include "platform/hosted_machine_file.h"
#include "platform/machine.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;
using surroundings::put_file;

// Whatever a test does, the next one gets the built-in machine.
class PosixHostedAudio : public surroundings::Arranged {
 protected:
  void TearDown() override {
    unsetenv("VELMORA_MACHINE");
    EXPECT_EQ(load_machine(), "");
    EXPECT_TRUE(hosted::machine_state().audio_objects.empty());
    surroundings::Arranged::TearDown();
  }
};

// A machine without endpoints.
const std::string empty_text = "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE]\n\n";

constexpr auto device_invalidated = static_cast<std::int32_t>(0x88890004u);
constexpr auto status_io = static_cast<std::int32_t>(0x800703F8u);
const std::string audio_devices =
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Render\\{aa}]\n"
    "\"DeviceState\"=dword:00000001\n\n";

// A machine of one endpoint with this volume and mute.
std::string audio_text(const std::string& volume, int muted) {
  return "Windows Registry Editor Version 5.00\n\n" + audio_devices +
         "[HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Audio\\{0.0.0.00000000}.{aa}]\n"
         "\"Volume\"=\"" +
         volume + "\"\n\"Muted\"=dword:0000000" + std::to_string(muted) + "\n\n";
}

EndpointVolume default_volume() {
  DeviceEnumerator enumerator;
  AudioDevice device;
  EndpointVolume volume;
  EXPECT_EQ(create_device_enumerator(enumerator), 0);
  EXPECT_EQ(get_default_device(enumerator, EndpointFlow::render, device), 0);
  EXPECT_EQ(activate_volume(device, volume), 0);
  return volume;
}

float level_of(const EndpointVolume& volume) {
  float level = 77;
  EXPECT_EQ(get_volume_level(volume, level), 0);
  return level;
}

int mute_of(const EndpointVolume& volume) {
  bool muted = false;
  EXPECT_EQ(get_mute(volume, muted), 0);
  return muted ? 1 : 0;
}

TEST_F(PosixHostedAudio, KeepsVolumeAndMuteInTheFileWithEachCall) {
  put_file(machine_path(), audio_text("0.5", 0));
  ASSERT_EQ(load_from(machine_path()), "");
  const EndpointVolume volume = default_volume();
  EXPECT_EQ(set_volume_level(volume, 0.25F), 0);
  EXPECT_EQ(read_file(machine_path()), audio_text("0.25", 0));
  EXPECT_EQ(set_mute(volume, true), 0);
  EXPECT_EQ(read_file(machine_path()), audio_text("0.25", 1));
  const ino_t number = file_number(machine_path());
  EXPECT_GE(set_mute(volume, true), 0);
  EXPECT_EQ(set_volume_level(volume, 1.5F), status_invalid_argument);
  EXPECT_EQ(level_of(volume), 0.25F);
  EXPECT_EQ(file_number(machine_path()), number) << "written again though nothing changed";
  EXPECT_EQ(set_mute(volume, false), 0);
  EXPECT_EQ(read_file(machine_path()), audio_text("0.25", 0));
  ASSERT_EQ(load_from(machine_path()), "");
  EXPECT_EQ(level_of(default_volume()), 0.25F);
  EXPECT_EQ(names_in_scratch(), std::vector<std::string>{"machine.reg"});
}

TEST_F(PosixHostedAudio, FollowsTheVolumeAndTheEndpointsOfAnotherProgram) {
  put_file(machine_path(), audio_text("0.5", 0));
  ASSERT_EQ(load_from(machine_path()), "");
  const EndpointVolume volume = default_volume();
  put_file(machine_path(), audio_text("0.75", 1));
  EXPECT_EQ(level_of(volume), 0.75F);
  put_file(machine_path(), audio_text("0.125", 0));
  EXPECT_EQ(mute_of(volume), 0);
  EXPECT_EQ(set_mute(volume, true), 0);
  EXPECT_EQ(read_file(machine_path()), audio_text("0.125", 1)) << "another's change was lost";
  put_file(machine_path(), empty_text);
  float level = 77;
  bool muted = false;
  EXPECT_EQ(get_volume_level(volume, level), device_invalidated);
  EXPECT_EQ(level, 77);
  EXPECT_EQ(set_volume_level(volume, 0.5F), device_invalidated);
  EXPECT_EQ(get_mute(volume, muted), device_invalidated);
  EXPECT_EQ(set_mute(volume, true), device_invalidated);
  EXPECT_EQ(read_file(machine_path()), empty_text);
}

TEST_F(PosixHostedAudio, AnswersStatusesOfAudioWhileTheFileIsMalformed) {
  put_file(machine_path(), audio_text("0.5", 0));
  ASSERT_EQ(load_from(machine_path()), "");
  DeviceEnumerator enumerator;
  AudioDevice device;
  AudioDeviceList list;
  AudioSessionList sessions;
  std::uint32_t count = 77;
  std::int32_t session_count = 77;
  ASSERT_EQ(create_device_enumerator(enumerator), 0);
  ASSERT_EQ(list_active_devices(enumerator, EndpointFlow::render, list, count), 0);
  ASSERT_EQ(get_listed_device(list, 0, device), 0);
  ASSERT_EQ(list_sessions(device, sessions, session_count), 0);
  EndpointVolume volume = default_volume();
  const std::string half = audio_text("0.5", 0).substr(0, 150);
  put_file(machine_path(), half);
  std::u16string text = u"former";
  float number = 77;
  bool muted = true;
  AudioSession session{77, 77};
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(get_default_device(enumerator, EndpointFlow::render, device), status_io);
    EXPECT_EQ(get_device(enumerator, u"{0.0.0.00000000}.{aa}", device), status_io);
    EXPECT_EQ(list_active_devices(enumerator, EndpointFlow::render, list, count), status_io);
    EXPECT_EQ(read_endpoint_name(device, text), status_io);
    EXPECT_EQ(read_peak_value(device, number), status_io);
    EXPECT_EQ(activate_volume(device, volume), status_io);
    EXPECT_EQ(get_volume_level(volume, number), status_io);
    EXPECT_EQ(set_volume_level(volume, 0.25F), status_io);
    EXPECT_EQ(get_mute(volume, muted), status_io);
    EXPECT_EQ(set_mute(volume, true), status_io);
    EXPECT_EQ(list_sessions(device, sessions, session_count), status_io);
    EXPECT_EQ(read_session(sessions, 0, session), status_io);
    EXPECT_EQ(read_file(machine_path()), half);
  }
  EXPECT_EQ(text, u"former");
  EXPECT_EQ(number, 77);
  EXPECT_EQ(count, 1u);
  put_file(machine_path(), audio_text("0.125", 1));
  EXPECT_EQ(level_of(volume), 0.125F) << "what was held is of no more use";
}

TEST_F(PosixHostedAudio, LeavesVolumeAndMuteAsTheyWereWhereItCannotBeWritten) {
  put_file(machine_path(), audio_text("0.5", 0));
  const std::string obstacle = machine_path() + ".new-" + std::to_string(getpid());
  surroundings::put_directory(obstacle);
  ASSERT_EQ(load_from(machine_path()), "");
  const EndpointVolume volume = default_volume();
  EXPECT_EQ(set_volume_level(volume, 0.25F), status_io);
  EXPECT_EQ(set_mute(volume, true), status_io);
  EXPECT_EQ(level_of(volume), 0.5F);
  EXPECT_EQ(mute_of(volume), 0);
  EXPECT_EQ(read_file(machine_path()), audio_text("0.5", 0));
}

TEST_F(PosixHostedAudio, KeepsVolumeAndMuteOfTheBuiltInOneInMemoryAlone) {
  unsetenv("VELMORA_MACHINE");
  ASSERT_EQ(load_machine(), "");
  {
    const EndpointVolume volume = default_volume();
    EXPECT_EQ(level_of(volume), 0.75F);
    EXPECT_EQ(set_volume_level(volume, 0.25F), 0);
    EXPECT_EQ(set_mute(volume, true), 0);
    EXPECT_EQ(level_of(default_volume()), 0.25F);
    EXPECT_EQ(mute_of(default_volume()), 1);
  }
  EXPECT_TRUE(names_in_scratch().empty());
  ASSERT_EQ(load_machine(), "");
  EXPECT_EQ(level_of(default_volume()), 0.75F);
  EXPECT_EQ(mute_of(default_volume()), 0);
}

}  // namespace
}  // namespace velmora
