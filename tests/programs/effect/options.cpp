#include "options.h"

#include <charconv>
#include <string_view>

namespace velmora::effect {
namespace {

constexpr struct {
  std::string_view name;
  Fault fault;
} faults[] = {{"unfinished", Fault::unfinished},
              {"magic", Fault::magic},
              {"version", Fault::version},
              {"size", Fault::size},
              {"small", Fault::small}};

bool parse_number(std::string_view text, std::uint32_t& out) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, out);
  return error == std::errc() && stop == end;
}

bool parse_number(std::string_view text, std::optional<std::uint32_t>& out) {
  out.emplace(0);
  return parse_number(text, *out);
}

bool parse_fault(std::string_view text, Fault& out) {
  for (const auto& entry : faults) {
    if (entry.name != text) continue;
    out = entry.fault;
    return true;
  }
  return false;
}

bool parse_capture_fault(std::string_view text, CaptureFault& out) {
  if (text != "refuse" && text != "partial") return false;
  out = text == "refuse" ? CaptureFault::refuse : CaptureFault::partial;
  return true;
}

// Of a limited count, of which there is at least one.
bool parse_count(std::string_view text, unsigned& out) {
  constexpr unsigned most = 64;
  return parse_number(text, out) && out >= 1 && out <= most;
}

// Also "nan", "inf" and these with a minus.
bool parse_real(std::string_view text, std::optional<float>& out) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, out.emplace(0.0f));
  return error == std::errc() && stop == end;
}

bool parse_life_fault(std::string_view text, LifeFault& out) {
  constexpr struct {
    std::string_view name;
    LifeFault fault;
  } life_faults[] = {{"initialize", LifeFault::initialize},
                     {"hang", LifeFault::hang},
                     {"lock", LifeFault::lock},
                     {"query", LifeFault::query}};
  for (const auto& entry : life_faults) {
    if (entry.name != text) continue;
    out = entry.fault;
    return true;
  }
  return false;
}

bool take_life_option(std::string_view name, std::string_view value, Options& options) {
  if (name == "--life-blocks") return parse_number(value, options.life_blocks) && options.life_blocks > 0;
  if (name == "--life-block-ms") return parse_number(value, options.block_ms);
  if (name == "--life-fault") return parse_life_fault(value, options.life_fault);
  if (name == "--instances") return parse_count(value, options.instances);
  if (name == "--threads") return parse_count(value, options.threads);
  if (name == "--gain") return parse_real(value, options.gain_db);
  if (name == "--applied-strength") return parse_real(value, options.applied_strength);
  if (name == "--hammer") return parse_number(value, options.hammer_rounds) && options.hammer_rounds > 0u;
  if (name == "--hammer-query") return parse_number(value, options.hammer_query) && options.hammer_query < 4;
  return false;
}

bool take_switch(std::string_view name, Options& options) {
  constexpr struct {
    std::string_view name;
    bool Options::*option;
  } switches[] = {{"--open-only", &Options::open_only},
                  {"--life", &Options::life},
                  {"--through-shared-writers", &Options::through_shared_writers}};
  for (const auto& entry : switches) {
    if (entry.name != name) continue;
    options.*entry.option = true;
    return true;
  }
  return false;
}

bool take_option(std::string_view name, std::string_view value, Options& options) {
  if (name == "--control-map") {
    options.control_map = value;
    return !value.empty();
  }
  if (name == "--capture-directory") {
    options.capture_directory = value;
    return !value.empty();
  }
  if (name == "--life-state") {
    options.life_state = value;
    return !value.empty();
  }
  if (name == "--capture-fault") return parse_capture_fault(value, options.capture_fault);
  if (name == "--poll-ms") return parse_number(value, options.poll_ms) && options.poll_ms > 0;
  if (name == "--fault") return parse_fault(value, options.fault);
  if (name == "--finish-after-ms") return parse_number(value, options.finish_after_ms);
  if (name == "--exit-after-ms") return parse_number(value, options.exit_after_ms);
  return take_life_option(name, value, options);
}

}  // namespace

const char usage[] =
    "usage: velmora_test_effect --control-map NAME [--open-only] [--poll-ms N]\n"
    "         [--fault unfinished|magic|version|size|small] [--finish-after-ms N] [--exit-after-ms N]\n"
    "         [--capture-directory PATH] [--capture-fault refuse|partial] [--through-shared-writers]\n"
    "         [--life | --life-state FILE] [--life-blocks N] [--life-block-ms N]\n"
    "         [--life-fault initialize|hang|lock|query]\n"
    "         [--instances N] [--threads N] [--gain DB] [--applied-strength NUMBER] [--hammer ROUNDS]\n"
    "         [--hammer-query 0..3]\n";

std::optional<Options> parse_options(int argc, const char* const* argv) {
  Options options;
  for (int index = 1; index < argc; ++index) {
    const std::string_view name = argv[index];
    if (take_switch(name, options)) continue;
    if (++index == argc || !take_option(name, argv[index], options)) return std::nullopt;
  }
  const bool makes_nothing_to_spoil =
      options.open_only && (options.fault != Fault::none || options.finish_after_ms.has_value());
  // The shared writers know no record but a whole one.
  const bool writes_behind_the_end = options.through_shared_writers && options.fault == Fault::small;
  const int lives = (options.life ? 1 : 0) + (options.life_state.empty() ? 0 : 1) +
                    (options.hammer_rounds.has_value() ? 1 : 0);
  const bool has_two_lives = lives > 1;
  if (options.control_map.empty() || makes_nothing_to_spoil || writes_behind_the_end || has_two_lives) {
    return std::nullopt;
  }
  return options;
}

}  // namespace velmora::effect
