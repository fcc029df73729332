// The sign-in routes. Each writes exactly one response. Valid requests, except for the logout, wait for the
// account service, with no limit on the whole.
#pragma once

#include "account/account_state.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// POST /api/v1/account/register, /password and /qrcode open a login attempt. The answer has its state.
void post_register(const Socket& socket, const ApiRequest& request, const AccountState& account);
void post_password(const Socket& socket, const ApiRequest& request, const AccountState& account);
void post_qrcode(const Socket& socket, const AccountState& account);

// GET /api/v1/account/poll: the progress of the attempt. The status "issued" signs in.
void get_poll(const Socket& socket, const ApiRequest& request, AccountState& account);

// POST /api/v1/account/referrer names the user's referrer. POST /api/v1/account/unbind releases the account's
// primary computer. If the account service refuses, the answer is a 200 with `ok` false.
void post_referrer(const Socket& socket, const ApiRequest& request, AccountState& account);
void post_unbind(const Socket& socket, AccountState& account);

// POST /api/v1/account/logout: discards the session here. The account service is not contacted.
void post_logout(const Socket& socket, AccountState& account);

}  // namespace velmora
