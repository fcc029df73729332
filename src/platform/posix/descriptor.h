// The owner of a file descriptor.
#pragma once

#include <unistd.h>

#include "platform/owner.h"

namespace velmora {

struct DescriptorKind {
  using Native = int;
  static constexpr Native none = -1;
  static void release(Native native) noexcept { ::close(native); }
};
using Descriptor = Owner<DescriptorKind>;

}  // namespace velmora
