// The state that requests are answered from.
#pragma once

#include <cstdint>
#include <string>

#include "account/account_state.h"
#include "bridge/mapping.h"
#include "endpoints/selection.h"
#include "http/stored_response.h"

namespace velmora {

// The answers with the four pages, which are read and stamped at start and kept in memory.
struct UiPages {
  StoredResponse index;
  StoredResponse advanced;
  StoredResponse eq_script;
  StoredResponse help;
};

// Exists from the start of the service to the end of its loop. Used only by the main thread.
struct ServiceState {
  std::uint16_t port = 0;
  std::string session_token;
  UiPages pages;
  ControlBridge bridge;
  EndpointController endpoints;
  AccountState account;
};

}  // namespace velmora
