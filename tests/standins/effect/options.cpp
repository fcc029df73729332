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

bool take_option(std::string_view name, std::string_view value, Options& options) {
  if (name == "--control-map") {
    options.control_map = value;
    return !value.empty();
  }
  if (name == "--capture-directory") {
    options.capture_directory = value;
    return !value.empty();
  }
  if (name == "--capture-fault") return parse_capture_fault(value, options.capture_fault);
  if (name == "--poll-ms") return parse_number(value, options.poll_ms) && options.poll_ms > 0;
  if (name == "--fault") return parse_fault(value, options.fault);
  if (name == "--finish-after-ms") return parse_number(value, options.finish_after_ms);
  if (name == "--exit-after-ms") return parse_number(value, options.exit_after_ms);
  return false;
}

}  // namespace

const char usage[] =
    "usage: velmora_standin_effect --control-map NAME [--open-only] [--poll-ms N]\n"
    "         [--fault unfinished|magic|version|size|small] [--finish-after-ms N] [--exit-after-ms N]\n"
    "         [--capture-directory PATH] [--capture-fault refuse|partial]\n";

std::optional<Options> parse_options(int argc, const char* const* argv) {
  Options options;
  for (int index = 1; index < argc; ++index) {
    const std::string_view name = argv[index];
    if (name == "--open-only") {
      options.open_only = true;
      continue;
    }
    if (++index == argc || !take_option(name, argv[index], options)) return std::nullopt;
  }
  const bool makes_nothing_to_spoil =
      options.open_only && (options.fault != Fault::none || options.finish_after_ms.has_value());
  if (options.control_map.empty() || makes_nothing_to_spoil) return std::nullopt;
  return options;
}

}  // namespace velmora::effect
