#include "platform/command_surroundings.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <sddl.h>

#include <array>

#include "base/text.h"
#include "platform/surroundings.h"

namespace velmora::surroundings {
namespace {

std::wstring& former_place() {
  static std::wstring place;
  return place;
}

std::wstring widen(const std::string& text) {
  const std::u16string wide = wide_from_utf8(text);
  return {wide.begin(), wide.end()};
}

std::string narrow(const std::wstring& text) {
  return utf8_from_wide(std::u16string(text.begin(), text.end()));
}

HANDLE open_any(const std::string& path, DWORD access) {
  const HANDLE file =
      CreateFileW(widen(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  EXPECT_NE(file, INVALID_HANDLE_VALUE) << path << ": error " << GetLastError();
  return file;
}

std::wstring own_sid() {
  HANDLE token = nullptr;
  EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
  alignas(TOKEN_USER) std::array<BYTE, 256> user;
  DWORD size = 0;
  EXPECT_TRUE(GetTokenInformation(token, TokenUser, user.data(), static_cast<DWORD>(user.size()), &size));
  CloseHandle(token);
  wchar_t* text = nullptr;
  EXPECT_TRUE(ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid, &text));
  const std::wstring sid = text;
  LocalFree(text);
  return sid;
}

}  // namespace

std::string set_up_children() {
  const std::string library = library_path();
  return library.substr(0, library.rfind('\\') + 1) + "velmora_contract_child.exe";
}

std::uint32_t exit_code_of_ended() { return 1; }

std::string current_directory() {
  std::array<wchar_t, 1024> path{};
  EXPECT_NE(GetCurrentDirectoryW(static_cast<DWORD>(path.size()), path.data()), 0u);
  return narrow(path.data());
}

bool is_running(std::uint32_t process_id) {
  const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, process_id);
  if (process == nullptr) return false;
  const bool runs = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
  CloseHandle(process);
  return runs;
}

void end_process(std::uint32_t process_id) {
  const HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, process_id);
  ASSERT_NE(process, nullptr);
  EXPECT_TRUE(TerminateProcess(process, 0));
  EXPECT_EQ(WaitForSingleObject(process, 20'000), WAIT_OBJECT_0);
  CloseHandle(process);
}

bool removes_files_of_killed() { return true; }

// Wine keeps of an access list what fits a mode: it adds Local System, and knows no protection.
bool is_private(const std::string& path) {
  const HANDLE file = open_any(path, READ_CONTROL);
  constexpr SECURITY_INFORMATION parts = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
  alignas(void*) std::array<BYTE, 4096> descriptor;
  DWORD size = 0;
  EXPECT_TRUE(
      GetKernelObjectSecurity(file, parts, descriptor.data(), static_cast<DWORD>(descriptor.size()), &size));
  CloseHandle(file);
  wchar_t* text = nullptr;
  EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1, parts,
                                                                   &text, nullptr));
  std::wstring form = text;
  LocalFree(text);
  // File systems that pass entries on to new files mark every list.
  const std::wstring marked = L"D:PAI(";
  if (const std::size_t mark = form.find(marked); mark != std::wstring::npos)
    form.replace(mark, marked.size(), L"D:P(");
  const std::wstring sid = own_sid();
  const bool is_directory = (GetFileAttributesW(widen(path).c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0;
  const std::wstring inheritance = is_directory ? L"OICI" : L"";
  const std::wstring strict = L"O:" + sid + L"D:P(A;" + inheritance + L";FA;;;" + sid + L")";
  const std::wstring of_wine =
      L"O:" + sid + L"D:(A;" + inheritance + L";FA;;;SY)(A;" + inheritance + L";FA;;;" + sid + L")";
  EXPECT_TRUE(form == (runs_under_wine() ? of_wine : strict)) << narrow(form);
  return form == (runs_under_wine() ? of_wine : strict);
}

void open_to_others(const std::string& path) {
  const HANDLE file = open_any(path, WRITE_DAC);
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const std::wstring form = L"D:P(A;;FA;;;" + own_sid() + L")(A;;GR;;;WD)";
  EXPECT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(form.c_str(), SDDL_REVISION_1, &descriptor,
                                                                   nullptr));
  EXPECT_TRUE(SetKernelObjectSecurity(file, DACL_SECURITY_INFORMATION, descriptor));
  LocalFree(descriptor);
  CloseHandle(file);
}

PrivatePlace private_place() {
  const std::string local = scratch_directory() + "\\local";
  return {u"LOCALAPPDATA", wide_from_utf8(local), local + "\\Velmora\\Control"};
}

void NoPlaceKind::release(Native) noexcept {
  SetEnvironmentVariableW(L"LOCALAPPDATA", former_place().c_str());
}

NoPlace remove_private_places() {
  std::array<wchar_t, 1024> text{};
  GetEnvironmentVariableW(L"LOCALAPPDATA", text.data(), static_cast<DWORD>(text.size()));
  former_place() = text.data();
  SetEnvironmentVariableW(L"LOCALAPPDATA", nullptr);
  return NoPlace(1);
}

void StandardInputKind::release(Native native) noexcept {
  CloseHandle(GetStdHandle(STD_INPUT_HANDLE));
  SetStdHandle(STD_INPUT_HANDLE, reinterpret_cast<HANDLE>(native));
}

StandardInput put_standard_input(std::string_view bytes) {
  const HANDLE former = GetStdHandle(STD_INPUT_HANDLE);
  HANDLE reading = nullptr;
  HANDLE writing = nullptr;
  EXPECT_TRUE(CreatePipe(&reading, &writing, nullptr, 65536));
  DWORD written = 0;
  EXPECT_TRUE(bytes.empty() ||
              WriteFile(writing, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
  EXPECT_EQ(written, bytes.size());
  CloseHandle(writing);
  SetStdHandle(STD_INPUT_HANDLE, reading);
  return StandardInput(reinterpret_cast<std::uintptr_t>(former));
}

}  // namespace velmora::surroundings
