// The owner of a handle whose empty value is a null pointer.
#pragma once

#include "platform/owner.h"
#include "platform/windows/native.h"

namespace velmora {

struct HandleKind {
  using Native = HANDLE;
  static constexpr Native none = nullptr;
  static void release(Native native) noexcept { CloseHandle(native); }
};
using Handle = Owner<HandleKind>;

// CreateFileW returns INVALID_HANDLE_VALUE on failure. The last error is kept.
[[nodiscard]] inline Handle own_file(HANDLE file) {
  return Handle(file == INVALID_HANDLE_VALUE ? nullptr : file);
}

}  // namespace velmora
