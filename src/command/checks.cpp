#include "command/checks.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "command/words.h"

namespace velmora {
namespace {

constexpr std::string_view yes = "yes";
constexpr std::string_view no = "no";
constexpr std::string_view unknown = "unknown";
const std::string unread = "Cannot be read.";

// What an initialization leaves that has begun and not ended (E_PENDING).
constexpr double pending_result = -2147483638.0;

// How Windows writes a result, such as 0x80070005.
std::string result_text(double result) {
  // Results are 32 bits; the documents write them as signed or unsigned numbers.
  const auto bits = static_cast<std::uint32_t>(static_cast<std::int64_t>(result));
  std::array<char, 16> text;
  const int length = std::snprintf(text.data(), text.size(), "0x%08X", static_cast<unsigned>(bits));
  return {text.data(), static_cast<std::size_t>(length)};
}

bool is_result(std::optional<double> number) {
  return number && std::abs(*number) < 4294967296.0;  // false for NaN too
}

CheckLine judge_installed(const JsonNode& now) {
  const auto registered = flag_at(now, {"apo_host", "clsid_registered"});
  const auto file = flag_at(now, {"apo_host", "apo_dll_present"});
  const auto algorithm = flag_at(now, {"apo_host", "algorithm_present"});
  const auto path = text_at(now, {"apo_host", "apo_dll_path"});
  if (registered == false) return {"installed", no, "The effect is not registered with Windows."};
  if (file == false) return {"installed", no, "The effect's file is missing: " + path.value_or("")};
  if (algorithm == false) {
    return {"installed", no, "fse.dll or model_weights.bin is missing beside the effect's file."};
  }
  if (registered && file && algorithm) {
    return {"installed", yes, "The effect and its algorithm are installed."};
  }
  return {"installed", unknown, unread};
}

// What the device list says about the device that the status document names. Where they name different ones,
// or one does not know, it is unknown.
std::optional<bool> bound_in_list(const StatusDocuments& documents, const std::string& endpoint_id) {
  const JsonNode* const render = find_node(documents.devices, {"render"});
  if (render == nullptr) return std::nullopt;
  for (const JsonNode& device : render->nodes) {
    if (text_at(device, {"id"}) == endpoint_id) return flag_at(device, {"apo_bound"});
  }
  return std::nullopt;
}

std::optional<bool> has_effect(const StatusDocuments& documents) {
  const auto endpoint_id = text_at(documents.now, {"apo_binding", "endpoint_id"});
  const auto selected_id = text_at(documents.devices, {"selected_render_endpoint_id"});
  if (selected_id && endpoint_id && *selected_id != *endpoint_id) return std::nullopt;
  const auto bound = flag_at(documents.now, {"apo_binding", "bound"});
  const auto listed = bound_in_list(documents, endpoint_id.value_or(""));
  if (!bound || !listed) return bound ? bound : listed;
  return *bound == *listed ? bound : std::nullopt;
}

CheckLine judge_added(const StatusDocuments& documents) {
  const auto added = has_effect(documents);
  if (!added) return {"added", unknown, "The device's effect chain cannot be read yet."};
  if (*added) return {"added", yes, "The effect is in the device's effect chain."};
  return {"added", no, "The effect is not in the device's effect chain."};
}

// Whether the processes were listed without a failure, so that "not running" is a fact.
bool engine_is_listed(const JsonNode& now) { return number_at(now, {"audio_engine", "error_code"}) == 0.0; }

std::optional<bool> engine_flag(const JsonNode& now, std::string_view name) {
  const auto flag = flag_at(now, {"audio_engine", name});
  return flag == true || engine_is_listed(now) ? flag : std::nullopt;
}

// The failure to list processes or modules, as words, or no value.
std::optional<std::string> listing_failure(const JsonNode& now) {
  const auto code = number_at(now, {"audio_engine", "error_code"});
  if (!is_result(code) || *code == 0) return std::nullopt;
  return result_text(*code);
}

CheckLine judge_engine(const JsonNode& now) {
  const auto running = engine_flag(now, "running");
  const auto process_id = number_at(now, {"audio_engine", "process_id"});
  if (running == true) {
    return {"engine", yes, "The audio engine runs, process " + count_text(process_id) + "."};
  }
  if (running == false) {
    return {"engine", no,
            "The audio engine (audiodg.exe) does not run. Windows starts it when something plays."};
  }
  if (const auto failure = listing_failure(now)) {
    return {"engine", unknown, "The processes cannot be listed: " + *failure + "."};
  }
  return {"engine", unknown, unread};
}

CheckLine judge_loaded(const JsonNode& now) {
  const auto effect = engine_flag(now, "apo_loaded");
  const auto algorithm = engine_flag(now, "algorithm_loaded");
  if (engine_flag(now, "running") == false) {
    return {"loaded", unknown, "Nothing is loaded while the engine does not run."};
  }
  if (effect == true && algorithm == false) {
    return {"loaded", no, "The engine has loaded the effect without its algorithm."};
  }
  if (effect == true) return {"loaded", yes, "The engine has loaded the effect and its algorithm."};
  if (effect == false) return {"loaded", no, "The engine has not loaded the effect."};
  if (const auto failure = listing_failure(now)) {
    return {"loaded", unknown,
            "The engine's modules cannot be listed: " + *failure + ". The effect's own counters decide."};
  }
  return {"loaded", unknown, unread};
}

std::optional<double> blocks_of(const JsonNode& document) {
  return number_at(document, {"apo_diagnostics", "total_processed_blocks"});
}

CheckLine judge_processing(const JsonNode& before, const JsonNode& now) {
  if (flag_at(now, {"apo_diagnostics", "available"}) == false) {
    return {"processing", unknown, "The effect's report cannot be read."};
  }
  const auto earlier = blocks_of(before);
  const auto blocks = blocks_of(now);
  const std::string so_far = ": " + count_text(blocks) + " blocks so far, on all devices.";
  if (earlier && blocks && *blocks > *earlier) {
    return {"processing", yes, "Sound goes through the effect" + so_far};
  }
  const auto result = number_at(now, {"apo_diagnostics", "initialize_hresult"});
  if (is_result(result) && *result < 0 && *result != pending_result) {
    return {"processing", no, "The effect could not be initialized: " + result_text(*result) + "."};
  }
  // A record that was created again starts at 0.
  if (earlier && blocks && *blocks == *earlier) {
    return {"processing", no, "No sound goes through the effect" + so_far};
  }
  return {"processing", unknown, unread};
}

std::optional<bool> applied_equals_wanted(const JsonNode& now) {
  const auto strength = number_at(now, {"footstep", "enhance_strength"});
  const auto applied_strength = number_at(now, {"apo_diagnostics", "applied_strength"});
  const auto bypass = flag_at(now, {"footstep", "bypass"});
  const auto applied_bypass = flag_at(now, {"apo_diagnostics", "applied_bypass"});
  const auto bypass_all = flag_at(now, {"footstep", "bypass_all"});
  const auto applied_bypass_all = flag_at(now, {"apo_diagnostics", "applied_bypass_all"});
  if (!strength || !applied_strength || !bypass || !applied_bypass || !bypass_all || !applied_bypass_all) {
    return std::nullopt;
  }
  // Both have been printed from a 32-bit float with seven digits.
  constexpr double rounding = 1e-6;
  return *bypass == *applied_bypass && *bypass_all == *applied_bypass_all &&
         std::abs(*strength - *applied_strength) < rounding;
}

CheckLine judge_applied(const JsonNode& now) {
  const auto valid = flag_at(now, {"apo_diagnostics", "applied_valid"});
  if (valid == false) {
    return {"applied", unknown, "The effect has not reported what it applies. It does while sound plays."};
  }
  const auto equals = valid ? applied_equals_wanted(now) : std::nullopt;
  if (!equals) return {"applied", unknown, unread};
  const std::string strength = percent_text(number_at(now, {"apo_diagnostics", "applied_strength"}));
  if (*equals) return {"applied", yes, "The effect has applied these settings, strength " + strength + "."};
  return {"applied", no,
          "The effect has applied other settings, strength " + strength + ". It follows while sound plays."};
}

}  // namespace

std::vector<CheckLine> judge_checks(const StatusDocuments& documents) {
  const JsonNode& now = documents.now;
  return {judge_installed(now),
          judge_added(documents),
          judge_engine(now),
          judge_loaded(now),
          judge_processing(documents.before, now),
          judge_applied(now)};
}

}  // namespace velmora
