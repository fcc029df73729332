#include "engine/algorithm_version.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

const std::string library_path = "/opt/velmora/fse.dll";

void version_1_20_300(std::uint32_t* major, std::uint32_t* minor, std::uint32_t* patch) {
  *major = 1;
  *minor = 20;
  *patch = 300;
}

void version_untouched(std::uint32_t*, std::uint32_t*, std::uint32_t*) {}

void version_largest(std::uint32_t* major, std::uint32_t* minor, std::uint32_t* patch) {
  *major = *minor = *patch = 0xFFFFFFFF;
}

using GetVersion = void (*)(std::uint32_t*, std::uint32_t*, std::uint32_t*);

void put_library(GetVersion function) {
  memory::system().files[library_path] = {};
  memory::system().libraries[library_path].functions["fse_get_version"] =
      reinterpret_cast<LibraryFunction>(function);
}

using AlgorithmVersion = FreshMachine;

TEST_F(AlgorithmVersion, IsTheLibrarysOwnNumber) {
  const struct {
    GetVersion function;
    std::string version;
  } rows[] = {{version_1_20_300, "1.20.300"},
              {version_untouched, "0.0.0"},
              {version_largest, "4294967295.4294967295.4294967295"}};
  for (const auto& row : rows) {
    put_library(row.function);
    EXPECT_EQ(probe_algorithm_version(), row.version);
    EXPECT_TRUE(memory::system().handles.empty());
  }
}

TEST_F(AlgorithmVersion, IsUnknownWithoutTheProgramsPath) {
  put_library(version_1_20_300);
  memory::system().module_path.clear();
  EXPECT_EQ(probe_algorithm_version(), "unknown");
  EXPECT_TRUE(memory::system().log.empty());
}

// Nothing is loaded then.
TEST_F(AlgorithmVersion, IsNotFoundWithoutTheFileInTheProgramsDirectory) {
  EXPECT_EQ(probe_algorithm_version(), "not found");
  put_library(version_1_20_300);
  memory::system().files[library_path].kind = FileKind::directory;
  EXPECT_EQ(probe_algorithm_version(), "not found");
  memory::system().files[library_path].kind = FileKind::regular;
  memory::system().module_path = "/usr/bin/velmora_control_demo";
  EXPECT_EQ(probe_algorithm_version(), "not found");
  EXPECT_TRUE(memory::system().log.empty());
}

TEST_F(AlgorithmVersion, NeverLoadsAPipeOrADevice) {
  memory::system().files[library_path].kind = FileKind::other;
  EXPECT_EQ(probe_algorithm_version(), "unavailable");
  EXPECT_EQ(calls_of("LoadLibraryW"), 0);
}

TEST_F(AlgorithmVersion, IsUnavailableWhenTheFileCannotBeLoaded) {
  memory::system().files[library_path] = {};
  EXPECT_EQ(probe_algorithm_version(), "unavailable");
  EXPECT_EQ(calls_of("LoadLibraryW"), 1);
}

TEST_F(AlgorithmVersion, IsUnknownWithoutTheFunction) {
  memory::system().files[library_path] = {};
  memory::system().libraries[library_path] = {};
  EXPECT_EQ(probe_algorithm_version(), "unknown");
  EXPECT_TRUE(memory::system().handles.empty());
}

}  // namespace
}  // namespace velmora
