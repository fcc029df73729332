// Faults of the machine in memory. One file because each test is a few lines about one operation.
// What the machine in memory answers by order, which no real machine can be made to.
#include <gtest/gtest.h>

#include <array>
#include <ctime>
#include <string>
#include <vector>

#include "base/status.h"
#include "memory/system.h"
#include "platform/audio_endpoints.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/processes.h"
#include "platform/registry.h"
#include "platform/shared_memory.h"
#include "platform/sockets.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class MemoryFaults : public surroundings::Arranged {};

TEST_F(MemoryFaults, LeaveTheTimeUntouchedWhenItCannotBeTold) {
  memory::system().local_time.reset();
  std::tm time{};
  time.tm_year = 77;
  EXPECT_FALSE(read_local_time(time));
  EXPECT_EQ(time.tm_year, 77);
}

TEST_F(MemoryFaults, TellThatThereAreNoRandomBytes) {
  memory::system().random_available = false;
  std::array<unsigned char, 4> buffer{};
  EXPECT_FALSE(fill_random(buffer.data(), buffer.size()));
}

TEST_F(MemoryFaults, TellBothNumbersOfAMappingThatCannotBeMade) {
  SharedMapping mapping;
  memory::system().faults["ConvertStringSecurityDescriptorToSecurityDescriptorW"] = {1336};
  CreatedMapping created = create_shared_mapping(u"Local\\Faulty", 576, mapping);
  EXPECT_EQ(created.descriptor_error, 1336u);
  EXPECT_EQ(created.create_error, std::nullopt);
  memory::system().faults["CreateFileMappingW"] = {8};
  created = create_shared_mapping(u"Local\\Faulty", 576, mapping);
  EXPECT_EQ(created.descriptor_error, std::nullopt);
  EXPECT_EQ(created.create_error, 8u);
  EXPECT_FALSE(mapping.is_open());
}

TEST_F(MemoryFaults, LeaveNothingOfAWholeFileThatBreaksOff) {
  memory::system().files["/scratch/bad"] = {FileKind::regular, "half of it", 1117};
  std::string bytes = "former";
  EXPECT_EQ(read_whole_file("/scratch/bad", bytes), 1117u);
  EXPECT_EQ(bytes, "");
  memory::system().faults["CreateFileW"] = {5};
  bytes = "former";
  EXPECT_EQ(read_whole_file("/scratch/bad", bytes), 5u);
  EXPECT_EQ(bytes, "");
  EXPECT_TRUE(memory::system().handles.empty());
}

TEST_F(MemoryFaults, EndAReadingWithTheFilesError) {
  memory::system().files["/scratch/bad"] = {FileKind::regular, "ab", 1117};
  InputFile file;
  ASSERT_EQ(open_for_reading("/scratch/bad", file), 0u);
  std::array<char, 8> buffer{};
  EXPECT_EQ(read_file_piece(file, buffer.data(), buffer.size()).count, 2u);
  const FileRead read = read_file_piece(file, buffer.data(), buffer.size());
  EXPECT_EQ(read.count, 0u);
  EXPECT_EQ(read.error, 1117u);
}

TEST_F(MemoryFaults, AreAnsweredByEachOperationOnFiles) {
  surroundings::put_file("/scratch/file", "content");
  std::uint64_t size = 77;
  std::vector<std::string> names{"former"};
  auto& faults = memory::system().faults;
  faults["GetFileSizeEx"] = {1117};
  EXPECT_EQ(query_file_size("/scratch/file", size), 1117u);
  EXPECT_EQ(size, 77u);
  faults["CreateFileW"] = {32};
  EXPECT_EQ(write_whole_file("/scratch/file", "abcd"), 32u);
  faults["DeleteFileW"] = {32};
  EXPECT_EQ(remove_file("/scratch/file"), 32u);
  faults["FindFirstFileW"] = {1117};
  EXPECT_EQ(list_directory("/scratch", names), 1117u);
  EXPECT_TRUE(names.empty());
  faults["CreateDirectoryW"] = {19};
  EXPECT_EQ(make_directories("/scratch/new"), 19u);
  EXPECT_EQ(query_file_kind("/scratch/new"), FileKind::missing);
  EXPECT_EQ(memory::system().files.at("/scratch/file").bytes, "content");
}

TEST_F(MemoryFaults, LeaveHalfOfWhatADiskHadNoRoomFor) {
  memory::system().faults["WriteFile"] = {112};
  EXPECT_EQ(write_whole_file("/scratch/file", "abcd"), 112u);
  EXPECT_EQ(memory::system().files.at("/scratch/file").bytes, "ab");
}

TEST_F(MemoryFaults, GiveAFileAnotherSizeThanItsBytes) {
  memory::system().files["/scratch/file"] = {FileKind::regular, "abcd", 0, 0x100000001};
  std::uint64_t size = 0;
  EXPECT_EQ(query_file_size("/scratch/file", size), 0u);
  EXPECT_EQ(size, 0x100000001u);
  EXPECT_EQ(write_whole_file("/scratch/file", "ab"), 0u);
  EXPECT_EQ(query_file_size("/scratch/file", size), 0u);
  EXPECT_EQ(size, 2u);
}

TEST_F(MemoryFaults, AnswerInOrderAndLetACallPassForAZero) {
  Socket socket;
  memory::system().faults["socket"] = {10055, 0, 10024};
  EXPECT_EQ(open_tcp_socket(socket), 10055);
  EXPECT_EQ(open_tcp_socket(socket), std::nullopt);
  EXPECT_EQ(open_tcp_socket(socket), 10024);
  EXPECT_EQ(open_tcp_socket(socket), std::nullopt);
}

TEST_F(MemoryFaults, MayHaveNoNumber) {
  auto& faults = memory::system().faults;
  for (const char* operation : {"WSAStartup", "socket", "bind", "listen", "accept", "OpenFileMappingW",
                                "ConvertStringSecurityDescriptorToSecurityDescriptorW", "MapViewOfFile"}) {
    faults[operation] = {memory::failure_without_number};
  }
  Socket socket;
  SharedMapping mapping;
  SharedView view;
  EXPECT_EQ(start_sockets(), 0);
  EXPECT_EQ(open_tcp_socket(socket), 0);
  EXPECT_EQ(bind_loopback(socket, 1), 0);
  EXPECT_EQ(listen_at_maximum(socket), 0);
  EXPECT_EQ(accept_connection(socket, socket), 0);
  EXPECT_EQ(open_shared_mapping(u"Local\\Faulty", mapping), 0u);
  EXPECT_EQ(create_shared_mapping(u"Local\\Faulty", 576, mapping).descriptor_error, 0u);
  EXPECT_EQ(map_shared_view(mapping, 576, view), 0u);
}

TEST_F(MemoryFaults, EndAWaitForAConnection) {
  Socket listener;
  ASSERT_EQ(open_tcp_socket(listener), std::nullopt);
  ASSERT_EQ(listen_at_maximum(listener), std::nullopt);
  memory::system().faults["select"] = {10004};
  const SocketCount ready = wait_readable(listener, 1000);
  EXPECT_EQ(ready.count, -1);
  EXPECT_EQ(ready.error, 10004);
}

TEST_F(MemoryFaults, CutASendToTheLimitOfTheConnection) {
  Socket listener;
  ASSERT_EQ(open_tcp_socket(listener), std::nullopt);
  ASSERT_EQ(listen_at_maximum(listener), std::nullopt);
  const auto connection = memory::connect_client({});
  connection->send_limit = 3;
  Socket socket;
  ASSERT_EQ(accept_connection(listener, socket), std::nullopt);
  EXPECT_EQ(send_bytes(socket, "abcdef", 6).count, 3);
  EXPECT_EQ(send_bytes(socket, "de", 2).count, 2);
  EXPECT_EQ(connection->from_service, "abcde");
}

// The registry.

constexpr std::uint32_t key_access = key_query_value | key_set_value;
constexpr std::uint32_t reg_binary = 3;
constexpr std::int32_t error_not_kept = 1016;

RegistryKey create(std::u16string_view path) {
  RegistryKey key;
  EXPECT_EQ(create_registry_key(path, key_access, key), 0);
  return key;
}

// Every operation on the registry once, each on what the ones before have made. The results in order.
std::vector<std::int32_t> use_registry() {
  RegistryKey parent;
  RegistryKey key;
  std::uint32_t number = 0;
  std::vector<std::int32_t> results;
  results.push_back(create_registry_key(u"Faulty", key_access, parent));
  results.push_back(create_registry_key(u"Faulty\\Key", key_access, key));
  if (!parent.is_open()) parent = create(u"Faulty");
  if (!key.is_open()) key = create(u"Faulty\\Key");
  results.push_back(set_registry_value(key, u"v", reg_dword, &number, sizeof number));
  results.push_back(query_registry_value(key, u"v", &number, sizeof number).error);
  results.push_back(get_registry_value(u"Faulty\\Key", u"v", rrf_rt_reg_dword, &number, sizeof number).error);
  results.push_back(delete_registry_value(key, u"v"));
  results.push_back(delete_registry_key(parent, u"Key"));
  RegistryKey opened;
  results.push_back(open_registry_key(u"Faulty", key_access, opened));
  EXPECT_EQ(opened.is_open(), results.back() == 0);
  return results;
}

TEST_F(MemoryFaults, AreTakenByEveryOperationOnTheRegistryByItsName) {
  const std::vector<std::string> operations{"RegCreateKeyExW", "RegSetValueExW",  "RegQueryValueExW",
                                            "RegGetValueW",    "RegDeleteValueW", "RegDeleteKeyW",
                                            "RegOpenKeyExW"};
  constexpr std::int32_t fault = 1450;
  for (const std::string& operation : operations) {
    SCOPED_TRACE(operation);
    memory::reset();
    memory::system().faults[operation] = {fault};
    std::size_t failed = 0;
    for (const std::int32_t result : use_registry()) failed += result == fault;
    EXPECT_EQ(failed, 1u);
    EXPECT_TRUE(memory::system().faults[operation].empty());
    EXPECT_TRUE(memory::system().state.open_keys.empty());
  }
}

TEST_F(MemoryFaults, TellEachOperationOnTheRegistryWithWhatItIsAbout) {
  for (const std::int32_t result : use_registry()) EXPECT_EQ(result, 0);
  const auto& log = memory::system().log;
  ASSERT_GE(log.size(), 8u);
  EXPECT_EQ((std::vector<std::string>(log.begin(), log.begin() + 8)),
            (std::vector<std::string>{"RegCreateKeyExW Faulty", "RegCreateKeyExW Faulty\\Key",
                                      "RegSetValueExW v", "RegQueryValueExW v", "RegGetValueW Faulty\\Key v",
                                      "RegDeleteValueW v", "RegDeleteKeyW Key", "RegOpenKeyExW Faulty"}));
}

TEST_F(MemoryFaults, StrikeTheOneCallThatIsCounted) {
  constexpr std::int32_t fault = 1450;
  const std::size_t count = use_registry().size();
  for (std::size_t call = 1; call <= 2; ++call) {
    SCOPED_TRACE(call);
    memory::reset();
    memory::system().fault_at = {call, fault};
    const auto results = use_registry();
    for (std::size_t index = 0; index < count; ++index) {
      EXPECT_EQ(results[index], index + 1 == call ? fault : 0) << index;
    }
  }
  // Operations that are none on the registry are counted with the others.
  memory::reset();
  memory::system().fault_at = {3, fault};
  Socket socket;
  EXPECT_EQ(open_tcp_socket(socket), std::nullopt);
  RegistryKey key;
  EXPECT_EQ(create_registry_key(u"Faulty", key_access, key), 0);
  EXPECT_EQ(open_tcp_socket(socket), fault);
}

TEST_F(MemoryFaults, LetAnotherProgramChangeTheRegistryBeforeACall) {
  std::vector<std::string> seen;  // is still told of the keys when they are closed
  const RegistryKey parent = create(u"Parent");
  const RegistryKey key = create(u"Parent\\Key");
  memory::system().before_machine_call = [&](const std::string& entry) {
    seen.push_back(entry);
    if (entry != "RegQueryValueExW v") return;
    hosted::RegistryTree& registry = hosted::machine_state().registry;
    hosted::put_value(*hosted::find_key(registry, u"HKEY_LOCAL_MACHINE\\Parent\\Key"), u"v", reg_binary,
                      "new");
  };
  EXPECT_EQ(query_registry_value(key, u"other", nullptr, 0).error, 2);
  EXPECT_EQ(query_registry_value(key, u"v", nullptr, 0).size, 3u);
  EXPECT_EQ(seen, (std::vector<std::string>{"RegQueryValueExW other", "RegQueryValueExW v"}));
}

// Names, types and data of a key and of all below it, in order.
std::string told(const hosted::TreeKey& key) {
  std::string text;
  for (const hosted::TreeValue& value : key.values) {
    text.append(value.name.begin(), value.name.end()).append("=").append(std::to_string(value.type));
    text.append(":").append(value.bytes).append(";");
  }
  for (const hosted::TreeKey& child : key.keys) {
    text.append(child.name.begin(), child.name.end()).append("{").append(told(child)).append("}");
  }
  return text;
}

TEST_F(MemoryFaults, LeaveTheRegistryAsItWasWhenAChangeCannotBeKept) {
  RegistryKey parent = create(u"Parent");
  RegistryKey key = create(u"Parent\\Key");
  EXPECT_EQ(set_registry_value(key, u"v", reg_binary, "old", 3), 0);
  const std::string before = told(hosted::machine_state().registry);
  memory::system().registry_kept = false;
  const auto expect_as_before = [&] { EXPECT_EQ(told(hosted::machine_state().registry), before); };
  RegistryKey none;
  EXPECT_EQ(create_registry_key(u"Parent\\New\\Below", key_access, none), error_not_kept);
  EXPECT_FALSE(none.is_open());
  expect_as_before();
  EXPECT_EQ(set_registry_value(key, u"v", reg_binary, "new", 3), error_not_kept);
  EXPECT_EQ(set_registry_value(key, u"w", reg_binary, "new", 3), error_not_kept);
  expect_as_before();
  EXPECT_EQ(delete_registry_value(key, u"v"), error_not_kept);
  expect_as_before();
  EXPECT_EQ(delete_registry_key(parent, u"Key"), error_not_kept);
  expect_as_before();
  // Nothing has been changed by these, and the key is none that has gone.
  EXPECT_EQ(delete_registry_value(key, u"absent"), 2);
  EXPECT_EQ(create_registry_key(u"Parent\\Key", key_access, none), 0);
  EXPECT_EQ(query_registry_value(key, u"v", nullptr, 0).size, 3u);
  memory::system().registry_kept = true;
  EXPECT_EQ(delete_registry_key(parent, u"Key"), 0);
}

// The audio endpoints.

const std::u16string speakers = u"{0.0.0.00000000}.{aa}";
const std::string speakers_text = "{0.0.0.00000000}.{aa}";
constexpr auto device_invalidated = static_cast<std::int32_t>(0x88890004u);

void put_speakers() {
  surroundings::ArrangedEndpoint endpoint{EndpointFlow::render, speakers, 1, true};
  endpoint.name = u"Speakers";
  endpoint.level = 0.5F;
  endpoint.muted = true;
  endpoint.peak = 0.25F;
  endpoint.sessions = {{1, 1234}};
  surroundings::put_endpoints({endpoint});
}

// One operation on the audio endpoints: its entry in the log, its answer, and whether it has done its work.
struct AudioStep {
  std::string entry;
  std::int32_t status;
  bool is_done;
  bool operator==(const AudioStep&) const = default;
};

// Every operation once, each on what those before have handed out; what a fault has kept back is had anew.
// The outputs of all start with what no operation gives here.
std::vector<AudioStep> use_audio() {
  put_speakers();
  std::vector<AudioStep> steps;
  const auto step = [&](std::string entry, std::int32_t status, auto is_done) {
    steps.push_back({std::move(entry), status, is_done()});
  };
  DeviceEnumerator enumerator;
  step("CoCreateInstance", create_device_enumerator(enumerator), [&] { return enumerator.is_open(); });
  if (!enumerator.is_open()) {
    EXPECT_EQ(create_device_enumerator(enumerator), 0);
  }
  AudioDevice device;
  step("GetDefaultAudioEndpoint 0", get_default_device(enumerator, EndpointFlow::render, device),
       [&] { return device.is_open(); });
  device.close();
  AudioDeviceList list;
  std::uint32_t count = 77;
  step("EnumAudioEndpoints 0", list_active_devices(enumerator, EndpointFlow::render, list, count),
       [&] { return list.is_open() && count == 1; });
  EXPECT_EQ(list.is_open(), count == 1);
  if (!list.is_open()) {
    EXPECT_EQ(list_active_devices(enumerator, EndpointFlow::render, list, count), 0);
  }
  step("Item 0", get_listed_device(list, 0, device), [&] { return device.is_open(); });
  device.close();
  step("GetDevice " + speakers_text, get_device(enumerator, speakers, device),
       [&] { return device.is_open(); });
  if (!device.is_open()) {
    EXPECT_EQ(get_device(enumerator, speakers, device), 0);
  }
  std::u16string text = u"former";
  step("GetId", get_device_id(device, text), [&] { return text != u"former"; });
  text = u"former";
  step("OpenPropertyStore " + speakers_text, read_endpoint_name(device, text),
       [&] { return text != u"former"; });
  float number = 77;
  step("GetPeakValue " + speakers_text, read_peak_value(device, number), [&] { return number != 77; });
  EndpointVolume volume;
  step("Activate " + speakers_text, activate_volume(device, volume), [&] { return volume.is_open(); });
  if (!volume.is_open()) {
    EXPECT_EQ(activate_volume(device, volume), 0);
  }
  number = 77;
  step("GetMasterVolumeLevelScalar " + speakers_text, get_volume_level(volume, number),
       [&] { return number != 77; });
  const hosted::RegistryTree before = hosted::machine_state().registry;
  step("SetMasterVolumeLevelScalar " + speakers_text, set_volume_level(volume, 0.75F),
       [&] { return !(hosted::machine_state().registry == before); });
  bool muted = false;
  step("GetMute " + speakers_text, get_mute(volume, muted), [&] { return muted; });
  const hosted::RegistryTree audible = hosted::machine_state().registry;
  step("SetMute " + speakers_text, set_mute(volume, false),
       [&] { return !(hosted::machine_state().registry == audible); });
  AudioSessionList sessions;
  std::int32_t session_count = 77;
  step("GetSessionEnumerator " + speakers_text, list_sessions(device, sessions, session_count),
       [&] { return sessions.is_open() && session_count == 1; });
  EXPECT_EQ(sessions.is_open(), session_count == 1);
  if (!sessions.is_open()) {
    EXPECT_EQ(list_sessions(device, sessions, session_count), 0);
  }
  AudioSession session{77, 77};
  step("GetSession 0", read_session(sessions, 0, session),
       [&] { return session.state != 77 || session.process_id != 77; });
  return steps;
}

TEST_F(MemoryFaults, TellEachOperationOnTheAudioEndpointsWithWhatItIsAbout) {
  const auto steps = use_audio();
  std::vector<std::string> seen;
  for (const std::string& entry : memory::system().log) {
    if (entry != "Release") seen.push_back(entry);
  }
  std::vector<std::string> expected;
  for (const AudioStep& step : steps) {
    SCOPED_TRACE(step.entry);
    expected.push_back(step.entry);
    EXPECT_EQ(step.status, 0);
    EXPECT_TRUE(step.is_done);
  }
  EXPECT_EQ(seen, expected);
  EXPECT_TRUE(memory::system().state.audio_objects.empty());
}

// A failure in place of the work leaves everything as it was; a success of another kind comes behind it.
TEST_F(MemoryFaults, AreTakenByEveryOperationOnTheAudioEndpointsByItsName) {
  const auto usual = use_audio();
  for (std::size_t index = 0; index < usual.size(); ++index) {
    for (const std::int32_t fault : {status_failed, status_not_found, 1, 0x40005}) {
      SCOPED_TRACE(usual[index].entry + " " + std::to_string(fault));
      memory::reset();
      const std::string operation = usual[index].entry.substr(0, usual[index].entry.find(' '));
      memory::system().faults[operation] = {fault};
      auto expected = usual;
      expected[index].status = fault;
      expected[index].is_done = fault >= 0;
      EXPECT_TRUE(use_audio() == expected);
      EXPECT_TRUE(memory::system().faults[operation].empty());
      EXPECT_TRUE(memory::system().state.audio_objects.empty());
    }
  }
}

TEST_F(MemoryFaults, StayBehindTheFailureOfTheWorkItself) {
  DeviceEnumerator enumerator;
  ASSERT_EQ(create_device_enumerator(enumerator), 0);
  memory::system().faults["GetDefaultAudioEndpoint"] = {1};
  AudioDevice device;
  EXPECT_EQ(get_default_device(enumerator, EndpointFlow::render, device), status_not_found);
  EXPECT_FALSE(device.is_open());
}

TEST_F(MemoryFaults, LetAnotherProgramChangeTheEndpointsBeforeACall) {
  put_speakers();
  DeviceEnumerator enumerator;
  AudioDevice device;
  EndpointVolume volume;
  AudioSessionList sessions;
  std::int32_t count = 0;
  ASSERT_EQ(create_device_enumerator(enumerator), 0);
  ASSERT_EQ(get_device(enumerator, speakers, device), 0);
  ASSERT_EQ(activate_volume(device, volume), 0);
  ASSERT_EQ(list_sessions(device, sessions, count), 0);
  memory::system().before_machine_call = [&](const std::string& entry) {
    if (entry == "GetMute " + speakers_text) surroundings::put_endpoints({});
  };
  float number = 0;
  bool muted = false;
  EXPECT_EQ(get_volume_level(volume, number), 0);
  EXPECT_EQ(get_mute(volume, muted), device_invalidated);
  EXPECT_FALSE(muted);
  // What has gone fails from now on, and nothing is made by setting.
  const std::string before = told(hosted::machine_state().registry);
  EXPECT_EQ(get_volume_level(volume, number), device_invalidated);
  EXPECT_EQ(set_volume_level(volume, 0.25F), device_invalidated);
  EXPECT_EQ(set_mute(volume, true), device_invalidated);
  EXPECT_EQ(read_peak_value(device, number), device_invalidated);
  // A list of sessions is as it was when it was made.
  AudioSession session;
  EXPECT_EQ(read_session(sessions, 0, session), 0);
  EXPECT_EQ(told(hosted::machine_state().registry), before);
  EXPECT_EQ(number, 0.5F);
}

TEST_F(MemoryFaults, LeaveVolumeAndMuteAsTheyWereWhenAChangeCannotBeKept) {
  put_speakers();
  DeviceEnumerator enumerator;
  AudioDevice device;
  EndpointVolume volume;
  ASSERT_EQ(create_device_enumerator(enumerator), 0);
  ASSERT_EQ(get_device(enumerator, speakers, device), 0);
  ASSERT_EQ(activate_volume(device, volume), 0);
  const std::string before = told(hosted::machine_state().registry);
  memory::system().registry_kept = false;
  constexpr auto not_kept = static_cast<std::int32_t>(0x800703F8u);
  EXPECT_EQ(set_volume_level(volume, 0.25F), not_kept);
  EXPECT_EQ(set_mute(volume, false), not_kept);
  EXPECT_EQ(told(hosted::machine_state().registry), before);
  // What stands already wants no keeping.
  EXPECT_EQ(set_mute(volume, true), 1);
}

TEST_F(MemoryFaults, KeepTheProgramOfAProcessBack) {
  memory::system().process_paths[1234] = u"C:\\player.exe";
  memory::system().faults["QueryFullProcessImageNameW"] = {5};
  EXPECT_EQ(process_image_path(1234), u"");
  EXPECT_EQ(process_image_path(1234), u"C:\\player.exe");
}

TEST_F(MemoryFaults, TellWhatIsWrongWithTheMachine) {
  EXPECT_EQ(load_machine(), "");
  memory::system().machine_trouble = "machine.reg:3: a key without an end";
  EXPECT_EQ(load_machine(), "machine.reg:3: a key without an end");
}

TEST_F(MemoryFaults, TellThatAGuidHasNoText) {
  memory::system().faults["StringFromGUID2"] = {1};
  EXPECT_EQ(guid_text({}), u"");
}

}  // namespace
}  // namespace velmora
