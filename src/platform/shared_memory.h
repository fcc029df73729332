// Named memory that lives for as long as any process holds it. A call that fails returns its Win32 error code
// on every system (winerror.h), which Windows may leave at 0; one that succeeds returns no value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/owner.h"

namespace velmora {

struct SharedMappingKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;  // CloseHandle
};
// Owner of an open mapping object. Close its views first: elsewhere than on Windows it is the mapping's
// owner alone that keeps the object alive. The last holder's close ends the object and its contents.
using SharedMapping = Owner<SharedMappingKind>;

struct SharedViewKind {
  struct Native {
    void* data;        // aligned to a page
    std::size_t size;  // bytes
    bool operator==(const Native&) const = default;
  };
  static constexpr Native none{nullptr, 0};
  static void release(Native native) noexcept;  // UnmapViewOfFile
};
// Owner of a view: memory that is readable and writable until the owner closes.
using SharedView = Owner<SharedViewKind>;

// How making a mapping ended. It succeeded when neither error has a value.
struct CreatedMapping {
  std::optional<std::uint32_t> descriptor_error;  // of ConvertStringSecurityDescriptorToSecurityDescriptorW
  std::optional<std::uint32_t> create_error;      // of CreateFileMappingW
  bool already_existed;                           // another process made it first (ERROR_ALREADY_EXISTS, 183)
};

// OpenFileMappingW for reading and writing (access 6), not inherited. A missing object is 2, a denied one 5.
// `out` is assigned on success alone.
[[nodiscard]] std::optional<std::uint32_t> open_shared_mapping(std::u16string_view name, SharedMapping& out);

// The security descriptor and CreateFileMappingW for `size` bytes of zeros, open to every local process at
// every integrity level; the descriptor is freed before the return. `out` is assigned on success alone.
[[nodiscard]] CreatedMapping create_shared_mapping(std::u16string_view name, std::size_t size,
                                                   SharedMapping& out);

// MapViewOfFile of the first `size` bytes (access 6). An object that is smaller answers 5. `out` is assigned
// on success alone.
[[nodiscard]] std::optional<std::uint32_t> map_shared_view(const SharedMapping& mapping, std::size_t size,
                                                           SharedView& out);

}  // namespace velmora
