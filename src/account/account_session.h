// Who is signed in. Kept only in memory: each run of the service begins signed out. Used by one thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velmora {

// Texts are UTF-8, as received from the account service.
struct AccountSession {
  std::string account_hash;         // the user's identity; empty when signed out
  std::int64_t signed_in_unix = 0;  // Unix time of the sign-in, seconds; 0 when signed out
  std::int64_t usage_seconds = 0;   // seconds the service has run while signed in
  std::string token;                // the session's credential at the account service; never shown
  std::string public_id;            // the user's id
  std::string primary_machine_id;   // the account's primary computer
  bool primary_known = false;       // the account service has reported it, perhaps as empty
  bool referral_open = false;       // the user may still name a referrer
  std::string referrer;             // the referrer's public id
  std::string invite_url;           // the user's invitation link
  bool operator==(const AccountSession&) const = default;
};

// Signs in at the current time. Usage continues if the same user is still signed in, else restarts at 0.
void begin_session(AccountSession& session, std::string_view account_hash, std::string_view token);

// Signs out. The values that are only displayed stay: usage, public id, referral and invitation.
void clear_session(AccountSession& session);

// Adds to the usage if a user is signed in. Values below 1 are ignored.
void add_usage(AccountSession& session, std::int64_t seconds);

void set_primary_machine(AccountSession& session, std::string_view machine_id);
void set_referral(AccountSession& session, bool referral_open, std::string_view referrer,
                  std::string_view invite_url);
// Records the referrer that the user has named, and allows no other.
void bind_referrer(AccountSession& session, std::string_view public_id);

// Deletes `session.json`, where an earlier version stored a session. Its directory is `Velmora` in the
// machine's common data directory: the variable ProgramData if it has 1 to 259 characters, else
// C:\ProgramData. Errors are ignored.
void remove_stale_session_file();

}  // namespace velmora
