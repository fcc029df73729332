// Answers that a test orders from the machine in memory and no real machine can be made to give. The unit
// tests prove what the service makes of them.
#include <gtest/gtest.h>

#include <array>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/status.h"
#include "memory/system.h"
#include "platform/audio_endpoints.h"
#include "platform/child_process.h"
#include "platform/clock.h"
#include "platform/console_window.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/private_files.h"
#include "platform/processes.h"
#include "platform/registry.h"
#include "platform/shared_memory.h"
#include "platform/sockets.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class MemoryFaults : public surroundings::Arranged {};

TEST_F(MemoryFaults, LeaveTheTimeUntouchedWhenItCannotBeRead) {
  memory::system().local_time.reset();
  std::tm time{};
  time.tm_year = 77;
  EXPECT_FALSE(read_local_time(time));
  EXPECT_EQ(time.tm_year, 77);
}

TEST_F(MemoryFaults, ReportThatThereAreNoRandomBytes) {
  memory::system().random_available = false;
  std::array<unsigned char, 4> buffer{};
  EXPECT_FALSE(fill_random(buffer.data(), buffer.size()));
}

TEST_F(MemoryFaults, ReportBothErrorsOfAMappingThatCannotBeMade) {
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

TEST_F(MemoryFaults, LeaveNothingOfAWholeFileThatFails) {
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

TEST_F(MemoryFaults, LeaveHalfAFileOnAFullDisk) {
  memory::system().faults["WriteFile"] = {112};
  EXPECT_EQ(write_whole_file("/scratch/file", "abcd"), 112u);
  EXPECT_EQ(memory::system().files.at("/scratch/file").bytes, "ab");
}

TEST_F(MemoryFaults, LeaveNoHalfOfAPrivateFile) {
  auto& faults = memory::system().faults;
  HeldFile file;
  faults["CreateFileW"] = {19};
  EXPECT_EQ(hold_private_file("/scratch/run.json", file), 19u);
  EXPECT_FALSE(file.is_open());
  ASSERT_EQ(hold_private_file("/scratch/run.json", file), 0u);
  ASSERT_EQ(write_held_file(file, "former"), 0u);
  faults["WriteFile"] = {112, 112};
  EXPECT_EQ(write_held_file(file, "abcd"), 112u);
  EXPECT_EQ(read_private_file("/scratch/run.json").bytes, "");
  EXPECT_TRUE(read_private_file("/scratch/run.json").is_held);
  EXPECT_EQ(write_private_file("/scratch/stop.json", "abcd"), 112u);
  EXPECT_EQ(query_file_kind("/scratch/stop.json"), FileKind::missing);
  faults["CreateFileW"] = {5};
  const PrivateFileRead read = read_private_file("/scratch/run.json");
  EXPECT_EQ(read.error, 5u);
  EXPECT_FALSE(read.is_held);
}

TEST_F(MemoryFaults, GiveAFileToAnotherUser) {
  ASSERT_EQ(write_private_file("/scratch/run.json", "theirs"), 0u);
  memory::system().files.at("/scratch/run.json").is_foreign = true;
  EXPECT_EQ(read_private_file("/scratch/run.json").error, 1307u);
  EXPECT_EQ(write_private_file("/scratch/run.json", "ours"), 1307u);
  EXPECT_EQ(memory::system().files.at("/scratch/run.json").bytes, "theirs");
  memory::system().files["/scratch/theirs"].kind = FileKind::directory;
  memory::system().files.at("/scratch/theirs").is_foreign = true;
  EXPECT_EQ(make_private_directory("/scratch/theirs"), 1307u);
}

TEST_F(MemoryFaults, KeepAChildFromStartingAndEnding) {
  surroundings::put_file("/scratch/program", "program");
  auto& machine = memory::system();
  ChildProcess child;
  machine.faults["CreateProcessW"] = {5};
  EXPECT_EQ(start_child("/scratch/program", {"a", "b"}, child), 5u);
  EXPECT_FALSE(child.is_open());
  EXPECT_EQ(machine.log.back(), "CreateProcessW /scratch/program a b");
  machine.on_start_child = [](memory::Child&) { return 27u; };
  EXPECT_EQ(start_child("/scratch/program", {}, child), 27u);
  machine.on_start_child = nullptr;
  ASSERT_EQ(start_child("/scratch/program", {}, child), 0u);
  machine.faults["TerminateProcess"] = {5};
  EXPECT_FALSE(end_child(child));
  EXPECT_EQ(machine.children.back()->exit_code, std::nullopt);
  machine.faults["GenerateConsoleCtrlEvent"] = {31};
  EXPECT_EQ(interrupt_process(child_process_id(child)), 31u);
  EXPECT_EQ(machine.children.back()->interrupts, 0);
  EXPECT_EQ(interrupt_process(child_process_id(child)), 0u);
  EXPECT_EQ(wait_for_child(child, 0).kind, ChildEvent::Kind::ended);
}

TEST_F(MemoryFaults, AnswerForTheUserWhoIsAskedForRights) {
  memory::system().faults["ShellExecuteExW"] = {1223};
  EXPECT_EQ(start_as_administrator("/scratch/program", {"start"}), 1223u);
  EXPECT_TRUE(memory::system().elevated_starts.empty());
  EXPECT_EQ(start_as_administrator("/scratch/program", {"start"}), 0u);
  ASSERT_EQ(memory::system().elevated_starts.size(), 1u);
  EXPECT_EQ(memory::system().elevated_starts[0].arguments, std::vector<std::string>{"start"});
}

TEST_F(MemoryFaults, RefuseAConnectionAndALine) {
  Socket socket;
  ASSERT_EQ(open_tcp_socket(socket), std::nullopt);
  memory::system().ports_of_others.insert(31337);
  memory::system().faults["connect"] = {10060};
  EXPECT_EQ(connect_loopback(socket, 31337), 10060);
  memory::system().on_connect = [](std::uint16_t port) {
    auto connection = std::make_shared<memory::Connection>();
    connection->to_service.push_back("port " + std::to_string(port));
    return connection;
  };
  EXPECT_EQ(connect_loopback(socket, 17831), std::nullopt);
  std::array<char, 16> buffer{};
  EXPECT_EQ(receive_bytes(socket, buffer.data(), buffer.size()).count, 10);
  EXPECT_STREQ(buffer.data(), "port 17831");
  memory::system().standard_input = "y\n";
  memory::system().faults["ReadConsoleW"] = {995};
  std::string line = "former";
  EXPECT_FALSE(read_standard_input_line(line));
  EXPECT_EQ(line, "");
  set_console_title("title");
  delay_end_after_close(4000);
  EXPECT_EQ(memory::system().console_title, "title");
  EXPECT_EQ(memory::system().end_delay_ms, 4000u);
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

TEST_F(MemoryFaults, ApplyInOrderAndSkipACallForAZero) {
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

// One call by its place in the log, over all operations. The registry logs its calls with what they are
// about.
TEST_F(MemoryFaults, StrikeTheCallThatIsCounted) {
  constexpr std::int32_t fault = 1450;
  constexpr std::uint32_t access = key_query_value | key_set_value;
  memory::system().fault_at = {3, fault};
  Socket socket;
  RegistryKey key;
  EXPECT_EQ(open_tcp_socket(socket), std::nullopt);
  EXPECT_EQ(create_registry_key(u"Faulty", access, key), 0);
  EXPECT_EQ(open_tcp_socket(socket), fault);
  EXPECT_EQ(open_tcp_socket(socket), std::nullopt);
  EXPECT_EQ(memory::system().log.at(1), "RegCreateKeyExW Faulty");
}

TEST_F(MemoryFaults, LetAnotherProgramActBeforeACall) {
  surroundings::put_endpoints({{EndpointFlow::render, u"{0.0.0.00000000}.{aa}", 1, true}});
  DeviceEnumerator enumerator;
  AudioDevice device;
  ASSERT_EQ(create_device_enumerator(enumerator), 0);
  memory::system().before_machine_call = [](const std::string& entry) {
    if (entry == "GetDefaultAudioEndpoint 0") surroundings::put_endpoints({});
  };
  EXPECT_EQ(get_default_device(enumerator, EndpointFlow::render, device), status_not_found);
}

// A status that is a success comes behind the work, a failure in its place.
TEST_F(MemoryFaults, ComeBehindTheWorkWhereTheyAreSuccesses) {
  for (const std::int32_t fault : {status_failed, 1}) {
    memory::system().faults["CoCreateInstance"] = {fault};
    DeviceEnumerator enumerator;
    EXPECT_EQ(create_device_enumerator(enumerator), fault);
    EXPECT_EQ(enumerator.is_open(), fault == 1);
  }
}

TEST_F(MemoryFaults, HideTheProgramOfAProcess) {
  memory::system().process_paths[1234] = u"C:\\player.exe";
  memory::system().faults["QueryFullProcessImageNameW"] = {5};
  EXPECT_EQ(process_image_path(1234), u"");
  EXPECT_EQ(process_image_path(1234), u"C:\\player.exe");
}

TEST_F(MemoryFaults, ReportWhatIsWrongWithTheMachine) {
  EXPECT_EQ(load_machine(), "");
  memory::system().machine_trouble = "machine.reg:3: a key without an end";
  EXPECT_EQ(load_machine(), "machine.reg:3: a key without an end");
}

TEST_F(MemoryFaults, FailToFormatAGuid) {
  memory::system().faults["StringFromGUID2"] = {1};
  EXPECT_EQ(guid_text({}), u"");
}

}  // namespace
}  // namespace velmora
