// The test engine: a process `audiodg.exe` that loads libraries on command, so that the effect appears loaded
// in the system's lists or not. It prints one line for each act, for tests to wait for.
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/machine.h"

namespace velmora::engine {
namespace {

constexpr int exit_done = 0;
constexpr int exit_usage = 2;

constexpr std::string_view usage =
    "usage: audiodg.exe [--load PATH]... [--stay]\n"
    "Reads `load PATH` and `unload PATH` from standard input until its end; with --stay it reads nothing "
    "and\n"
    "stays until it is stopped.\n";

struct Options {
  std::vector<std::string> libraries;
  bool stay = false;
};

std::optional<Options> parse_options(int argc, const char* const* argv) {
  Options options;
  for (int index = 1; index < argc; ++index) {
    const std::string_view name = argv[index];
    if (name == "--stay") {
      options.stay = true;
    } else if (name == "--load" && index + 1 < argc) {
      options.libraries.emplace_back(argv[++index]);
    } else {
      return std::nullopt;
    }
  }
  return options;
}

struct Loaded {
  std::string path;
  DynamicLibrary library;
};

void say(std::string_view what, std::string_view subject) {
  write_standard_output(std::string(what).append(" ").append(subject).append("\n"));
}

// Behind the last separator of either system.
std::string_view file_name_of(std::string_view path) { return path.substr(path.find_last_of("/\\") + 1); }

void load(std::vector<Loaded>& loaded, std::string_view path) {
  DynamicLibrary library = load_library(path);
  if (!library.is_open()) return say("cannot load", path);
  loaded.push_back({std::string(path), std::move(library)});
  say("loaded", file_name_of(path));
}

// A library that was loaded twice stays until it is unloaded twice.
void unload(std::vector<Loaded>& loaded, std::string_view path) {
  const auto found =
      std::find_if(loaded.begin(), loaded.end(), [&](const Loaded& one) { return one.path == path; });
  if (found == loaded.end()) return say("never loaded", path);
  loaded.erase(found);
  say("unloaded", file_name_of(path));
}

void obey(std::vector<Loaded>& loaded, std::string_view line) {
  constexpr std::string_view to_load = "load ";
  constexpr std::string_view to_unload = "unload ";
  if (line.starts_with(to_load)) return load(loaded, line.substr(to_load.size()));
  if (line.starts_with(to_unload)) return unload(loaded, line.substr(to_unload.size()));
  say("unknown command", line);
}

// One line of standard input without its end; false at the end of all.
bool read_line(std::string& line) {
  line.clear();
  std::array<char, 1024> piece;
  while (std::fgets(piece.data(), piece.size(), stdin) != nullptr) {
    line += piece.data();
    if (!line.ends_with('\n')) continue;
    line.pop_back();
    if (line.ends_with('\r')) line.pop_back();
    return true;
  }
  return !line.empty();
}

// Nothing here needs to be put in order at the end, and a read that waits sees no flag.
void end_at_once(int) { std::_Exit(exit_done); }

[[noreturn]] void stay() {
  constexpr std::uint32_t long_ms = 1000;
  for (;;) sleep_ms(long_ms);
}

int run(const Options& options) {
  say("engine", std::to_string(own_process_id()));
  std::vector<Loaded> loaded;
  for (const std::string& path : options.libraries) load(loaded, path);
  if (options.stay) stay();
  for (std::string line; read_line(line);) obey(loaded, line);
  return exit_done;
}

}  // namespace
}  // namespace velmora::engine

int main(int argc, char** argv) {
  std::signal(SIGINT, velmora::engine::end_at_once);
  std::signal(SIGTERM, velmora::engine::end_at_once);
  velmora::prepare_process();
  const auto options = velmora::engine::parse_options(argc, argv);
  if (options) return velmora::engine::run(*options);
  velmora::write_standard_error(velmora::engine::usage);
  return velmora::engine::exit_usage;
}
