#include "script.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include <windows.h>

namespace velmora::audio_server {
namespace {

// The operations for which a fault may be asked; a name that is none of these is a mistake in the test.
constexpr std::array<std::string_view, 24> operations = {"DllGetClassObject",
                                                         "IClassFactory.CreateInstance",
                                                         "IMMDeviceEnumerator.EnumAudioEndpoints",
                                                         "IMMDeviceEnumerator.GetDefaultAudioEndpoint",
                                                         "IMMDeviceEnumerator.GetDevice",
                                                         "IMMDeviceCollection.GetCount",
                                                         "IMMDeviceCollection.Item",
                                                         "IMMDevice.Activate",
                                                         "IMMDevice.OpenPropertyStore",
                                                         "IMMDevice.GetId",
                                                         "IMMDevice.GetState",
                                                         "IPropertyStore.GetCount",
                                                         "IPropertyStore.GetValue",
                                                         "IAudioEndpointVolume.SetMasterVolumeLevelScalar",
                                                         "IAudioEndpointVolume.GetMasterVolumeLevelScalar",
                                                         "IAudioEndpointVolume.SetMute",
                                                         "IAudioEndpointVolume.GetMute",
                                                         "IAudioMeterInformation.GetPeakValue",
                                                         "IAudioSessionManager2.GetSessionEnumerator",
                                                         "IAudioSessionEnumerator.GetCount",
                                                         "IAudioSessionEnumerator.GetSession",
                                                         "IAudioSessionControl.GetState",
                                                         "IAudioSessionControl.QueryInterface",
                                                         "IAudioSessionControl2.GetProcessId"};

bool is_operation(std::string_view name) {
  return std::find(operations.begin(), operations.end(), name) != operations.end();
}

void append_code_point(std::wstring& out, std::uint32_t code) {
  if (code < 0x10000) {
    out += static_cast<wchar_t>(code);
    return;
  }
  out += static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10));
  out += static_cast<wchar_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
}

// Reads one character of well-formed UTF-8 off the front; false for anything else.
bool take_character(std::string_view& text, std::uint32_t& code) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = lead < 0x80 ? 1 : lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (length == 0 || text.size() < length) return false;
  code = length == 1 ? lead : lead & (0x7Fu >> length);
  for (std::size_t index = 1; index < length; ++index) {
    const auto unit = static_cast<unsigned char>(text[index]);
    if ((unit & 0xC0) != 0x80) return false;
    code = code << 6 | (unit & 0x3Fu);
  }
  text.remove_prefix(length);
  return true;
}

bool take_escape(std::string_view& text, std::wstring& out) {
  if (text.empty()) return false;
  const char kind = text.front();
  text.remove_prefix(1);
  if (kind == '"' || kind == '\\') {
    out += static_cast<wchar_t>(kind);
    return true;
  }
  if (kind != 'u' || text.size() < 4) return false;
  const std::string digits(text.substr(0, 4));
  char* end = nullptr;
  out += static_cast<wchar_t>(std::strtoul(digits.c_str(), &end, 16));
  text.remove_prefix(4);
  return *end == '\0';
}

// The words of a line; false when it cannot be parted.
bool words_of(std::string_view line, std::vector<std::wstring>& out) {
  for (;;) {
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    if (line.empty()) return true;
    std::wstring word;
    const bool in_quotes = line.front() == '"';
    if (in_quotes) line.remove_prefix(1);
    for (;;) {
      if (line.empty()) {
        if (in_quotes) return false;
        break;
      }
      const char next = line.front();
      if (in_quotes ? next == '"' : next == ' ' || next == '\t') {
        line.remove_prefix(1);
        break;
      }
      if (in_quotes && next == '\\') {
        line.remove_prefix(1);
        if (!take_escape(line, word)) return false;
        continue;
      }
      std::uint32_t code = 0;
      if (!take_character(line, code)) return false;
      append_code_point(word, code);
    }
    out.push_back(word);
  }
}

std::string narrow(const std::wstring& text) {
  std::string out;
  for (const wchar_t unit : text) out += unit < 0x80 ? static_cast<char>(unit) : '?';
  return out;
}

bool number_of(const std::wstring& word, std::int64_t& out) {
  const std::string text = narrow(word);
  char* end = nullptr;
  out = std::strtoll(text.c_str(), &end, text.starts_with("0x") ? 16 : 10);
  return !text.empty() && *end == '\0';
}

bool real_of(const std::wstring& word, float& out) {
  const std::string text = narrow(word);
  char* end = nullptr;
  out = std::strtof(text.c_str(), &end);
  return !text.empty() && *end == '\0';
}

bool flow_of(const std::wstring& word, int& out) {
  out = word == L"capture" ? 1 : 0;
  return word == L"render" || word == L"capture";
}

bool read_fault(const std::vector<std::wstring>& words, Script& script) {
  const bool hands_out_null = words[0] == L"null";
  if (words.size() != (hands_out_null ? 3u : 4u)) return false;
  const std::string operation = narrow(words[1]);
  std::int64_t nth = 0;
  std::int64_t status = 0;
  if (!is_operation(operation)) return false;
  if (words[2] != L"*" && (!number_of(words[2], nth) || nth < 1)) return false;
  if (!hands_out_null && !number_of(words[3], status)) return false;
  script.faults[operation][static_cast<std::uint32_t>(nth)] = {static_cast<std::int32_t>(status),
                                                               hands_out_null};
  return true;
}

bool read_count(const std::vector<std::wstring>& words, Script& script) {
  if (words.size() != 4) return false;
  const std::string operation = narrow(words[1]);
  std::int64_t nth = 0;
  std::int64_t count = 0;
  if (!is_operation(operation) || !operation.ends_with(".GetCount")) return false;
  if (!number_of(words[2], nth) || nth < 1 || !number_of(words[3], count)) return false;
  script.faults[operation][static_cast<std::uint32_t>(nth)] = {0, false, count};
  return true;
}

bool read_about_endpoint(const std::vector<std::wstring>& words, Endpoint& endpoint) {
  const std::wstring& what = words[0];
  std::int64_t number = 0;
  if (what == L"name-null" && words.size() == 1) {
    endpoint.name = {31, std::nullopt};
    return true;
  }
  if (what == L"session" && words.size() == 3) {
    std::int64_t process_id = 0;
    const bool is_self = words[2] == L"self";
    if (!number_of(words[1], number) || !(is_self || number_of(words[2], process_id))) return false;
    if (is_self) process_id = GetCurrentProcessId();
    endpoint.sessions.push_back({static_cast<std::int32_t>(number), static_cast<std::uint32_t>(process_id)});
    return true;
  }
  if (words.size() != 2) return false;
  if (what == L"name") {
    endpoint.name = {31, words[1]};
    return true;
  }
  if (what == L"level") return real_of(words[1], endpoint.level);
  if (what == L"peak") return real_of(words[1], endpoint.peak);
  if (!number_of(words[1], number)) return false;
  if (what == L"state") {
    endpoint.state = static_cast<std::uint32_t>(number);
    return true;
  }
  if (what == L"muted") {
    endpoint.muted = number != 0;
    return true;
  }
  if (what == L"name-type" && (number == 19 || number == 30 || number == 72)) {
    endpoint.name = {static_cast<std::uint16_t>(number), std::nullopt};
    return true;
  }
  return false;
}

bool read_statement(const std::vector<std::wstring>& words, Script& script) {
  const std::wstring& what = words[0];
  int flow = 0;
  if (what == L"endpoint") {
    if (words.size() != 3 || !flow_of(words[1], flow)) return false;
    Endpoint endpoint;
    endpoint.flow = flow;
    endpoint.id = words[2];
    script.endpoints.push_back(endpoint);
    return true;
  }
  if (what == L"default") {
    if (words.size() != 3 || !flow_of(words[1], flow)) return false;
    script.defaults[flow] = words[2];
    return true;
  }
  if (what == L"fail" || what == L"null") return read_fault(words, script);
  if (what == L"count") return read_count(words, script);
  return !script.endpoints.empty() && read_about_endpoint(words, script.endpoints.back());
}

// Whether the flow's default, if there is one, is among the endpoints.
bool has_default(const Script& script, int flow) {
  if (!script.defaults[flow]) return true;
  return std::any_of(script.endpoints.begin(), script.endpoints.end(), [&](const Endpoint& endpoint) {
    return endpoint.flow == flow && endpoint.id == *script.defaults[flow];
  });
}

}  // namespace

bool read_script(std::string_view text, Script& out, std::string& error) {
  out = {};
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    std::vector<std::wstring> words;
    const bool is_parted = words_of(line, words);
    if (is_parted && (words.empty() || words[0].starts_with(L'#'))) continue;
    if (is_parted && read_statement(words, out)) continue;
    error = "line " + std::to_string(number) + ": " + std::string(line);
    out = {};
    return false;
  }
  for (const int flow : {0, 1}) {
    if (has_default(out, flow)) continue;
    error = "the default endpoint is none of its flow";
    out = {};
    return false;
  }
  return true;
}

std::string quoted(std::wstring_view text) {
  std::string out = "\"";
  for (const wchar_t unit : text) {
    if (unit == L'"' || unit == L'\\') out += '\\';
    if (unit >= 0x20 && unit < 0x7F) {
      out += static_cast<char>(unit);
      continue;
    }
    std::array<char, 8> escape{};
    std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(unit));
    out += escape.data();
  }
  return out + '"';
}

}  // namespace velmora::audio_server
