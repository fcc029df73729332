// The process and the machine round it: its own path, libraries, COM, console, browser, random bytes, GUIDs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/guid.h"
#include "platform/owner.h"

namespace velmora {

// GetModuleFileNameW of this program with a buffer of 260 wide characters, as UTF-8. Empty on failure; a
// longer path comes back cut, as the call leaves it.
[[nodiscard]] std::string own_module_path();

struct DynamicLibraryKind {
  using Native = void*;
  static constexpr Native none = nullptr;
  static void release(Native native) noexcept;  // FreeLibrary
};
// Owner of a loaded library.
using DynamicLibrary = Owner<DynamicLibraryKind>;

// LoadLibraryW on a full path (UTF-8). Closed on failure.
[[nodiscard]] DynamicLibrary load_library(std::string_view path);

// A function's address, of whatever signature; the caller knows it and casts back before the call.
using LibraryFunction = void (*)();

// GetProcAddress: the function `name`, or null. It is valid for as long as the library is open.
[[nodiscard]] LibraryFunction find_library_function(const DynamicLibrary& library, const char* name);

// CoInitializeEx (null, COINIT_MULTITHREADED = 0). A negative result is a failure; each other result is
// paired with one stop_com (CoUninitialize). Elsewhere than on Windows there is nothing to start.
[[nodiscard]] std::int32_t start_com();
void stop_com();

// To be called once, before anything is opened. On POSIX systems it makes a closed reader of a standard
// stream a failed write and never a signal; streams are numbers there that are given out again, and one that
// the parent had closed leads nowhere afterwards, instead of into whatever is opened next. On Windows it
// makes what the system would ask in a dialog (a drive without a disk) the failure of the call.
void prepare_process();

// Writes UTF-8 to standard output or standard error at once: as it is (no line feed is translated), but to a
// console of Windows as wide text, whatever its code page. That nobody reads it is not told.
void write_standard_output(std::string_view text);
void write_standard_error(std::string_view text);

// SetConsoleCtrlHandler. `handler` gets the event number (wincon.h: 0 Ctrl+C, 1 Ctrl+Break, 2 close, 5
// log-off, 6 shutdown) on a thread or in a signal context that the system chooses, so it may only set
// atomics; it returns whether it took the event. Elsewhere SIGINT, SIGQUIT, SIGHUP and SIGTERM are the events
// 0, 1, 2 and 6. A hang-up that the parent had set to be ignored stays ignored.
void install_console_handler(bool (*handler)(std::uint32_t event));

// ShellExecuteW with the verb "open" and show command 1 on an address (UTF-8). A result of 32 or less is a
// failure. The program that is started is detached and holds nothing of ours.
[[nodiscard]] std::intptr_t open_in_browser(std::string_view address);

// Fills the buffer from the system's generator (BCryptGenRandom without an algorithm handle, flag 2). False
// when it cannot; the buffer's contents then mean nothing.
[[nodiscard]] bool fill_random(unsigned char* buffer, std::size_t size);

// StringFromGUID2 into a buffer of 40 characters: 38 of them, upper-case hexadecimal with braces. Empty on
// failure.
[[nodiscard]] std::u16string guid_text(const Guid& guid);

// Reads the machine that stands in for what this system lacks. Empty when it can be read, otherwise what is
// wrong, as PATH:LINE: WHY (line 0: the file as a whole). To be called once, before anything else is asked of
// the registry. On Windows there is nothing to read.
[[nodiscard]] std::string load_machine();

// What the system itself knows this machine by: the value MachineGuid of `SOFTWARE\Microsoft\Cryptography` in
// the 64-bit view of the registry; elsewhere than on Windows the first line of /etc/machine-id, 63 bytes of
// it at most. Empty when it cannot be read, and where the system has not got one yet.
[[nodiscard]] std::string machine_identifier();

// GetComputerNameW; elsewhere the host's name. Empty when it cannot be read.
[[nodiscard]] std::string machine_name();

// GetEnvironmentVariableW. Empty when there is none of this name.
[[nodiscard]] std::u16string environment_variable(std::u16string_view name);

// GetCurrentProcessId.
[[nodiscard]] std::uint32_t own_process_id();

}  // namespace velmora
