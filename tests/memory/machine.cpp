#include "platform/machine.h"

#include "memory/system.h"

namespace velmora {

std::string own_module_path() { return memory::system().module_path; }

void DynamicLibraryKind::release(Native native) noexcept {
  static_cast<void>(memory::enter("FreeLibrary"));
  memory::system().handles.erase(reinterpret_cast<std::uintptr_t>(native));
}

DynamicLibrary load_library(std::string_view path) {
  static_cast<void>(memory::enter("LoadLibraryW"));
  if (!memory::system().libraries.contains(std::string(path))) return {};
  memory::Handle handle;
  handle.what = "library";
  handle.path = path;
  return DynamicLibrary(reinterpret_cast<void*>(memory::add_handle(std::move(handle))));
}

LibraryFunction find_library_function(const DynamicLibrary& library, const char* name) {
  const auto number = reinterpret_cast<std::uintptr_t>(library.native());
  const auto& functions = memory::system().libraries.at(memory::system().handles.at(number).path).functions;
  const auto function = functions.find(name);
  return function == functions.end() ? nullptr : function->second;
}

std::int32_t start_com() {
  static_cast<void>(memory::enter("CoInitializeEx"));
  if (memory::system().com_result >= 0) ++memory::system().com_started;
  return memory::system().com_result;
}

void stop_com() {
  static_cast<void>(memory::enter("CoUninitialize"));
  --memory::system().com_started;
}

void prepare_process() {}

bool write_standard_output(std::string_view text) {
  if (memory::enter("stdout") != 0) return false;
  memory::system().standard_output += text;
  return true;
}
void write_standard_error(std::string_view text) {
  static_cast<void>(memory::enter("stderr"));
  memory::system().standard_error += text;
}

void install_console_handler(bool (*handler)(std::uint32_t event)) {
  static_cast<void>(memory::enter("SetConsoleCtrlHandler"));
  memory::system().console_handler = handler;
}

std::intptr_t open_in_browser(std::string_view address) {
  static_cast<void>(memory::enter("ShellExecuteW"));
  memory::system().browser_addresses.emplace_back(address);
  return memory::system().browser_result;
}

bool fill_random(unsigned char* buffer, std::size_t size) {
  static_cast<void>(memory::enter("BCryptGenRandom"));
  if (!memory::system().random_available) return false;
  // Known bytes, so that tests see how they are written: 0xF0, 0xF1 and so on.
  for (std::size_t index = 0; index < size; ++index) buffer[index] = static_cast<unsigned char>(0xF0 + index);
  return true;
}

std::string machine_identifier() { return memory::system().machine_identifier; }

std::string machine_name() { return "machine"; }

std::u16string environment_variable(std::u16string_view name) {
  const auto& variables = memory::system().environment;
  const auto variable = variables.find(std::u16string(name));
  return variable == variables.end() ? std::u16string() : variable->second;
}

std::string load_machine() { return memory::system().machine_trouble; }

std::uint32_t own_process_id() { return 4711; }

}  // namespace velmora
