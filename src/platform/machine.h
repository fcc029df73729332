// The process and its environment: program path, libraries, COM, console, browser, random bytes, GUIDs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/guid.h"
#include "platform/owner.h"

namespace velmora {

// GetModuleFileNameW of this program with a buffer of 260 wide characters, as UTF-8. Longer paths are
// truncated, as the call does. Empty on failure.
[[nodiscard]] std::string own_module_path();

struct DynamicLibraryKind {
  using Native = void*;
  static constexpr Native none = nullptr;
  static void release(Native native) noexcept;  // FreeLibrary
};
// Owner of a loaded library.
using DynamicLibrary = Owner<DynamicLibraryKind>;

// LoadLibraryW with a full path (UTF-8). Returns a closed owner on failure.
[[nodiscard]] DynamicLibrary load_library(std::string_view path);

// A function pointer of any signature. The caller casts it to the real type before the call.
using LibraryFunction = void (*)();

// GetProcAddress: the function `name`, or null. Valid while the library is open.
[[nodiscard]] LibraryFunction find_library_function(const DynamicLibrary& library, const char* name);

// CoInitializeEx with null and COINIT_MULTITHREADED (0). A negative result is a failure. Pair every other
// result with one stop_com (CoUninitialize). On other systems there is nothing to start.
[[nodiscard]] std::int32_t start_com();
void stop_com();

// Call this once, before opening anything.
//
// On POSIX systems, writing to a standard stream without a reader then fails instead of raising a
// signal. Standard streams closed by the parent are opened on the null device, so that no later file or
// socket takes their numbers.
//
// On Windows, errors that would open a system dialog (a drive without a disk) become failures of the call.
void prepare_process();

// Writes UTF-8 to standard output or standard error, unbuffered and without line feed translation. A Windows
// console gets wide text, whatever its code page. The result of write_standard_output is false if not all of
// the text was written, for example because the disk is full or nobody reads it. Whoever writes for a person
// who may have gone ignores it.
bool write_standard_output(std::string_view text);
void write_standard_error(std::string_view text);

// SetConsoleCtrlHandler. `handler` gets the event number (wincon.h: 0 Ctrl+C, 1 Ctrl+Break, 2 close, 5
// log-off, 6 shutdown) and returns whether it handled the event. It runs on a system thread or in a signal
// handler, so it may only set atomics.
//
// On other systems SIGINT, SIGQUIT, SIGHUP and SIGTERM are the events 0, 1, 2 and 6. A SIGHUP that the parent
// set to be ignored stays ignored.
void install_console_handler(bool (*handler)(std::uint32_t event));

// ShellExecuteW with the verb "open" and show command 1 for an address (UTF-8). A result of 32 or less is a
// failure. The started program is detached and inherits nothing from this process.
[[nodiscard]] std::intptr_t open_in_browser(std::string_view address);

// Fills the buffer with random bytes from the system (BCryptGenRandom without an algorithm handle, flag 2).
// Returns false on failure; the buffer is then undefined.
[[nodiscard]] bool fill_random(unsigned char* buffer, std::size_t size);

// StringFromGUID2 (buffer of 40): 38 characters, upper-case hexadecimal in braces. Empty on failure.
[[nodiscard]] std::u16string guid_text(const Guid& guid);

// Loads the machine that replaces what this system lacks. Returns an empty string on success, otherwise the
// error as PATH:LINE: WHY (line 0: the whole file). Call this once, before the first use of the registry. On
// Windows there is nothing to load.
[[nodiscard]] std::string load_machine();

// The system's identifier of this machine. On Windows it is the value MachineGuid of
// `SOFTWARE\Microsoft\Cryptography` in the 64-bit registry view. Elsewhere it is the first line of
// /etc/machine-id, up to 63 bytes. Empty if it cannot be read or has not been assigned yet.
[[nodiscard]] std::string machine_identifier();

// GetComputerNameW; on other systems the host name. Empty on failure.
[[nodiscard]] std::string machine_name();

// GetEnvironmentVariableW. Empty if the variable does not exist.
[[nodiscard]] std::u16string environment_variable(std::u16string_view name);

// GetCurrentProcessId.
[[nodiscard]] std::uint32_t own_process_id();

}  // namespace velmora
