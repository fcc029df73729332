#include "service/options.h"

#include <charconv>
#include <limits>

namespace velmora {
namespace {

constexpr std::string_view usage_line =
    "Usage: velmora_control_demo [--port N] [--web-root PATH] [--token DEV_TOKEN] "
    "[--control-map Local\\NAME|Global\\NAME] [--capture-directory PATH] [--preset-directory PATH] "
    "[--account-service URL] [--open-browser] [--verbose] [--self-test]\n";
constexpr std::string_view invalid_port_line = "Invalid port\n";
constexpr std::string_view short_token_line =
    "A supplied development token must contain at least 32 characters\n";

// Digits only, 1..65535.
std::optional<std::uint16_t> parse_port(std::string_view text) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  const bool in_range = number >= 1 && number <= std::numeric_limits<std::uint16_t>::max();
  if (parsed.ec != std::errc() || parsed.ptr != end || !in_range) return std::nullopt;
  return static_cast<std::uint16_t>(number);
}

// Returns the member of a flag, or null if `argument` is no flag.
bool* find_flag(Options& options, std::string_view argument) {
  if (argument == "--verbose") return &options.verbose;
  if (argument == "--open-browser") return &options.open_browser;
  return nullptr;
}

// Returns the member of an option whose value is used unchanged, or null.
std::string* find_text(Options& options, std::string_view argument) {
  if (argument == "--web-root") return &options.web_root;
  if (argument == "--control-map") return &options.control_map;
  if (argument == "--capture-directory") return &options.capture_directory;
  if (argument == "--preset-directory") return &options.preset_directory;
  if (argument == "--account-service") return &options.account_service;
  return nullptr;
}

// Stores the value of an option. Returns the line to refuse with, or empty.
std::string_view take_value(Options& options, std::string_view option, std::string_view value) {
  if (option == "--port") {
    const std::optional<std::uint16_t> port = parse_port(value);
    if (!port) return invalid_port_line;
    options.port = *port;
    return {};
  }
  if (option == "--token") {
    if (value.size() < token_minimum_bytes) return short_token_line;
    options.token = value;
    return {};
  }
  std::string* const text = find_text(options, option);
  if (text == nullptr) return usage_line;
  *text = value;
  return {};
}

}  // namespace

ParsedCommandLine parse_command_line(const std::vector<std::string_view>& arguments) {
  ParsedCommandLine parsed;
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    const std::string_view argument = arguments[index];
    if (argument == "--self-test") {
      parsed.action = ParsedCommandLine::Action::self_test;
      return parsed;
    }
    if (bool* const flag = find_flag(parsed.options, argument)) {
      *flag = true;
      continue;
    }
    const bool has_value = index + 1 < arguments.size();
    parsed.refusal = has_value ? take_value(parsed.options, argument, arguments[++index]) : usage_line;
    if (!parsed.refusal.empty()) {
      parsed.action = ParsedCommandLine::Action::refuse;
      return parsed;
    }
  }
  return parsed;
}

}  // namespace velmora
