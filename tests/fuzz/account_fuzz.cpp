// Replies of the account service, of every broken kind, and what they do to the session.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "account/session_check.h"
#include "account/sign_in.h"
#include "account/wire.h"
#include "memory/http_service.h"

namespace velmora {
namespace {

void require(bool held) {
  if (!held) std::abort();
}

// What was written with the escaper is read back as it was, where it has none of the bytes that the escaper
// lets pass and the reader takes for something.
void check_round_trip(std::string_view text) {
  const std::string body = account_body({{"k", text}});
  const auto read = account_json_string(body, "k");
  require(read.has_value());
  require(*read == text);
}

void check_readers(std::string_view text) {
  for (const std::string_view key : {"state", "detail", "status", "n"}) {
    const auto value = account_json_string(text, key);
    // A unit of four bytes becomes three at most, out of six.
    require(!value || value->size() <= text.size());
    static_cast<void>(account_json_uint(text, key));
  }
}

void answer_with(std::uint32_t status, std::string_view body, std::size_t piece_bytes) {
  memory::http_service().replies.push_back({status, std::string(body), piece_bytes, 0});
}

void check_flows(std::uint32_t status, std::string_view body, std::size_t piece_bytes) {
  constexpr std::string_view service = "http://account.example";
  memory::reset_http_service();
  for (int requests = 0; requests < 7; ++requests) answer_with(status, body, piece_bytes);
  const LoginStart login = account_password_login(service, "u", "p", "m");
  require(login.ok == login.error.empty() || !login.ok);
  require(!login.ok || status == 200);
  static_cast<void>(account_register(service, "u", "p", "m", "r"));
  static_cast<void>(account_qrcode(service, "m"));
  const PollResult poll = account_poll(service, "s");
  require(poll.ok == account_json_string(body, "status").has_value());
  require(account_bind_referrer(service, "h", "t", "r").ok == (status == 200));
  require(account_unbind(service, "h", "t").ok == (status == 200));
  const SessionCheckResult check = account_session_check(service, "h", "t");
  require(check.completed == (status == 200));
  require(memory::http_service().open.empty());
}

}  // namespace
}  // namespace velmora

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view body(reinterpret_cast<const char*>(data) + 2, size - 2);
  velmora::check_round_trip(body);
  velmora::check_readers(body);
  velmora::check_flows(data[0] % 2 == 0 ? 200 : 400 + data[0], body, 1 + data[1]);
  return 0;
}
