#include <windows.h>

#include "base/text.h"
#include "platform/contract_child.h"
#include "platform/machine.h"

namespace velmora::contract_child {

std::uint32_t start_heir() {
  const std::u16string path = wide_from_utf8(own_module_path());
  std::wstring command = L"\"" + std::wstring(path.begin(), path.end()) + L"\" stay";
  STARTUPINFOW start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION made{};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                      &start, &made))
    return 0;
  CloseHandle(made.hThread);
  CloseHandle(made.hProcess);
  return made.dwProcessId;
}

}  // namespace velmora::contract_child

// The C library would give `main` its arguments in the code page of the system.
int wmain(int argument_count, wchar_t** arguments) {
  std::vector<std::string> texts;
  for (int index = 1; index < argument_count; ++index) {
    const std::wstring text = arguments[index];
    texts.push_back(velmora::utf8_from_wide_replacing(std::u16string(text.begin(), text.end())));
  }
  return velmora::contract_child::run(texts);
}
