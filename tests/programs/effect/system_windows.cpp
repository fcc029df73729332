#include "system.h"

#include <windows.h>

#include <string>

#include "base/text.h"

namespace velmora::effect {

std::filesystem::path capture_path(const std::string& text) { return wide_from_utf8_replacing(text); }

// Without a security descriptor: Wine does not know one of the trustees in the service's.
std::optional<std::uint32_t> make_mapping(std::u16string_view name, std::size_t size, SharedMapping& out,
                                          bool& already_existed) {
  const std::wstring wide_name(name.begin(), name.end());
  const HANDLE handle = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                           static_cast<DWORD>(size), wide_name.c_str());
  const DWORD error = GetLastError();
  if (handle == nullptr) return error;
  out = SharedMapping(reinterpret_cast<SharedMapping::Native>(handle));
  already_existed = error == ERROR_ALREADY_EXISTS;
  return std::nullopt;
}

}  // namespace velmora::effect
