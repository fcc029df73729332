// The routes of the sign-in. Each writes exactly one response, and all but the logout wait for the account
// service first, for as long as that takes.
#pragma once

#include "account/account_state.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// POST /api/v1/account/register, /password and /qrcode open a login attempt and answer with its state.
void post_register(const Socket& socket, const ApiRequest& request, const AccountState& account);
void post_password(const Socket& socket, const ApiRequest& request, const AccountState& account);
void post_qrcode(const Socket& socket, const AccountState& account);

// GET /api/v1/account/poll: how the attempt stands; "issued" signs in.
void get_poll(const Socket& socket, const ApiRequest& request, AccountState& account);

// POST /api/v1/account/referrer: names the user's referrer. POST /api/v1/account/unbind: frees the account's
// primary computer. What the account service refuses is a 200 with `ok` false.
void post_referrer(const Socket& socket, const ApiRequest& request, AccountState& account);
void post_unbind(const Socket& socket, AccountState& account);

// POST /api/v1/account/logout: forgets the session here and tells nobody.
void post_logout(const Socket& socket, AccountState& account);

}  // namespace velmora
