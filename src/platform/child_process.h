// A child process with its output, and programs started for the user. Errors are Win32 codes (winerror.h); 0
// is success. Paths and arguments are UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/owner.h"

namespace velmora {

struct ChildProcessKind {
  using Native = void*;
  static constexpr Native none = nullptr;
  static void release(Native native) noexcept;
};
// Owner of a child process and of the pipes from its standard output and standard error. Releasing it ends
// the child at once if it still runs. The child also ends when this process ends, however that happens: on
// Windows at once, elsewhere by SIGTERM, which it also gets when the thread that started it ends. The
// programs that the child has started do not end.
using ChildProcess = Owner<ChildProcessKind>;

// Starts the program at the full path `program`. The arguments reach it unchanged. It inherits the
// environment, the current directory and three streams: an empty input and two pipes. On Windows it gets a
// console of its own without a window, so a Ctrl+C in our console does not reach it; elsewhere a process
// group of its own has the same effect. Even if this process ignores Ctrl+C, the child does not; on Windows
// this process does not ignore it from then on either. 2 and 3: no such program; 5: a directory, or access is
// denied; 87: an argument with a zero byte; 193: not a program. `out` is assigned only on success.
[[nodiscard]] std::uint32_t start_child(std::string_view program, const std::vector<std::string>& arguments,
                                        ChildProcess& out);

// The process id. It names this child and no other process for as long as the owner is open.
[[nodiscard]] std::uint32_t child_process_id(const ChildProcess& child);

// What a child did.
struct ChildEvent {
  enum class Kind { nothing, output, error_output, ended };
  Kind kind = Kind::nothing;
  std::string bytes;            // what it wrote, 1 byte or more; for the two kinds of output only
  std::uint32_t exit_code = 0;  // for `ended` only. A process ended by a signal has 128 plus its number.
};

// Waits up to `timeout_ms` for the next event. All output comes before `ended`, which is final: each later
// call returns it again. A child's own children may keep the pipes open; the end of the child does not wait
// for them: what the pipes hold at the end of the child is all of its output. Elsewhere than on Windows a
// signal ends the wait early with `nothing`.
[[nodiscard]] ChildEvent wait_for_child(const ChildProcess& child, std::uint32_t timeout_ms);

// Ends the child at once (TerminateProcess with exit code 1; SIGKILL). False if the system refuses.
[[nodiscard]] bool end_child(const ChildProcess& child);

// Sends Ctrl+C to the process (event 0 of install_console_handler) and to all others of its console. On
// Windows this process must not have a console of its own that it still needs: it leaves it, joins that of
// the other process, ignores the event itself and leaves again (AttachConsole, GenerateConsoleCtrlEvent).
// From then on it ignores Ctrl+C. Elsewhere it is SIGINT to that process. 87: no such process.
[[nodiscard]] std::uint32_t interrupt_process(std::uint32_t process_id);

// Starts a program in a window of its own with an administrator's rights, after Windows has asked the user
// (ShellExecuteExW with the verb "runas"). 1223: the user said no. Elsewhere there is no such question: 50
// (ERROR_NOT_SUPPORTED).
[[nodiscard]] std::uint32_t start_as_administrator(std::string_view program,
                                                   const std::vector<std::string>& arguments);

}  // namespace velmora
