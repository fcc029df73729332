#include "command/arguments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>

namespace velmora {
namespace {

constexpr std::array<std::pair<std::string_view, CommandName>, 6> commands = {
    {{"help", CommandName::help},
     {"start", CommandName::start},
     {"stop", CommandName::stop},
     {"status", CommandName::status},
     {"open", CommandName::open},
     {"interrupt", CommandName::interrupt}}};

// The options of the service that take the next argument as their value.
constexpr std::array<std::string_view, 7> valued_options = {
    "--port",           "--web-root", "--token", "--control-map", "--capture-directory", "--preset-directory",
    "--account-service"};

bool takes_value(std::string_view option) {
  return std::find(valued_options.begin(), valued_options.end(), option) != valued_options.end();
}

CommandName find_command(std::string_view word) {
  for (const auto& [name, command] : commands) {
    if (name == word) return command;
  }
  return CommandName::none;
}

bool asks_for_help(std::string_view argument) { return argument == "--help" || argument == "-h"; }

CommandArguments help_for(CommandName command) {
  CommandArguments parsed;
  parsed.command = CommandName::help;
  parsed.help_for = command;
  return parsed;
}

CommandArguments refuse(std::string sentence) {
  CommandArguments parsed;
  parsed.refusal = std::move(sentence);
  return parsed;
}

CommandArguments refuse_option(std::string_view command, std::string_view option) {
  return refuse("The command " + std::string(command) + " has no option \"" + std::string(option) +
                "\": see velmora " + std::string(command) + " --help.");
}

CommandArguments parse_start(const std::vector<std::string_view>& rest) {
  CommandArguments parsed;
  parsed.command = CommandName::start;
  for (std::size_t index = 0; index < rest.size(); ++index) {
    const std::string_view argument = rest[index];
    if (asks_for_help(argument)) return help_for(CommandName::start);
    if (argument == "--window") {
      parsed.window = true;
      continue;
    }
    parsed.service_options.emplace_back(argument);
    if (takes_value(argument) && index + 1 < rest.size()) parsed.service_options.emplace_back(rest[++index]);
  }
  return parsed;
}

// Returns the member of a flag that the command has, or null.
bool* find_flag(CommandArguments& parsed, std::string_view argument) {
  if (parsed.command == CommandName::stop && argument == "--force") return &parsed.force;
  if (parsed.command == CommandName::stop && argument == "--window") return &parsed.window;
  if (parsed.command == CommandName::status && argument == "--json") return &parsed.json;
  return nullptr;
}

CommandArguments parse_flags(std::string_view word, CommandName command,
                             const std::vector<std::string_view>& rest) {
  CommandArguments parsed;
  parsed.command = command;
  for (const std::string_view argument : rest) {
    if (asks_for_help(argument)) return help_for(command);
    bool* const flag = find_flag(parsed, argument);
    if (flag == nullptr) return refuse_option(word, argument);
    *flag = true;
  }
  return parsed;
}

CommandArguments parse_interrupt(const std::vector<std::string_view>& rest) {
  CommandArguments parsed;
  parsed.command = CommandName::interrupt;
  if (std::any_of(rest.begin(), rest.end(), asks_for_help)) return help_for(CommandName::interrupt);
  const std::string_view text = rest.size() == 1 ? rest.front() : std::string_view();
  const auto end = std::from_chars(text.data(), text.data() + text.size(), parsed.process_id);
  const bool is_id = end.ec == std::errc() && end.ptr == text.data() + text.size() && parsed.process_id != 0;
  return is_id ? parsed : refuse("Give the process id of the service: velmora interrupt 1234.");
}

CommandArguments parse_help(const std::vector<std::string_view>& rest) {
  if (rest.empty() || asks_for_help(rest.front())) return help_for(CommandName::none);
  const CommandName command = find_command(rest.front());
  if (rest.size() == 1 && command != CommandName::none) return help_for(command);
  return refuse("There is no help about \"" + std::string(rest.front()) + "\": see velmora --help.");
}

}  // namespace

CommandArguments parse_command_arguments(const std::vector<std::string_view>& arguments) {
  if (arguments.empty()) return {};
  const std::string_view word = arguments.front();
  const std::vector<std::string_view> rest(arguments.begin() + 1, arguments.end());
  if (asks_for_help(word)) return help_for(CommandName::none);
  if (word == "--version") {
    CommandArguments parsed;
    parsed.command = CommandName::version;
    if (rest.empty()) return parsed;
    return refuse("The option --version takes nothing else: see velmora --help.");
  }
  const CommandName command = find_command(word);
  switch (command) {
    case CommandName::help: return parse_help(rest);
    case CommandName::start: return parse_start(rest);
    case CommandName::interrupt: return parse_interrupt(rest);
    case CommandName::stop:
    case CommandName::status:
    case CommandName::open: return parse_flags(word, command, rest);
    default: break;
  }
  return refuse("There is no command \"" + std::string(word) + "\": see velmora --help.");
}

std::optional<std::string> service_option(const std::vector<std::string>& options, std::string_view name) {
  std::optional<std::string> value;
  for (std::size_t index = 0; index < options.size(); ++index) {
    if (!takes_value(options[index]) || index + 1 == options.size()) continue;
    const std::string& option = options[index++];
    if (option == name) value = options[index];
  }
  return value;
}

}  // namespace velmora
