// The surroundings of the POSIX implementation.
#include "platform/surroundings.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "base/text.h"
#include "platform/audio_in_memory.h"
#include "platform/clock.h"
#include "platform/machine.h"
#include "platform/registry_in_memory.h"

namespace velmora::surroundings {
namespace {

constexpr const char* child_program = "/bin/cat";
// What the person who runs the tests may have set for other programs, and what would lead them elsewhere.
constexpr std::array personal_variables{"VELMORA_PROC", "VELMORA_DRIVES", "http_proxy", "https_proxy",
                                        "HTTPS_PROXY",  "all_proxy",      "ALL_PROXY",  "no_proxy",
                                        "NO_PROXY",     "SSL_CERT_FILE"};
constexpr std::array console_signals{SIGINT, SIGQUIT, SIGHUP, SIGTERM};

struct State {
  std::string scratch;
  std::array<struct sigaction, console_signals.size()> former_actions;
  struct sigaction former_pipe_action;
  std::map<std::uintptr_t, int> children;  // process number, and the end of the pipe that keeps it
  int browsers = 0;
  std::optional<std::string> former_path;
  rlimit former_descriptors;
};

State& state() {
  static State all;
  return all;
}

int descriptor_of(std::uintptr_t native) { return static_cast<int>(native); }

int open_socket() {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
  EXPECT_GE(descriptor, 0);
  return descriptor;
}

sockaddr_in address_of(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int bind_to(int descriptor, std::uint16_t port) {
  const sockaddr_in address = address_of(port);
  return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

void close_all_but(int one, int other) {
  for (int descriptor = 3; descriptor < 1024; ++descriptor) {
    if (descriptor != one && descriptor != other) close(descriptor);
  }
}

// The child: makes the mapping, says so, and holds it until the parent closes its end of the pipe.
[[noreturn]] void hold_in_child(std::u16string_view name, const std::vector<std::uint64_t>& words, int said,
                                int kept) {
  close_all_but(said, kept);
  const std::size_t size = words.size() * sizeof(std::uint64_t);
  SharedMapping mapping;
  SharedView view;
  const CreatedMapping created = create_shared_mapping(name, size, mapping);
  bool made = !created.create_error && !created.already_existed;
  made = made && !map_shared_view(mapping, size, view);
  if (made) std::memcpy(view.native().data, words.data(), size);
  const char word = made ? 'y' : 'n';
  char nothing = 0;
  const bool reported = write(said, &word, 1) == 1;
  const bool ended = read(kept, &nothing, 1) == 0;
  view.close();
  mapping.close();
  _exit(made && reported && ended ? 0 : 1);
}

void remember_path() {
  const char* path = std::getenv("PATH");
  state().former_path = path == nullptr ? std::string() : std::string(path);
}

std::string record_path() { return state().scratch + "/browser-record"; }

}  // namespace

void set_up() {
  std::array<char, 64> name{};
  std::snprintf(name.data(), name.size(), "/tmp/velmora-contract-XXXXXX");
  ASSERT_NE(mkdtemp(name.data()), nullptr);
  state().scratch = name.data();
  // Whoever started the tests may have had signals ignored.
  for (std::size_t index = 0; index < console_signals.size(); ++index) {
    sigaction(console_signals[index], nullptr, &state().former_actions[index]);
    signal(console_signals[index], SIG_DFL);
  }
  sigaction(SIGPIPE, nullptr, &state().former_pipe_action);
  signal(SIGPIPE, SIG_DFL);
  for (const char* variable : personal_variables) unsetenv(variable);
}

void tear_down() {
  for (std::size_t index = 0; index < console_signals.size(); ++index) {
    sigaction(console_signals[index], &state().former_actions[index], nullptr);
  }
  sigaction(SIGPIPE, &state().former_pipe_action, nullptr);
  EXPECT_TRUE(state().children.empty());
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  std::error_code error;
  std::filesystem::remove_all(state().scratch, error);
  EXPECT_FALSE(std::filesystem::exists(state().scratch));
}

void PeerKind::release(Native native) noexcept { close(descriptor_of(native)); }

void OtherListenerKind::release(Native native) noexcept { close(descriptor_of(native)); }

void SocketShortageKind::release(Native) noexcept { setrlimit(RLIMIT_NOFILE, &state().former_descriptors); }

std::uint16_t find_free_port() {
  const int descriptor = open_socket();
  EXPECT_EQ(bind_to(descriptor, 0), 0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size), 0);
  close(descriptor);
  return ntohs(address.sin_port);
}

// As another instance of this service would: with address reuse.
OtherListener listen_elsewhere(std::uint16_t port) {
  const int descriptor = open_socket();
  const int on = 1;
  EXPECT_EQ(setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
  EXPECT_EQ(bind_to(descriptor, port), 0);
  EXPECT_EQ(listen(descriptor, 1), 0);
  return OtherListener(static_cast<std::uintptr_t>(descriptor));
}

SocketShortage run_out_of_sockets() {
  constexpr int too_many = 10024;
  EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &state().former_descriptors), 0);
  const rlimit none{0, state().former_descriptors.rlim_max};
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  return SocketShortage(too_many);
}

Peer connect_to(std::uint16_t port) {
  const int descriptor = open_socket();
  const sockaddr_in address = address_of(port);
  EXPECT_EQ(connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return Peer(static_cast<std::uintptr_t>(descriptor));
}

Peer accept_elsewhere(const OtherListener& listener) {
  const int descriptor = accept4(descriptor_of(listener.native()), nullptr, nullptr, SOCK_CLOEXEC);
  EXPECT_GE(descriptor, 0);
  return Peer(static_cast<std::uintptr_t>(descriptor));
}

void send_all(const Peer& peer, std::string_view bytes) {
  EXPECT_EQ(send(descriptor_of(peer.native()), bytes.data(), bytes.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(bytes.size()));
}

void end_sending(const Peer& peer) { EXPECT_EQ(shutdown(descriptor_of(peer.native()), SHUT_WR), 0); }

void reset_connection(Peer& peer) {
  const linger at_once{1, 0};
  EXPECT_EQ(setsockopt(descriptor_of(peer.native()), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once), 0);
  peer.close();
}

std::string receive_until_end(const Peer& peer) {
  std::string received;
  std::array<char, 4096> buffer;
  for (;;) {
    const ssize_t count = recv(descriptor_of(peer.native()), buffer.data(), buffer.size(), 0);
    EXPECT_GE(count, 0);
    if (count <= 0) return received;
    received.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

void ElsewhereKind::release(Native native) noexcept {
  close(state().children.at(native));
  state().children.erase(native);
  int status = 0;
  EXPECT_EQ(waitpid(static_cast<pid_t>(native), &status, 0), static_cast<pid_t>(native));
  EXPECT_EQ(status, 0);
}

std::u16string find_free_mapping_name() {
  static int count = 0;
  const std::string text =
      "Local\\VelmoraContract" + std::to_string(getpid()) + "-" + std::to_string(++count);
  return {text.begin(), text.end()};
}

MappingElsewhere hold_elsewhere(std::u16string_view name, const std::vector<std::uint64_t>& words) {
  int said[2];
  int kept[2];
  EXPECT_EQ(pipe2(said, O_CLOEXEC), 0);
  EXPECT_EQ(pipe2(kept, O_CLOEXEC), 0);
  const pid_t child = fork();
  if (child == 0) hold_in_child(name, words, said[1], kept[0]);
  close(said[1]);
  close(kept[0]);
  char word = 'n';
  EXPECT_EQ(read(said[0], &word, 1), 1);
  EXPECT_EQ(word, 'y');
  close(said[0]);
  state().children[static_cast<std::uintptr_t>(child)] = kept[1];
  return MappingElsewhere(static_cast<std::uintptr_t>(child));
}

CreatedMapping make_mapping(std::u16string_view name, std::size_t size, SharedMapping& out) {
  return create_shared_mapping(name, size, out);
}

std::string scratch_directory() { return state().scratch; }

std::string path_of_other_kind() {
  const std::string path = state().scratch + "/pipe";
  EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
  return path;
}

void put_file(const std::string& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

void append_to_file(const std::string& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary | std::ios::app) << bytes;
}

void put_sparse_file(const std::string& path, std::uint64_t size) {
  put_file(path, "");
  EXPECT_EQ(truncate(path.c_str(), static_cast<off_t>(size)), 0);
}

void put_directory(const std::string& path) { EXPECT_EQ(mkdir(path.c_str(), 0700), 0); }

bool remove_elsewhere(const std::string& path) { return unlink(path.c_str()) == 0; }

bool rename_elsewhere(const std::string& from, const std::string& to) {
  return rename(from.c_str(), to.c_str()) == 0;
}

std::vector<JoinCase> join_cases() {
  return {{"/a", "b", "/a/b"},
          {"/a/", "b", "/a/b"},
          {"", "b", "b"},
          {"/", "b", "/b"},
          {"a", "b/c", "a/b/c"},
          {"a\\", "b", "a\\/b"},
          {"C:", "b", "C:/b"},
          {".", "b", "./b"},
          {"/a", "", "/a/"},
          {"\xC3\xB6", "b", "\xC3\xB6/b"},
          {"C:\\", "b", "C:\\b"},
          {"C:\\a", "b", "C:\\a\\b"},
          {"C:\\a\\", "b", "C:\\a\\b"},
          {"C:\\a/", "b", "C:\\a/b"},
          {"c:\\a", "b/c", "c:\\a\\b/c"},
          {"C:\\a", "", "C:\\a\\"},
          {"C:\\\xC3\xB6", "b", "C:\\\xC3\xB6\\b"},
          {"C:/", "b", "C:/b"},
          {"C:/a", "b", "C:/a/b"},
          {"C:a", "b", "C:a/b"},
          {"\\\\server\\share", "b", "\\\\server\\share\\b"},
          {"\\/server/share", "b", "\\/server/share\\b"},
          {"//server/share", "b", "//server/share/b"},
          {"1:\\a", "b", "1:\\a/b"},
          {"\\a", "b", "\\a/b"},
          {"/C:\\a", "b", "/C:\\a/b"},
          {"\xC3\xB6:\\a", "b", "\xC3\xB6:\\a/b"}};
}

std::vector<ParentCase> parent_cases() {
  return {{"/a/b", "/a"},
          {"/a", "/"},
          {"a", ""},
          {"", ""},
          {"/", "/"},
          {"a/b", "a"},
          {"/a/b/", "/a/b"},
          {"a\\b", ""},
          {"C:\\a", "C:\\"},
          {"C:\\", "C:\\"},
          {"C:\\a\\b", "C:\\a"},
          {"C:\\a\\b\\", "C:\\a\\b"},
          {"C:\\a/b", "C:\\a"},
          {"z:\\a\\b", "z:\\a"},
          {"C:/a", "C:/"},
          {"C:/a/b", "C:/a"},
          {"C:/", "C:/"},
          {"\\\\server\\share\\a", "\\\\server\\share"},
          {"\\\\server/share/a", "\\\\server/share"},
          {"\\\\server", "\\\\"},
          {"//server/share", "//server"},
          {"C:a", ""},
          {"C:", ""},
          {"1:\\a", ""},
          {"a\\C:\\b", ""},
          {"./a", "."},
          {"//a", "/"},
          {"/\xC3\xB6/b", "/\xC3\xB6"}};
}

// The built-in machine of this process, never one from the environment.
void set_up_registry() {
  unsetenv("VELMORA_MACHINE");
  ASSERT_EQ(load_machine(), "");
  put_scratch_key();
}

void tear_down_registry() {
  remove_scratch_key();
  EXPECT_EQ(load_machine(), "");
}

// The built-in machine again, with other endpoints.
void set_up_audio() {
  unsetenv("VELMORA_MACHINE");
  ASSERT_EQ(load_machine(), "");
  EXPECT_EQ(start_com(), 0);
  put_endpoints({});
}

void tear_down_audio() {
  EXPECT_EQ(held_audio_objects(), 0u);
  stop_com();
  EXPECT_EQ(load_machine(), "");
}

void ChildProcessKind::release(Native native) noexcept {
  const auto child = static_cast<pid_t>(native);
  close(state().children.at(native));
  state().children.erase(native);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

// Reads until the parent closes its end of the pipe. The first pipe is closed by the start of the program
// itself: only then has the process changed over to it.
ChildProcess start_child() {
  int started[2];
  int kept[2];
  EXPECT_EQ(pipe2(started, O_CLOEXEC), 0);
  EXPECT_EQ(pipe2(kept, O_CLOEXEC), 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(kept[0], STDIN_FILENO);
    execl(child_program, child_program, nullptr);
    _exit(1);
  }
  close(started[1]);
  close(kept[0]);
  char nothing = 0;
  EXPECT_EQ(read(started[0], &nothing, 1), 0);
  close(started[0]);
  state().children[static_cast<std::uintptr_t>(child)] = kept[1];
  return ChildProcess(static_cast<std::uint32_t>(child));
}

std::u16string child_program_path() {
  return wide_from_utf8(std::filesystem::canonical(child_program).string());
}

std::string library_path() {
  std::array<char, PATH_MAX> program{};
  EXPECT_GT(readlink("/proc/self/exe", program.data(), program.size() - 1), 0);
  return std::filesystem::path(program.data()).replace_filename("velmora_contract_library.dll").string();
}

std::vector<std::uint32_t> console_events() { return {0, 1, 2, 6}; }

void raise_console_event(std::uint32_t event) {
  const std::map<std::uint32_t, int> signals{{0, SIGINT}, {1, SIGQUIT}, {2, SIGHUP}, {6, SIGTERM}};
  EXPECT_EQ(raise(signals.at(event)), 0);
}

void BrowserKind::release(Native) noexcept {
  setenv("PATH", state().former_path->c_str(), 1);
  unsetenv("VELMORA_CONTRACT_RECORD");
}

Browser install_browser() {
  remember_path();
  const std::string directory = state().scratch + "/bin";
  put_directory(directory);
  const auto program = std::filesystem::path(library_path()).replace_filename("velmora_contract_browser");
  EXPECT_EQ(symlink(program.c_str(), (directory + "/xdg-open").c_str()), 0);
  setenv("PATH", directory.c_str(), 1);
  setenv("VELMORA_CONTRACT_RECORD", record_path().c_str(), 1);
  return Browser(1);
}

std::string browser_address() { return "http://127.0.0.1:31337/?token=0123456789abcdef&x=$(id);'\""; }

std::vector<std::string> read_browser_record() {
  constexpr std::int64_t limit_ns = 20'000'000'000;
  const std::int64_t start = steady_now_ns();
  while (access(record_path().c_str(), R_OK) != 0 && steady_now_ns() - start < limit_ns) sleep_ms(1);
  std::ifstream file(record_path(), std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

Browser remove_browser() {
  remember_path();
  const std::string directory = state().scratch + "/empty";
  put_directory(directory);
  setenv("PATH", directory.c_str(), 1);
  return Browser(1);
}

}  // namespace velmora::surroundings
