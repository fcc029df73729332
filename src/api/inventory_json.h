// The inventory as clients get it.
#pragma once

#include <string>

#include "endpoints/inventory.h"

namespace velmora {

// One JSON object. Whether the effect is bound to a render endpoint is looked up while the text is written;
// false where the look fails.
[[nodiscard]] std::string endpoint_inventory_json(const EndpointInventory& inventory);

}  // namespace velmora
