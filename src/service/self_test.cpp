#include "service/self_test.h"

#include <cmath>
#include <string>

#include "base/text.h"
#include "binding/binding.h"
#include "bridge/mapping.h"
#include "effects/presets.h"
#include "http/gate.h"
#include "json/escape.h"
#include "json/find.h"
#include "platform/machine.h"
#include "service/token.h"

namespace velmora {
namespace {

// True while every check has passed.
class Verdict {
 public:
  void check(bool held) { passed_ = passed_ && held; }
  [[nodiscard]] bool passed() const { return passed_; }

 private:
  bool passed_ = true;
};

void check_json(Verdict& verdict) {
  verdict.check(json_find_number("{\"volume\":0.75}", "volume") == 0.75f);
  verdict.check(!json_find_number("{\"volume\":2}", "missing"));
  verdict.check(json_find_bool("{\"muted\":true}", "muted") == true);
  verdict.check(json_find_bool("{\"bypass\":false}", "bypass") == false);
  verdict.check(json_find_string("{\"endpoint_id\":\"a\\\\b\\\"c\"}", "endpoint_id") == "a\\b\"c");
  verdict.check(!json_find_string("{\"endpoint_id\":12}", "endpoint_id"));
  verdict.check(json_escape("a\n\"b\\c") == "a\\n\\\"b\\\\c");
}

void check_token(Verdict& verdict) {
  verdict.check(!constant_time_equal("abc", "abd"));
  verdict.check(constant_time_equal("abc", "abc"));
  verdict.check(!generate_session_token().empty());
}

void check_endpoint_ids(Verdict& verdict) {
  std::string guid;
  verdict.check(effect_clsid_text() == "{631D9145-CACF-44D7-861B-5D82ADD8C84F}");
  verdict.check(endpoint_guid_from_id("{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}", guid));
  verdict.check(guid == "{feab839f-3407-471a-aa45-bcd41f1bb5f6}");
  verdict.check(!endpoint_guid_from_id("{0.0.0.00000000}.{not-a-guid}", guid));
}

void check_chain(Verdict& verdict) {
  const Chain base = {"{9063CBD4-3561-449D-8011-E21BBB69B9DB}"};
  const std::string effect = effect_clsid_text();
  const Chain bound = chain_with(base, effect);
  verdict.check(bound == Chain{base.front(), effect});
  verdict.check(chain_contains(bound, effect));
  verdict.check(chain_with(bound, effect) == bound);
  verdict.check(chain_without(bound, effect) == base);
  verdict.check(chain_contains(bound, "{631d9145-cacf-44d7-861b-5d82add8c84f}"));
  verdict.check(chain_without(base, effect) == base);
}

bool is_near(float value, float expected, float tolerance) { return std::abs(value - expected) <= tolerance; }

void check_footstep(Verdict& verdict, ControlBridge& service, ControlBridge& effect, bool bypass_all,
                    float strength) {
  FootstepParameters footstep{};
  verdict.check(service.publish_footstep(false, bypass_all, strength) == BridgeResult::done);
  verdict.check(effect.read_footstep(footstep));
  verdict.check(!footstep.bypass && footstep.bypass_all == bypass_all);
  verdict.check(footstep.enhance_strength == strength);
}

void check_algorithm(Verdict& verdict, ControlBridge& service, ControlBridge& effect,
                     const AlgorithmParameters& sent, float alpha_tolerance) {
  AlgorithmParameters read;
  verdict.check(service.publish_algorithm(sent) == BridgeResult::done);
  verdict.check(effect.read_algorithm(read));
  verdict.check(is_near(read.output_trim_db, sent.output_trim_db, 0.05f));
  verdict.check(is_near(read.limiter_ceiling_db, sent.limiter_ceiling_db, 0.05f));
  verdict.check(is_near(read.mask_time_alpha, sent.mask_time_alpha, alpha_tolerance));
  verdict.check(read.mask_frequency_smooth == sent.mask_frequency_smooth);
  verdict.check(read.limiter_enabled == sent.limiter_enabled && read.stereo_link == sent.stereo_link);
}

constexpr StreamFormat tested_format = {48000, 2, 32, 4, 1};

// The effect's reports up to a negotiated format, before any stream.
void check_negotiation(Verdict& verdict, ControlBridge& effect) {
  effect.report_initialize_attempt({96, 96, 4, 1, true});
  effect.report_initialize_success();
  effect.report_initialize_progress(6, 0);
  effect.report_format_negotiation(stage_input_negotiation);
  effect.report_lock_input_format(tested_format);
  effect.report_lock_output_format(tested_format);
  effect.report_lock_progress(11, 0);

  ControlDiagnostics read;
  verdict.check(effect.read_diagnostics(read));
  verdict.check(read.format_negotiation_count == 1 && read.lock_attempt_count == 0);
  verdict.check(read.lock_stage == 11 && read.lock_hresult == 0);
  verdict.check(read.lock_input_sample_rate == 48000 && read.lock_output_sample_rate == 48000);
  verdict.check(read.total_processed_blocks == 0);
  verdict.check(!read.applied_valid && !read.processing_gain_valid);
}

void lock_stream(ControlBridge& effect) {
  effect.report_lock_attempt();
  effect.report_lock_input_format(tested_format);
  effect.report_lock_output_format(tested_format);
  effect.report_lock_progress(8, 0);
  effect.report_lock_success({48000, 2, true, 2, 0});
}

void process_audio(ControlBridge& effect) {
  effect.report_applied(false, true, 0.5f);
  effect.report_processing(3.25f, 43);
  effect.report_mode(6, ModeKind::initialized);
  effect.report_mode(6, ModeKind::locked);
  effect.report_mode(2, ModeKind::processed);
  effect.count_processed_block();
  effect.count_processed_block();
}

void check_initialisation(Verdict& verdict, const ControlDiagnostics& read) {
  verdict.check(read.initialize_attempt_count == 1 && read.initialize_count == 1);
  verdict.check(read.initialize_data_size == 96 && read.initialize_declared_size == 96);
  verdict.check(read.initialize_structure == 4 && read.initialize_processing_mode == 1);
  verdict.check(read.initialize_for_discovery_only);
  verdict.check(read.initialize_stage == 6 && read.initialize_hresult == 0);
}

void check_lock(Verdict& verdict, const ControlDiagnostics& read) {
  verdict.check(read.lock_count == 1);
  verdict.check(read.format_negotiation_count == 1 && read.lock_attempt_count == 1);
  verdict.check(read.lock_stage == 8 && read.lock_hresult == 0);
  verdict.check(read.lock_input_sample_rate == 48000 && read.lock_output_sample_rate == 48000);
  verdict.check(read.lock_input_channels == 2 && read.lock_output_channels == 2);
  verdict.check(read.lock_input_valid_bits == 32 && read.lock_output_valid_bits == 32);
  verdict.check(read.lock_input_container_bytes == 4 && read.lock_output_container_bytes == 4);
  verdict.check(read.lock_input_format_type == 1 && read.lock_output_format_type == 1);
  verdict.check(read.sample_rate == 48000 && read.channels == 2);
  verdict.check(read.algorithm_requested && read.pipeline_mode == 2 && read.last_algorithm_error == 0);
}

void check_processing(Verdict& verdict, const ControlDiagnostics& read) {
  verdict.check(read.applied_valid && !read.applied_bypass && read.applied_bypass_all);
  verdict.check(read.applied_strength == 0.5f);
  verdict.check(read.processing_gain_valid && read.processing_gain_db == 3.25f);
  verdict.check(read.processing_block_count == 43 && read.total_processed_blocks == 2);
  verdict.check(read.initialized_mode_mask == 64 && read.locked_mode_mask == 64);
  verdict.check(read.processed_mode_mask == 4);
}

void check_diagnostics(Verdict& verdict, ControlBridge& effect) {
  ControlDiagnostics read;
  verdict.check(effect.read_diagnostics(read));
  check_initialisation(verdict, read);
  check_lock(verdict, read);
  check_processing(verdict, read);
}

void check_bridge(Verdict& verdict) {
  const std::string name = "Local\\VelmoraSelfTest-" + std::to_string(own_process_id());
  std::string message;
  ControlBridge service;
  ControlBridge effect;
  verdict.check(service.create(wide_from_signed_bytes(name), message));
  verdict.check(effect.open(wide_from_signed_bytes(name), message));
  check_footstep(verdict, service, effect, false, 0.625f);
  check_footstep(verdict, service, effect, true, 0.5f);
  check_negotiation(verdict, effect);
  lock_stream(effect);
  check_algorithm(verdict, service, effect, {-5.5f, 0.6f, 1, true, -1.0f, 1, 0}, 0.01f);
  check_algorithm(verdict, service, effect, {-20.0f, 0.0f, 0, false, -12.0f, 2, 0}, 0.0f);
  process_audio(effect);
  check_diagnostics(verdict, effect);
}

void check_preset_names(Verdict& verdict) {
  constexpr std::string_view two_chinese_characters = "\xE4\xB8\xAD\xE6\x96\x87";
  const std::string longest(64, 'a');
  for (const std::string_view name :
       {std::string_view("normal"), std::string_view("with-dash_1"), std::string_view("with space"),
        two_chinese_characters, std::string_view(longest)}) {
    verdict.check(preset_name_valid(name));
  }
  for (const std::string_view name :
       {"", "..", ".", "../escape", "..\\escape", "with/slash", "with\\slash", "with:colon", "with*star",
        "with?query", "trailing.", "trailing ", " leading", "with\"quote", "with<gt", "with|pipe"}) {
    verdict.check(!preset_name_valid(name));
  }
  verdict.check(!preset_name_valid(longest + 'a'));
}

}  // namespace

bool run_self_test() {
  Verdict verdict;
  check_json(verdict);
  check_token(verdict);
  check_endpoint_ids(verdict);
  check_chain(verdict);
  check_bridge(verdict);
  check_preset_names(verdict);
  write_standard_output(verdict.passed() ? "Velmora control self-test passed\n"
                                         : "Velmora control self-test failed\n");
  return verdict.passed();
}

}  // namespace velmora
