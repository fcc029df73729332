// A private file is held by a handle that shares reading only. Closing it, which the system does for a
// process that was killed, removes the file.
#include "platform/private_files.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/windows/handle.h"
#include "platform/windows/native.h"

#include <sddl.h>

namespace velmora {
namespace {

constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr std::size_t read_limit = 65536;
// A reader's look, and a removed file that a reader has still open, last for a moment.
constexpr int rounds = 10;
constexpr std::uint32_t round_pause_ms = 20;

struct LocalMemoryKind {
  using Native = void*;
  static constexpr Native none = nullptr;
  static void release(Native native) noexcept { LocalFree(native); }
};
using LocalMemory = Owner<LocalMemoryKind>;

// The user of this process: a TOKEN_USER, whose SID lies in the same bytes. Empty on failure.
std::vector<std::byte> read_own_user() {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return {};
  const Handle token(opened);
  DWORD size = 0;
  GetTokenInformation(opened, TokenUser, nullptr, 0, &size);
  std::vector<std::byte> bytes(size);
  if (!GetTokenInformation(opened, TokenUser, bytes.data(), size, &size)) return {};
  return bytes;
}

PSID sid_of(std::vector<std::byte>& user) {
  return reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid;
}

bool is_well_known(PSID sid, WELL_KNOWN_SID_TYPE type) { return IsWellKnownSid(sid, type) != 0; }

// A descriptor with this user as the owner and with a protected access list of this user only. `inheritance`
// is that of the entry (Security Descriptor String Format). The last error is that of the failed call.
LocalMemory make_descriptor(const wchar_t* inheritance) {
  std::vector<std::byte> user = read_own_user();
  wchar_t* text = nullptr;
  if (user.empty() || !ConvertSidToStringSidW(sid_of(user), &text)) return {};
  const LocalMemory text_memory(text);
  const std::wstring sid = text;
  const std::wstring form = L"O:" + sid + L"D:P(A;" + inheritance + L";FA;;;" + sid + L")";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(form.c_str(), SDDL_REVISION_1, &descriptor,
                                                            nullptr))
    return {};
  return LocalMemory(descriptor);
}

// The owner and the access list of an open file or folder. Empty on failure.
std::vector<std::byte> read_descriptor(const Handle& file) {
  constexpr SECURITY_INFORMATION parts = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
  DWORD size = 0;
  GetKernelObjectSecurity(file.native(), parts, nullptr, 0, &size);
  std::vector<std::byte> bytes(size);
  if (!GetKernelObjectSecurity(file.native(), parts, bytes.data(), size, &size)) return {};
  return bytes;
}

bool is_owned_by_user(std::vector<std::byte>& descriptor) {
  std::vector<std::byte> user = read_own_user();
  PSID owner = nullptr;
  BOOL is_default = FALSE;
  if (user.empty() || descriptor.empty() ||
      !GetSecurityDescriptorOwner(descriptor.data(), &owner, &is_default) || owner == nullptr)
    return false;
  return EqualSid(owner, sid_of(user)) || is_well_known(owner, WinBuiltinAdministratorsSid);
}

// Whether an entry gives no access to others than this user, the system and administrators.
bool is_harmless(void* entry, PSID user) {
  const auto* header = static_cast<const ACE_HEADER*>(entry);
  if (header->AceType == ACCESS_DENIED_ACE_TYPE || (header->AceFlags & INHERIT_ONLY_ACE) != 0) return true;
  if (header->AceType != ACCESS_ALLOWED_ACE_TYPE) return false;
  PSID trustee = &static_cast<ACCESS_ALLOWED_ACE*>(entry)->SidStart;
  return EqualSid(trustee, user) || is_well_known(trustee, WinLocalSystemSid) ||
         is_well_known(trustee, WinBuiltinAdministratorsSid);
}

bool is_closed_to_others(std::vector<std::byte>& descriptor) {
  std::vector<std::byte> user = read_own_user();
  BOOL is_present = FALSE;
  BOOL is_default = FALSE;
  ACL* list = nullptr;
  // Without a list, everybody has full access.
  if (user.empty() || descriptor.empty() ||
      !GetSecurityDescriptorDacl(descriptor.data(), &is_present, &list, &is_default) || !is_present ||
      list == nullptr)
    return false;
  for (DWORD index = 0; index < list->AceCount; ++index) {
    void* entry = nullptr;
    if (!GetAce(list, index, &entry) || !is_harmless(entry, sid_of(user))) return false;
  }
  return true;
}

// Repeats a call that returns a Win32 code while somebody else is at the file for a moment.
template <typename Call>
std::uint32_t with_patience(Call call) {
  std::uint32_t error = call();
  for (int round = 1; round < rounds; ++round) {
    if (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED && error != ERROR_FILE_EXISTS) break;
    sleep_ms(round_pause_ms);
    error = call();
  }
  return error;
}

Handle open_existing(const std::wstring& path, DWORD access, DWORD sharing, DWORD flags) {
  return own_file(CreateFileW(path.c_str(), access, sharing, nullptr, OPEN_EXISTING,
                              flags | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

// Makes a file that does not exist yet, for this user only.
std::uint32_t create_file(const std::wstring& path, DWORD access, DWORD sharing, DWORD flags, HANDLE& out) {
  const LocalMemory descriptor = make_descriptor(L"");
  if (!descriptor.is_open()) return last_error();
  SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor.native(), FALSE};
  out = CreateFileW(path.c_str(), access, sharing, &attributes, CREATE_NEW,
                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT | flags, nullptr);
  return out == INVALID_HANDLE_VALUE ? last_error() : 0;
}

// Removes a file or a link. Success if there is none.
std::uint32_t remove_existing(const std::wstring& path) {
  if (DeleteFileW(path.c_str())) return 0;
  const std::uint32_t error = last_error();
  return error == ERROR_FILE_NOT_FOUND ? 0 : error;
}

std::uint32_t write_all(HANDLE file, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto wanted = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), 0x7fffffff));
    DWORD written = 0;
    if (!WriteFile(file, bytes.data(), wanted, &written, nullptr)) return last_error();
    bytes.remove_prefix(written);
  }
  return 0;
}

bool make_empty(HANDLE file) { return SetFilePointerEx(file, {}, nullptr, FILE_BEGIN) && SetEndOfFile(file); }

// What is wrong with an open file, or 0.
std::uint32_t examine(const Handle& file) {
  BY_HANDLE_FILE_INFORMATION information;
  if (GetFileType(file.native()) != FILE_TYPE_DISK) return ERROR_ACCESS_DENIED;
  if (!GetFileInformationByHandle(file.native(), &information)) return last_error();
  if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return ERROR_CANT_RESOLVE_FILENAME;
  std::vector<std::byte> descriptor = read_descriptor(file);
  const bool is_private = is_owned_by_user(descriptor) && is_closed_to_others(descriptor);
  return is_private ? 0 : ERROR_INVALID_OWNER;
}

// Whether somebody has the file open for writing.
bool is_held_by_other(const std::wstring& path) {
  const Handle probe = open_existing(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, 0);
  return !probe.is_open() && GetLastError() == ERROR_SHARING_VIOLATION;
}

std::uint32_t read_all(const Handle& file, std::string& bytes) {
  std::array<char, 4096> buffer;
  while (bytes.size() < read_limit) {
    const auto wanted = static_cast<DWORD>(std::min(buffer.size(), read_limit - bytes.size()));
    DWORD count = 0;
    if (!ReadFile(file.native(), buffer.data(), wanted, &count, nullptr)) return last_error();
    if (count == 0) return 0;
    bytes.append(buffer.data(), count);
  }
  return 0;
}

bool is_directory(std::string_view path) { return query_file_kind(path) == FileKind::directory; }

// Makes an existing folder of this user private.
std::uint32_t close_directory(const std::wstring& path, const LocalMemory& descriptor) {
  const Handle directory = open_existing(path, READ_CONTROL | WRITE_DAC | FILE_READ_ATTRIBUTES, share_all,
                                         FILE_FLAG_BACKUP_SEMANTICS);
  if (!directory.is_open()) return last_error();
  BY_HANDLE_FILE_INFORMATION information;
  if (!GetFileInformationByHandle(directory.native(), &information)) return last_error();
  if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return ERROR_CANT_RESOLVE_FILENAME;
  if ((information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return ERROR_ALREADY_EXISTS;
  std::vector<std::byte> present = read_descriptor(directory);
  if (!is_owned_by_user(present)) return ERROR_INVALID_OWNER;
  if (!SetKernelObjectSecurity(directory.native(), DACL_SECURITY_INFORMATION, descriptor.native()))
    return last_error();
  return 0;
}

// Removes a private file of this user that nobody holds.
std::uint32_t remove_former(const std::wstring& path) {
  const Handle former = open_existing(path, READ_CONTROL, share_all, 0);
  if (!former.is_open()) {
    const std::uint32_t error = last_error();
    return error == ERROR_FILE_NOT_FOUND ? 0 : error;
  }
  std::vector<std::byte> descriptor = read_descriptor(former);
  if (!is_owned_by_user(descriptor)) return ERROR_INVALID_OWNER;
  return remove_existing(path);
}

// Writes a new file under another name, so that readers see nothing or all of it.
std::uint32_t write_and_rename(const std::wstring& path, std::string_view bytes) {
  const std::wstring unfinished = path + L".part";
  std::uint32_t error = remove_existing(unfinished);
  if (error != 0) return error;
  HANDLE file = nullptr;
  error = create_file(unfinished, GENERIC_WRITE, 0, 0, file);
  if (error != 0) return error;
  error = write_all(file, bytes);
  CloseHandle(file);
  if (error == 0 && !MoveFileExW(unfinished.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING))
    error = last_error();
  if (error != 0) DeleteFileW(unfinished.c_str());
  return error;
}

}  // namespace

std::string private_directory() {
  const std::string local = utf8_from_wide_replacing(environment_variable(u"LOCALAPPDATA"));
  const bool has_drive = local.size() >= 3 && local[1] == ':' && (local[2] == '\\' || local[2] == '/');
  if (!has_drive && !local.starts_with("\\\\")) return {};
  return join_path(join_path(local, "Velmora"), "Control");
}

std::uint32_t make_private_directory(std::string_view path) {
  if (path.empty()) return ERROR_PATH_NOT_FOUND;
  const std::string parent = parent_path(path);
  if (!parent.empty() && parent.size() < path.size()) {
    if (const std::uint32_t error = make_directories(parent); error != 0) return error;
  }
  const LocalMemory descriptor = make_descriptor(L"OICI");
  if (!descriptor.is_open()) return last_error();
  SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor.native(), FALSE};
  const std::wstring wide = wide_path(path);
  if (CreateDirectoryW(wide.c_str(), &attributes)) return 0;
  const std::uint32_t error = last_error();
  return error == ERROR_ALREADY_EXISTS ? close_directory(wide, descriptor) : error;
}

void HeldFileKind::release(Native native) noexcept { CloseHandle(handle_of(native)); }

std::uint32_t hold_private_file(std::string_view path, HeldFile& out) {
  if (is_directory(path)) return ERROR_ACCESS_DENIED;
  const std::wstring wide = wide_path(path);
  HANDLE file = nullptr;
  const std::uint32_t error = with_patience([&]() -> std::uint32_t {
    const std::uint32_t removal = remove_existing(wide);
    if (removal != 0) return removal;
    return create_file(wide, GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_READ,
                       FILE_FLAG_DELETE_ON_CLOSE, file);
  });
  // Another process was faster each time.
  if (error == ERROR_FILE_EXISTS) return ERROR_SHARING_VIOLATION;
  if (error != 0) return error;
  out = HeldFile(native_of(file));
  return 0;
}

std::uint32_t write_held_file(const HeldFile& file, std::string_view bytes) {
  const HANDLE handle = handle_of(file.native());
  if (!make_empty(handle)) return last_error();
  const std::uint32_t error = write_all(handle, bytes);
  if (error != 0) make_empty(handle);
  return error;
}

PrivateFileRead read_private_file(std::string_view path) {
  if (is_directory(path)) return {ERROR_ACCESS_DENIED, false, {}};
  const std::wstring wide = wide_path(path);
  Handle file;
  PrivateFileRead result;
  result.error = with_patience([&]() -> std::uint32_t {
    file = open_existing(wide, GENERIC_READ, share_all, 0);
    return file.is_open() ? 0 : last_error();
  });
  if (result.error == 0) result.error = examine(file);
  if (result.error != 0) return result;
  result.is_held = is_held_by_other(wide);
  result.error = read_all(file, result.bytes);
  if (result.error != 0) return {result.error, false, {}};
  return result;
}

std::uint32_t write_private_file(std::string_view path, std::string_view bytes) {
  if (is_directory(path)) return ERROR_ACCESS_DENIED;
  const std::wstring wide = wide_path(path);
  const std::uint32_t error = with_patience([&] { return remove_former(wide); });
  if (error != 0) return error;
  return with_patience([&] { return write_and_rename(wide, bytes); });
}

}  // namespace velmora
