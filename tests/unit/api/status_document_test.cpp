// One file because it tests one source: taking a snapshot and writing its text.
#include "api/status_document.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <vector>

#include "unit/api/support/status_machine.h"

namespace velmora {
namespace {

using namespace status_machine;
std::size_t count_of(std::string_view text, std::string_view fragment) {
  std::size_t count = 0;
  for (std::size_t at = text.find(fragment); at != std::string_view::npos; at = text.find(fragment, at + 1)) {
    ++count;
  }
  return count;
}

constexpr std::string_view endpoint_id = "{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}";

using StatusDocument = StatusMachine;

// A snapshot in which all numbers differ and all texts differ.
StatusSnapshot distinct_snapshot() {
  StatusSnapshot snapshot;
  snapshot.volume = {true, 0.6f, false, 101};
  snapshot.bridge_available = false;
  snapshot.footstep = {false, true, 0.625f, 999};
  snapshot.algorithm = {-5.5f, 0.7f, 7, true, -1.25f, 3, 998};
  snapshot.diagnostics_available = true;
  ControlDiagnostics& effect = snapshot.diagnostics;
  effect.initialize_attempt_count = 18446744073709551615u;
  effect.initialize_runtime_count = 4294967295u;
  effect.initialize_discovery_count = 4294967294u;
  effect.initialize_count = 18446744073709551614u;
  effect.lock_count = 18446744073709551613u;
  effect.initialize_data_size = 4294967293u;
  effect.initialize_declared_size = 4294967292u;
  effect.initialize_structure = 2147483647u;
  effect.initialize_processing_mode = 4294967291u;
  effect.initialize_for_discovery_only = false;
  effect.initialize_stage = 4294967290u;
  effect.initialize_hresult = -2147483638;
  effect.format_negotiation_count = 131070u;
  effect.input_format_negotiation_count = 65535u;
  effect.output_format_negotiation_count = 65534u;
  effect.get_effects_list_count = 255u;
  effect.get_controllable_effects_list_count = 254u;
  effect.get_latency_count = 253u;
  effect.get_input_channel_count_count = 252u;
  effect.last_effect_count = 63u;
  effect.last_controllable_effect_count = 62u;
  effect.last_latency_nonzero = true;
  effect.last_input_channel_count = 61u;
  effect.get_effects_list_succeeded = false;
  effect.get_controllable_effects_list_succeeded = true;
  effect.get_latency_succeeded = false;
  effect.get_input_channel_count_succeeded = true;
  effect.lock_attempt_count = 4294967296u;
  effect.lock_stage = 4294967289u;
  effect.lock_hresult = -2147483648;
  effect.lock_input_sample_rate = 48000u;
  effect.lock_input_channels = 2u;
  effect.lock_input_valid_bits = 32u;
  effect.lock_input_container_bytes = 4u;
  effect.lock_input_format_type = 1u;
  effect.lock_output_sample_rate = 96000u;
  effect.lock_output_channels = 8u;
  effect.lock_output_valid_bits = 24u;
  effect.lock_output_container_bytes = 5u;
  effect.lock_output_format_type = 9u;
  effect.sample_rate = 192000u;
  effect.channels = 6u;
  effect.algorithm_requested = true;
  effect.pipeline_mode = 2147483646u;
  effect.last_algorithm_error = -2147467259;
  effect.applied_valid = false;
  effect.applied_bypass = true;
  effect.applied_bypass_all = false;
  effect.applied_strength = 0.3f;
  effect.processing_gain_valid = true;
  effect.processing_gain_db = -32.757877f;
  effect.processing_block_count = 2147483645u;
  effect.initialized_mode_mask = 65533u;
  effect.locked_mode_mask = 65532u;
  effect.processed_mode_mask = 65531u;
  effect.total_processed_blocks = 18446744073709551612u;
  effect.capture_reported = true;
  effect.capture_state = 65530u;
  effect.capture_seconds = 65529u;
  effect.capture_detail_code = -2147024891;
  snapshot.install = {false, true, false, true, false, "C:\\Program Files\\apo.dll"};
  snapshot.effect_clsid = "{CLASS}";
  snapshot.engine = {true, 4294967288u, false, true, "D:\\apo.dll", -2147024890};
  snapshot.binding = {true, false, {"{FIRST}", "{SECOND}", "{THIRD}"}, -2147023728};
  return snapshot;
}

AccountSession distinct_session() {
  AccountSession session;
  session.account_hash = "account hash";
  session.signed_in_unix = 1700000000;
  session.usage_seconds = -9223372036854775807;
  session.token = "the secret";
  session.public_id = "public id";
  session.primary_machine_id = "primary machine";
  session.primary_known = true;
  session.referral_open = false;
  session.referrer = "the referrer";
  session.invite_url = "https://invite/?a=b&c";
  return session;
}

TEST_F(StatusDocument, ContainsEachValueUnderItsKeyInOrder) {
  EXPECT_EQ(
      write_status_json(distinct_snapshot(), "the endpoint", distinct_session()),
      R"({"render":{"available":true,"volume":0.6,"muted":false,"error_code":101},)"
      R"("footstep":{"bypass":false,"bypass_all":true,"enhance_strength":0.625,"output_trim_db":-5.5,)"
      R"("mask_time_alpha":0.7,"mask_frequency_smooth":7,"limiter_enabled":true,)"
      R"("limiter_ceiling_db":-1.25,"stereo_link":3},)"
      R"("session":{"account":"account hash","signed_in":true,"usage_seconds":-9223372036854775807,)"
      R"("signed_in_unix":1700000000,"primary_machine_id":"primary machine","primary_known":true,)"
      R"("public_id":"public id","referral_open":false,"referrer":"the referrer",)"
      R"("invite_url":"https://invite/?a=b&c"},)"
      R"("versions":{"app":"1.2.0","algorithm":"3.14.15"},)"
      R"("control_bridge":"shared_memory_v8","control_bridge_available":false,)"
      R"("apo_diagnostics":{"available":true,"initialize_attempt_count":18446744073709551615,)"
      R"("initialize_runtime_count":4294967295,"initialize_discovery_count":4294967294,)"
      R"("initialize_count":18446744073709551614,"lock_count":18446744073709551613,)"
      R"("initialize_data_size":4294967293,"initialize_declared_size":4294967292,)"
      R"("initialize_structure":2147483647,"initialize_processing_mode":4294967291,)"
      R"("initialize_for_discovery_only":false,"initialize_stage":4294967290,)"
      R"("initialize_hresult":-2147483638,"format_negotiation_count":131070,)"
      R"("input_format_negotiation_count":65535,"output_format_negotiation_count":65534,)"
      R"("get_effects_list_count":255,"get_controllable_effects_list_count":254,)"
      R"("get_latency_count":253,"get_input_channel_count_count":252,"last_effect_count":63,)"
      R"("last_controllable_effect_count":62,"last_latency_nonzero":true,"last_input_channel_count":61,)"
      R"("get_effects_list_succeeded":false,"get_controllable_effects_list_succeeded":true,)"
      R"("get_latency_succeeded":false,"get_input_channel_count_succeeded":true,)"
      R"("lock_attempt_count":4294967296,"lock_stage":4294967289,"lock_hresult":-2147483648,)"
      R"("lock_input_sample_rate":48000,"lock_input_channels":2,"lock_input_valid_bits":32,)"
      R"("lock_input_container_bytes":4,"lock_input_format_type":1,"lock_output_sample_rate":96000,)"
      R"("lock_output_channels":8,"lock_output_valid_bits":24,"lock_output_container_bytes":5,)"
      R"("lock_output_format_type":9,"sample_rate":192000,"channels":6,"algorithm_requested":true,)"
      R"("pipeline_mode":2147483646,"last_algorithm_error":-2147467259,"applied_valid":false,)"
      R"("applied_bypass":true,"applied_bypass_all":false,"applied_strength":0.3,)"
      R"("processing_gain_valid":true,"processing_gain_db":-32.75788,)"
      R"("processing_block_count":2147483645,"initialized_mode_mask":65533,"locked_mode_mask":65532,)"
      R"("processed_mode_mask":65531,"total_processed_blocks":18446744073709551612,)"
      R"("capture_reported":true,"capture_state":65530,"capture_seconds":65529,)"
      R"("capture_detail_code":-2147024891},)"
      R"("apo_host":{"elevated":false,"clsid_registered":true,"protected_audio_dg_disabled":false,)"
      R"("apo_dll_present":true,"algorithm_present":false,"apo_dll_path":"C:\\Program Files\\apo.dll",)"
      R"("render_clsid":"{CLASS}"},)"
      R"("audio_engine":{"running":true,"process_id":4294967288,"apo_loaded":false,)"
      R"("algorithm_loaded":true,"apo_module_path":"D:\\apo.dll","error_code":-2147024890},)"
      R"("apo_binding":{"endpoint_id":"the endpoint","bound":false,"fx_key_present":true,)"
      R"("error_code":-2147023728,"chain":["{FIRST}","{SECOND}","{THIRD}"]}})");
}

struct Scene {
  StatusSnapshot snapshot;
  AccountSession session;
};

TEST_F(StatusDocument, TakesEachFlagFromItsOwnField) {
  Scene scene;
  StatusSnapshot& snapshot = scene.snapshot;
  ControlDiagnostics& effect = snapshot.diagnostics;
  snapshot.footstep.bypass = snapshot.algorithm.limiter_enabled = effect.applied_bypass = false;
  const struct {
    std::string fragment;  // precedes the value
    bool* flag;
  } rows[] = {
      {R"("render":{"available":)", &snapshot.volume.available},
      {R"("muted":)", &snapshot.volume.muted},
      {R"("footstep":{"bypass":)", &snapshot.footstep.bypass},
      {R"(,"bypass_all":)", &snapshot.footstep.bypass_all},
      {R"("limiter_enabled":)", &snapshot.algorithm.limiter_enabled},
      {R"("primary_known":)", &scene.session.primary_known},
      {R"("referral_open":)", &scene.session.referral_open},
      {R"("control_bridge_available":)", &snapshot.bridge_available},
      {R"("apo_diagnostics":{"available":)", &snapshot.diagnostics_available},
      {R"("initialize_for_discovery_only":)", &effect.initialize_for_discovery_only},
      {R"("last_latency_nonzero":)", &effect.last_latency_nonzero},
      {R"("get_effects_list_succeeded":)", &effect.get_effects_list_succeeded},
      {R"("get_controllable_effects_list_succeeded":)", &effect.get_controllable_effects_list_succeeded},
      {R"("get_latency_succeeded":)", &effect.get_latency_succeeded},
      {R"("get_input_channel_count_succeeded":)", &effect.get_input_channel_count_succeeded},
      {R"("algorithm_requested":)", &effect.algorithm_requested},
      {R"("applied_valid":)", &effect.applied_valid},
      {R"("applied_bypass":)", &effect.applied_bypass},
      {R"("applied_bypass_all":)", &effect.applied_bypass_all},
      {R"("processing_gain_valid":)", &effect.processing_gain_valid},
      {R"("capture_reported":)", &effect.capture_reported},
      {R"("elevated":)", &snapshot.install.elevated},
      {R"("clsid_registered":)", &snapshot.install.clsid_registered},
      {R"("protected_audio_dg_disabled":)", &snapshot.install.protected_audio_dg_disabled},
      {R"("apo_dll_present":)", &snapshot.install.apo_dll_present},
      {R"("algorithm_present":)", &snapshot.install.algorithm_present},
      {R"("running":)", &snapshot.engine.running},
      {R"("apo_loaded":)", &snapshot.engine.apo_loaded},
      {R"("algorithm_loaded":)", &snapshot.engine.algorithm_loaded},
      {R"("bound":)", &snapshot.binding.bound},
      {R"("fx_key_present":)", &snapshot.binding.fx_key_present},
  };
  const auto text = [&] { return write_status_json(snapshot, "", scene.session); };
  const std::string before = text();
  // All flags and "signed_in", which is derived.
  EXPECT_EQ(count_of(before, ":false"), std::size(rows) + 1);
  EXPECT_EQ(count_of(before, "true"), 0u);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.fragment);
    ASSERT_EQ(count_of(before, row.fragment + "false"), 1u);
    std::string expected = before;
    expected.replace(expected.find(row.fragment) + row.fragment.size(), 5, "true");
    *row.flag = true;
    EXPECT_EQ(text(), expected);
    *row.flag = false;
  }
}

TEST_F(StatusDocument, ReportsASignedInUserByTheAccountHash) {
  AccountSession session;
  session.account_hash = "x";
  EXPECT_EQ(count_of(write_status_json({}, "", session), R"("session":{"account":"x","signed_in":true,)"),
            1u);
  AccountSession rest = distinct_session();
  rest.account_hash.clear();
  EXPECT_EQ(count_of(write_status_json({}, "", rest), R"("session":{"account":"","signed_in":false,)"), 1u);
}

TEST_F(StatusDocument, NeverContainsTheSessionToken) {
  AccountSession session = distinct_session();
  session.token = "Credential-4711";
  const std::string with = write_status_json(distinct_snapshot(), endpoint_id, session);
  session.token.clear();
  EXPECT_EQ(with, write_status_json(distinct_snapshot(), endpoint_id, session));
  EXPECT_EQ(count_of(with, "4711"), 0u);
}

TEST_F(StatusDocument, EscapesEveryText) {
  const std::string raw = "a\"b\\c\n\r\t\x01\xC3\xA9/";
  const std::string escaped = R"("a\"b\\c\n\r\t\u0001)" + std::string("\xC3\xA9/\"");
  Scene scene;
  std::string id;
  const std::pair<std::string, std::string*> rows[] = {
      {"account", &scene.session.account_hash},
      {"primary_machine_id", &scene.session.primary_machine_id},
      {"public_id", &scene.session.public_id},
      {"referrer", &scene.session.referrer},
      {"invite_url", &scene.session.invite_url},
      {"algorithm", &algorithm_version},
      {"apo_dll_path", &scene.snapshot.install.apo_dll_path},
      {"render_clsid", &scene.snapshot.effect_clsid},
      {"apo_module_path", &scene.snapshot.engine.apo_module_path},
      {"endpoint_id", &id},
  };
  for (const auto& [key, text] : rows) {
    *text = raw;
    const std::string document = write_status_json(scene.snapshot, id, scene.session);
    EXPECT_EQ(count_of(document, escaped), 1u);
    EXPECT_EQ(count_of(document, "\"" + key + "\":" + escaped), 1u) << key;
    text->clear();
  }
  scene.snapshot.binding.chain = {raw, "", raw};
  EXPECT_EQ(count_of(write_status_json(scene.snapshot, "", {}),
                     "\"chain\":[" + escaped + ",\"\"," + escaped + "]}}"),
            1u);
}

TEST_F(StatusDocument, WritesFloatsWithSevenDigits) {
  StatusSnapshot snapshot;
  float* const fields[] = {&snapshot.volume.volume,
                           &snapshot.footstep.enhance_strength,
                           &snapshot.algorithm.output_trim_db,
                           &snapshot.algorithm.mask_time_alpha,
                           &snapshot.algorithm.limiter_ceiling_db,
                           &snapshot.diagnostics.applied_strength,
                           &snapshot.diagnostics.processing_gain_db};
  const std::string keys[] = {
      "volume",           "enhance_strength",  "output_trim_db", "mask_time_alpha", "limiter_ceiling_db",
      "applied_strength", "processing_gain_db"};
  const std::pair<float, std::string> rows[] = {{0.12345678f, "0.1234568"},
                                                {12345678.0f, "1.234568e+07"},
                                                {-0.0f, "-0"},
                                                {-std::numeric_limits<float>::infinity(), "-inf"},
                                                {std::numeric_limits<float>::quiet_NaN(), "nan"}};
  for (const auto& [value, written] : rows) {
    for (float* const field : fields) *field = value;
    const std::string text = write_status_json(snapshot, "", {});
    for (const std::string& key : keys) {
      const std::string fragment = "\"" + key + "\":" + written;
      EXPECT_EQ(count_of(text, fragment + ",") + count_of(text, fragment + "}"), 1u) << fragment;
    }
  }
}

TEST_F(StatusDocument, ContainsTheAlgorithmVersionFoundAtStart) {
  for (const std::string version : {"not found", "1.2.3"}) {
    algorithm_version = version;
    EXPECT_EQ(count_of(write_status_json({}, "", {}),
                       R"("versions":{"app":"1.2.0","algorithm":")" + version + R"("})"),
              1u);
  }
}

constexpr std::string_view some_render =
    R"("render":{"available":true,"volume":0.25,"muted":true,"error_code":0})";

TEST_F(StatusDocument, IsCompleteOnAFullMachine) {
  set_up_everything();
  EXPECT_EQ(build_status_json(bridge_, {true, 0.25f, true, 0}, endpoint_id, {}),
            filled_document(some_render));
}

TEST_F(StatusDocument, IsCompleteOnAnEmptyMachineWithAClosedBridge) {
  EXPECT_EQ(build_status_json(bridge_, {true, 0.25f, true, 0}, "", {}), empty_document(some_render));
}

TEST_F(StatusDocument, ReadsNoBindingWithoutAnEndpoint) {
  set_up_everything();
  const StatusSnapshot snapshot = take_status_snapshot(bridge_, {}, "");
  EXPECT_EQ(snapshot.binding.error_code, -2147024809);
  EXPECT_FALSE(snapshot.binding.bound);
  EXPECT_FALSE(snapshot.binding.fx_key_present);
  EXPECT_TRUE(snapshot.binding.chain.empty());
  for (const std::string& entry : memory::system().log)
    EXPECT_FALSE(entry.starts_with("RegOpenKeyExW")) << entry;
}

TEST_F(StatusDocument, ChangesNeitherTheRecordNorTheMachine) {
  set_up_everything();
  const auto region = memory::system().regions.at(u"Local\\status").lock();
  const std::vector<std::uint64_t> words = region->words;
  const std::vector<std::string> lines = endpoint::present_lines();
  const std::size_t files = memory::system().files.size();
  static_cast<void>(build_status_json(bridge_, {}, endpoint_id, {}));
  EXPECT_EQ(region->words, words);
  EXPECT_EQ(endpoint::present_lines(), lines);
  EXPECT_EQ(memory::system().files.size(), files);
}

TEST_F(StatusDocument, ReadsTheMachineOnEachCall) {
  set_up_everything();
  static_cast<void>(build_status_json(bridge_, {}, endpoint_id, {}));
  memory::system().state.registry = {};
  memory::system().files.clear();
  memory::system().processes.clear();
  memory::system().elevated = false;
  bridge_.close();
  EXPECT_EQ(build_status_json(bridge_, {true, 0.25f, true, 0}, "", {}), empty_document(some_render));
}

TEST_F(StatusDocument, ShowsOutOfRangeValuesOfTheRecordUnchanged) {
  set_up_everything();
  const auto region = memory::system().regions.at(u"Local\\status").lock();
  region->words[2] = 0x000000003FC00000;         // a strength of 1.5
  region->words[0xB8 / 8] = 0xFFFFFFFFFFFFFFFE;  // parameters that are not valid
  const StatusSnapshot snapshot = take_status_snapshot(bridge_, {}, endpoint_id);
  EXPECT_FALSE(snapshot.bridge_available);
  EXPECT_TRUE(snapshot.diagnostics_available);
  const std::string text = write_status_json(snapshot, endpoint_id, {});
  EXPECT_EQ(count_of(text, R"("footstep":{"bypass":false,"bypass_all":false,"enhance_strength":1.5,)"
                           R"("output_trim_db":0,"mask_time_alpha":0,"mask_frequency_smooth":0,)"
                           R"("limiter_enabled":true,"limiter_ceiling_db":-1,"stereo_link":1})"),
            1u);
  EXPECT_EQ(count_of(text, R"("control_bridge_available":false,"apo_diagnostics":{"available":true,)"), 1u);
}

TEST_F(StatusDocument, ShowsTheFirstContentsOfANewRecord) {
  std::string message;
  ASSERT_TRUE(bridge_.create(u"Local\\status", message)) << message;
  std::string diagnostics(default_diagnostics);
  diagnostics.replace(diagnostics.find("\"available\":false"), 17, "\"available\":true");
  diagnostics.replace(diagnostics.find("\"applied_bypass\":true"), 21, "\"applied_bypass\":false");
  const std::string text = build_status_json(bridge_, {}, "", {});
  EXPECT_EQ(count_of(text, default_footstep), 1u);
  EXPECT_EQ(count_of(text, "\"control_bridge_available\":true," + diagnostics), 1u);
}

TEST_F(StatusDocument, ShowsAFailedProbeOnlyInItsOwnPart) {
  const std::string without_library =
      R"("apo_host":{"elevated":true,"clsid_registered":false,"protected_audio_dg_disabled":true,)"
      R"("apo_dll_present":false,"algorithm_present":false,"apo_dll_path":"",)"
      R"("render_clsid":"{631D9145-CACF-44D7-861B-5D82ADD8C84F}"})";
  const std::string binding = R"("apo_binding":{"endpoint_id":")" + std::string(endpoint_id) + "\",";
  const std::string chain =
      R"("chain":["{9063CBD4-3561-449D-8011-E21BBB69B9DB}","{631D9145-CACF-44D7-861B-5D82ADD8C84F}"]})";
  const struct {
    std::string operation;
    std::deque<std::int64_t> faults;
    std::string_view before;
    std::string after;
  } rows[] = {
      {"GetTokenInformation", {5}, R"("elevated":true)", R"("elevated":false)"},
      {"RegGetValueW", {2}, filled_host, without_library},
      {"StringFromGUID2", {1}, filled_host, without_library},
      {"RegGetValueW",
       {0, 5},
       R"("protected_audio_dg_disabled":true)",
       R"("protected_audio_dg_disabled":false)"},
      {"StringFromGUID2",
       {0, 1},
       R"("render_clsid":"{631D9145-CACF-44D7-861B-5D82ADD8C84F}")",
       R"("render_clsid":"")"},
      {"StringFromGUID2", {0, 0, 1}, R"("bound":true)", R"("bound":false)"},
      {"CreateToolhelp32Snapshot processes",
       {8},
       filled_engine,
       R"("audio_engine":{"running":false,"process_id":0,"apo_loaded":false,"algorithm_loaded":false,)"
       R"("apo_module_path":"","error_code":-2147024888})"},
      {"Process32FirstW", {18}, filled_engine, std::string(default_engine)},
      {"CreateToolhelp32Snapshot modules",
       {5},
       filled_engine,
       R"("audio_engine":{"running":true,"process_id":4242,"apo_loaded":false,"algorithm_loaded":false,)"
       R"("apo_module_path":"","error_code":-2147024891})"},
      {"Module32FirstW",
       {18},
       filled_engine,
       R"("audio_engine":{"running":true,"process_id":4242,"apo_loaded":false,"algorithm_loaded":false,)"
       R"("apo_module_path":"","error_code":-2147024878})"},
      {"RegOpenKeyExW",
       {5},
       filled_binding,
       binding + R"("bound":false,"fx_key_present":false,"error_code":-2147024891,"chain":[]})"},
      {"RegQueryValueExW",
       {5},
       filled_binding,
       binding + R"("bound":false,"fx_key_present":true,"error_code":-2147024891,"chain":[]})"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.operation + " " + std::to_string(row.faults.size()));
    bridge_.close();
    memory::reset();
    set_up_everything();
    memory::system().faults[row.operation] = row.faults;
    std::string expected = filled_document(some_render);
    ASSERT_EQ(count_of(expected, row.before), 1u);
    expected.replace(expected.find(row.before), row.before.size(), row.after);
    EXPECT_EQ(build_status_json(bridge_, {true, 0.25f, true, 0}, endpoint_id, {}), expected);
    EXPECT_TRUE(memory::system().faults[row.operation].empty());
  }
}

TEST_F(StatusDocument, ShowsTheErrorOfABadEndpointId) {
  set_up_everything();
  const std::pair<std::string, std::int32_t> rows[] = {
      {"nonsense", -2147024809},
      {"{0.0.0.00000000}.{not-a-guid}", -2147024809},
      {"{0.0.0.00000000}.{11111111-3407-471a-aa45-bcd41f1bb5f6}", -2147024894},
  };
  for (const auto& [id, error_code] : rows) {
    EXPECT_EQ(count_of(build_status_json(bridge_, {}, id, {}),
                       "\"apo_binding\":{\"endpoint_id\":\"" + id +
                           R"(","bound":false,"fx_key_present":false,"error_code":)" +
                           std::to_string(error_code) + ",\"chain\":[]}}"),
              1u)
        << id;
  }
}

TEST_F(StatusDocument, ShowsAnUnboundEndpoint) {
  set_up_everything();
  endpoint::set_up(endpoint::Words{.chain = "F L"});
  EXPECT_EQ(count_of(build_status_json(bridge_, {}, endpoint_id, {}),
                     R"("bound":false,"fx_key_present":true,"error_code":0,)"
                     R"("chain":["{9063CBD4-3561-449D-8011-E21BBB69B9DB}",)"
                     R"("{5B1E7C42-0D3A-4F68-9C55-AB12CD34EF56}"]}})"),
            1u);
  endpoint::set_up(endpoint::Words{});
  EXPECT_EQ(count_of(build_status_json(bridge_, {}, endpoint_id, {}),
                     R"("bound":false,"fx_key_present":true,"error_code":0,"chain":[]}})"),
            1u);
}

}  // namespace
}  // namespace velmora
