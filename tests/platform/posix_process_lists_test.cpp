// Processes and modules out of a root of the tests' own, laid out as proc(5) says.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/posix_child.h"
#include "platform/processes.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;
using surroundings::put_file;

// winerror.h
constexpr std::uint32_t error_denied = 5;
constexpr std::uint32_t error_no_more_files = 18;
constexpr std::uint32_t error_general = 31;
constexpr std::uint32_t error_no_such_process = 87;

std::string proc_root() { return surroundings::scratch_directory() + "/proc"; }
std::string process_directory(const std::string& name) { return proc_root() + '/' + name; }

class PosixProcessLists : public surroundings::Arranged {
 protected:
  void SetUp() override {
    surroundings::Arranged::SetUp();
    surroundings::put_directory(proc_root());
    setenv("VELMORA_PROC", proc_root().c_str(), 1);
  }
  void TearDown() override {
    unsetenv("VELMORA_PROC");
    surroundings::Arranged::TearDown();
  }
};

// A process whose program may be asked for. `name` is its directory's.
void put_process(const std::string& name, const std::string& program) {
  surroundings::put_directory(process_directory(name));
  EXPECT_EQ(symlink(program.c_str(), (process_directory(name) + "/exe").c_str()), 0);
}

// A process whose link cannot be read, as that of another user.
void put_guarded_process(const std::string& name, const std::string& comm) {
  surroundings::put_directory(process_directory(name));
  put_file(process_directory(name) + "/exe", "");
  put_file(process_directory(name) + "/comm", comm);
}

void put_maps(const std::string& name, const std::string& lines) {
  surroundings::put_directory(process_directory(name));
  put_file(process_directory(name) + "/maps", lines);
}

std::map<std::uint32_t, std::u16string> processes() {
  ProcessSnapshot snapshot;
  EXPECT_EQ(snapshot_processes(snapshot), 0u);
  std::map<std::uint32_t, std::u16string> all;
  ProcessEntry entry;
  for (bool more = first_process(snapshot, entry); more; more = next_process(snapshot, entry)) {
    EXPECT_TRUE(all.emplace(entry.process_id, entry.file_name).second);
  }
  return all;
}

using Modules = std::vector<std::pair<std::u16string, std::u16string>>;  // name, path

Modules modules_of(std::uint32_t process_id) {
  ModuleSnapshot snapshot;
  EXPECT_EQ(snapshot_modules(process_id, snapshot), 0u);
  Modules all;
  ModuleEntry entry;
  for (bool more = first_module(snapshot, entry) == 0; more; more = next_module(snapshot, entry)) {
    all.emplace_back(entry.name, entry.path);
  }
  return all;
}

using Processes = std::map<std::uint32_t, std::u16string>;

TEST_F(PosixProcessLists, NameEachProcessByTheFileNameOfItsProgram) {
  put_process("1", "/sbin/init");
  put_process("77", "/usr/lib/audio engine/audiodg.exe");
  put_process("4194304", "/opt/velmora/velmora_control_demo (deleted)");
  put_process("78", "/\xC3\xB6/\xC3\xB6");
  put_process("79", "/broken\xFF");
  put_process("80", "relative");
  EXPECT_EQ(processes(), (Processes{{1, u"init"},
                                    {77, u"audiodg.exe"},
                                    {78, u"\u00F6"},
                                    {79, u"broken\uFFFD"},
                                    {80, u"relative"},
                                    {4194304, u"velmora_control_demo"}}));
}

TEST_F(PosixProcessLists, NameAProcessByItsCommWhereItsLinkCannotBeRead) {
  put_guarded_process("5", "audiodg.exe\n");
  put_guarded_process("6", "no line end");
  put_guarded_process("7", "two\nlines\n");
  put_guarded_process("8", "");
  put_guarded_process("9", "\n");
  put_guarded_process("10", std::string(300, 'a') + "\n");
  surroundings::put_directory(process_directory("11"));
  put_file(process_directory("11") + "/exe", "");
  EXPECT_EQ(
      processes(),
      (Processes{
          {5, u"audiodg.exe"}, {6, u"no line end"}, {7, u"two\nlines"}, {10, std::u16string(300, u'a')}}));
}

TEST_F(PosixProcessLists, LeaveOutWhatHasNoProgram) {
  surroundings::put_directory(process_directory("2"));
  put_file(process_directory("2") + "/comm", "kthreadd\n");
  put_process("3", "/bin/cat");
  put_file(process_directory("4"), "no directory");
  EXPECT_EQ(processes(), (Processes{{3, u"cat"}}));
}

TEST_F(PosixProcessLists, TakeNoNameForAProcessThatIsNotANumberOf32Bits) {
  for (const char* name : {"self", "7a", "a7", "-7", "+7", "7.0", "0x7", "7 ", "sys", "0", "4294967296",
                           "4294967302", "9999999999", "18446744073709551623"}) {
    put_process(name, "/bin/cat");
  }
  put_process("7", "/bin/cat");
  EXPECT_EQ(processes(), (Processes{{7, u"cat"}}));
}

TEST_F(PosixProcessLists, AreEmptyWithoutProcesses) {
  EXPECT_EQ(processes(), Processes());
  ProcessSnapshot snapshot;
  ASSERT_EQ(snapshot_processes(snapshot), 0u);
  ProcessEntry entry{7, u"as it was"};
  EXPECT_FALSE(first_process(snapshot, entry));
  EXPECT_EQ(entry.process_id, 7u);
  EXPECT_EQ(entry.file_name, u"as it was");
}

TEST_F(PosixProcessLists, CannotBeMadeWithoutARoot) {
  fs::remove(proc_root());
  ProcessSnapshot snapshot;
  EXPECT_EQ(snapshot_processes(snapshot), error_general);
  EXPECT_FALSE(snapshot.is_open());
  ModuleSnapshot modules;
  EXPECT_EQ(snapshot_modules(7, modules), error_no_such_process);
  EXPECT_FALSE(modules.is_open());
}

TEST_F(PosixProcessLists, ComeFromTheSystemItselfWhereNoRootIsGiven) {
  setenv("VELMORA_PROC", "", 1);
  EXPECT_EQ(processes().count(static_cast<std::uint32_t>(getpid())), 1u);
  EXPECT_FALSE(modules_of(static_cast<std::uint32_t>(getpid())).empty());
}

TEST_F(PosixProcessLists, NameEachMappedFileOnceInTheOrderOfItsAddresses) {
  put_maps("7",
           "00400000-00401000 r--p 00000000 fe:01 131073                     /usr/lib/audio/audiodg.exe\n"
           "00401000-00402000 r-xp 00001000 fe:01 131073                     /usr/lib/audio/audiodg.exe\n"
           "01000000-01021000 rw-p 00000000 00:00 0                          [heap]\n"
           "7f0000000000-7f0000001000 r--p 00000000 fe:01 131080             /opt/Velmora Audio/fse.dll\n"
           "7f0000002000-7f0000003000 rw-p 00000000 00:00 0 \n"
           "7f0000003000-7f0000004000 rw-p 00000000 00:00 0\n"
           "7f0000004000-7f0000005000 r-xp 00000000 fe:01 131081             /old/velmora_windows_apo.dll "
           "(deleted)\n"
           "7f0000005000-7f0000006000 rw-s 00000000 00:05 9                  /dev/shm/a [b]\n"
           "7f0000006000-7f0000007000 rw-p 00002000 fe:01 131073             /usr/lib/audio/audiodg.exe\n"
           "7f0000007000-7f0000008000 rw-p 00000000 00:00 0                  [anon: /not/a/file]\n"
           "7f0000008000-7f0000009000 rw-p 00000000 00:0b 4                  anon_inode:[perf_event]\n"
           "7f0000009000-7f000000a000 r--p 00000000 fe:01 131082             /\xC3\xB6/\xC3\xB6.so\n"
           "7ffc00000000-7ffc00021000 rw-p 00000000 00:00 0                  [stack]\n"
           "ffffffffff600000-ffffffffff601000 --xp 00000000 00:00 0          [vsyscall]\n");
  EXPECT_EQ(modules_of(7), (Modules{{u"audiodg.exe", u"/usr/lib/audio/audiodg.exe"},
                                    {u"fse.dll", u"/opt/Velmora Audio/fse.dll"},
                                    {u"velmora_windows_apo.dll", u"/old/velmora_windows_apo.dll"},
                                    {u"a [b]", u"/dev/shm/a [b]"},
                                    {u"\u00F6.so", u"/\u00F6/\u00F6.so"}}));
}

TEST_F(PosixProcessLists, DistinguishTwoFilesOfOneName) {
  const std::string line = "00400000-00401000 r--p 00000000 fe:01 1    ";
  put_maps("7", line + "/a/fse.dll\n" + line + "/b/fse.dll\n" + line + "/b/fse.dll2\n" + line + "/a/FSE.dll");
  EXPECT_EQ(modules_of(7), (Modules{{u"fse.dll", u"/a/fse.dll"},
                                    {u"fse.dll", u"/b/fse.dll"},
                                    {u"fse.dll2", u"/b/fse.dll2"},
                                    {u"FSE.dll", u"/a/FSE.dll"}}));
}

TEST_F(PosixProcessLists, ReadAPathOfTheGreatestLengthWhole) {
  const std::string begin = "7f0000000000-7f0000001000 r--p 00000000 fe:01 18446744073709551615 ";
  for (const std::size_t length : {std::size_t{PATH_MAX - 1}, std::size_t{PATH_MAX}}) {
    SCOPED_TRACE(length);
    const std::string path = "/" + std::string(length - 9, 'a') + "/fse.dll";
    put_maps("7", begin + path + "\n" + begin + "/next.so\n");
    EXPECT_EQ(modules_of(7), (Modules{{u"fse.dll", {path.begin(), path.end()}}, {u"next.so", u"/next.so"}}));
    fs::remove_all(process_directory("7"));
  }
}

TEST_F(PosixProcessLists, ReportThatAProcessHasNoModules) {
  for (const char* lines : {"", "\n", "01000000-01021000 rw-p 00000000 00:00 0      [heap]\n"}) {
    SCOPED_TRACE(lines);
    put_maps("7", lines);
    ModuleSnapshot snapshot;
    ASSERT_EQ(snapshot_modules(7, snapshot), 0u);
    ModuleEntry entry{u"name", u"path"};
    EXPECT_EQ(first_module(snapshot, entry), error_no_more_files);
    EXPECT_FALSE(next_module(snapshot, entry));
    EXPECT_EQ(entry.name, u"name");
    EXPECT_EQ(entry.path, u"path");
    fs::remove_all(process_directory("7"));
  }
}

TEST_F(PosixProcessLists, FailForAProcessThatIsMissingOrCannotBeRead) {
  put_process("8", "/bin/cat");
  surroundings::put_directory(process_directory("9"));
  surroundings::put_directory(process_directory("9") + "/maps");
  const std::pair<std::uint32_t, std::uint32_t> rows[] = {{7, error_no_such_process},
                                                          {8, error_no_such_process},
                                                          {0, error_no_such_process},
                                                          {0xFFFFFFFF, error_no_such_process},
                                                          {9, error_denied}};
  for (const auto& [id, error] : rows) {
    SCOPED_TRACE(id);
    ModuleSnapshot snapshot;
    EXPECT_EQ(snapshot_modules(id, snapshot), error);
    EXPECT_FALSE(snapshot.is_open());
  }
}

int module_error_of_nobody(std::uint32_t id) {
  return answer_of_nobody([id] {
    ModuleSnapshot snapshot;
    return snapshot_modules(id, snapshot);
  });
}

TEST_F(PosixProcessLists, ReportThatTheSystemDeniesALook) {
  put_maps("7", "00400000-00401000 r--p 00000000 fe:01 1    /a\n");
  EXPECT_EQ(chmod((process_directory("7") + "/maps").c_str(), 0), 0);
  for (const std::string& path : {surroundings::scratch_directory(), proc_root(), process_directory("7")}) {
    EXPECT_EQ(chmod(path.c_str(), 0755), 0);
  }
  EXPECT_EQ(module_error_of_nobody(7), static_cast<int>(error_denied));
  EXPECT_EQ(chmod(proc_root().c_str(), 0), 0);
  EXPECT_EQ(answer_of_nobody([] {
              ProcessSnapshot snapshot;
              return snapshot_processes(snapshot);
            }),
            static_cast<int>(error_denied));
}

// A child without root's rights asks about its parent, which keeps them.
TEST_F(PosixProcessLists, NameARealProcessOfSomebodyElseAndDoNotLookIntoIt) {
  unsetenv("VELMORA_PROC");
  const auto parent = static_cast<std::uint32_t>(getpid());
  EXPECT_EQ(answer_of_nobody([parent] {
              ProcessSnapshot snapshot;
              ProcessEntry entry;
              if (snapshot_processes(snapshot) != 0) return 1;
              bool more = first_process(snapshot, entry);
              while (more && entry.process_id != parent) more = next_process(snapshot, entry);
              return more && entry.file_name.starts_with(u"velmora_platfor") ? 0 : 2;
            }),
            0);
  const std::uint32_t error = geteuid() == 0 ? error_denied : 0;
  EXPECT_EQ(module_error_of_nobody(parent), static_cast<int>(error));
}

TEST_F(PosixProcessLists, CallNobodyButRootElevated) {
  EXPECT_EQ(own_process_is_elevated(), geteuid() == 0);
  EXPECT_EQ(answer_of_nobody([] { return own_process_is_elevated(); }), 0);
}

}  // namespace
}  // namespace velmora
