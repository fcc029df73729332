// One file because it mirrors one source: the probe of the installation and the probe of the engine's
// process.
#include "engine/probes.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "base/text.h"
#include "unit/binding/support/endpoint_machine.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

const char* word(bool value) { return value ? "true" : "false"; }

// A probe's result as one line.
std::string text_of(const EffectInstallState& state) {
  return std::string("elevated ") + word(state.elevated) + ", clsid " + word(state.clsid_registered) +
         ", protected off " + word(state.protected_audio_dg_disabled) + ", dll " +
         word(state.apo_dll_present) + ", algorithm " + word(state.algorithm_present) + ", path [" +
         state.apo_dll_path + "]";
}
std::string text_of(const AudioEngineState& state) {
  return std::string("running ") + word(state.running) + ", id " + std::to_string(state.process_id) +
         ", effect " + word(state.apo_loaded) + ", algorithm " + word(state.algorithm_loaded) + ", path [" +
         state.apo_module_path + "], error " + std::to_string(state.error_code);
}
// A result that differs from the default only by what is registered.
std::string registered(bool clsid, bool dll, bool algorithm, const std::string& path) {
  EffectInstallState state;
  state.clsid_registered = clsid;
  state.apo_dll_present = dll;
  state.algorithm_present = algorithm;
  state.apo_dll_path = path;
  return text_of(state);
}
const std::string nothing_registered = registered(false, false, false, "");

const std::string class_path =
    "SOFTWARE\\Classes\\CLSID\\{631D9145-CACF-44D7-861B-5D82ADD8C84F}\\InprocServer32";
const std::string environment_path = "SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
const std::string audio_path = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Audio";

void put_value(const std::string& path, std::string_view name, std::uint32_t type, const std::string& bytes) {
  endpoint::put(endpoint::key_at(memory::system().state.registry, path), name, endpoint::Value{type, bytes});
}
void register_library(std::u16string_view path) {
  put_value(class_path, "", endpoint::type_sz, endpoint::unit_bytes(std::u16string(path) + u'\0'));
}
void put_file(const std::string& path, FileKind kind = FileKind::regular) {
  memory::system().files[path].kind = kind;
}

class InstallProbe : public FreshMachine {};

TEST_F(InstallProbe, FindsNothingOnAnEmptyMachine) {
  EXPECT_EQ(text_of(probe_effect_install()), nothing_registered);
}

TEST_F(InstallProbe, FindsACompleteInstallation) {
  memory::system().elevated = true;
  register_library(u"C:\\Program Files\\Velmora\\velmora_windows_apo.dll");
  for (const std::string file : {"velmora_windows_apo.dll", "fse.dll", "model_weights.bin"}) {
    put_file("C:\\Program Files\\Velmora\\" + file);
  }
  put_value(audio_path, "DisableProtectedAudioDG", endpoint::type_dword, endpoint::number_bytes(1, 4));
  EXPECT_EQ(text_of(probe_effect_install()),
            "elevated true, clsid true, protected off true, dll true, algorithm true, path [C:\\Program "
            "Files\\Velmora\\velmora_windows_apo.dll]");
}

TEST_F(InstallProbe, QueriesTheMachineEachTime) {
  register_library(u"C:\\a\\x.dll");
  put_file("C:\\a\\x.dll");
  EXPECT_EQ(text_of(probe_effect_install()), registered(true, true, false, "C:\\a\\x.dll"));
  memory::system().files.clear();
  EXPECT_EQ(text_of(probe_effect_install()), registered(true, false, false, "C:\\a\\x.dll"));
  memory::system().state.registry = {};
  EXPECT_EQ(text_of(probe_effect_install()), nothing_registered);
}

TEST_F(InstallProbe, ReportsWhetherItRunsElevated) {
  EXPECT_FALSE(probe_effect_install().elevated);
  memory::system().elevated = true;
  EXPECT_TRUE(probe_effect_install().elevated);
  memory::system().faults["GetTokenInformation"] = {5};
  register_library(u"C:\\a\\x.dll");
  EXPECT_EQ(text_of(probe_effect_install()), registered(true, false, false, "C:\\a\\x.dll"));
}

std::u16string path_of_length(std::size_t units) {
  return u"C:\\" + std::u16string(units - 9, u'a') + u"\\b.dll";
}

TEST_F(InstallProbe, AcceptsEachRegisteredText) {
  using endpoint::unit_bytes;
  const std::string longest = "C:\\" + std::string(250, 'a') + "\\b.dll";
  ASSERT_EQ(longest.size(), 259u);
  const std::u16string nul(1, u'\0');
  const struct {
    std::string what;
    std::uint32_t type;
    std::string bytes;
    std::string path;
  } rows[] = {
      {"a text", endpoint::type_sz, unit_bytes(u"C:\\a\\b.dll" + nul), "C:\\a\\b.dll"},
      {"a text without its terminator", endpoint::type_sz, unit_bytes(u"C:\\a\\b.dll"), "C:\\a\\b.dll"},
      {"a text with two terminators", endpoint::type_sz, unit_bytes(u"C:\\a\\b.dll" + nul + nul),
       "C:\\a\\b.dll"},
      {"a text to expand", endpoint::type_expand_sz, unit_bytes(u"%Place%\\b.dll" + nul), "C:\\a\\b.dll"},
      {"a text to expand without its terminator", endpoint::type_expand_sz, unit_bytes(u"%Place%\\b.dll"),
       "C:\\a\\b.dll"},
      {"a text to expand with a variable that there is none", endpoint::type_expand_sz,
       unit_bytes(u"%None%\\b.dll" + nul), "%None%\\b.dll"},
      {"a text that is not to be expanded", endpoint::type_sz, unit_bytes(u"%Place%\\b.dll" + nul),
       "%Place%\\b.dll"},
      {"an embedded NUL", endpoint::type_sz, unit_bytes(u"C:\\a\\b.dll" + nul + u"c.dll" + nul),
       "C:\\a\\b.dll"},
      {"a NUL in front", endpoint::type_sz, unit_bytes(nul + u"C:\\a\\b.dll" + nul), ""},
      {"an empty text", endpoint::type_sz, unit_bytes(nul), ""},
      {"no byte at all", endpoint::type_sz, "", ""},
      {"259 characters", endpoint::type_sz, unit_bytes(path_of_length(259) + nul), longest},
      {"259 characters without a terminator", endpoint::type_sz, unit_bytes(path_of_length(259)), longest},
      {"259 characters once they are expanded", endpoint::type_expand_sz, unit_bytes(u"%Long%\\b.dll" + nul),
       longest},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    memory::reset();
    put_value(environment_path, "Place", endpoint::type_sz, unit_bytes(u"C:\\a" + nul));
    put_value(environment_path, "Long", endpoint::type_sz,
              unit_bytes(path_of_length(259).substr(0, 253) + nul));
    put_value(class_path, "", row.type, row.bytes);
    if (!row.path.empty()) put_file(row.path);
    EXPECT_EQ(text_of(probe_effect_install()), registered(true, !row.path.empty(), false, row.path));
  }
}

TEST_F(InstallProbe, IgnoresEverythingElse) {
  using namespace endpoint;
  const std::u16string nul(1, u'\0');
  const std::string text = text_bytes("C:\\a\\b.dll");
  const std::string other_class =
      "SOFTWARE\\Classes\\CLSID\\{631D9145-CACF-44D7-861B-5D82ADD8C84E}\\InprocServer32";
  const struct {
    std::string what;
    std::string key;
    std::string name;
    Value value;
  } rows[] = {
      {"a class id without a server", class_path.substr(0, class_path.rfind('\\')), "", {type_sz, text}},
      {"a server with a named value", class_path, "b", {type_sz, text}},
      {"a key below the server", class_path + "\\x", "", {type_sz, text}},
      {"another server", class_path.substr(0, class_path.size() - 2), "", {type_sz, text}},
      {"another class id", other_class, "", {type_sz, text}},
      {"a number", class_path, "", {type_dword, number_bytes(1, 4)}},
      {"a large number", class_path, "", {type_qword, number_bytes(1, 8)}},
      {"a list", class_path, "", {type_multi_sz, text + unit_bytes(nul)}},
      {"bytes", class_path, "", {type_binary, text}},
      {"no type", class_path, "", {0, text}},
      {"260 characters", class_path, "", {type_sz, unit_bytes(path_of_length(260) + nul)}},
      {"260 characters without a terminator", class_path, "", {type_sz, unit_bytes(path_of_length(260))}},
      {"260 characters once expanded", class_path, "", {type_expand_sz, unit_bytes(u"%Long%\\b.dll" + nul)}},
  };
  const auto expect_nothing = [] {
    put_file("C:\\a\\b.dll");
    // An empty path would lead to the files without a directory.
    for (const std::string directory : {"C:\\a\\", ""}) {
      put_file(directory + "fse.dll");
      put_file(directory + "model_weights.bin");
    }
    EXPECT_EQ(text_of(probe_effect_install()), nothing_registered);
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    memory::reset();
    put_value(environment_path, "Long", type_sz, unit_bytes(path_of_length(260).substr(0, 254) + nul));
    put_value(row.key, row.name, row.value.type, row.value.bytes);
    expect_nothing();
  }
  memory::reset();
  expect_nothing();
  put_value(class_path, "", type_sz, text);
  memory::system().faults["RegGetValueW"] = {31};
  expect_nothing();
  grant_access(class_path, 0x20000);
  expect_nothing();
}

TEST_F(InstallProbe, ChecksEachFileIndependently) {
  using Kind = std::optional<FileKind>;
  const Kind kinds[] = {std::nullopt, FileKind::regular, FileKind::directory, FileKind::other};
  register_library(u"C:\\a\\b.dll");
  for (const Kind library : kinds) {
    for (const Kind algorithm : kinds) {
      for (const Kind weights : kinds) {
        const auto number = [](Kind kind) { return kind ? std::to_string(static_cast<int>(*kind)) : "-"; };
        SCOPED_TRACE("kinds " + number(library) + " " + number(algorithm) + " " + number(weights));
        memory::system().files.clear();
        if (library) put_file("C:\\a\\b.dll", *library);
        if (algorithm) put_file("C:\\a\\fse.dll", *algorithm);
        if (weights) put_file("C:\\a\\model_weights.bin", *weights);
        EXPECT_EQ(text_of(probe_effect_install()),
                  registered(true, library == FileKind::regular,
                             algorithm == FileKind::regular && weights == FileKind::regular, "C:\\a\\b.dll"));
      }
    }
  }
}

TEST_F(InstallProbe, LooksForNeighboursInTheLibrarysDirectory) {
  const struct {
    std::u16string registered;
    std::string directory;  // with its last separator
  } rows[] = {
      {u"C:\\a\\b\\c.dll", "C:\\a\\b\\"},
      {u"C:\\c.dll", "C:\\"},
      {u"c.dll", ""},
      {u"C:\\a/b/c.dll", "C:\\a/b\\"},
      {u"C:\\a b\\c", "C:\\a b\\"},
      {u"/opt/velmora/c.so", "/opt/velmora/"},
      {u"C:\\a\\b\\", "C:\\a\\b\\"},
      {u"c:\\A.dll\\c.dll", "c:\\A.dll\\"},
      {u"", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE("[" + row.directory + "]");
    memory::reset();
    register_library(row.registered);
    for (const std::string directory : {"", "/", "C:\\", "C:\\a\\", "C:\\a\\b\\", "C:\\a/b\\", "C:\\a b\\",
                                        "/opt/", "/opt/velmora/", "c:\\A.dll\\", "/opt/velmora/c.so/"}) {
      if (directory == row.directory) continue;
      put_file(directory + "fse.dll");
      put_file(directory + "model_weights.bin");
    }
    EXPECT_FALSE(probe_effect_install().algorithm_present);
    put_file(row.directory + "fse.dll");
    EXPECT_FALSE(probe_effect_install().algorithm_present);
    put_file(row.directory + "model_weights.bin");
    EXPECT_TRUE(probe_effect_install().algorithm_present);
  }
}

TEST_F(InstallProbe, ShowsQuestionMarksForNonAsciiPathsButFindsTheFiles) {
  const struct {
    std::u16string directory;
    std::string on_disk;  // UTF-8
    std::string shown;
  } rows[] = {
      {u"C:\\Musik\u00E4\\", "C:\\Musik\xC3\xA4\\", "C:\\Musik?\\"},
      {u"C:\\\u97F3\u697D\\", "C:\\\xE9\x9F\xB3\xE6\xA5\xBD\\", "C:\\??\\"},
      {u"C:\\\U0001F3A7\\", "C:\\\xF0\x9F\x8E\xA7\\", "C:\\??\\"},
      {u"C:\\\u007F\u0080\\", "C:\\\x7F\xC2\x80\\", "C:\\\x7F?\\"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.shown);
    memory::reset();
    register_library(row.directory + u"b.dll");
    // These are others.
    for (const char* name : {"b.dll", "fse.dll", "model_weights.bin"}) put_file(row.shown + name);
    EXPECT_EQ(text_of(probe_effect_install()), registered(true, false, false, row.shown + "b.dll"));
    for (const char* name : {"b.dll", "fse.dll", "model_weights.bin"}) put_file(row.on_disk + name);
    EXPECT_EQ(text_of(probe_effect_install()), registered(true, true, true, row.shown + "b.dll"));
  }
}

TEST_F(InstallProbe, ReportsProtectedAudioOffOnlyForTheNumber1) {
  using namespace endpoint;
  const std::string name = "DisableProtectedAudioDG";
  const struct {
    std::string key;
    std::string name;
    Value value;
    bool off;
  } rows[] = {
      {audio_path, name, {type_dword, number_bytes(1, 4)}, true},
      {"software\\microsoft\\windows nt\\currentversion\\AUDIO",
       "disableprotectedaudiodg",
       {type_dword, number_bytes(1, 4)},
       true},
      {audio_path, name, {type_dword, number_bytes(0, 4)}, false},
      {audio_path, name, {type_dword, number_bytes(2, 4)}, false},
      {audio_path, name, {type_dword, number_bytes(257, 4)}, false},
      {audio_path, name, {type_dword, number_bytes(0xFFFFFFFF, 4)}, false},
      {audio_path, name, {type_dword, number_bytes(1, 8)}, false},
      {audio_path, name, {type_sz, text_bytes("1")}, false},
      {audio_path, name, {type_binary, number_bytes(1, 4)}, false},
      {audio_path, name, {type_qword, number_bytes(1, 8)}, false},
      {audio_path, "DisableProtectedAudio", {type_dword, number_bytes(1, 4)}, false},
      {"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Audio", name, {type_dword, number_bytes(1, 4)}, false},
  };
  for (const bool is_registered : {false, true}) {
    memory::reset();
    if (is_registered) register_library(u"C:\\a\\b.dll");
    const hosted::RegistryTree before = memory::system().state.registry;
    for (const auto& row : rows) {
      SCOPED_TRACE(&row - rows);
      memory::system().state.registry = before;
      put_value(row.key, row.name, row.value.type, row.value.bytes);
      const EffectInstallState state = probe_effect_install();
      EXPECT_EQ(state.protected_audio_dg_disabled, row.off);
      EXPECT_EQ(state.clsid_registered, is_registered);
    }
  }
  put_value(audio_path, name, type_dword, number_bytes(1, 4));
  memory::system().faults["RegGetValueW"] = {0, 5};
  EXPECT_FALSE(probe_effect_install().protected_audio_dg_disabled);
}

const std::u16string effect_dll = u"velmora_windows_apo.dll";
const ModuleEntry program_module{u"audiodg.exe", u"C:\\Windows\\System32\\audiodg.exe"};
const ModuleEntry effect_module{effect_dll, u"C:\\Velmora\\velmora_windows_apo.dll"};
const ModuleEntry algorithm_module{u"fse.dll", u"C:\\Velmora\\fse.dll"};

std::string engine(std::uint32_t id, bool effect, bool algorithm, const std::string& path,
                   std::int32_t error = 0) {
  return text_of(AudioEngineState{true, id, effect, algorithm, path, error});
}
std::string no_engine(std::int32_t error = 0) {
  return text_of(AudioEngineState{false, 0, false, false, "", error});
}

class EngineProbe : public FreshMachine {
 protected:
  // Only the engine's process runs, with these modules after its program.
  static void put_engine(std::vector<ModuleEntry> modules) {
    modules.insert(modules.begin(), program_module);
    memory::system().processes = {{4321, u"audiodg.exe", std::move(modules)}};
  }
  static std::string probe() {
    const AudioEngineState state = probe_audio_engine();
    EXPECT_TRUE(memory::system().handles.empty());
    return text_of(state);
  }
};

TEST_F(EngineProbe, ReportsNoEngineWithoutAnError) {
  memory::system().processes = {{0, u"", {}}, {4, u"System", {}}, {100, u"player.exe", {effect_module}}};
  EXPECT_EQ(probe(), "running false, id 0, effect false, algorithm false, path [], error 0");
  memory::system().processes.clear();
  EXPECT_EQ(probe(), no_engine());
}

TEST_F(EngineProbe, FindsTheEngineAmongOtherProcesses) {
  memory::system().processes = {{4, u"System", {}},
                                {100, u"player.exe", {effect_module, algorithm_module}},
                                {4321, u"audiodg.exe", {program_module, effect_module, algorithm_module}},
                                {9, u"later.exe", {}}};
  EXPECT_EQ(probe(),
            "running true, id 4321, effect true, algorithm true, path "
            "[C:\\Velmora\\velmora_windows_apo.dll], error 0");
}

TEST_F(EngineProbe, ReportsTheFirstOfSeveralEngines) {
  memory::system().processes = {{7, u"AUDIODG.exe", {program_module}},
                                {8, u"audiodg.exe", {program_module, effect_module}}};
  EXPECT_EQ(probe(), engine(7, false, false, ""));
  std::swap(memory::system().processes[0], memory::system().processes[1]);
  EXPECT_EQ(probe(), engine(8, true, false, "C:\\Velmora\\velmora_windows_apo.dll"));
}

TEST_F(EngineProbe, ReportsAllBitsOfAProcessId) {
  for (const std::uint32_t id : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFCu}) {
    memory::system().processes = {{id, u"audiodg.exe", {program_module}}};
    EXPECT_EQ(probe(), engine(id, false, false, ""));
  }
}

TEST_F(EngineProbe, MatchesTheEnginesNameInAnyCase) {
  for (const std::u16string name : {u"audiodg.exe", u"AudioDG.EXE", u"AUDIODG.EXE", u"audioDG.exe"}) {
    memory::system().processes = {{5, name, {program_module}}};
    EXPECT_EQ(probe(), engine(5, false, false, "")) << utf8_from_wide_replacing(name);
  }
}

TEST_F(EngineProbe, IgnoresProcessesOfOtherNames) {
  for (const std::u16string name :
       {u"", u"audiodg", u"audiodg.ex", u"audiodg.exe ", u" audiodg.exe", u"audiodg.exe.exe", u"xaudiodg.exe",
        u"audiodh.exe", u"audiodg\u000Eexe", u"audiodgNexe", u"aud\u0131odg.exe", u"AUD\u0130ODG.EXE",
        u"audiodg.e\uFF58e", u"C:\\audiodg.exe", u"audio.exe"}) {
    memory::system().processes = {{5, name, {program_module}}};
    EXPECT_EQ(probe(), no_engine()) << utf8_from_wide_replacing(name);
  }
}

TEST_F(EngineProbe, MatchesModuleNamesInAnyCase) {
  const std::string path = "C:\\Velmora\\velmora_windows_apo.dll";
  const struct {
    std::string what;
    std::vector<ModuleEntry> modules;
    std::string result;
  } rows[] = {
      {"none", {}, engine(4321, false, false, "")},
      {"the effect", {effect_module}, engine(4321, true, false, path)},
      {"the algorithm", {algorithm_module}, engine(4321, false, true, "")},
      {"both", {effect_module, algorithm_module}, engine(4321, true, true, path)},
      {"both the other way round", {algorithm_module, effect_module}, engine(4321, true, true, path)},
      {"both with others between",
       {{u"ntdll.dll", u"x"}, algorithm_module, {u"a.dll", u"y"}, effect_module, {u"b.dll", u"z"}},
       engine(4321, true, true, path)},
      {"other cases",
       {{u"VELMORA_Windows_APO.DLL", u"D:\\E.dll"}, {u"FSE.Dll", u"D:\\F.dll"}},
       engine(4321, true, true, "D:\\E.dll")},
      {"the effect twice",
       {effect_module, {effect_dll, u"D:\\second.dll"}, algorithm_module},
       engine(4321, true, true, "D:\\second.dll")},
      {"the effect twice, the second without a path",
       {effect_module, {effect_dll, u""}},
       engine(4321, true, false, "")},
      {"the algorithm twice", {algorithm_module, algorithm_module}, engine(4321, false, true, "")},
      {"a path that is not ASCII",
       {{effect_dll, u"C:\\\u00E4\u97F3\U0001F3A7\u007F\u0080.dll"}},
       engine(4321, true, false, "C:\\????\x7F?.dll")},
      {"names that only begin or end alike",
       {{u"velmora_windows_apo.dll.bak", u"a"},
        {u"velmora_windows_apo", u"a"},
        {u"xvelmora_windows_apo.dll", u"a"},
        {u"velmora-windows-apo.dll", u"a"},
        {u"velmora\u007Fwindows_apo.dll", u"a"},
        {u"fse", u"a"},
        {u"fse.dll2", u"a"},
        {u"xfse.dll", u"a"},
        {u"", effect_module.path}},
       engine(4321, false, false, "")},
      {"only a path", {{u"other.dll", effect_module.path}}, engine(4321, false, false, "")},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_engine(row.modules);
    EXPECT_EQ(probe(), row.result);
  }
}

TEST_F(EngineProbe, ReportsWhyProcessesOrModulesCannotBeListed) {
  put_engine({effect_module});
  for (const std::int32_t error : {5, 8, 18, 24, 31, 87, 299}) {
    const std::int32_t status = endpoint::from_win32(error);
    memory::system().faults["CreateToolhelp32Snapshot processes"] = {error};
    EXPECT_EQ(probe(), no_engine(status));
    for (const std::string call : {"CreateToolhelp32Snapshot modules", "Module32FirstW"}) {
      memory::system().faults[call] = {error};
      EXPECT_EQ(probe(), engine(4321, false, false, "", status)) << call;
    }
  }
  memory::system().processes = {{4321, u"audiodg.exe", {}}};
  EXPECT_EQ(probe(), engine(4321, false, false, "", endpoint::from_win32(18)));
}

TEST_F(EngineProbe, KeepsResultsFromBeforeAWalkBreaksOff) {
  memory::system().processes = {{4, u"System", {}}, {5, u"x.exe", {}}, {4321, u"audiodg.exe", {}}};
  memory::system().faults["Process32FirstW"] = {18};
  EXPECT_EQ(probe(), no_engine());
  memory::system().faults["Process32NextW"] = {0, 18};
  EXPECT_EQ(probe(), no_engine());
  put_engine({algorithm_module, effect_module});
  memory::system().faults["Module32NextW"] = {0, 5};
  EXPECT_EQ(probe(), engine(4321, false, true, ""));
}

TEST_F(EngineProbe, QueriesTheMachineEachTime) {
  put_engine({effect_module, algorithm_module});
  EXPECT_EQ(probe(), engine(4321, true, true, "C:\\Velmora\\velmora_windows_apo.dll"));
  memory::system().processes[0].id = 99;
  memory::system().processes[0].modules.resize(1);
  EXPECT_EQ(probe(), engine(99, false, false, ""));
  memory::system().processes.clear();
  EXPECT_EQ(probe(), no_engine());
}

// Another program changes the machine just before the given call of this name (counted from 1).
void before(const std::string& call, int number, const std::function<void()>& act) {
  memory::system().before_machine_call = [call, number, act, seen = 0](const std::string& entry) mutable {
    if (entry == call && ++seen == number) act();
  };
}

TEST_F(EngineProbe, SurvivesChangesOfProcessesDuringTheWalk) {
  const std::vector<memory::Process> three = {
      {4, u"System", {}}, {5, u"x.exe", {}}, {4321, u"audiodg.exe", {program_module, effect_module}}};
  const std::string found = engine(4321, true, false, "C:\\Velmora\\velmora_windows_apo.dll");
  const struct {
    std::string what;
    std::string call;
    int number;
    std::function<void(std::vector<memory::Process>&)> act;
    std::string result;
  } rows[] = {
      {"all end before the first", "Process32FirstW", 1, [](auto& all) { all.clear(); }, no_engine()},
      {"all end after the first", "Process32NextW", 1, [](auto& all) { all.clear(); }, no_engine()},
      {"the first ends and one is passed over", "Process32NextW", 1,
       [](auto& all) { all.erase(all.begin()); }, found},
      {"the engine moves to where the walk has been", "Process32NextW", 2,
       [](auto& all) { std::swap(all[0], all[2]); }, no_engine()},
      {"many begin", "Process32NextW", 1,
       [](auto& all) {
         all.insert(all.begin(), 1000, memory::Process{1, u"y.exe", {}});
       },
       found},
      {"the engine ends before its modules are listed", "CreateToolhelp32Snapshot modules", 1,
       [](auto& all) { all.clear(); }, engine(4321, false, false, "", endpoint::from_win32(87))},
      {"the engine ends behind the list of its modules", "Module32FirstW", 1, [](auto& all) { all.clear(); },
       engine(4321, false, false, "", endpoint::from_win32(18))},
      {"the engine ends between its modules", "Module32NextW", 1, [](auto& all) { all.clear(); },
       engine(4321, false, false, "")},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    memory::system().processes = three;
    bool acted = false;
    before(row.call, row.number, [&] {
      acted = true;
      row.act(memory::system().processes);
    });
    EXPECT_EQ(probe(), row.result);
    EXPECT_TRUE(acted);
  }
}

TEST_F(EngineProbe, SurvivesChangesOfModulesDuringTheWalk) {
  using Modules = std::vector<ModuleEntry>;
  const std::string path = "C:\\Velmora\\velmora_windows_apo.dll";
  const struct {
    std::string what;
    std::string call;
    int number;
    std::function<void(Modules&)> act;
    std::string result;
  } rows[] = {
      {"the effect is loaded", "Module32FirstW", 1, [](Modules& all) { all.push_back(effect_module); },
       engine(4321, true, true, path)},
      {"the effect is loaded behind the last", "Module32NextW", 3,
       [](Modules& all) { all.push_back(effect_module); }, engine(4321, true, true, path)},
      {"all go before the first", "Module32FirstW", 1, [](Modules& all) { all.clear(); },
       engine(4321, false, false, "", endpoint::from_win32(18))},
      {"all go behind the first", "Module32NextW", 1, [](Modules& all) { all.clear(); },
       engine(4321, false, false, "")},
      {"the first goes and one is passed over", "Module32NextW", 1,
       [](Modules& all) { all.erase(all.begin(), all.begin() + 2); }, engine(4321, false, false, "")},
      {"one that was seen goes", "Module32NextW", 3, [](Modules& all) { all.resize(1); },
       engine(4321, false, true, "")},
      {"many come in front and are seen again", "Module32NextW", 2,
       [](Modules& all) { all.insert(all.begin(), 1000, effect_module); }, engine(4321, true, true, path)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    put_engine({{u"ntdll.dll", u"x"}, algorithm_module});
    bool acted = false;
    before(row.call, row.number, [&] {
      acted = true;
      row.act(memory::system().processes[0].modules);
    });
    EXPECT_EQ(probe(), row.result);
    EXPECT_TRUE(acted);
  }
}

}  // namespace
}  // namespace velmora
