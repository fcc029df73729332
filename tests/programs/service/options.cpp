#include "options.h"

#include <string_view>

namespace velmora::service {
namespace {

std::optional<std::uint32_t> parse_number(std::wstring_view text) {
  std::uint64_t number = 0;
  if (text.empty() || text.size() > 10) return std::nullopt;
  for (const wchar_t digit : text) {
    if (digit < L'0' || digit > L'9') return std::nullopt;
    number = number * 10 + static_cast<std::uint64_t>(digit - L'0');
  }
  if (number > UINT32_MAX) return std::nullopt;
  return static_cast<std::uint32_t>(number);
}

bool take_number(std::wstring_view text, std::uint32_t& out) {
  const auto number = parse_number(text);
  out = number.value_or(0);
  return number.has_value();
}

bool take_duration(std::wstring_view text, std::uint32_t& out) {
  if (text != L"forever") return take_number(text, out);
  out = for_ever_ms;
  return true;
}

bool take_start_refusal(std::wstring_view text, Options& options) {
  options.exits_at_start = text == L"exit";
  return options.exits_at_start || take_number(text, options.start_error);
}

bool take_option(std::wstring_view option, const std::wstring& value, Options& options) {
  if (option == L"--start-ms") return take_duration(value, options.start_ms);
  if (option == L"--stop-ms") return take_duration(value, options.stop_ms);
  if (option == L"--refuse-stop") return take_number(value, options.stop_error);
  if (option == L"--refuse-start") return take_start_refusal(value, options);
  if (option == L"--log") options.log = value;
  if (option == L"--depends") options.needs.push_back(value);
  return option == L"--log" || option == L"--depends";
}

bool take_command(std::wstring_view word, Options& options) {
  if (word == L"install") options.command = Command::install;
  if (word == L"remove") options.command = Command::remove;
  if (word == L"run") options.command = Command::run;
  return word == L"install" || word == L"remove" || word == L"run";
}

}  // namespace

std::optional<Options> parse_options(const std::vector<std::wstring>& arguments) {
  Options options;
  if (arguments.size() < 2 || !take_command(arguments[0], options)) return std::nullopt;
  options.name = arguments[1];
  for (std::size_t index = 2; index < arguments.size(); ++index) {
    if (arguments[index] == L"--disabled") {
      options.is_disabled = true;
      continue;
    }
    const bool has_value = index + 1 < arguments.size();
    if (!has_value || !take_option(arguments[index], arguments[index + 1], options)) return std::nullopt;
    ++index;
  }
  return options;
}

}  // namespace velmora::service
