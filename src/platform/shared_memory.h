// Named memory that lives while any process holds it. On failure a call returns its Win32 error code on every
// system (winerror.h), which Windows may leave at 0. On success it returns no value.
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
// Owner of an open mapping. Close its views first: on systems other than Windows only the mapping's owner
// keeps the object alive. When the last holder closes it, the object and its contents are gone.
using SharedMapping = Owner<SharedMappingKind>;

struct SharedViewKind {
  struct Native {
    void* data;        // page-aligned
    std::size_t size;  // bytes
    bool operator==(const Native&) const = default;
  };
  static constexpr Native none{nullptr, 0};
  static void release(Native native) noexcept;  // UnmapViewOfFile
};
// Owner of a view: readable and writable memory, valid until it is closed.
using SharedView = Owner<SharedViewKind>;

// The result of creating a mapping. It succeeded if neither error has a value.
struct CreatedMapping {
  std::optional<std::uint32_t> descriptor_error;  // of ConvertStringSecurityDescriptorToSecurityDescriptorW
  std::optional<std::uint32_t> create_error;      // of CreateFileMappingW
  bool already_existed;                           // another process made it first (ERROR_ALREADY_EXISTS, 183)
};

// OpenFileMappingW for reading and writing (access 6), not inherited. 2: missing; 5: access denied. `out` is
// assigned only on success.
[[nodiscard]] std::optional<std::uint32_t> open_shared_mapping(std::u16string_view name, SharedMapping& out);

// Creates a mapping of `size` zero bytes with CreateFileMappingW, open to every local process at every
// integrity level. The security descriptor is freed before returning. `out` is assigned only on success.
[[nodiscard]] CreatedMapping create_shared_mapping(std::u16string_view name, std::size_t size,
                                                   SharedMapping& out);

// MapViewOfFile of the first `size` bytes (access 6). 5: a smaller object. `out` is assigned only on success.
[[nodiscard]] std::optional<std::uint32_t> map_shared_view(const SharedMapping& mapping, std::size_t size,
                                                           SharedView& out);

}  // namespace velmora
