// The other side of the seam in its contract tests: the client of a socket, the process that holds a mapping
// or writes a file. Each implementation has its own. Where the system allows, it does not use the function
// under test.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/audio_endpoints.h"
#include "platform/owner.h"
#include "platform/registry.h"
#include "platform/shared_memory.h"

namespace velmora::surroundings {

// Before and after each test. The second one fails the test when something of it is left behind.
void set_up();
void tear_down();

class Arranged : public testing::Test {
 protected:
  void SetUp() override { set_up(); }
  void TearDown() override { tear_down(); }
};

// Sockets. All of these want start_sockets first.

struct PeerKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;
};
// A client's end of a connection. Closing it ends the connection in good order.
using Peer = Owner<PeerKind>;

struct OtherListenerKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;
};
// Another program's socket that listens.
using OtherListener = Owner<OtherListenerKind>;

struct SocketShortageKind {
  using Native = int;  // the error that opening a socket answers meanwhile
  static constexpr Native none = 0;
  static void release(Native native) noexcept;
};
// For as long as it is open, no socket can be opened.
using SocketShortage = Owner<SocketShortageKind>;

// A port of 127.0.0.1 that nobody uses.
[[nodiscard]] std::uint16_t find_free_port();
[[nodiscard]] OtherListener listen_elsewhere(std::uint16_t port);
[[nodiscard]] SocketShortage run_out_of_sockets();

// Connects; the other side need not have accepted yet.
[[nodiscard]] Peer connect_to(std::uint16_t port);
// Takes the next connection to the other program. Waits for it.
[[nodiscard]] Peer accept_elsewhere(const OtherListener& listener);
void send_all(const Peer& peer, std::string_view bytes);
void end_sending(const Peer& peer);
// Closes so that the other side sees a reset.
void reset_connection(Peer& peer);
// All bytes until the other side ends.
[[nodiscard]] std::string receive_until_end(const Peer& peer);

// Shared memory.

struct ElsewhereKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;
};
// A mapping that another process holds.
using MappingElsewhere = Owner<ElsewhereKind>;

// A name that no other test uses.
[[nodiscard]] std::u16string find_free_mapping_name();
// Another process makes the mapping, of exactly these words.
[[nodiscard]] MappingElsewhere hold_elsewhere(std::u16string_view name,
                                              const std::vector<std::uint64_t>& words);
// create_shared_mapping. A Windows that does not know the descriptor's trustees makes the mapping without
// one.
[[nodiscard]] CreatedMapping make_mapping(std::u16string_view name, std::size_t size, SharedMapping& out);

// Files. Paths as the seam takes them.

// An empty directory of this test's own.
[[nodiscard]] std::string scratch_directory();
// A path that names neither a file nor a directory.
[[nodiscard]] std::string path_of_other_kind();
void put_file(const std::string& path, std::string_view bytes);
void append_to_file(const std::string& path, std::string_view bytes);
void put_directory(const std::string& path);
// A file of `size` zero bytes that takes no room.
void put_sparse_file(const std::string& path, std::uint64_t size);
// What another program does to a file; false when it is kept from it.
[[nodiscard]] bool remove_elsewhere(const std::string& path);
[[nodiscard]] bool rename_elsewhere(const std::string& from, const std::string& to);

struct JoinCase {
  std::string directory;
  std::string name;
  std::string joined;
};
struct ParentCase {
  std::string path;
  std::string parent;
};
// This system's tables.
[[nodiscard]] std::vector<JoinCase> join_cases();
[[nodiscard]] std::vector<ParentCase> parent_cases();

// The registry. Paths are below HKEY_LOCAL_MACHINE.

// The key below which tests work. The first function makes it, empty. The second removes it with all keys
// below it, and fails the test for a key left open, as far as that can be seen.
constexpr std::u16string_view registry_scratch = u"SOFTWARE\\VelmoraContract";
void set_up_registry();
void tear_down_registry();

// Whether this key is open.
[[nodiscard]] bool is_held(RegistryKey::Native key);
// The names below a key as they are kept: of keys in the system's order, of values sorted.
[[nodiscard]] std::vector<std::u16string> key_names(std::u16string_view path);
[[nodiscard]] std::vector<std::u16string> value_names(std::u16string_view path);

struct GrantKind {
  using Native = std::uintptr_t;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;
};
// While it is open, a key grants everyone this access and no other.
using Grant = Owner<GrantKind>;
[[nodiscard]] Grant grant(std::u16string_view path, std::uint32_t access);

// Audio endpoints.

// One endpoint as it is to be. An id begins with its flow: "{0.0.0.00000000}." render, "{0.0.1.00000000}."
// capture.
struct ArrangedEndpoint {
  EndpointFlow flow = EndpointFlow::render;
  std::u16string id;
  std::uint32_t state = 1;                            // DEVICE_STATE_*, mmdeviceapi.h: 1 active
  bool is_default = false;                            // of its flow, for every role
  std::optional<std::u16string> name = std::nullopt;  // none: the property is missing
  bool name_is_number = false;                        // the property is there and is no text
  float level = 1;
  bool muted = false;
  float peak = 0;
  std::vector<AudioSession> sessions = {};
};

// COM runs on this thread and the machine has no endpoint; and the end of both, which fails the test where an
// interface is still held.
void set_up_audio();
void tear_down_audio();

// These are the machine's endpoints, in this order, for enumerators that are made from now on.
void put_endpoints(const std::vector<ArrangedEndpoint>& endpoints);

// How many interfaces are held.
[[nodiscard]] std::size_t held_audio_objects();

// Processes.

struct ChildProcessKind {
  using Native = std::uint32_t;  // the process's id
  static constexpr Native none = 0;
  static void release(Native native) noexcept;  // ends it and waits until its id is free
};
using ChildProcess = Owner<ChildProcessKind>;

// A process of another program than this one, which lives as long as its owner is open.
[[nodiscard]] ChildProcess start_child();
// The path of that program, as the system has it.
[[nodiscard]] std::u16string child_program_path();

// Whether Wine answers in place of Windows: where it departs from what Windows documents, tables have a
// column for it.
[[nodiscard]] bool runs_under_wine();

// The machine.

// A library that has the function velmora_contract_answer, which gives 42, and no other of such a name.
[[nodiscard]] std::string library_path();

// The console events that can be made to happen here.
[[nodiscard]] std::vector<std::uint32_t> console_events();
void raise_console_event(std::uint32_t event);

struct BrowserKind {
  using Native = int;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;
};
// For as long as it is open, addresses are opened by a program of ours.
using Browser = Owner<BrowserKind>;

[[nodiscard]] Browser install_browser();
// An address that the installed browser, or nobody when none is, takes.
[[nodiscard]] std::string browser_address();
// What the browser recorded, the address first, one fact a line. Waits for it.
[[nodiscard]] std::vector<std::string> read_browser_record();
// For as long as it is open, there is no browser.
[[nodiscard]] Browser remove_browser();

// Services.

constexpr std::uint32_t for_ever_ms = 0xFFFFFFFF;

// A service as it is to behave. It is started on demand.
struct ArrangedService {
  std::u16string name;
  std::uint32_t start_ms = 0;  // how long it is on its way, milliseconds; for_ever_ms: it never arrives
  std::uint32_t stop_ms = 0;
  std::uint32_t stop_error = 0;  // 1052: it refuses to stop, with this Win32 error
  bool is_disabled = false;
  std::vector<std::u16string> needs = {};  // the services that it depends on
};

// Installs the service, stopped, in place of one of this name.
void install_service(const ArrangedService& service);
// Before and after tests with services. The second one removes those that were installed, whatever they are
// doing, and fails the test where a service or the manager is left open.
void set_up_services();
void tear_down_services();

// Lists of processes.

// Before tests with them: this process is in the list.
void set_up_process_lists();

struct ListedProcessKind {
  using Native = std::uint32_t;  // the process's id
  static constexpr Native none = 0;
  static void release(Native native) noexcept;  // ends it and waits until its id is free
};
// A process that lives as long as its owner is open.
using ListedProcess = Owner<ListedProcessKind>;
// It has come so far that its modules can be listed.
[[nodiscard]] ListedProcess start_listed_process();
// The file name of its program.
[[nodiscard]] std::u16string listed_process_name();

struct LoadedLibraryKind {
  using Native = void*;
  static constexpr Native none = nullptr;
  static void release(Native native) noexcept;
};
// The library at library_path(), for as long as it is loaded into this process.
using LoadedLibrary = Owner<LoadedLibraryKind>;
[[nodiscard]] LoadedLibrary load_listed_library();

// Whether this process may do what only an administrator may.
[[nodiscard]] bool runs_elevated();

}  // namespace velmora::surroundings
