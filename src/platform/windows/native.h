// Windows' own headers, once, in the order that they need.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "base/text.h"

namespace velmora {

// Wide text as the calls take it.
[[nodiscard]] inline std::wstring wide_text(std::u16string_view text) { return {text.begin(), text.end()}; }

// Wide text as the seam hands it out.
[[nodiscard]] inline std::u16string text_of(const wchar_t* text) {
  const std::wstring_view view = text;
  return {view.begin(), view.end()};
}

// A path above the seam (UTF-8) as the calls take it.
[[nodiscard]] inline std::wstring wide_path(std::string_view path) {
  return wide_text(wide_from_utf8_replacing(path));
}

// What a call that has just failed says of it. One that says nothing has failed all the same.
[[nodiscard]] inline std::uint32_t last_error() {
  const DWORD error = GetLastError();
  return error != 0 ? error : ERROR_GEN_FAILURE;
}

// Handles cross the seam as numbers, with every empty value as `~0`.
[[nodiscard]] inline HANDLE handle_of(std::uintptr_t native) { return reinterpret_cast<HANDLE>(native); }
[[nodiscard]] inline std::uintptr_t native_of(HANDLE handle) {
  return reinterpret_cast<std::uintptr_t>(handle);
}

}  // namespace velmora
