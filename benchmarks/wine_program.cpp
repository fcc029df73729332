#include "wine_program.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "server_process.h"

namespace velmora::bench {
namespace {

// ASCII as UTF-16, little-endian.
std::string wide(std::string_view text) {
  std::string bytes;
  for (const char unit : text) bytes.append({unit, '\0'});
  return bytes;
}

}  // namespace

Launcher::Launcher(std::string loader) : loader_(std::move(loader)) { setenv("WINEDEBUG", "-all", 0); }

std::vector<std::string> Launcher::command(std::vector<std::string> arguments) const {
  if (is_wine()) arguments.insert(arguments.begin(), loader_);
  return arguments;
}

std::string Launcher::program_path(std::string_view path) const {
  if (!is_wine()) return std::string(path);
  std::string windows_path = "Z:" + std::string(path);
  std::replace(windows_path.begin(), windows_path.end(), '/', '\\');
  return windows_path;
}

std::string Launcher::service_program(const std::string& path, const std::string& directory) const {
  if (!is_wine()) return path;
  std::ifstream original(path, std::ios::binary);
  std::string image((std::istreambuf_iterator<char>(original)), std::istreambuf_iterator<char>());
  const std::string unknown = wide(";;;WR)");
  const std::size_t place = image.find(unknown);
  if (place == std::string::npos || image.find(unknown, place + 1) != std::string::npos) {
    give_up(path + " does not hold the record's access list once");
  }
  image.replace(place, unknown.size(), wide(";;;WD)"));
  std::string copy = directory + "/velmora_control_demo.exe";
  if (!(std::ofstream(copy, std::ios::binary) << image << std::flush)) give_up("no copy of " + path);
  return copy;
}

}  // namespace velmora::bench
