// The script of the audio server (server.h): its text as values.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmora::audio_server {

struct Session {
  std::int32_t state = 0;
  std::uint32_t process_id = 0;
};

struct Name {
  std::uint16_t type = 0;  // VARTYPE; 31 with a text or, without one, a null pointer
  std::optional<std::wstring> text;
};

struct Endpoint {
  int flow = 0;  // EDataFlow
  std::wstring id;
  std::uint32_t state = 1;
  Name name;
  float level = 1;
  bool muted = false;
  float peak = 0;
  std::vector<Session> sessions;
};

struct Fault {
  std::int32_t status = 0;
  bool hands_out_null = false;
  std::optional<std::int64_t> count = std::nullopt;  // what a count is said to be
};

struct Script {
  std::vector<Endpoint> endpoints;
  std::optional<std::wstring> defaults[2];
  // By operation; the number of the call, or 0 for each one.
  std::map<std::string, std::map<std::uint32_t, Fault>, std::less<>> faults;
};

// `error` says what is wrong with which line, and the script is empty then.
[[nodiscard]] bool read_script(std::string_view text, Script& out, std::string& error);

// A text in quotes, as a script has it; only printable ASCII is written as it is.
[[nodiscard]] std::string quoted(std::wstring_view text);

}  // namespace velmora::audio_server
