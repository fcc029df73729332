// What the contract tests of children, private files and the console need of their system. Each
// implementation has its own. A child runs velmora_contract_child, whose first argument says what it does.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/child_process.h"
#include "platform/owner.h"

namespace velmora::surroundings {

// The path of that program. Children can be started after this call.
[[nodiscard]] std::string set_up_children();

// start_child. On a busy machine Wine fails about one start in two thousand with ERROR_INTERNAL_ERROR
// (winerror.h), which nothing else gives; those are started again.
[[nodiscard]] inline std::uint32_t start_reliably(const std::string& program,
                                                  const std::vector<std::string>& arguments,
                                                  velmora::ChildProcess& out) {
  constexpr std::uint32_t error_internal = 1359;
  std::uint32_t error = error_internal;
  for (int starts = 0; starts < 3 && error == error_internal; ++starts)
    error = start_child(program, arguments, out);
  return error;
}

// The exit code of a process that end_child has ended.
[[nodiscard]] std::uint32_t exit_code_of_ended();

// The directory of this process.
[[nodiscard]] std::string current_directory();

// Whether this process runs. False for one that has ended and is only kept for its parent.
[[nodiscard]] bool is_running(std::uint32_t process_id);
// Ends any process. Only of a real system.
void end_process(std::uint32_t process_id);

struct HolderKind {
  using Native = std::uintptr_t;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;  // kills the process
};
// Another process that holds a private file.
using Holder = Owner<HolderKind>;
[[nodiscard]] Holder hold_elsewhere_file(const std::string& path, const std::string& bytes);
// Whether the system removes the file of a holder that was killed.
[[nodiscard]] bool removes_files_of_killed();

// Whether the file or folder is for this user only, by what the system says about it.
[[nodiscard]] bool is_private(const std::string& path);
// Lets every user read it.
void open_to_others(const std::string& path);

// The environment variable that leads to the private directory, with an absolute path for it and what the
// directory is then.
struct PrivatePlace {
  std::u16string variable;
  std::u16string text;
  std::string directory;
};
[[nodiscard]] PrivatePlace private_place();
// All variables that the private directory may follow from are removed while it is open.
struct NoPlaceKind {
  using Native = int;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;
};
using NoPlace = Owner<NoPlaceKind>;
[[nodiscard]] NoPlace remove_private_places();

struct StandardInputKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~std::uintptr_t{0};
  static void release(Native native) noexcept;
};
// While it is open, standard input has these bytes and then ends. At most 32 KiB.
using StandardInput = Owner<StandardInputKind>;
[[nodiscard]] StandardInput put_standard_input(std::string_view bytes);

}  // namespace velmora::surroundings
