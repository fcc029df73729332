#include "account/account_session.h"

#include "base/text.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"

namespace velmora {
namespace {

constexpr std::size_t longest_data_directory_units = 259;

std::string common_data_directory() {
  const std::u16string named = environment_variable(u"ProgramData");
  if (named.empty() || named.size() > longest_data_directory_units) return "C:\\ProgramData";
  return utf8_from_wide_replacing(named);
}

}  // namespace

void begin_session(AccountSession& session, std::string_view account_hash, std::string_view token) {
  if (session.account_hash != account_hash) session.usage_seconds = 0;
  session.account_hash = account_hash;
  session.token = token;
  session.signed_in_unix = unix_time_s();
}

void clear_session(AccountSession& session) {
  session.account_hash.clear();
  session.token.clear();
  session.primary_machine_id.clear();
  session.signed_in_unix = 0;
  session.primary_known = false;
}

void add_usage(AccountSession& session, std::int64_t seconds) {
  if (!session.account_hash.empty() && seconds >= 1) session.usage_seconds += seconds;
}

void set_primary_machine(AccountSession& session, std::string_view machine_id) {
  session.primary_machine_id = machine_id;
  session.primary_known = true;
}

void set_referral(AccountSession& session, bool referral_open, std::string_view referrer,
                  std::string_view invite_url) {
  session.referral_open = referral_open;
  session.referrer = referrer;
  session.invite_url = invite_url;
}

void bind_referrer(AccountSession& session, std::string_view public_id) {
  session.referrer = public_id;
  session.referral_open = false;
}

void remove_stale_session_file() {
  static_cast<void>(remove_file(join_path(join_path(common_data_directory(), "Velmora"), "session.json")));
}

}  // namespace velmora
