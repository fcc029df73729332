#include "api/account_routes.h"

#include <optional>
#include <string>
#include <string_view>

#include "account/machine_id.h"
#include "account/sign_in.h"
#include "api/answers.h"
#include "base/parsed.h"
#include "http/response.h"
#include "json/find.h"
#include "json/write.h"

namespace velmora {
namespace {

// These texts are for the user, in the user's language.
constexpr std::string_view not_configured = "未配置账号服务";
constexpr std::string_view not_configured_for_login = "未配置账号服务，请用 --account-service 指定";

void write_bad_gateway(const Socket& socket, std::string_view message) {
  write_error(socket, 502, "Bad Gateway", message);
}

bool refuse_unconfigured(const Socket& socket, const AccountState& account, std::string_view message) {
  if (!account.service_url.empty()) return false;
  write_error(socket, 501, "Not Implemented", message);
  return true;
}

struct Credentials {
  std::string username;
  std::string password;
};

Parsed<Credentials> parse_credentials(std::string_view body) {
  auto username = json_find_string(body, "username");
  auto password = json_find_string(body, "password");
  if (!username || !password || username->empty() || password->empty()) return {{}, "请填写用户名和密码"};
  return {{*std::move(username), *std::move(password)}, {}};
}

bool is_signed_in(const AccountSession& session) {
  return !session.account_hash.empty() && !session.token.empty();
}

void write_action(const Socket& socket, const SessionActionResult& result) {
  std::string body;
  JsonObject members(body);
  members.add("ok", result.ok);
  members.add("detail", result.detail);
  members.end();
  write_document(socket, body);
}

// Returns the value of `state` in a poll's query, undecoded. A longer key that ends in `state` matches too.
std::optional<std::string_view> find_state(std::string_view target) {
  constexpr std::string_view key = "state=";
  const std::size_t found = target.find(key);
  if (found == std::string_view::npos) return std::nullopt;
  const std::string_view value = target.substr(found + key.size());
  return value.substr(0, value.find('&'));
}

void sign_in(AccountState& account, const PollResult& poll) {
  begin_session(account.session, poll.account_hash, poll.session_token);
  account.session.public_id = poll.public_id;
  set_referral(account.session, poll.referral_open, poll.referrer, poll.invite_url);
  set_primary_machine(account.session, poll.primary_machine_id);
  if (poll.session_check_seconds != 0) account.check->session_check_interval = poll.session_check_seconds;
}

// The progress of an attempt as the page gets it.
struct Progress {
  std::string status;
  std::string detail;
};

Progress apply_poll(AccountState& account, const PollResult& poll) {
  if (poll.status != "issued") return {poll.status, poll.detail};
  if (poll.account_hash.empty()) return {"error", "账号服务未返回账号标识，无法完成登录"};
  sign_in(account, poll);
  if (poll.displaced_machine.empty()) return {poll.status, poll.detail};
  return {poll.status,
          "已登录。另一台设备（" + poll.displaced_machine + "）上的 Velmora 将在两分钟内自动退出。"};
}

}  // namespace

void post_register(const Socket& socket, const ApiRequest& request, const AccountState& account) {
  if (refuse_unconfigured(socket, account, not_configured_for_login)) return;
  const auto [credentials, error] = parse_credentials(request.body);
  if (!error.empty()) return write_bad_request(socket, error);
  const std::string referrer = json_find_string(request.body, "referrer_public_id").value_or("");
  const RegisterResult result = account_register(account.service_url, credentials.username,
                                                 credentials.password, current_machine_id(), referrer);
  if (!result.start.ok) return write_bad_request(socket, result.start.error);
  std::string body;
  JsonObject members(body);
  members.add("ok", true);
  members.add("state", result.start.state);
  members.add("public_id", result.public_id);
  members.add("referrer_note", result.referrer_note);
  members.end();
  write_document(socket, body);
}

void post_password(const Socket& socket, const ApiRequest& request, const AccountState& account) {
  if (refuse_unconfigured(socket, account, not_configured_for_login)) return;
  const auto [credentials, error] = parse_credentials(request.body);
  if (!error.empty()) return write_bad_request(socket, error);
  const LoginStart start = account_password_login(account.service_url, credentials.username,
                                                  credentials.password, current_machine_id());
  if (!start.ok) return write_error(socket, 401, "Unauthorized", start.error);
  std::string body;
  JsonObject members(body);
  members.add("ok", true);
  members.add("state", start.state);
  members.end();
  write_document(socket, body);
}

void post_qrcode(const Socket& socket, const AccountState& account) {
  if (refuse_unconfigured(socket, account, not_configured_for_login)) return;
  const QrStart result = account_qrcode(account.service_url, current_machine_id());
  if (!result.start.ok) return write_bad_gateway(socket, result.start.error);
  std::string body;
  JsonObject members(body);
  members.add("ok", true);
  members.add("state", result.start.state);
  members.add("qr_data_url", result.qr_data_url);
  members.end();
  write_document(socket, body);
}

void get_poll(const Socket& socket, const ApiRequest& request, AccountState& account) {
  if (refuse_unconfigured(socket, account, not_configured)) return;
  const auto state = find_state(request.target);
  if (!state) return write_bad_request(socket, "缺少 state");
  const PollResult poll = account_poll(account.service_url, *state);
  if (!poll.ok) return write_bad_gateway(socket, poll.error);
  const Progress progress = apply_poll(account, poll);
  if (!poll.public_id.empty()) account.session.public_id = poll.public_id;
  std::string body;
  JsonObject members(body);
  members.add("status", progress.status);
  members.add("detail", progress.detail);
  members.add("nickname", poll.nickname);
  members.add("public_id", poll.public_id);
  members.end();
  write_document(socket, body);
}

void post_referrer(const Socket& socket, const ApiRequest& request, AccountState& account) {
  if (refuse_unconfigured(socket, account, not_configured)) return;
  const auto public_id = json_find_string(request.body, "public_id");
  if (!public_id || public_id->empty()) return write_bad_request(socket, "请填写推荐人的用户 ID");
  const AccountSession& session = account.session;
  if (!is_signed_in(session)) return write_bad_request(socket, "请先扫码登录");
  const SessionActionResult result =
      account_bind_referrer(account.service_url, session.account_hash, session.token, *public_id);
  if (result.ok) bind_referrer(account.session, *public_id);
  write_action(socket, result);
}

void post_unbind(const Socket& socket, AccountState& account) {
  if (refuse_unconfigured(socket, account, not_configured)) return;
  const AccountSession& session = account.session;
  if (!is_signed_in(session)) return write_bad_request(socket, "请先扫码登录，再更换常用电脑");
  const SessionActionResult result = account_unbind(account.service_url, session.account_hash, session.token);
  // Record that the account now has no primary computer.
  if (result.ok) set_primary_machine(account.session, "");
  write_action(socket, result);
}

void post_logout(const Socket& socket, AccountState& account) {
  clear_session(account.session);
  write_document(socket, ok_body);
}

}  // namespace velmora
