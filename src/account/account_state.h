// The account data of a running service.
#pragma once

#include <memory>
#include <string>

#include "account/account_session.h"
#include "account/session_check.h"

namespace velmora {

struct AccountState {
  std::string service_url;  // base address of the account service; empty: none configured
  AccountSession session;
  std::shared_ptr<SessionCheckCells> check = std::make_shared<SessionCheckCells>();
};

}  // namespace velmora
