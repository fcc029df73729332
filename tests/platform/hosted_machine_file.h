// What the suites of the hosted machine share: the file of the machine, read and looked at past the seam.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/machine.h"
#include "platform/surroundings.h"

namespace velmora {

inline std::string machine_path() { return surroundings::scratch_directory() + "/machine.reg"; }

inline std::string load_from(const std::string& path) {
  setenv("VELMORA_MACHINE", path.c_str(), 1);
  return load_machine();
}

inline std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline ino_t file_number(const std::string& path) {
  struct stat found {};
  EXPECT_EQ(stat(path.c_str(), &found), 0);
  return found.st_ino;
}

inline std::vector<std::string> names_in_scratch() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(surroundings::scratch_directory())) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

}  // namespace velmora
