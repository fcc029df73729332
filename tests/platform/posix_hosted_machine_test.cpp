// The machine of the native program in the file that VELMORA_MACHINE names.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "platform/hosted/machine_state.h"
#include "platform/hosted_machine_file.h"
#include "platform/machine.h"
#include "platform/registry.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;
using surroundings::put_file;

constexpr std::int32_t error_missing = 2;
constexpr std::int32_t error_io = 1016;
constexpr std::uint32_t key_access = key_query_value | key_set_value;
constexpr std::uint32_t reg_binary = 3;

// Whatever a test does, the next one gets the built-in machine.
class PosixHostedMachine : public surroundings::Arranged {
 protected:
  void TearDown() override {
    unsetenv("VELMORA_MACHINE");
    unsetenv("VELMORA_SERVICE_LOG");
    EXPECT_EQ(load_machine(), "");
    EXPECT_TRUE(hosted::machine_state().open_keys.empty());
    surroundings::Arranged::TearDown();
  }
};

std::int32_t open_key(std::u16string_view path, RegistryKey& key) {
  return open_registry_key(path, key_access, key);
}

// Unordered keys and values: their order has to be kept.
const std::string machine_text =
    "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE]\n\n"
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Zebra]\n\"z\"=dword:00000001\n\"a\"=\"text\"\n\n"
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Ant]\n\"n\"=hex:01,02\n\n";

std::string changed_text() {
  std::string text = machine_text;
  return text.replace(text.find("00000001"), 8, "00000002");
}

RegistryKey open_zebra() {
  RegistryKey key;
  EXPECT_EQ(open_key(u"SOFTWARE\\Zebra", key), 0);
  return key;
}

// Puts the file, loads it, and opens the key that the tests change.
RegistryKey load_zebra(const std::string& text = machine_text) {
  put_file(machine_path(), text);
  EXPECT_EQ(load_from(machine_path()), "");
  return open_zebra();
}

std::int32_t set_number(const RegistryKey& key, std::uint32_t number) {
  return set_registry_value(key, u"z", reg_dword, &number, sizeof number);
}

std::uint32_t read_number(const RegistryKey& key) {
  std::uint32_t number = 0;
  EXPECT_EQ(query_registry_value(key, u"z", &number, sizeof number).error, 0);
  return number;
}

std::string with_carriage_returns(const std::string& text) {
  std::string longer;
  for (const char character : text)
    longer += character == '\n' ? std::string("\r\n") : std::string(1, character);
  return longer;
}

std::string in_utf16(const std::string& text) {
  std::string longer("\xFF\xFE");
  for (const char character : text) longer += {character, '\0'};
  return longer;
}

// Every form in which a file may be written.
std::vector<std::string> forms_of(const std::string& text) {
  const std::string lines = with_carriage_returns(text);
  const std::string mark = "\xEF\xBB\xBF";
  return {text, lines, mark + text, mark + lines, in_utf16(text), in_utf16(lines)};
}

TEST_F(PosixHostedMachine, IsWrittenBackInTheFormAndOrderInWhichItWasWritten) {
  const auto before = forms_of(machine_text);
  const auto after = forms_of(changed_text());
  for (std::size_t form = 0; form < before.size(); ++form) {
    SCOPED_TRACE(form);
    const RegistryKey key = load_zebra(before[form]);
    EXPECT_EQ(read_number(key), 1u);
    EXPECT_EQ(read_file(machine_path()), before[form]);
    EXPECT_EQ(set_number(key, 2), 0);
    EXPECT_EQ(read_file(machine_path()), after[form]);
    EXPECT_EQ(set_number(key, 1), 0);
    EXPECT_EQ(read_file(machine_path()), before[form]);
  }
}

TEST_F(PosixHostedMachine, IsWrittenWithEveryChangeAndReadAgainAlike) {
  put_file(machine_path(), machine_text);
  ASSERT_EQ(load_from(machine_path()), "");
  {
    RegistryKey key;
    ASSERT_EQ(create_registry_key(u"SOFTWARE\\New\\Below", key_access, key), 0);
    EXPECT_NE(read_file(machine_path()).find("[HKEY_LOCAL_MACHINE\\SOFTWARE\\New\\Below]\n"),
              std::string::npos);
    EXPECT_EQ(set_registry_value(key, u"v", reg_binary, "\x01\x02", 2), 0);
    EXPECT_NE(read_file(machine_path()).find("\"v\"=hex:01,02\n"), std::string::npos);
    ASSERT_EQ(load_from(machine_path()), "");
    EXPECT_EQ(query_registry_value(key, u"v", nullptr, 0).size, 2u);
    EXPECT_EQ(delete_registry_value(key, u"v"), 0);
    EXPECT_EQ(read_file(machine_path()).find("\"v\""), std::string::npos);
    RegistryKey parent;
    ASSERT_EQ(open_key(u"SOFTWARE\\New", parent), 0);
    EXPECT_EQ(delete_registry_key(parent, u"Below"), 0);
    EXPECT_EQ(read_file(machine_path()).find("Below"), std::string::npos);
    ASSERT_EQ(open_key(u"SOFTWARE", parent), 0);
    EXPECT_EQ(delete_registry_key(parent, u"New"), 0);
  }
  EXPECT_EQ(names_in_scratch(), std::vector<std::string>{"machine.reg"});
}

TEST_F(PosixHostedMachine, IsReplacedWholeByANewFileWithTheSamePermissions) {
  put_file(machine_path(), machine_text);
  for (const mode_t permissions : {mode_t{0600}, mode_t{0664}, mode_t{0644}}) {
    SCOPED_TRACE(permissions);
    ASSERT_EQ(chmod(machine_path().c_str(), permissions), 0);
    ASSERT_EQ(load_from(machine_path()), "");
    // For as long as it is open, its number is given to no other.
    const std::ifstream former(machine_path());
    const ino_t former_number = file_number(machine_path());
    const RegistryKey key = open_zebra();
    EXPECT_EQ(set_number(key, 7), 0);
    EXPECT_NE(file_number(machine_path()), former_number);
    EXPECT_EQ(fs::status(machine_path()).permissions(), static_cast<fs::perms>(permissions));
    EXPECT_EQ(names_in_scratch(), std::vector<std::string>{"machine.reg"});
  }
}

TEST_F(PosixHostedMachine, IsWrittenWhereALinkLeadsAndTheLinkStays) {
  const std::string directory = surroundings::scratch_directory() + "/elsewhere";
  surroundings::put_directory(directory);
  put_file(directory + "/target.reg", machine_text);
  ASSERT_EQ(symlink("elsewhere/target.reg", machine_path().c_str()), 0);
  ASSERT_EQ(load_from(machine_path()), "");
  const RegistryKey key = open_zebra();
  EXPECT_EQ(set_number(key, 2), 0);
  EXPECT_TRUE(fs::is_symlink(machine_path()));
  EXPECT_EQ(fs::read_symlink(machine_path()), "elsewhere/target.reg");
  EXPECT_EQ(read_file(directory + "/target.reg"), changed_text());
  EXPECT_EQ(std::distance(fs::directory_iterator(directory), fs::directory_iterator()), 1);
}

TEST_F(PosixHostedMachine, IsNotTouchedByReadings) {
  put_file(machine_path(), machine_text);
  ASSERT_EQ(load_from(machine_path()), "");
  const ino_t number = file_number(machine_path());
  RegistryKey key;
  ASSERT_EQ(create_registry_key(u"SOFTWARE\\Zebra", key_access, key), 0);
  EXPECT_EQ(read_number(key), 1u);
  EXPECT_EQ(delete_registry_value(key, u"absent"), error_missing);
  EXPECT_EQ(delete_registry_key(key, u"Absent"), error_missing);
  EXPECT_EQ(file_number(machine_path()), number);
  EXPECT_EQ(read_file(machine_path()), machine_text);
}

TEST_F(PosixHostedMachine, ReportsWhereAMalformedFileIsWrongAndLeavesItUnchanged) {
  const struct {
    std::string bytes;
    std::string line;
  } cases[] = {{"", "1"},
               {"REGEDIT4\n", "1"},
               {machine_text + "rubbish\n", "12"},
               {"Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\A\n", "3"},
               {"Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\A]\n\"v\"=dword:1g\n", "4"}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.bytes);
    put_file(machine_path(), entry.bytes);
    const std::string trouble = load_from(machine_path());
    const std::string place = machine_path() + ':' + entry.line + ": ";
    EXPECT_EQ(trouble.substr(0, place.size()), place);
    EXPECT_GT(trouble.size(), place.size());
    EXPECT_EQ(trouble.find('\n'), std::string::npos);
    RegistryKey key;
    EXPECT_EQ(create_registry_key(u"SOFTWARE\\New", key_access, key), error_io);
    EXPECT_EQ(read_file(machine_path()), entry.bytes);
  }
  EXPECT_EQ(names_in_scratch(), std::vector<std::string>{"machine.reg"});
}

TEST_F(PosixHostedMachine, ReportsAFileThatCannotBeReadAndWaitsForNone) {
  const std::string directory = surroundings::scratch_directory() + "/directory";
  const std::string loop = surroundings::scratch_directory() + "/loop";
  surroundings::put_directory(directory);
  ASSERT_EQ(symlink("loop", loop.c_str()), 0);
  const std::string cases[] = {surroundings::scratch_directory() + "/absent.reg",
                               directory,
                               loop,
                               surroundings::path_of_other_kind(),
                               "/dev/zero",
                               directory + "/a/b"};
  for (const std::string& path : cases) {
    SCOPED_TRACE(path);
    const std::string trouble = load_from(path);
    EXPECT_EQ(trouble.substr(0, path.size() + 4), path + ":0: ");
    RegistryKey key;
    EXPECT_EQ(create_registry_key(u"SOFTWARE\\New", key_access, key), error_io);
    EXPECT_EQ(open_key(u"SOFTWARE", key), error_io);
  }
  EXPECT_FALSE(fs::exists(cases[0]));
}

TEST_F(PosixHostedMachine, IsTheBuiltInOneWhereNoFileIsNamed) {
  const std::u16string endpoints = u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Render";
  for (const char* file : {"", static_cast<const char*>(nullptr)}) {
    if (file != nullptr) setenv("VELMORA_MACHINE", file, 1);
    if (file == nullptr) unsetenv("VELMORA_MACHINE");
    ASSERT_EQ(load_machine(), "");
    RegistryKey key;
    EXPECT_EQ(open_key(endpoints, key), 0);
    EXPECT_EQ(create_registry_key(u"SOFTWARE\\New", key_access, key), 0);
    EXPECT_EQ(set_number(key, 5), 0);
    EXPECT_EQ(read_number(key), 5u);
    // It is kept for as long as the process lives and nowhere else.
    ASSERT_EQ(load_machine(), "");
    EXPECT_EQ(open_key(u"SOFTWARE\\New", key), error_missing);
  }
  EXPECT_TRUE(names_in_scratch().empty());
}

// A directory of the temporary file's name is in the way: permissions do not stop root.
TEST_F(PosixHostedMachine, StaysAsItWasWhereItCannotBeWritten) {
  put_file(machine_path(), machine_text);
  const std::string obstacle = machine_path() + ".new-" + std::to_string(getpid());
  surroundings::put_directory(obstacle);
  ASSERT_EQ(load_from(machine_path()), "");
  RegistryKey key;
  RegistryKey software;
  RegistryKey none;
  ASSERT_EQ(open_key(u"SOFTWARE\\Zebra", key), 0);
  ASSERT_EQ(open_key(u"SOFTWARE", software), 0);
  // Twice: what is in the way stays there.
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(set_number(key, 9), error_io);
    EXPECT_EQ(read_number(key), 1u);
    EXPECT_EQ(delete_registry_value(key, u"z"), error_io);
    EXPECT_EQ(read_number(key), 1u);
    EXPECT_EQ(create_registry_key(u"SOFTWARE\\New", key_access, none), error_io);
    EXPECT_EQ(open_key(u"SOFTWARE\\New", none), error_missing);
    EXPECT_EQ(delete_registry_key(software, u"Ant"), error_io);
    EXPECT_EQ(create_registry_key(u"SOFTWARE\\Ant", key_access, none), 0);  // it changes nothing
    EXPECT_EQ(delete_registry_value(key, u"absent"), error_missing);
    EXPECT_EQ(read_file(machine_path()), machine_text);
    EXPECT_TRUE(fs::is_directory(obstacle));
  }
  fs::remove(obstacle);
  EXPECT_EQ(set_number(key, 2), 0);
  EXPECT_EQ(read_file(machine_path()), changed_text());
}

TEST_F(PosixHostedMachine, ReplacesTheTemporaryFileOfAKilledProcess) {
  put_file(machine_path(), machine_text);
  put_file(machine_path() + ".new-" + std::to_string(getpid()), "half");
  ASSERT_EQ(load_from(machine_path()), "");
  const RegistryKey key = open_zebra();
  EXPECT_EQ(set_number(key, 2), 0);
  EXPECT_EQ(read_file(machine_path()), changed_text());
  EXPECT_EQ(names_in_scratch(), std::vector<std::string>{"machine.reg"});
}

TEST_F(PosixHostedMachine, FollowsAFileThatAnotherProgramWrites) {
  RegistryKey key = load_zebra();
  for (std::uint32_t round = 0; round < 50; ++round) {
    put_file(machine_path(), changed_text());
    ASSERT_EQ(read_number(key), 2u) << round;
    ASSERT_EQ(set_number(key, 5), 0) << round;
    put_file(machine_path(), machine_text);
    ASSERT_EQ(read_number(key), 1u) << round;
  }
  // A new file in its place, with an old time.
  const std::string other = surroundings::scratch_directory() + "/other.reg";
  put_file(other, changed_text());
  fs::last_write_time(other, fs::file_time_type::clock::now() - std::chrono::hours(24));
  ASSERT_EQ(rename(other.c_str(), machine_path().c_str()), 0);
  EXPECT_EQ(read_number(key), 2u);
  // A key that has gone meanwhile, and one that has come.
  put_file(machine_path(), "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bee]\n");
  EXPECT_EQ(set_number(key, 3), 1018);
  EXPECT_EQ(open_key(u"SOFTWARE\\Bee", key), 0);
}

// Same length, same file, same time: only the bytes differ. A future time simulates one that has not passed
// when the file is read.
TEST_F(PosixHostedMachine, FollowsAFileThatIsWrittenAgainWithinOneStepOfItsTime) {
  const auto time = fs::file_time_type::clock::now() + std::chrono::hours(1);
  const auto write_in_step = [&](const std::string& bytes) {
    put_file(machine_path(), bytes);
    fs::last_write_time(machine_path(), time);
  };
  write_in_step(machine_text);
  ASSERT_EQ(load_from(machine_path()), "");
  const RegistryKey key = open_zebra();
  for (int round = 0; round < 2; ++round) {
    write_in_step(changed_text());
    EXPECT_EQ(read_number(key), 2u);
    write_in_step(machine_text);
    EXPECT_EQ(read_number(key), 1u);
  }
}

// A file with an old time is read once, and then only inspected.
TEST_F(PosixHostedMachine, FollowsAFileThatHasNotBeenWrittenForLong) {
  put_file(machine_path(), machine_text);
  fs::last_write_time(machine_path(), fs::file_time_type::clock::now() - std::chrono::hours(24));
  ASSERT_EQ(load_from(machine_path()), "");
  const RegistryKey key = open_zebra();
  EXPECT_EQ(read_number(key), 1u);
  put_file(machine_path(), changed_text());
  EXPECT_EQ(read_number(key), 2u);
}

TEST_F(PosixHostedMachine, AnswersErrorsWhileAnotherProgramsFileIsMalformed) {
  RegistryKey key = load_zebra();
  const std::string half = machine_text.substr(0, machine_text.find("hex:") + 2);
  put_file(machine_path(), half);
  for (int round = 0; round < 2; ++round) {
    RegistryKey none;
    std::uint32_t number = 0;
    EXPECT_EQ(open_key(u"SOFTWARE\\Ant", none), error_io);
    EXPECT_EQ(create_registry_key(u"SOFTWARE\\New", key_access, none), error_io);
    EXPECT_EQ(query_registry_value(key, u"z", &number, sizeof number).error, error_io);
    EXPECT_EQ(get_registry_value(u"SOFTWARE\\Zebra", u"z", rrf_rt_reg_dword, &number, 4).error, error_io);
    EXPECT_EQ(set_number(key, 3), error_io);
    EXPECT_EQ(delete_registry_value(key, u"z"), error_io);
    EXPECT_EQ(delete_registry_key(key, u"Below"), error_io);
    EXPECT_EQ(read_file(machine_path()), half);
  }
  const Guid guid{};
  EXPECT_EQ(guid_text(guid).size(), 38u) << "no registry is needed";
  RegistryKey closed = std::move(key);
  closed.close();
  put_file(machine_path(), changed_text());
  ASSERT_EQ(open_key(u"SOFTWARE\\Zebra", key), 0);
  EXPECT_EQ(read_number(key), 2u);
  ASSERT_EQ(unlink(machine_path().c_str()), 0);
  EXPECT_EQ(set_number(key, 3), error_io);
  EXPECT_FALSE(fs::exists(machine_path()));
}

TEST_F(PosixHostedMachine, IsReadBeforeTheFirstCallThoughNobodyHasLoadedIt) {
  put_file(machine_path(), "rubbish");
  EXPECT_NE(load_from(machine_path()), "");
  put_file(machine_path(), machine_text);
  const RegistryKey key = open_zebra();
  EXPECT_EQ(read_number(key), 1u);
}

// Its share of the changes of many programs: a key of its own with some values.
void change_machine_and_exit(int writer) {
  const std::u16string path = u"SOFTWARE\\Writer" + std::u16string(1, static_cast<char16_t>(u'0' + writer));
  RegistryKey key;
  bool done = create_registry_key(path, key_access, key) == 0;
  for (char16_t name = u'a'; name <= u'h'; ++name) {
    done = done && set_registry_value(key, std::u16string(1, name), reg_dword, "\1\0\0", 4) == 0;
  }
  _exit(done ? 0 : 1);
}

TEST_F(PosixHostedMachine, LosesNoChangeOfManyProgramsAtOnce) {
  constexpr int writers = 6;
  put_file(machine_path(), machine_text);
  ASSERT_EQ(load_from(machine_path()), "");
  std::vector<pid_t> children;
  for (int writer = 0; writer < writers; ++writer) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) change_machine_and_exit(writer);
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  const std::string text = read_file(machine_path());
  std::size_t values = 0;
  for (std::size_t place = text.find("=dword:00000001"); place != std::string::npos;
       place = text.find("=dword:00000001", place + 1)) {
    ++values;
  }
  const std::size_t before = machine_text.find("=dword:00000001") == std::string::npos ? 0 : 1;
  EXPECT_EQ(values, before + writers * 8);
  EXPECT_EQ(names_in_scratch(), std::vector<std::string>{"machine.reg"});
}

TEST_F(PosixHostedMachine, AppendsTheStatesOfServicesToTheLogThatIsNamed) {
  const std::string log = surroundings::scratch_directory() + "/services";
  hosted::publish_service_state(u"Before", 1);
  setenv("VELMORA_SERVICE_LOG", log.c_str(), 1);
  EXPECT_FALSE(fs::exists(log));
  hosted::publish_service_state(u"Audiosrv", 1);
  hosted::publish_service_state(u"Audio\u00E9", 1);
  hosted::publish_service_state(u"Audiosrv", 4);
  EXPECT_EQ(read_file(log), "Audiosrv 1\nAudiosrv 4\n");
  // A folder that is not there: nobody notices.
  setenv("VELMORA_SERVICE_LOG", (log + "/log").c_str(), 1);
  hosted::publish_service_state(u"Audiosrv", 1);
  EXPECT_EQ(read_file(log), "Audiosrv 1\nAudiosrv 4\n");
}

}  // namespace
}  // namespace velmora
