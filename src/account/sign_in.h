// The sign-in's requests to the account service, one function each: what goes out, and what is made of the
// reply. Errors and details are texts for the user (UTF-8).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velmora {

// A login attempt that the service has opened.
struct LoginStart {
  bool ok = false;
  std::string state;  // names the attempt in the polls that follow
  std::string error;
};

struct RegisterResult {
  LoginStart start;
  std::string public_id;
  std::string referrer_note;
};

struct QrStart {
  LoginStart start;
  std::string qr_data_url;  // an image for the page, as the service made it
};

// How a login attempt stands. Fields that the reply lacks are empty.
struct PollResult {
  bool ok = false;
  std::string error;
  std::string status;  // the service's own word; "issued" is the one that signs in
  std::string detail;
  std::string account_hash;
  std::string nickname;
  std::string session_token;
  std::string displaced_machine;  // the device that loses its session
  std::string public_id;
  std::string referrer;
  std::string invite_url;
  std::string primary_machine_id;
  std::uint32_t session_check_seconds = 0;  // 0: not told
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

// `state` goes into the path as it stands.
[[nodiscard]] PollResult account_poll(std::string_view service_url, std::string_view state);

// These two want somebody signed in, and send nothing otherwise.
[[nodiscard]] SessionActionResult account_bind_referrer(std::string_view service_url,
                                                        std::string_view account_hash, std::string_view token,
                                                        std::string_view public_id);
[[nodiscard]] SessionActionResult account_unbind(std::string_view service_url, std::string_view account_hash,
                                                 std::string_view token);

}  // namespace velmora
