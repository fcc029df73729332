// The sign-in requests to the account service. Each function sends one request and interprets the reply.
// Errors and details are texts for the user (UTF-8).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velmora {

// The result of opening a login attempt.
struct LoginStart {
  bool ok = false;
  std::string state;  // identifies the attempt in the polls that follow
  std::string error;
};

struct RegisterResult {
  LoginStart start;
  std::string public_id;
  std::string referrer_note;
};

struct QrStart {
  LoginStart start;
  std::string qr_data_url;  // an image for the page, as received
};

// The state of a login attempt. Fields missing from the reply are empty.
struct PollResult {
  bool ok = false;
  std::string error;
  std::string status;  // the word of the service; only "issued" signs in
  std::string detail;
  std::string account_hash;
  std::string nickname;
  std::string session_token;
  std::string displaced_machine;  // the device that loses its session
  std::string public_id;
  std::string referrer;
  std::string invite_url;
  std::string primary_machine_id;
  std::uint32_t session_check_seconds = 0;  // 0: not given
  bool referral_open = false;
};

struct SessionActionResult {
  bool ok = false;
  std::string detail;
};

[[nodiscard]] RegisterResult account_register(std::string_view service_url, std::string_view username,
                                              std::string_view password, std::string_view machine_id,
                                              std::string_view referrer);
[[nodiscard]] LoginStart account_password_login(std::string_view service_url, std::string_view username,
                                                std::string_view password, std::string_view machine_id);
[[nodiscard]] QrStart account_qrcode(std::string_view service_url, std::string_view machine_id);

// `state` is put into the path unescaped.
[[nodiscard]] PollResult account_poll(std::string_view service_url, std::string_view state);

// Both require a signed-in user and send nothing otherwise.
[[nodiscard]] SessionActionResult account_bind_referrer(std::string_view service_url,
                                                        std::string_view account_hash, std::string_view token,
                                                        std::string_view public_id);
[[nodiscard]] SessionActionResult account_unbind(std::string_view service_url, std::string_view account_hash,
                                                 std::string_view token);

}  // namespace velmora
