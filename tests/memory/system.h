// A machine in memory: what the unit tests run on, on every system. It is state with a log and a fault for
// each operation, and tests read and set all of it.
#pragma once

#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "platform/hosted/machine_state.h"
#include "platform/machine.h"
#include "platform/processes.h"

namespace velmora::memory {

// A file by its path. `read_error` answers the reading that follows the bytes, where it is not 0.
struct File {
  FileKind kind = FileKind::regular;
  std::string bytes;
  std::uint32_t read_error = 0;
  std::optional<std::uint64_t> size = std::nullopt;  // reported in place of the bytes' size
};

// A mapping, for as long as anyone holds it.
struct Region {
  std::vector<std::uint64_t> words;  // zeroed, 8-byte aligned
  std::size_t size = 0;              // bytes
};

// One connection, seen from the client.
struct Connection {
  std::deque<std::string> to_service;  // each receive gives at most one of these
  bool client_done = false;            // the client has closed its sending side: receive gives 0
  bool client_gone = false;            // the client has reset: receive and send fail with 10054
  std::size_t send_limit = 0;          // bytes that one send takes; 0: all
  bool send_stalls = false;            // a send takes nothing and gives 0
  std::string from_service;            // what the service has sent
  bool shut_down = false;
  bool closed = false;
};

struct Library {
  std::map<std::string, LibraryFunction> functions;
};

struct Process {
  std::uint32_t id = 0;
  std::u16string file_name;
  std::vector<ModuleEntry> modules;
};

// What a handle of the service refers to.
struct Handle {
  std::string what;  // "socket", "mapping", "view", "file", "library", "processes", "modules"
  std::uint16_t port = 0;
  bool listening = false;
  std::shared_ptr<Connection> connection;
  std::shared_ptr<Region> region;
  std::string path;
  std::size_t position = 0;
  std::uint32_t process_id = 0;
};

struct CallFault {
  std::size_t call = 0;
  std::int64_t error = 0;
};

struct System {
  // Every operation by name, in order of the calls; those on the machine that Linux lacks with a blank and
  // what they are about (a path, a value's name, or both; an endpoint's id; a number). Sleeps and receives
  // are not logged.
  std::vector<std::string> log;
  // For an operation's name, what its next calls answer instead of their work, in order: an error number, or
  // 0 to let that call pass. A positive status of the audio endpoints is a success and comes behind the work.
  std::map<std::string, std::deque<std::int64_t>> faults;
  // One call by its place in the log, counted from 1, and what it answers instead of its work.
  std::optional<CallFault> fault_at;
  // Called before each operation on the machine that Linux lacks with its entry in the log: another program
  // may change things then.
  std::function<void(const std::string& entry)> before_machine_call;
  // The registry and what is open of it.
  hosted::MachineState state;
  std::vector<std::string> service_states;  // each change of a service, "NAME STATE"
  bool registry_kept = true;                // false: changes cannot be kept
  std::string machine_trouble;              // what load_machine returns
  // What is open at the moment; empty when everything has been released.
  std::map<std::uintptr_t, Handle> handles;
  std::uintptr_t next_handle = 1;

  std::map<std::string, File> files;

  // Mappings that another process holds; those of the service are found through its handles too.
  std::map<std::u16string, std::weak_ptr<Region>> regions;

  std::set<std::uint16_t> ports_of_others;  // in use: bind answers 10048
  std::deque<std::shared_ptr<Connection>> backlog;
  int sockets_started = 0;
  // Called when the service waits and nobody connects. Unset: the console stops the service with event 0.
  std::function<void()> on_idle;
  std::function<void()> on_send;  // called before each send

  std::int64_t now_ns = 1'000'000'000;
  std::int64_t unix_time_s = 1'700'000'000;
  std::optional<std::tm> local_time;
  std::uint64_t sleeps = 0;
  std::function<void()> on_sleep;  // called behind each sleep

  std::string module_path = "/opt/velmora/velmora_control_demo";
  std::map<std::string, Library> libraries;
  // Walked as they are at the moment, so that a test may change them meanwhile.
  std::vector<Process> processes;
  bool elevated = false;
  std::map<std::uint32_t, std::u16string> process_paths;  // of the processes that may be asked, by their ids
  std::string machine_identifier = "6f3a2b1c-0d4e-4f5a-8b6c-7d8e9fa0b1c2";
  std::map<std::u16string, std::u16string> environment;
  std::int32_t com_result = 0;
  int com_started = 0;
  bool random_available = true;
  std::intptr_t browser_result = 33;
  std::vector<std::string> browser_addresses;
  bool (*console_handler)(std::uint32_t) = nullptr;
  std::string standard_output;
  std::string standard_error;
};

// The machine that everything here works on.
[[nodiscard]] System& system();
// A new machine, with everything as above. Nothing of the former may be open.
void reset();

// Logs an operation and takes its next fault: the number to answer with, or 0.
[[nodiscard]] std::int64_t enter(std::string_view operation);
// A fault that is a failure whose error number is 0.
inline constexpr std::int64_t failure_without_number = std::numeric_limits<std::int64_t>::min();
// The number that such a call reports for its fault.
[[nodiscard]] int number_of(std::int64_t fault);
[[nodiscard]] std::uint32_t code_of(std::int64_t fault);
// Opens a handle.
[[nodiscard]] std::uintptr_t add_handle(Handle handle);

// A client that connects to the service's port and has sent `request`, all of it or in the pieces given.
std::shared_ptr<Connection> connect_client(std::deque<std::string> to_service);

// Another process holds `size` bytes under this name for as long as the result lives.
[[nodiscard]] std::shared_ptr<Region> hold_region(std::u16string_view name, std::size_t size);

}  // namespace velmora::memory
