// The surroundings of the Windows implementation. One file because all of it is set up and torn down in one
// state.
#include "platform/surroundings.h"

#include <winsock2.h>

#include <mmdeviceapi.h>
#include <windows.h>
#include <winioctl.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "audio/script.h"
#include "audio/server.h"
#include "platform/clock.h"
#include "platform/machine.h"
#include "platform/sockets.h"

namespace velmora::surroundings {
namespace {

struct State {
  std::string scratch;
  std::map<std::uintptr_t, std::wstring> grants;  // the keys that they are about
  DWORD audio_class = 0;                          // its registration
  audio_server::LiveCounts audio_before;
  std::map<DWORD, HANDLE> children;
};

State& state() {
  static State all;
  return all;
}

std::wstring widen(std::string_view text) {
  const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                                         static_cast<int>(text.size()), nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), length);
  return wide;
}

std::string narrow(const std::wstring& wide) {
  const int length = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0,
                                         nullptr, nullptr);
  std::string text(static_cast<std::size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text.data(), length, nullptr,
                      nullptr);
  return text;
}

SOCKET open_socket() {
  const SOCKET opened = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  EXPECT_NE(opened, INVALID_SOCKET);
  return opened;
}

sockaddr_in address_of(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int bind_to(SOCKET socket, std::uint16_t port) {
  const sockaddr_in address = address_of(port);
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

void remove_tree(const std::wstring& directory) {
  WIN32_FIND_DATAW entry;
  const HANDLE search = FindFirstFileW((directory + L"\\*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    const std::wstring name = entry.cFileName;
    const std::wstring path = directory + L"\\" + name;
    if (name == L"." || name == L"..") continue;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      remove_tree(path);
    } else {
      DeleteFileW(path.c_str());
    }
  } while (FindNextFileW(search, &entry));
  FindClose(search);
  RemoveDirectoryW(directory.c_str());
}

void write_file(const std::string& path, std::string_view bytes, DWORD access, DWORD disposition) {
  const HANDLE file =
      CreateFileW(widen(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE) << path << ": error " << GetLastError();
  DWORD written = 0;
  EXPECT_TRUE(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
  EXPECT_EQ(written, bytes.size());
  CloseHandle(file);
}

std::wstring program_path() {
  std::array<wchar_t, 1024> buffer{};
  const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  return {buffer.data(), length};
}

std::wstring beside_program(const wchar_t* name) {
  const std::wstring program = program_path();
  return program.substr(0, program.rfind(L'\\') + 1) + name;
}

// Schemes are of letters, digits and hyphens.
std::wstring scheme() { return L"velmora-contract-" + std::to_wstring(GetCurrentProcessId()); }
std::wstring scheme_key() { return scheme(); }

void set_registry_text(const std::wstring& key, const wchar_t* name, const std::wstring& text) {
  EXPECT_EQ(RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), name, REG_SZ, text.c_str(),
                            static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
            ERROR_SUCCESS);
}

std::wstring wide_of(std::u16string_view text) { return {text.begin(), text.end()}; }

HKEY open_key(const std::wstring& path, REGSAM access) {
  HKEY key = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, access, &key), ERROR_SUCCESS);
  return key;
}

// Grants an access to everyone and none besides. The owner may always set it anew.
LSTATUS set_granted(HKEY key, DWORD access) {
  SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
  alignas(DWORD) std::array<BYTE, SECURITY_MAX_SID_SIZE> everyone;
  EXPECT_TRUE(InitializeSid(everyone.data(), &world, 1));
  *GetSidSubAuthority(everyone.data(), 0) = SECURITY_WORLD_RID;
  alignas(ACL) std::array<BYTE, 128> list;
  auto* const acl = reinterpret_cast<ACL*>(list.data());
  EXPECT_TRUE(InitializeAcl(acl, static_cast<DWORD>(list.size()), ACL_REVISION));
  EXPECT_TRUE(AddAccessAllowedAceEx(acl, ACL_REVISION, CONTAINER_INHERIT_ACE, access, everyone.data()));
  SECURITY_DESCRIPTOR descriptor;
  EXPECT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
  EXPECT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE));
  return RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, &descriptor);
}

using Enumerate = LSTATUS (*)(HKEY key, DWORD index, wchar_t* name, DWORD* length);

std::vector<std::u16string> enumerate_names(std::u16string_view path, Enumerate next) {
  const HKEY key = open_key(wide_of(path), KEY_READ);
  std::vector<std::u16string> names;
  for (DWORD index = 0;; ++index) {
    std::array<wchar_t, 512> name{};
    auto length = static_cast<DWORD>(name.size());
    if (next(key, index, name.data(), &length) != ERROR_SUCCESS) break;
    names.emplace_back(name.begin(), name.begin() + length);
  }
  RegCloseKey(key);
  return names;
}

// A number as scripts have it.
std::string real_text(float number) {
  std::array<char, 32> digits{};
  std::snprintf(digits.data(), digits.size(), "%.9g", static_cast<double>(number));
  return digits.data();
}

std::string script_of(const ArrangedEndpoint& endpoint) {
  const std::string flow = endpoint.flow == EndpointFlow::render ? "render " : "capture ";
  const std::string id = audio_server::quoted(wide_of(endpoint.id));
  std::string script = "endpoint " + flow + id + "\nstate " + std::to_string(endpoint.state) + "\n";
  if (endpoint.name) script += "name " + audio_server::quoted(wide_of(*endpoint.name)) + "\n";
  if (endpoint.name_is_number) script += "name-type " + std::to_string(VT_UI4) + "\n";
  script += "level " + real_text(endpoint.level) + "\npeak " + real_text(endpoint.peak) + "\n";
  script += endpoint.muted ? "muted 1\n" : "muted 0\n";
  for (const AudioSession& session : endpoint.sessions) {
    script += "session " + std::to_string(session.state) + " " + std::to_string(session.process_id) + "\n";
  }
  if (endpoint.is_default) script += "default " + flow + id + "\n";
  return script;
}

std::string record_path() { return state().scratch + "\\browser-record"; }

// How often Winsock was started when it was taken away: by this program, and by libraries that it has loaded.
int winsock_starts = 0;

}  // namespace

void set_up() {
  static int count = 0;
  std::array<wchar_t, 261> temporary{};
  ASSERT_NE(GetTempPathW(static_cast<DWORD>(temporary.size()), temporary.data()), 0u);
  const std::wstring stem =
      std::wstring(temporary.data()) + L"velmora-contract-" + std::to_wstring(GetCurrentProcessId()) + L"-";
  // Process ids are reused, and a killed run may have left its directory.
  std::wstring directory;
  bool failed = false;
  do {
    directory = stem + std::to_wstring(++count);
    failed = CreateDirectoryW(directory.c_str(), nullptr) == 0;
  } while (failed && GetLastError() == ERROR_ALREADY_EXISTS);
  ASSERT_FALSE(failed) << GetLastError();
  state().scratch = narrow(directory);
}

void tear_down() {
  remove_tree(widen(state().scratch));
  EXPECT_EQ(GetFileAttributesW(widen(state().scratch).c_str()), INVALID_FILE_ATTRIBUTES);
}

void PeerKind::release(Native native) noexcept { closesocket(native); }

void OtherListenerKind::release(Native native) noexcept { closesocket(native); }

void SocketShortageKind::release(Native) noexcept {
  for (; winsock_starts > 0; --winsock_starts) EXPECT_EQ(start_sockets(), std::nullopt);
}

std::uint16_t find_free_port() {
  const SOCKET socket = open_socket();
  EXPECT_EQ(bind_to(socket, 0), 0);
  sockaddr_in address{};
  int size = sizeof address;
  EXPECT_EQ(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), 0);
  closesocket(socket);
  return ntohs(address.sin_port);
}

OtherListener listen_elsewhere(std::uint16_t port) {
  const SOCKET socket = open_socket();
  EXPECT_EQ(bind_to(socket, port), 0);
  EXPECT_EQ(listen(socket, 1), 0);
  return OtherListener(socket);
}

// Before the start of Winsock, that is.
SocketShortage run_out_of_sockets() {
  while (WSACleanup() == 0) ++winsock_starts;
  return SocketShortage(WSANOTINITIALISED);
}

Peer connect_to(std::uint16_t port) {
  const SOCKET socket = open_socket();
  const sockaddr_in address = address_of(port);
  EXPECT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return Peer(socket);
}

Peer accept_elsewhere(const OtherListener& listener) {
  const SOCKET accepted = accept(listener.native(), nullptr, nullptr);
  EXPECT_NE(accepted, INVALID_SOCKET);
  return Peer(accepted);
}

void send_all(const Peer& peer, std::string_view bytes) {
  EXPECT_EQ(send(peer.native(), bytes.data(), static_cast<int>(bytes.size()), 0),
            static_cast<int>(bytes.size()));
}

void end_sending(const Peer& peer) { EXPECT_EQ(shutdown(peer.native(), SD_SEND), 0); }

void reset_connection(Peer& peer) {
  const linger at_once{1, 0};
  EXPECT_EQ(setsockopt(peer.native(), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&at_once),
                       sizeof at_once),
            0);
  peer.close();
}

std::string receive_until_end(const Peer& peer) {
  std::string received;
  std::array<char, 4096> buffer;
  for (;;) {
    const int count = recv(peer.native(), buffer.data(), static_cast<int>(buffer.size()), 0);
    EXPECT_GE(count, 0);
    if (count <= 0) return received;
    received.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

void ElsewhereKind::release(Native native) noexcept { CloseHandle(reinterpret_cast<HANDLE>(native)); }

std::u16string find_free_mapping_name() {
  static int count = 0;
  const std::string text =
      "Local\\VelmoraContract" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++count);
  return {text.begin(), text.end()};
}

// A handle is a holder of its own, in whichever process it is.
MappingElsewhere hold_elsewhere(std::u16string_view name, const std::vector<std::uint64_t>& words) {
  const std::size_t size = words.size() * sizeof(std::uint64_t);
  const HANDLE handle =
      CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(size),
                         std::wstring(name.begin(), name.end()).c_str());
  EXPECT_NE(handle, nullptr);
  void* data = MapViewOfFile(handle, FILE_MAP_WRITE, 0, 0, size);
  if (data == nullptr) {
    ADD_FAILURE() << "no view of the mapping";
  } else {
    CopyMemory(data, words.data(), size);
    UnmapViewOfFile(data);
  }
  return MappingElsewhere(reinterpret_cast<std::uintptr_t>(handle));
}

CreatedMapping make_mapping(std::u16string_view name, std::size_t size, SharedMapping& out) {
  const CreatedMapping created = create_shared_mapping(name, size, out);
  if (created.descriptor_error != DWORD{ERROR_INVALID_ACL}) return created;
  const HANDLE handle =
      CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(size),
                         std::wstring(name.begin(), name.end()).c_str());
  const DWORD error = GetLastError();
  if (handle == nullptr) return {std::nullopt, error, false};
  out = SharedMapping(reinterpret_cast<std::uintptr_t>(handle));
  return {std::nullopt, std::nullopt, error == ERROR_ALREADY_EXISTS};
}

std::string scratch_directory() { return state().scratch; }
std::string path_of_other_kind() { return "NUL"; }

void put_file(const std::string& path, std::string_view bytes) {
  write_file(path, bytes, GENERIC_WRITE, CREATE_ALWAYS);
}

void append_to_file(const std::string& path, std::string_view bytes) {
  write_file(path, bytes, FILE_APPEND_DATA, OPEN_EXISTING);
}

void put_sparse_file(const std::string& path, std::uint64_t size) {
  const HANDLE file = CreateFileW(widen(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  // Where this is not known, files are sparse by themselves.
  DWORD unused = 0;
  DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &unused, nullptr);
  LARGE_INTEGER end;
  end.QuadPart = static_cast<LONGLONG>(size);
  EXPECT_TRUE(SetFilePointerEx(file, end, nullptr, FILE_BEGIN));
  EXPECT_TRUE(SetEndOfFile(file));
  CloseHandle(file);
}

void put_directory(const std::string& path) { EXPECT_TRUE(CreateDirectoryW(widen(path).c_str(), nullptr)); }

bool remove_elsewhere(const std::string& path) { return DeleteFileW(widen(path).c_str()) != 0; }

bool rename_elsewhere(const std::string& from, const std::string& to) {
  return MoveFileW(widen(from).c_str(), widen(to).c_str()) != 0;
}

std::vector<JoinCase> join_cases() {
  return {{"C:\\a", "b", "C:\\a\\b"},
          {"C:\\a\\", "b", "C:\\a\\b"},
          {"C:/a/", "b", "C:/a/b"},
          {"C:/a", "b", "C:/a\\b"},
          {"", "b", "b"},
          {"C:", "b", "C:b"},
          {"C:\\", "b", "C:\\b"},
          {"\\", "b", "\\b"},
          {"/", "b", "/b"},
          {"a", "b\\c", "a\\b\\c"},
          {"a", "b/c", "a\\b/c"},
          {".", "b", ".\\b"},
          {"a:b", "c", "a:b\\c"},
          {"\\\\host\\share", "b", "\\\\host\\share\\b"},
          {"C:\\a", "", "C:\\a\\"},
          {"\xC3\xB6", "b", "\xC3\xB6\\b"}};
}

std::vector<ParentCase> parent_cases() {
  return {{"C:\\a\\b", "C:\\a"},
          {"C:\\a", "C:\\"},
          {"C:/a/b", "C:/a"},
          {"C:/a", "C:/"},
          {"C:\\a/b", "C:\\a"},
          {"C:\\", "C:\\"},
          {"C:a", "C:"},
          {"C:", "C:"},
          {"a", ""},
          {"", ""},
          {"\\a", "\\"},
          {"/a", "/"},
          {"\\", "\\"},
          {"a\\b", "a"},
          {"C:\\a\\b\\", "C:\\a\\b"},
          {".\\a", "."},
          {"\\\\host\\share\\a", "\\\\host\\share"},
          {"C:\\\xC3\xB6\\b", "C:\\\xC3\xB6"}};
}

void set_up_registry() {
  const std::wstring path = wide_of(registry_scratch);
  // A run that was ended may have left it.
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
  HKEY key = nullptr;
  ASSERT_EQ(
      RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_READ, nullptr, &key, nullptr),
      ERROR_SUCCESS);
  RegCloseKey(key);
}

void tear_down_registry() {
  EXPECT_TRUE(state().grants.empty());
  EXPECT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, wide_of(registry_scratch).c_str()), ERROR_SUCCESS);
}

bool is_held(RegistryKey::Native key) {
  DWORD flags = 0;
  return GetHandleInformation(reinterpret_cast<HANDLE>(key), &flags) != 0;
}

std::vector<std::u16string> key_names(std::u16string_view path) {
  return enumerate_names(path, [](HKEY key, DWORD index, wchar_t* name, DWORD* length) {
    return RegEnumKeyExW(key, index, name, length, nullptr, nullptr, nullptr, nullptr);
  });
}

std::vector<std::u16string> value_names(std::u16string_view path) {
  auto names = enumerate_names(path, [](HKEY key, DWORD index, wchar_t* name, DWORD* length) {
    return RegEnumValueW(key, index, name, length, nullptr, nullptr, nullptr, nullptr);
  });
  std::sort(names.begin(), names.end());
  return names;
}

// A key that the test has deleted has nothing to be given back to it.
void GrantKind::release(Native native) noexcept {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, state().grants.at(native).c_str(), 0, WRITE_DAC, &key) ==
      ERROR_SUCCESS) {
    EXPECT_EQ(set_granted(key, KEY_ALL_ACCESS), ERROR_SUCCESS);
    RegCloseKey(key);
  }
  state().grants.erase(native);
}

Grant grant(std::u16string_view path, std::uint32_t access) {
  static std::uintptr_t count = 0;
  const HKEY key = open_key(wide_of(path), WRITE_DAC);
  EXPECT_EQ(set_granted(key, access), ERROR_SUCCESS);
  RegCloseKey(key);
  state().grants.emplace(++count, wide_of(path));
  return Grant(count);
}

// Our server replaces the system's own, in this process only.
void set_up_audio() {
  ASSERT_GE(start_com(), 0);
  ASSERT_EQ(CoRegisterClassObject(__uuidof(MMDeviceEnumerator), audio_server::class_factory(),
                                  CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &state().audio_class),
            S_OK);
  state().audio_before = audio_server::live_counts();
  put_endpoints({});
}

void tear_down_audio() {
  EXPECT_EQ(audio_server::live_counts(), state().audio_before) << "something is held, or was released twice";
  static_cast<void>(audio_server::take_log());
  EXPECT_EQ(CoRevokeClassObject(state().audio_class), S_OK);
  stop_com();
}

void put_endpoints(const std::vector<ArrangedEndpoint>& endpoints) {
  std::string script;
  for (const ArrangedEndpoint& endpoint : endpoints) script += script_of(endpoint);
  audio_server::set_script(script);
  audio_server::forget_changes();
}

std::size_t held_audio_objects() { return audio_server::live_counts().references; }

void ChildProcessKind::release(Native native) noexcept {
  const HANDLE process = state().children.at(native);
  EXPECT_TRUE(TerminateProcess(process, 0));
  EXPECT_EQ(WaitForSingleObject(process, 20'000), WAIT_OBJECT_0);
  CloseHandle(process);
  state().children.erase(native);
  // The end is signalled before the system has released the id, and others may hold the process too.
  constexpr std::int64_t limit_ns = 20'000'000'000;
  const std::int64_t start = steady_now_ns();
  while (steady_now_ns() - start < limit_ns) {
    const HANDLE left = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, native);
    if (left == nullptr) return;
    CloseHandle(left);
    sleep_ms(1);
  }
  ADD_FAILURE() << "the process id stays in use";
}

// It stays before its first step.
ChildProcess start_child() {
  std::wstring command = L"\"" + beside_program(L"velmora_contract_browser.exe") + L"\"";
  STARTUPINFOW start{};
  start.cb = sizeof start;
  PROCESS_INFORMATION made{};
  EXPECT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                             nullptr, &start, &made));
  CloseHandle(made.hThread);
  state().children[made.dwProcessId] = made.hProcess;
  return ChildProcess(made.dwProcessId);
}

std::u16string child_program_path() {
  const std::wstring path = beside_program(L"velmora_contract_browser.exe");
  return {path.begin(), path.end()};
}

bool runs_under_wine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

std::string library_path() { return narrow(beside_program(L"velmora_contract_library.dll")); }

// The last three end the process behind the handler's back on Windows itself, and not under Wine.
std::vector<std::uint32_t> console_events() {
  std::vector<std::uint32_t> events{CTRL_C_EVENT, CTRL_BREAK_EVENT};
  if (runs_under_wine()) {
    events.insert(events.end(), {CTRL_CLOSE_EVENT, CTRL_LOGOFF_EVENT, CTRL_SHUTDOWN_EVENT});
  }
  return events;
}

// As the system does it, by a thread of this process that begins in CtrlRoutine. GenerateConsoleCtrlEvent
// knows two of the events only and wants a console, which a test run need not have.
void raise_console_event(std::uint32_t event) {
  const FARPROC routine = GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine");
  ASSERT_NE(routine, nullptr);
  const auto start = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(routine));
  const HANDLE thread =
      CreateThread(nullptr, 0, start, reinterpret_cast<void*>(std::uintptr_t{event}), 0, nullptr);
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(WaitForSingleObject(thread, 20'000), WAIT_OBJECT_0);
  CloseHandle(thread);
}

void BrowserKind::release(Native) noexcept {
  RegDeleteTreeW(HKEY_CLASSES_ROOT, scheme_key().c_str());
  SetEnvironmentVariableW(L"VELMORA_CONTRACT_RECORD", nullptr);
}

Browser install_browser() {
  set_registry_text(scheme_key(), nullptr, L"URL:Velmora contract");
  set_registry_text(scheme_key(), L"URL Protocol", L"");
  set_registry_text(scheme_key() + L"\\shell\\open\\command", nullptr,
                    L"\"" + beside_program(L"velmora_contract_browser.exe") + L"\" \"%1\"");
  SetEnvironmentVariableW(L"VELMORA_CONTRACT_RECORD", widen(record_path()).c_str());
  return Browser(1);
}

std::string browser_address() { return narrow(scheme()) + "://127.0.0.1:31337/?token=0123456789abcdef"; }

std::vector<std::string> read_browser_record() {
  constexpr std::int64_t limit_ns = 20'000'000'000;
  const std::int64_t start = steady_now_ns();
  const std::wstring path = widen(record_path());
  // Its name may be seen while the browser still has it in hand, and then it does not open.
  std::FILE* file = nullptr;
  while (file == nullptr && steady_now_ns() - start < limit_ns) {
    file = _wfopen(path.c_str(), L"rb");
    if (file == nullptr) sleep_ms(5);
  }
  std::vector<std::string> lines;
  if (file == nullptr) return lines;
  std::array<char, 4096> line{};
  while (std::fgets(line.data(), static_cast<int>(line.size()), file) != nullptr) {
    lines.emplace_back(line.data());
    while (!lines.back().empty() && (lines.back().back() == '\n' || lines.back().back() == '\r')) {
      lines.back().pop_back();
    }
  }
  std::fclose(file);
  return lines;
}

// A scheme that nobody has registered.
Browser remove_browser() { return Browser(1); }

}  // namespace velmora::surroundings
