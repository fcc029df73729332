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

TEST_F(AlgorithmVersion, IsWhatTheLibraryBesideTheProgramSays) {
  const struct {
    GetVersion function;
    std::string version;
  } rows[] = {{version_1_20_300, "1.20.300"},
              {version_untouched, "0.0.0"},
              {version_largest, "4294967295.4294967295.4294967295"}};
  for (const auto& row : rows) {
    put_library(row.function);
    EXPECT_EQ(probe_algorithm_version(), row.version);
  }
}

TEST_F(AlgorithmVersion, HoldsTheLibraryForTheOneCallAlone) {
  put_library(version_1_20_300);
  EXPECT_EQ(probe_algorithm_version(), "1.20.300");
  EXPECT_EQ(memory::system().log, (std::vector<std::string>{"LoadLibraryW", "FreeLibrary"}));
  EXPECT_TRUE(memory::system().handles.empty());
}

TEST_F(AlgorithmVersion, IsUnknownWithoutOurOwnPath) {
  put_library(version_1_20_300);
  memory::system().module_path.clear();
  EXPECT_EQ(probe_algorithm_version(), "unknown");
  EXPECT_TRUE(memory::system().log.empty());
}

TEST_F(AlgorithmVersion, IsNotFoundWithoutTheFile) {
  EXPECT_EQ(probe_algorithm_version(), "not found");
  EXPECT_TRUE(memory::system().log.empty());
}

TEST_F(AlgorithmVersion, IsNotFoundWhereTheNameIsADirectory) {
  put_library(version_1_20_300);
  memory::system().files[library_path].kind = FileKind::directory;
  EXPECT_EQ(probe_algorithm_version(), "not found");
  EXPECT_TRUE(memory::system().log.empty());
}

TEST_F(AlgorithmVersion, IsUnavailableWhereTheNameIsAPipeOrADeviceWhichIsNeverLoaded) {
  memory::system().files[library_path].kind = FileKind::other;
  EXPECT_EQ(probe_algorithm_version(), "unavailable");
  EXPECT_EQ(calls_of("LoadLibraryW"), 0);
}

TEST_F(AlgorithmVersion, IsLookedForInOurOwnDirectoryAlone) {
  put_library(version_1_20_300);
  memory::system().module_path = "/usr/bin/velmora_control_demo";
  EXPECT_EQ(probe_algorithm_version(), "not found");
}

TEST_F(AlgorithmVersion, IsUnavailableWhereTheFileCannotBeLoaded) {
  memory::system().files[library_path] = {};
  EXPECT_EQ(probe_algorithm_version(), "unavailable");
  EXPECT_EQ(memory::system().log, std::vector<std::string>{"LoadLibraryW"});
}

TEST_F(AlgorithmVersion, IsUnknownWhereTheLibraryHasNoSuchFunctionAndFreesIt) {
  memory::system().files[library_path] = {};
  memory::system().libraries[library_path] = {};
  EXPECT_EQ(probe_algorithm_version(), "unknown");
  EXPECT_EQ(memory::system().log, (std::vector<std::string>{"LoadLibraryW", "FreeLibrary"}));
}

}  // namespace
}  // namespace velmora
