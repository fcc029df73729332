#include "api/status_document.h"

#include "base/status.h"
#include "base/version.h"
#include "engine/algorithm_version.h"
#include "json/write.h"

namespace velmora {
namespace {

// More than a document with ordinary texts needs, so that it is built without reallocation.
constexpr std::size_t reserved_bytes = 8192;

void write_render(std::string& out, const EndpointVolumeState& volume) {
  JsonObject members(out, status_digits);
  members.add("available", volume.available);
  members.add("volume", volume.volume);
  members.add("muted", volume.muted);
  members.add("error_code", volume.error_code);
  members.end();
}

void write_footstep(std::string& out, const FootstepParameters& footstep,
                    const AlgorithmParameters& algorithm) {
  JsonObject members(out, status_digits);
  members.add("bypass", footstep.bypass);
  members.add("bypass_all", footstep.bypass_all);
  members.add("enhance_strength", footstep.enhance_strength);
  members.add("output_trim_db", algorithm.output_trim_db);
  members.add("mask_time_alpha", algorithm.mask_time_alpha);
  members.add("mask_frequency_smooth", algorithm.mask_frequency_smooth);
  members.add("limiter_enabled", algorithm.limiter_enabled);
  members.add("limiter_ceiling_db", algorithm.limiter_ceiling_db);
  members.add("stereo_link", algorithm.stereo_link);
  members.end();
}

// The token of the session is secret and is left out.
void write_session(std::string& out, const AccountSession& session) {
  JsonObject members(out);
  members.add("account", session.account_hash);
  members.add("signed_in", !session.account_hash.empty());
  members.add("usage_seconds", session.usage_seconds);
  members.add("signed_in_unix", session.signed_in_unix);
  members.add("primary_machine_id", session.primary_machine_id);
  members.add("primary_known", session.primary_known);
  members.add("public_id", session.public_id);
  members.add("referral_open", session.referral_open);
  members.add("referrer", session.referrer);
  members.add("invite_url", session.invite_url);
  members.end();
}

void write_versions(std::string& out) {
  JsonObject members(out);
  members.add("app", application_version);
  members.add("algorithm", algorithm_version);
  members.end();
}

void write_diagnostics(std::string& out, bool available, const ControlDiagnostics& diagnostics) {
  JsonObject members(out, status_digits);
  members.add("available", available);
  members.add("initialize_attempt_count", diagnostics.initialize_attempt_count);
  members.add("initialize_runtime_count", diagnostics.initialize_runtime_count);
  members.add("initialize_discovery_count", diagnostics.initialize_discovery_count);
  members.add("initialize_count", diagnostics.initialize_count);
  members.add("lock_count", diagnostics.lock_count);
  members.add("initialize_data_size", diagnostics.initialize_data_size);
  members.add("initialize_declared_size", diagnostics.initialize_declared_size);
  members.add("initialize_structure", diagnostics.initialize_structure);
  members.add("initialize_processing_mode", diagnostics.initialize_processing_mode);
  members.add("initialize_for_discovery_only", diagnostics.initialize_for_discovery_only);
  members.add("initialize_stage", diagnostics.initialize_stage);
  members.add("initialize_hresult", diagnostics.initialize_hresult);
  members.add("format_negotiation_count", diagnostics.format_negotiation_count);
  members.add("input_format_negotiation_count", diagnostics.input_format_negotiation_count);
  members.add("output_format_negotiation_count", diagnostics.output_format_negotiation_count);
  members.add("get_effects_list_count", diagnostics.get_effects_list_count);
  members.add("get_controllable_effects_list_count", diagnostics.get_controllable_effects_list_count);
  members.add("get_latency_count", diagnostics.get_latency_count);
  members.add("get_input_channel_count_count", diagnostics.get_input_channel_count_count);
  members.add("last_effect_count", diagnostics.last_effect_count);
  members.add("last_controllable_effect_count", diagnostics.last_controllable_effect_count);
  members.add("last_latency_nonzero", diagnostics.last_latency_nonzero);
  members.add("last_input_channel_count", diagnostics.last_input_channel_count);
  members.add("get_effects_list_succeeded", diagnostics.get_effects_list_succeeded);
  members.add("get_controllable_effects_list_succeeded", diagnostics.get_controllable_effects_list_succeeded);
  members.add("get_latency_succeeded", diagnostics.get_latency_succeeded);
  members.add("get_input_channel_count_succeeded", diagnostics.get_input_channel_count_succeeded);
  members.add("lock_attempt_count", diagnostics.lock_attempt_count);
  members.add("lock_stage", diagnostics.lock_stage);
  members.add("lock_hresult", diagnostics.lock_hresult);
  members.add("lock_input_sample_rate", diagnostics.lock_input_sample_rate);
  members.add("lock_input_channels", diagnostics.lock_input_channels);
  members.add("lock_input_valid_bits", diagnostics.lock_input_valid_bits);
  members.add("lock_input_container_bytes", diagnostics.lock_input_container_bytes);
  members.add("lock_input_format_type", diagnostics.lock_input_format_type);
  members.add("lock_output_sample_rate", diagnostics.lock_output_sample_rate);
  members.add("lock_output_channels", diagnostics.lock_output_channels);
  members.add("lock_output_valid_bits", diagnostics.lock_output_valid_bits);
  members.add("lock_output_container_bytes", diagnostics.lock_output_container_bytes);
  members.add("lock_output_format_type", diagnostics.lock_output_format_type);
  members.add("sample_rate", diagnostics.sample_rate);
  members.add("channels", diagnostics.channels);
  members.add("algorithm_requested", diagnostics.algorithm_requested);
  members.add("pipeline_mode", diagnostics.pipeline_mode);
  members.add("last_algorithm_error", diagnostics.last_algorithm_error);
  members.add("applied_valid", diagnostics.applied_valid);
  members.add("applied_bypass", diagnostics.applied_bypass);
  members.add("applied_bypass_all", diagnostics.applied_bypass_all);
  members.add("applied_strength", diagnostics.applied_strength);
  members.add("processing_gain_valid", diagnostics.processing_gain_valid);
  members.add("processing_gain_db", diagnostics.processing_gain_db);
  members.add("processing_block_count", diagnostics.processing_block_count);
  members.add("initialized_mode_mask", diagnostics.initialized_mode_mask);
  members.add("locked_mode_mask", diagnostics.locked_mode_mask);
  members.add("processed_mode_mask", diagnostics.processed_mode_mask);
  members.add("total_processed_blocks", diagnostics.total_processed_blocks);
  members.add("capture_reported", diagnostics.capture_reported);
  members.add("capture_state", diagnostics.capture_state);
  members.add("capture_seconds", diagnostics.capture_seconds);
  members.add("capture_detail_code", diagnostics.capture_detail_code);
  members.end();
}

void write_host(std::string& out, const EffectInstallState& install, std::string_view effect_clsid) {
  JsonObject members(out);
  members.add("elevated", install.elevated);
  members.add("clsid_registered", install.clsid_registered);
  members.add("protected_audio_dg_disabled", install.protected_audio_dg_disabled);
  members.add("apo_dll_present", install.apo_dll_present);
  members.add("algorithm_present", install.algorithm_present);
  members.add("apo_dll_path", install.apo_dll_path);
  members.add("render_clsid", effect_clsid);
  members.end();
}

void write_engine(std::string& out, const AudioEngineState& engine) {
  JsonObject members(out);
  members.add("running", engine.running);
  members.add("process_id", engine.process_id);
  members.add("apo_loaded", engine.apo_loaded);
  members.add("algorithm_loaded", engine.algorithm_loaded);
  members.add("apo_module_path", engine.apo_module_path);
  members.add("error_code", engine.error_code);
  members.end();
}

void write_binding(std::string& out, std::string_view endpoint_id, const EndpointBindingState& binding) {
  JsonObject members(out);
  members.add("endpoint_id", endpoint_id);
  members.add("bound", binding.bound);
  members.add("fx_key_present", binding.fx_key_present);
  members.add("error_code", binding.error_code);
  members.add("chain", binding.chain);
  members.end();
}

}  // namespace

StatusSnapshot take_status_snapshot(ControlBridge& bridge, const EndpointVolumeState& volume,
                                    std::string_view endpoint_id) {
  StatusSnapshot snapshot;
  snapshot.volume = volume;
  static_cast<void>(bridge.read_algorithm(snapshot.algorithm));
  snapshot.bridge_available = bridge.read_footstep(snapshot.footstep);
  snapshot.diagnostics_available = bridge.read_diagnostics(snapshot.diagnostics);
  snapshot.install = probe_effect_install();
  snapshot.effect_clsid = effect_clsid_text();
  snapshot.engine = probe_audio_engine();
  if (endpoint_id.empty()) {
    snapshot.binding.error_code = status_invalid_argument;
  } else {
    static_cast<void>(inspect_endpoint_binding(endpoint_id, snapshot.binding));
  }
  return snapshot;
}

std::string write_status_json(const StatusSnapshot& snapshot, std::string_view endpoint_id,
                              const AccountSession& session) {
  std::string out;
  out.reserve(reserved_bytes);
  JsonObject members(out);
  write_render(members.begin("render"), snapshot.volume);
  write_footstep(members.begin("footstep"), snapshot.footstep, snapshot.algorithm);
  write_session(members.begin("session"), session);
  write_versions(members.begin("versions"));
  append_integer(members.begin("control_bridge").append("\"shared_memory_v"), record_layout_version);
  out += '"';
  members.add("control_bridge_available", snapshot.bridge_available);
  write_diagnostics(members.begin("apo_diagnostics"), snapshot.diagnostics_available, snapshot.diagnostics);
  write_host(members.begin("apo_host"), snapshot.install, snapshot.effect_clsid);
  write_engine(members.begin("audio_engine"), snapshot.engine);
  write_binding(members.begin("apo_binding"), endpoint_id, snapshot.binding);
  members.end();
  return out;
}

std::string build_status_json(ControlBridge& bridge, const EndpointVolumeState& volume,
                              std::string_view endpoint_id, const AccountSession& session) {
  return write_status_json(take_status_snapshot(bridge, volume, endpoint_id), endpoint_id, session);
}

}  // namespace velmora
