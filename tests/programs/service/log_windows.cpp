#include "log_windows.h"

#include <windows.h>

#include <cstdint>

namespace velmora::service {
namespace {

std::uint64_t now_ms() {
  constexpr std::uint64_t units_per_ms = 10'000;  // of 100 ns
  constexpr std::uint64_t from_1601_to_1970_ms = 11'644'473'600'000;
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  const std::uint64_t units = (std::uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime;
  return units / units_per_ms - from_1601_to_1970_ms;
}

std::string narrow(const std::wstring& wide) {
  const auto length = static_cast<int>(wide.size());
  std::string text(wide.size() * 3, '\0');
  const int size = WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, text.data(),
                                       static_cast<int>(text.size()), nullptr, nullptr);
  return text.substr(0, static_cast<std::size_t>(size));
}

}  // namespace

void append_to_log(const std::wstring& file, const std::wstring& name, const char* word) {
  if (file.empty()) return;
  const std::string line = std::to_string(now_ms()) + ' ' + narrow(name) + ' ' + word + '\n';
  const HANDLE log = CreateFileW(file.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                 OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (log == INVALID_HANDLE_VALUE) return;
  // In one piece: other services may log to the same file.
  DWORD written = 0;
  WriteFile(log, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  CloseHandle(log);
}

}  // namespace velmora::service
