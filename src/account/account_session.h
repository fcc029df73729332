// Who is signed in. It is kept in memory alone: each run of the service begins signed out.
#pragma once

#include <cstdint>
#include <string>

namespace velmora {

// Texts are UTF-8, as the account service gave them.
struct AccountSession {
  std::string account_hash;         // the user's identity; empty when signed out
  std::int64_t signed_in_unix = 0;  // Unix time of the sign-in, seconds; 0 when signed out
  std::int64_t usage_seconds = 0;   // for which the service has run while signed in
  std::string token;                // the session's credential at the account service; never shown
  std::string public_id;            // the user's id
  std::string primary_machine_id;   // the account's primary computer
  bool primary_known = false;       // the account service has told it, if only as empty
  bool referral_open = false;       // the user may still name a referrer
  std::string referrer;             // the referrer's public id
  std::string invite_url;           // the user's invitation link
};

}  // namespace velmora
