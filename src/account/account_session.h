// Who is signed in. It is kept in memory alone: each run of the service begins signed out. One thread uses
// it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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
  bool operator==(const AccountSession&) const = default;
};

// Signs in, now. Another user's usage begins at 0; the same user's goes on.
void begin_session(AccountSession& session, std::string_view account_hash, std::string_view token);

// Signs out. What is only shown (usage, public id, referral, invitation) stays until the next sign-in.
void clear_session(AccountSession& session);

// Counts usage while somebody is signed in. Less than 1 second is nothing.
void add_usage(AccountSession& session, std::int64_t seconds);

void set_primary_machine(AccountSession& session, std::string_view machine_id);
void set_referral(AccountSession& session, bool referral_open, std::string_view referrer,
                  std::string_view invite_url);
// The user has named a referrer, and may name no other.
void bind_referrer(AccountSession& session, std::string_view public_id);

// Removes `session.json`, in which an earlier version kept a session, from the Velmora directory under the
// machine's common data directory: the variable ProgramData where that holds 1 to 259 characters, else
// C:\ProgramData. That it cannot be removed is not told.
void remove_stale_session_file();

}  // namespace velmora
