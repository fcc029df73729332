// A machine with everything that the status document shows, and the expected parts of the document, written
// independently of the code under test.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "bridge/mapping.h"
#include "engine/algorithm_version.h"
#include "unit/binding/support/endpoint_machine.h"
#include "unit/support/fresh_machine.h"

namespace velmora::status_machine {

inline void put_registry_value(const std::string& path, std::string_view name, std::uint32_t type,
                               const std::string& bytes) {
  endpoint::put(endpoint::key_at(memory::system().state.registry, path), name, endpoint::Value{type, bytes});
}
inline void put_text(const std::string& path, std::string_view name, std::string_view text) {
  put_registry_value(path, name, endpoint::type_sz, endpoint::text_bytes(text));
}
inline void put_number(const std::string& path, std::string_view name, std::uint32_t number) {
  put_registry_value(path, name, endpoint::type_dword, endpoint::number_bytes(number, 4));
}

// A bound default endpoint, an installed effect, and an audio engine that has loaded it.
inline void set_up() {
  const std::string directory = "C:\\Program Files\\Velmora\\";
  const std::string library = directory + "velmora_windows_apo.dll";
  endpoint::set_up(endpoint::Words{.chain = "F A"});
  put_number(endpoint::render_path(endpoint::guid), "DeviceState", 1);
  const std::string own_path = std::string("SOFTWARE\\VelmoraStandIn\\Audio\\") + endpoint::id;
  put_text(own_path, "Volume", "0.6");
  put_number(own_path, "Muted", 1);
  put_text("SOFTWARE\\Classes\\CLSID\\{631D9145-CACF-44D7-861B-5D82ADD8C84F}\\InprocServer32", "", library);
  put_number("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Audio", "DisableProtectedAudioDG", 1);
  memory::System& machine = memory::system();
  machine.elevated = true;
  for (const char* file : {"velmora_windows_apo.dll", "fse.dll", "model_weights.bin"}) {
    machine.files[directory + file].kind = FileKind::regular;
  }
  machine.processes = {{4, u"System", {}},
                       {4242,
                        u"AudioDG.exe",
                        {{u"audiodg.exe", u"C:\\Windows\\System32\\audiodg.exe"},
                         {u"velmora_windows_apo.dll", endpoint::widen(library)},
                         {u"fse.dll", endpoint::widen(directory + "fse.dll")}}}};
}

// The values that the service and the effect write into the record.
inline void fill(ControlBridge& bridge) {
  ASSERT_EQ(bridge.publish_footstep(false, true, 0.625f), BridgeResult::done);
  ASSERT_EQ(bridge.publish_algorithm({-5.5f, 0.6f, 3, false, -12.0f, 2, 0}), BridgeResult::done);
  bridge.report_initialize_attempt({96, 95, 4, 1, true});
  bridge.report_initialize_success();
  bridge.report_initialize_progress(6, 0);
  bridge.report_format_negotiation(9);
  bridge.report_query(2, 0, 0);
  bridge.report_lock_attempt();
  bridge.report_lock_input_format({48000, 2, 32, 4, 1});
  bridge.report_lock_output_format({44100, 6, 24, 3, 5});
  bridge.report_lock_success({48000, 2, true, 2, 0x80004005});
  bridge.report_applied(false, true, 0.5f);
  bridge.report_processing(3.25f, 43);
  bridge.report_mode(6, ModeKind::initialized);
  bridge.count_processed_block();
  bridge.report_capture(2, 120, 0);
}

constexpr std::string_view filled_footstep =
    R"("footstep":{"bypass":false,"bypass_all":true,"enhance_strength":0.625,"output_trim_db":-5.5,)"
    R"("mask_time_alpha":0.6,"mask_frequency_smooth":3,"limiter_enabled":false,"limiter_ceiling_db":-12,)"
    R"("stereo_link":2})";
constexpr std::string_view filled_diagnostics =
    R"("apo_diagnostics":{"available":true,"initialize_attempt_count":1,"initialize_runtime_count":0,)"
    R"("initialize_discovery_count":1,"initialize_count":1,"lock_count":1,"initialize_data_size":96,)"
    R"("initialize_declared_size":95,"initialize_structure":4,"initialize_processing_mode":1,)"
    R"("initialize_for_discovery_only":true,"initialize_stage":6,"initialize_hresult":0,)"
    R"("format_negotiation_count":1,"input_format_negotiation_count":1,)"
    R"("output_format_negotiation_count":0,"get_effects_list_count":0,)"
    R"("get_controllable_effects_list_count":0,"get_latency_count":1,"get_input_channel_count_count":0,)"
    R"("last_effect_count":0,"last_controllable_effect_count":0,"last_latency_nonzero":false,)"
    R"("last_input_channel_count":0,"get_effects_list_succeeded":false,)"
    R"("get_controllable_effects_list_succeeded":false,"get_latency_succeeded":true,)"
    R"("get_input_channel_count_succeeded":false,"lock_attempt_count":1,"lock_stage":1,)"
    R"("lock_hresult":-2147483638,"lock_input_sample_rate":48000,"lock_input_channels":2,)"
    R"("lock_input_valid_bits":32,"lock_input_container_bytes":4,"lock_input_format_type":1,)"
    R"("lock_output_sample_rate":44100,"lock_output_channels":6,"lock_output_valid_bits":24,)"
    R"("lock_output_container_bytes":3,"lock_output_format_type":5,"sample_rate":48000,"channels":2,)"
    R"("algorithm_requested":true,"pipeline_mode":2,"last_algorithm_error":-2147467259,)"
    R"("applied_valid":true,"applied_bypass":false,"applied_bypass_all":true,"applied_strength":0.5,)"
    R"("processing_gain_valid":true,"processing_gain_db":3.25,"processing_block_count":43,)"
    R"("initialized_mode_mask":64,"locked_mode_mask":0,"processed_mode_mask":0,)"
    R"("total_processed_blocks":1,"capture_reported":true,"capture_state":2,"capture_seconds":120,)"
    R"("capture_detail_code":-2147483648})";
constexpr std::string_view filled_host =
    R"("apo_host":{"elevated":true,"clsid_registered":true,"protected_audio_dg_disabled":true,)"
    R"("apo_dll_present":true,"algorithm_present":true,)"
    R"("apo_dll_path":"C:\\Program Files\\Velmora\\velmora_windows_apo.dll",)"
    R"("render_clsid":"{631D9145-CACF-44D7-861B-5D82ADD8C84F}"})";
constexpr std::string_view filled_engine =
    R"("audio_engine":{"running":true,"process_id":4242,"apo_loaded":true,"algorithm_loaded":true,)"
    R"("apo_module_path":"C:\\Program Files\\Velmora\\velmora_windows_apo.dll","error_code":0})";
constexpr std::string_view filled_binding =
    R"("apo_binding":{"endpoint_id":"{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}",)"
    R"("bound":true,"fx_key_present":true,"error_code":0,)"
    R"("chain":["{9063CBD4-3561-449D-8011-E21BBB69B9DB}","{631D9145-CACF-44D7-861B-5D82ADD8C84F}"]})";
constexpr std::string_view signed_out_session =
    R"("session":{"account":"","signed_in":false,"usage_seconds":0,"signed_in_unix":0,)"
    R"("primary_machine_id":"","primary_known":false,"public_id":"","referral_open":false,)"
    R"("referrer":"","invite_url":""})";
constexpr std::string_view named_version =
    R"("versions":{"app":"1.2.0","algorithm":"3.14.15"},"control_bridge":"shared_memory_v8")";

// The whole document of such a machine with this `render` member, without a signed-in user.
inline std::string filled_document(std::string_view render) {
  std::string text = "{" + std::string(render);
  for (const std::string_view part : {filled_footstep, signed_out_session, named_version,
                                      std::string_view(R"("control_bridge_available":true)"),
                                      filled_diagnostics, filled_host, filled_engine, filled_binding}) {
    text.append(",").append(part);
  }
  return text + "}";
}

// The parts when nothing can be read.
constexpr std::string_view default_footstep =
    R"("footstep":{"bypass":true,"bypass_all":false,"enhance_strength":0,"output_trim_db":0,)"
    R"("mask_time_alpha":0,"mask_frequency_smooth":0,"limiter_enabled":true,"limiter_ceiling_db":-1,)"
    R"("stereo_link":1})";
constexpr std::string_view default_diagnostics =
    R"("apo_diagnostics":{"available":false,"initialize_attempt_count":0,"initialize_runtime_count":0,)"
    R"("initialize_discovery_count":0,"initialize_count":0,"lock_count":0,"initialize_data_size":0,)"
    R"("initialize_declared_size":0,"initialize_structure":0,"initialize_processing_mode":0,)"
    R"("initialize_for_discovery_only":false,"initialize_stage":0,"initialize_hresult":0,)"
    R"("format_negotiation_count":0,"input_format_negotiation_count":0,)"
    R"("output_format_negotiation_count":0,"get_effects_list_count":0,)"
    R"("get_controllable_effects_list_count":0,"get_latency_count":0,"get_input_channel_count_count":0,)"
    R"("last_effect_count":0,"last_controllable_effect_count":0,"last_latency_nonzero":false,)"
    R"("last_input_channel_count":0,"get_effects_list_succeeded":false,)"
    R"("get_controllable_effects_list_succeeded":false,"get_latency_succeeded":false,)"
    R"("get_input_channel_count_succeeded":false,"lock_attempt_count":0,"lock_stage":0,)"
    R"("lock_hresult":0,"lock_input_sample_rate":0,"lock_input_channels":0,)"
    R"("lock_input_valid_bits":0,"lock_input_container_bytes":0,"lock_input_format_type":0,)"
    R"("lock_output_sample_rate":0,"lock_output_channels":0,"lock_output_valid_bits":0,)"
    R"("lock_output_container_bytes":0,"lock_output_format_type":0,"sample_rate":0,"channels":0,)"
    R"("algorithm_requested":false,"pipeline_mode":0,"last_algorithm_error":0,)"
    R"("applied_valid":false,"applied_bypass":true,"applied_bypass_all":false,"applied_strength":0,)"
    R"("processing_gain_valid":false,"processing_gain_db":0,"processing_block_count":0,)"
    R"("initialized_mode_mask":0,"locked_mode_mask":0,"processed_mode_mask":0,)"
    R"("total_processed_blocks":0,"capture_reported":false,"capture_state":0,"capture_seconds":0,)"
    R"("capture_detail_code":0})";
constexpr std::string_view default_host =
    R"("apo_host":{"elevated":false,"clsid_registered":false,"protected_audio_dg_disabled":false,)"
    R"("apo_dll_present":false,"algorithm_present":false,"apo_dll_path":"",)"
    R"("render_clsid":"{631D9145-CACF-44D7-861B-5D82ADD8C84F}"})";
constexpr std::string_view default_engine =
    R"("audio_engine":{"running":false,"process_id":0,"apo_loaded":false,"algorithm_loaded":false,)"
    R"("apo_module_path":"","error_code":0})";
constexpr std::string_view default_binding =
    R"("apo_binding":{"endpoint_id":"","bound":false,"fx_key_present":false,"error_code":-2147024809,)"
    R"("chain":[]})";

inline std::string empty_document(std::string_view render) {
  std::string text = "{" + std::string(render);
  for (const std::string_view part : {default_footstep, signed_out_session, named_version,
                                      std::string_view(R"("control_bridge_available":false)"),
                                      default_diagnostics, default_host, default_engine, default_binding}) {
    text.append(",").append(part);
  }
  return text + "}";
}

// Sets algorithm_version to "3.14.15" for each test.
class StatusMachine : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    algorithm_version = "3.14.15";
  }
  void TearDown() override {
    bridge_.close();
    FreshMachine::TearDown();
  }
  // The full machine with an open bridge and an empty log.
  void set_up_everything() {
    set_up();
    std::string message;
    ASSERT_TRUE(bridge_.create(u"Local\\status", message)) << message;
    fill(bridge_);
    memory::system().log.clear();
  }

  ControlBridge bridge_;
};

}  // namespace velmora::status_machine
