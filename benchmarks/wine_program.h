// What the drivers need to know to measure Windows programs under Wine. The drivers are programs of Linux.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velmora::bench {

// How programs are started: directly, or by Wine's loader. The loader becomes the program by exec, so the
// process id of the loader is the program's.
class Launcher {
 public:
  Launcher() = default;
  // Silences Wine's own messages, which the programs started later inherit.
  explicit Launcher(std::string loader);

  [[nodiscard]] bool is_wine() const { return !loader_.empty(); }
  // The command that starts a program with these arguments.
  [[nodiscard]] std::vector<std::string> command(std::vector<std::string> arguments) const;
  // A path of Linux as the program writes it.
  [[nodiscard]] std::string program_path(std::string_view path) const;
  // The service that can make the shared record by itself. Under Wine it is a copy in `directory`: Wine does
  // not know one trustee of the record's access list, WR, which the copy replaces by WD. Gives up if it
  // cannot.
  [[nodiscard]] std::string service_program(const std::string& path, const std::string& directory) const;
  // The heading for a result: "Linux" or "Wine".
  [[nodiscard]] std::string system_name() const { return is_wine() ? "Wine" : "Linux"; }

 private:
  std::string loader_;  // empty: the programs are Linux'
};

}  // namespace velmora::bench
