#include "platform/machine.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "platform/registry.h"
#include "platform/windows/console_events.h"
#include "platform/windows/native.h"

#include <bcrypt.h>
#include <objbase.h>
#include <shellapi.h>

// Disables mingw-w64's expansion of `*` and `?` in arguments.
extern "C" {
extern int _dowildcard;
int _dowildcard = 0;
}

namespace velmora {
namespace {

std::atomic<bool (*)(std::uint32_t)> console_handler{nullptr};

BOOL WINAPI on_console_event(DWORD event) {
  const auto handler = console_handler.load();
  if (handler == nullptr || !handler(event)) return FALSE;
  delay_after_event(event);
  return TRUE;
}

// A console must get wide text: it would interpret bytes in its own code page, which is not the process's.
bool write_console(HANDLE console, std::string_view text) {
  const std::wstring wide = wide_text(wide_from_utf8_replacing(text));
  std::wstring_view rest = wide;
  while (!rest.empty()) {
    DWORD written = 0;
    if (!WriteConsoleW(console, rest.data(), static_cast<DWORD>(rest.size()), &written, nullptr) ||
        written == 0)
      return false;
    rest.remove_prefix(written);
  }
  return true;
}

// Bypasses the C library, whose streams would write each line feed as two bytes.
bool write_stream(DWORD stream, std::string_view text) {
  const HANDLE handle = GetStdHandle(stream);
  DWORD mode = 0;
  if (GetConsoleMode(handle, &mode)) return write_console(handle, text);
  while (!text.empty()) {
    DWORD written = 0;
    if (!WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) || written == 0)
      return false;
    text.remove_prefix(written);
  }
  return true;
}

}  // namespace

std::string own_module_path() {
  std::array<wchar_t, 260> buffer{};
  const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  return utf8_from_wide_replacing(std::u16string(buffer.begin(), buffer.begin() + length));
}

void DynamicLibraryKind::release(Native native) noexcept { FreeLibrary(static_cast<HMODULE>(native)); }

DynamicLibrary load_library(std::string_view path) {
  // A damaged library must be an error for the caller, not a dialog that blocks the start.
  DWORD former_mode = 0;
  SetThreadErrorMode(GetThreadErrorMode() | SEM_FAILCRITICALERRORS, &former_mode);
  DynamicLibrary library(LoadLibraryW(wide_path(path).c_str()));
  SetThreadErrorMode(former_mode, nullptr);
  return library;
}

LibraryFunction find_library_function(const DynamicLibrary& library, const char* name) {
  return reinterpret_cast<LibraryFunction>(GetProcAddress(static_cast<HMODULE>(library.native()), name));
}

std::int32_t start_com() { return CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
static_assert(COINIT_MULTITHREADED == 0);

void stop_com() { CoUninitialize(); }

// A drive without a disk must be an error for the caller, not a dialog that blocks the service's only thread.
void prepare_process() { SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS); }

bool write_standard_output(std::string_view text) { return write_stream(STD_OUTPUT_HANDLE, text); }
void write_standard_error(std::string_view text) { write_stream(STD_ERROR_HANDLE, text); }

void install_console_handler(bool (*handler)(std::uint32_t event)) {
  console_handler = handler;
  SetConsoleCtrlHandler(on_console_event, TRUE);
}

std::intptr_t open_in_browser(std::string_view address) {
  const std::wstring wide_address = wide_text(wide_from_utf8_replacing(address));
  return reinterpret_cast<std::intptr_t>(
      ShellExecuteW(nullptr, L"open", wide_address.c_str(), nullptr, nullptr, SW_SHOWNORMAL));
}
static_assert(SW_SHOWNORMAL == 1);

// Loads bcrypt.dll from the system's folder. An import would prefer a file of that name beside the program,
// which could then choose our token.
bool fill_random(unsigned char* buffer, std::size_t size) {
  const DynamicLibrary library(LoadLibraryExW(L"bcrypt.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
  if (!library.is_open()) return false;
  const auto generate =
      reinterpret_cast<decltype(&BCryptGenRandom)>(find_library_function(library, "BCryptGenRandom"));
  return generate != nullptr &&
         generate(nullptr, buffer, static_cast<ULONG>(size), BCRYPT_USE_SYSTEM_PREFERRED_RNG) >= 0;
}
static_assert(BCRYPT_USE_SYSTEM_PREFERRED_RNG == 2);

std::u16string guid_text(const Guid& guid) {
  GUID native{guid.data1, guid.data2, guid.data3, {}};
  std::copy(guid.data4.begin(), guid.data4.end(), native.Data4);
  std::array<wchar_t, 40> text{};
  const int count = StringFromGUID2(native, text.data(), static_cast<int>(text.size()));
  if (count <= 0) return {};
  return {text.begin(), text.begin() + count - 1};  // the count includes the terminator
}

std::string load_machine() { return {}; }

std::string machine_identifier() {
  std::array<char16_t, 64> text{};
  if (get_registry_value(u"SOFTWARE\\Microsoft\\Cryptography", u"MachineGuid",
                         rrf_rt_reg_sz | rrf_subkey_wow6464key, text.data(), sizeof text)
          .error != 0) {
    return {};
  }
  return utf8_from_wide_replacing(text.data());
}

std::string machine_name() {
  std::array<wchar_t, MAX_COMPUTERNAME_LENGTH + 1> name{};
  auto length = static_cast<DWORD>(name.size());
  if (!GetComputerNameW(name.data(), &length)) return {};
  return utf8_from_wide_replacing(std::u16string(name.begin(), name.begin() + length));
}

std::u16string environment_variable(std::u16string_view name) {
  const std::wstring wide_name = wide_text(name);
  const DWORD size = GetEnvironmentVariableW(wide_name.c_str(), nullptr, 0);
  if (size == 0) return {};
  std::wstring value(size, L'\0');
  // The variable may have grown since.
  const DWORD length = GetEnvironmentVariableW(wide_name.c_str(), value.data(), size);
  return length < size ? std::u16string(value.begin(), value.begin() + length) : std::u16string();
}

std::uint32_t own_process_id() { return GetCurrentProcessId(); }

}  // namespace velmora
