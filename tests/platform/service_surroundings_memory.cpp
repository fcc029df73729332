// Services and processes of the machine in memory.
#include <string>

#include "memory/system.h"
#include "platform/machine.h"
#include "platform/services_in_memory.h"
#include "platform/surroundings.h"

namespace velmora::surroundings {

void install_service(const ArrangedService& service) { put_service(service); }

void set_up_services() {}

void tear_down_services() { forget_services(); }

void set_up_process_lists() {
  const std::string& path = memory::system().module_path;
  const std::string name = path.substr(path.rfind('/') + 1);
  const ModuleEntry program{{name.begin(), name.end()}, {path.begin(), path.end()}};
  memory::system().processes = {{4, u"System", {}}, {own_process_id(), program.name, {program}}};
}

void ListedProcessKind::release(Native native) noexcept {
  std::erase_if(memory::system().processes,
                [native](const memory::Process& process) { return process.id == native; });
}

ListedProcess start_listed_process() {
  constexpr std::uint32_t id = 4716;
  const std::u16string name = listed_process_name();
  memory::system().processes.push_back({id, name, {{name, u"C:\\Programs\\" + name}}});
  return ListedProcess(id);
}

std::u16string listed_process_name() { return u"player.exe"; }

// The machine does not look into what its program loads: the library's place in the list is made here.
void LoadedLibraryKind::release(Native native) noexcept {
  static_cast<memory::Process*>(native)->modules.pop_back();
}

LoadedLibrary load_listed_library() {
  const std::string path = library_path();
  const std::string name = path.substr(path.rfind('/') + 1);
  memory::Process& own = memory::system().processes.at(1);
  own.modules.push_back({{name.begin(), name.end()}, {path.begin(), path.end()}});
  return LoadedLibrary(&own);
}

bool runs_elevated() {
  memory::system().elevated = true;
  return true;
}

}  // namespace velmora::surroundings
