// The state that requests are answered from.
#pragma once

#include <cstdint>
#include <string>

#include "account/account_state.h"
#include "bridge/mapping.h"
#include "endpoints/selection.h"

namespace velmora {

// The four pages, read and stamped at start and kept in memory.
struct UiPages {
  std::string index;
  std::string advanced;
  std::string eq_script;
  std::string help;
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
