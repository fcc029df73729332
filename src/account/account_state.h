// What a running service has of the account.
#pragma once

#include <memory>
#include <string>

#include "account/account_session.h"
#include "account/session_check.h"

namespace velmora {

struct AccountState {
  std::string service_url;  // the account service's base address; empty: there is none
  AccountSession session;
  std::shared_ptr<SessionCheckCells> check = std::make_shared<SessionCheckCells>();
};

}  // namespace velmora
