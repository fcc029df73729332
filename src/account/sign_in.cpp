#include "account/sign_in.h"

#include "account/transport.h"
#include "account/wire.h"

namespace velmora {
namespace {

constexpr std::uint32_t status_ok = 200;
constexpr std::string_view unreadable = "账号服务返回的内容无法识别";

std::string text_of(const AccountReply& reply, std::string_view key) {
  return account_json_string(reply.body, key).value_or("");
}

// Interprets the reply to a request that opens a login attempt.
LoginStart read_start(const AccountReply& reply) {
  if (!reply.ok) return {false, "", reply.error};
  if (reply.status != status_ok) {
    auto detail = account_json_string(reply.body, "detail");
    return {false, "", detail ? *detail : "账号服务返回 " + std::to_string(reply.status)};
  }
  auto state = account_json_string(reply.body, "state");
  if (!state) return {false, "", std::string(unreadable)};
  return {true, *std::move(state), ""};
}

// Interprets the reply to a request about the session. `failed` begins the text for an unexplained refusal.
SessionActionResult read_action(const AccountReply& reply, std::string_view done, std::string_view failed) {
  if (!reply.ok) return {false, reply.error};
  auto detail = account_json_string(reply.body, "detail");
  if (reply.status == status_ok) return {true, detail ? *std::move(detail) : std::string(done)};
  if (detail) return {false, *std::move(detail)};
  return {false, std::string(failed) + "（" + std::to_string(reply.status) + "）"};
}

SessionActionResult not_signed_in() { return {false, "请先登录账号"}; }

}  // namespace

RegisterResult account_register(std::string_view service_url, std::string_view username,
                                std::string_view password, std::string_view machine_id,
                                std::string_view referrer) {
  const std::string body =
      referrer.empty()
          ? account_body({{"username", username}, {"password", password}, {"machine_id", machine_id}})
          : account_body({{"username", username},
                          {"password", password},
                          {"machine_id", machine_id},
                          {"referrer_public_id", referrer}});
  const AccountReply reply = account_request(service_url, "POST", "/api/v1/auth/register", body);
  RegisterResult result{read_start(reply), "", ""};
  if (!result.start.ok) return result;
  result.public_id = text_of(reply, "public_id");
  result.referrer_note = text_of(reply, "referrer_note");
  return result;
}

LoginStart account_password_login(std::string_view service_url, std::string_view username,
                                  std::string_view password, std::string_view machine_id) {
  return read_start(account_request(
      service_url, "POST", "/api/v1/auth/password",
      account_body({{"username", username}, {"password", password}, {"machine_id", machine_id}})));
}

QrStart account_qrcode(std::string_view service_url, std::string_view machine_id) {
  const AccountReply reply =
      account_request(service_url, "POST", "/api/v1/auth/qrcode", account_body({{"machine_id", machine_id}}));
  QrStart result{read_start(reply), ""};
  if (!result.start.ok) return result;
  auto image = account_json_string(reply.body, "qr_data_url");
  if (!image) return {{false, "", std::string(unreadable)}, ""};
  result.qr_data_url = *std::move(image);
  return result;
}

PollResult account_poll(std::string_view service_url, std::string_view state) {
  const AccountReply reply =
      account_request(service_url, "GET", std::string("/api/v1/auth/poll?state=").append(state), "");
  PollResult result;
  result.error = reply.error;
  if (!reply.ok) return result;
  auto status = account_json_string(reply.body, "status");
  if (!status) {
    result.error = unreadable;
    return result;
  }
  result.ok = true;
  result.status = *std::move(status);
  result.detail = text_of(reply, "detail");
  result.account_hash = text_of(reply, "account_hash");
  result.nickname = text_of(reply, "nickname");
  result.session_token = text_of(reply, "session_token");
  result.displaced_machine = text_of(reply, "displaced_machine");
  result.public_id = text_of(reply, "public_id");
  result.referrer = text_of(reply, "referrer");
  result.invite_url = text_of(reply, "invite_url");
  result.primary_machine_id = text_of(reply, "primary_machine_id");
  result.session_check_seconds = account_json_uint(reply.body, "session_check_seconds").value_or(0);
  // Only these exact bytes mean open; a blank among them means closed.
  result.referral_open = reply.body.find("\"referral_open\":true") != std::string::npos;
  return result;
}

SessionActionResult account_bind_referrer(std::string_view service_url, std::string_view account_hash,
                                          std::string_view token, std::string_view public_id) {
  if (account_hash.empty() || token.empty()) return not_signed_in();
  const AccountReply reply = account_request(
      service_url, "POST", "/api/v1/session/referrer",
      account_body({{"account_hash", account_hash}, {"token", token}, {"public_id", public_id}}));
  return read_action(reply, "已绑定推荐人", "绑定失败");
}

SessionActionResult account_unbind(std::string_view service_url, std::string_view account_hash,
                                   std::string_view token) {
  if (account_hash.empty() || token.empty()) return not_signed_in();
  const AccountReply reply =
      account_request(service_url, "POST", "/api/v1/session/unbind",
                      account_body({{"account_hash", account_hash}, {"token", token}}));
  return read_action(reply, "已解绑，请重新扫码登录", "解绑失败");
}

}  // namespace velmora
