#include "platform/machine.h"

#include "memory/system.h"

namespace velmora {

std::string own_module_path() { return standin::system().module_path; }

void DynamicLibraryKind::release(Native native) noexcept {
  static_cast<void>(standin::enter("FreeLibrary"));
  standin::system().handles.erase(reinterpret_cast<std::uintptr_t>(native));
}

DynamicLibrary load_library(std::string_view path) {
  static_cast<void>(standin::enter("LoadLibraryW"));
  if (!standin::system().libraries.contains(std::string(path))) return {};
  standin::Handle handle;
  handle.what = "library";
  handle.path = path;
  return DynamicLibrary(reinterpret_cast<void*>(standin::add_handle(std::move(handle))));
}

LibraryFunction find_library_function(const DynamicLibrary& library, const char* name) {
  const auto number = reinterpret_cast<std::uintptr_t>(library.native());
  const auto& functions = standin::system().libraries.at(standin::system().handles.at(number).path).functions;
  const auto function = functions.find(name);
  return function == functions.end() ? nullptr : function->second;
}

std::int32_t start_com() {
  static_cast<void>(standin::enter("CoInitializeEx"));
  if (standin::system().com_result >= 0) ++standin::system().com_started;
  return standin::system().com_result;
}

void stop_com() {
  static_cast<void>(standin::enter("CoUninitialize"));
  --standin::system().com_started;
}

void prepare_process() {}

void write_standard_output(std::string_view text) {
  static_cast<void>(standin::enter("stdout"));
  standin::system().standard_output += text;
}
void write_standard_error(std::string_view text) {
  static_cast<void>(standin::enter("stderr"));
  standin::system().standard_error += text;
}

void install_console_handler(bool (*handler)(std::uint32_t event)) {
  static_cast<void>(standin::enter("SetConsoleCtrlHandler"));
  standin::system().console_handler = handler;
}

std::intptr_t open_in_browser(std::string_view address) {
  static_cast<void>(standin::enter("ShellExecuteW"));
  standin::system().browser_addresses.emplace_back(address);
  return standin::system().browser_result;
}

bool fill_random(unsigned char* buffer, std::size_t size) {
  static_cast<void>(standin::enter("BCryptGenRandom"));
  if (!standin::system().random_available) return false;
  // Known bytes, so that tests can tell how they are written: 0xF0, 0xF1, ... round the byte.
  for (std::size_t index = 0; index < size; ++index) buffer[index] = static_cast<unsigned char>(0xF0 + index);
  return true;
}

std::string machine_identifier() { return standin::system().machine_identifier; }

std::string machine_name() { return "machine"; }

std::u16string environment_variable(std::u16string_view name) {
  const auto& variables = standin::system().environment;
  const auto variable = variables.find(std::u16string(name));
  return variable == variables.end() ? std::u16string() : variable->second;
}

std::string load_machine() { return standin::system().machine_trouble; }

std::uint32_t own_process_id() { return 4711; }

}  // namespace velmora
