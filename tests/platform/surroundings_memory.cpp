// The surroundings of the machine in memory: its state.
#include "platform/surroundings.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <memory>

#include "base/text.h"
#include "memory/system.h"
#include "platform/audio_in_memory.h"
#include "platform/registry_in_memory.h"

namespace velmora::surroundings {
namespace {

constexpr const char* scratch = "/scratch";
constexpr std::uint32_t child_id = 4712;
constexpr const char* probe_library = "/opt/velmora/library.dll";

int answer() { return 42; }

struct OutsideState {
  std::map<std::uintptr_t, std::shared_ptr<memory::Connection>> peers;
  std::map<std::uintptr_t, std::shared_ptr<memory::Region>> regions;
  std::uintptr_t next = 1;
};

OutsideState& outside() {
  static OutsideState state;
  return state;
}

memory::Connection& connection_of(const Peer& peer) { return *outside().peers.at(peer.native()); }

}  // namespace

void set_up() {
  memory::reset();
  outside() = OutsideState();
  memory::System& machine = memory::system();
  machine.files[scratch].kind = FileKind::directory;
  machine.files["/opt/velmora"].kind = FileKind::directory;
  machine.files["/dev/other"].kind = FileKind::other;
  machine.files[machine.module_path].bytes = "program";
  machine.libraries[probe_library].functions["velmora_contract_answer"] =
      reinterpret_cast<LibraryFunction>(answer);
  machine.process_paths[own_process_id()] = wide_from_utf8(machine.module_path);
  const std::time_t now = std::time(nullptr);
  machine.local_time = *std::localtime(&now);
}

void tear_down() {
  EXPECT_TRUE(memory::system().handles.empty());
  EXPECT_TRUE(memory::system().state.open_keys.empty());
  EXPECT_EQ(memory::system().sockets_started, 0);
  EXPECT_EQ(memory::system().com_started, 0);
  EXPECT_TRUE(outside().peers.empty());
  EXPECT_TRUE(outside().regions.empty());
  memory::reset();
}

void PeerKind::release(Native native) noexcept {
  outside().peers.at(native)->client_done = true;
  outside().peers.erase(native);
}

void OtherListenerKind::release(Native native) noexcept {
  memory::system().ports_of_others.erase(static_cast<std::uint16_t>(native));
}

void SocketShortageKind::release(Native) noexcept { memory::system().faults.clear(); }

std::uint16_t find_free_port() { return 31337; }

OtherListener listen_elsewhere(std::uint16_t port) {
  memory::system().ports_of_others.insert(port);
  return OtherListener(port);
}

SocketShortage run_out_of_sockets() {
  constexpr int too_many = 10024;
  memory::system().faults["socket"] = {too_many};
  return SocketShortage(too_many);
}

Peer connect_to(std::uint16_t) {
  const std::uintptr_t number = outside().next++;
  outside().peers[number] = memory::connect_client({});
  return Peer(number);
}

Peer accept_elsewhere(const OtherListener& listener) {
  auto& waiting = memory::system().to_others[static_cast<std::uint16_t>(listener.native())];
  EXPECT_FALSE(waiting.empty());
  const std::uintptr_t number = outside().next++;
  outside().peers[number] = waiting.front();
  waiting.pop_front();
  return Peer(number);
}

void send_all(const Peer& peer, std::string_view bytes) {
  connection_of(peer).to_service.emplace_back(bytes);
}

void end_sending(const Peer& peer) { connection_of(peer).client_done = true; }

void reset_connection(Peer& peer) {
  connection_of(peer).client_gone = true;
  peer.close();
}

std::string receive_until_end(const Peer& peer) {
  EXPECT_TRUE(connection_of(peer).closed || connection_of(peer).shut_down);
  return connection_of(peer).from_service;
}

void ElsewhereKind::release(Native native) noexcept { outside().regions.erase(native); }

std::u16string find_free_mapping_name() {
  const std::string number = std::to_string(outside().next++);
  return u"Local\\VelmoraContract" + std::u16string(number.begin(), number.end());
}

MappingElsewhere hold_elsewhere(std::u16string_view name, const std::vector<std::uint64_t>& words) {
  const std::uintptr_t number = outside().next++;
  outside().regions[number] = memory::hold_region(name, words.size() * sizeof(std::uint64_t));
  outside().regions[number]->words = words;
  return MappingElsewhere(number);
}

CreatedMapping make_mapping(std::u16string_view name, std::size_t size, SharedMapping& out) {
  return create_shared_mapping(name, size, out);
}

std::string scratch_directory() { return scratch; }
std::string path_of_other_kind() { return "/dev/other"; }

void put_file(const std::string& path, std::string_view bytes) { memory::system().files[path].bytes = bytes; }

void append_to_file(const std::string& path, std::string_view bytes) {
  memory::system().files.at(path).bytes += bytes;
}

void put_sparse_file(const std::string& path, std::uint64_t size) {
  put_file(path, "");
  memory::system().files[path].size = size;
}

void put_directory(const std::string& path) { memory::system().files[path].kind = FileKind::directory; }

bool remove_elsewhere(const std::string& path) { return memory::system().files.erase(path) == 1; }

bool rename_elsewhere(const std::string& from, const std::string& to) {
  auto file = memory::system().files.extract(from);
  file.key() = to;
  return memory::system().files.insert(std::move(file)).inserted;
}

std::vector<JoinCase> join_cases() {
  return {{"/a", "b", "/a/b"},    {"/a/", "b", "/a/b"},       {"", "b", "b"},         {"/", "b", "/b"},
          {"C:\\", "b", "C:\\b"}, {"C:\\a", "b", "C:\\a\\b"}, {"C:/a", "b", "C:/a/b"}};
}

std::vector<ParentCase> parent_cases() {
  return {{"/a/b", "/a"}, {"/a", "/"},           {"a", ""},         {"", ""},        {"/", "/"},
          {"a/b", "a"},   {"C:\\a\\b", "C:\\a"}, {"C:\\a", "C:\\"}, {"C:\\", "C:\\"}};
}

void set_up_registry() {
  put_scratch_key();
  hosted::TreeKey& windows =
      hosted::make_key(hosted::machine_state().registry,
                       u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion");
  constexpr std::u16string_view root{u"C:\\Windows\0", 11};
  hosted::put_value(windows, u"SystemRoot", reg_sz,
                    {reinterpret_cast<const char*>(root.data()), root.size() * sizeof(char16_t)});
}

void tear_down_registry() { remove_scratch_key(); }

void set_up_audio() {
  EXPECT_EQ(start_com(), 0);
  put_endpoints({});
}

void tear_down_audio() {
  EXPECT_EQ(held_audio_objects(), 0u);
  stop_com();
}

void ChildProcessKind::release(Native native) noexcept { memory::system().process_paths.erase(native); }

ChildProcess start_child() {
  memory::system().process_paths[child_id] = child_program_path();
  return ChildProcess(child_id);
}

std::u16string child_program_path() { return u"C:\\Program Files\\Player\\player.exe"; }

std::string library_path() { return probe_library; }

std::vector<std::uint32_t> console_events() { return {0, 1, 2, 5, 6}; }

void raise_console_event(std::uint32_t event) { memory::system().console_handler(event); }

void BrowserKind::release(Native) noexcept {}

Browser install_browser() { return Browser(1); }

std::string browser_address() { return "http://127.0.0.1:31337/?token=0123456789abcdef"; }

std::vector<std::string> read_browser_record() { return memory::system().browser_addresses; }

Browser remove_browser() {
  constexpr std::intptr_t file_not_found = 2;
  memory::system().browser_result = file_not_found;
  return Browser(1);
}

}  // namespace velmora::surroundings
