// The endpoint inventory as JSON.
#pragma once

#include <string>

#include "endpoints/inventory.h"

namespace velmora {

// Returns one JSON object. Looks up whether the effect is bound to each render endpoint; errors count as no.
[[nodiscard]] std::string endpoint_inventory_json(const EndpointInventory& inventory);

}  // namespace velmora
