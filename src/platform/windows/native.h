// Windows' own headers, in the order that they require.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "base/text.h"

namespace velmora {

// Converts wide text to the type that Windows calls take.
[[nodiscard]] inline std::wstring wide_text(std::u16string_view text) { return {text.begin(), text.end()}; }

// Converts wide text from Windows to the type of the platform interface.
[[nodiscard]] inline std::u16string text_of(const wchar_t* text) {
  const std::wstring_view view = text;
  return {view.begin(), view.end()};
}

// Converts a UTF-8 path for Windows calls.
[[nodiscard]] inline std::wstring wide_path(std::string_view path) {
  return wide_text(wide_from_utf8_replacing(path));
}

// Returns the error of a call that has just failed. Never 0, even if the call set no error.
[[nodiscard]] inline std::uint32_t last_error() {
  const DWORD error = GetLastError();
  return error != 0 ? error : ERROR_GEN_FAILURE;
}

// Handles cross the platform seam as numbers. INVALID_HANDLE_VALUE is ~0; null must not cross it.
[[nodiscard]] inline HANDLE handle_of(std::uintptr_t native) { return reinterpret_cast<HANDLE>(native); }
[[nodiscard]] inline std::uintptr_t native_of(HANDLE handle) {
  return reinterpret_cast<std::uintptr_t>(handle);
}

}  // namespace velmora
