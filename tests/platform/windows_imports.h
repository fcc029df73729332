// Calls that a suite answers in place of the system: it defines __imp_NAME itself, and reaches the system's
// own call through this.
#pragma once

#include <windows.h>

namespace velmora {

template <typename Function>
Function real_call(const wchar_t* library, const char* name) {
  const FARPROC found = GetProcAddress(GetModuleHandleW(library), name);
  return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(found));
}

}  // namespace velmora
