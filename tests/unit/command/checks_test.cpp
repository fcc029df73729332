#include "command/checks.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

constexpr std::string_view good_status =
    R"({"footstep":{"bypass":false,"bypass_all":false,"enhance_strength":0.5},)"
    R"("apo_diagnostics":{"available":true,"initialize_hresult":0,"applied_valid":true,"applied_bypass":false,)"
    R"("applied_bypass_all":false,"applied_strength":0.5,"total_processed_blocks":200},)"
    R"("apo_host":{"clsid_registered":true,"apo_dll_present":true,"algorithm_present":true,)"
    R"("apo_dll_path":"C:\\apo.dll"},)"
    R"("audio_engine":{"running":true,"process_id":4711,"apo_loaded":true,"algorithm_loaded":true,)"
    R"("error_code":0},)"
    R"("apo_binding":{"endpoint_id":"one","bound":true}})";
constexpr std::string_view good_devices =
    R"({"render":[{"id":"two","apo_bound":false},{"id":"one","apo_bound":true}],)"
    R"("selected_render_endpoint_id":"one"})";

// One change of a text: what it replaces, and with what.
struct Change {
  std::string_view from;
  std::string_view to;
};

std::string changed(std::string_view text, const std::vector<Change>& changes) {
  std::string out(text);
  for (const auto& [from, to] : changes) {
    const std::size_t place = out.find(from);
    EXPECT_NE(place, std::string::npos) << from;
    out.replace(place, from.size(), to);
  }
  return out;
}

StatusDocuments documents_with(const std::vector<Change>& changes,
                               const std::vector<Change>& device_changes = {}) {
  const std::string before =
      changed(good_status, {{R"("total_processed_blocks":200)", R"("total_processed_blocks":150)"}});
  return {*read_document(before),
          *read_document(changed(good_status, changes)),
          {},
          *read_document(changed(good_devices, device_changes))};
}

// The check's line as "STATE SENTENCE".
std::string line_of(std::size_t place, const StatusDocuments& documents) {
  const CheckLine line = judge_checks(documents)[place];
  return std::string(line.state) + ' ' + line.sentence;
}

TEST(Checks, HaveTheNamesOfThePage) {
  const auto lines = judge_checks(documents_with({}));
  ASSERT_EQ(lines.size(), 6u);
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"installed", "The effect and its algorithm are installed."},
      {"added", "The effect is in the device's effect chain."},
      {"engine", "The audio engine runs, process 4711."},
      {"loaded", "The engine has loaded the effect and its algorithm."},
      {"processing", "Sound goes through the effect: 200 blocks so far, on all devices."},
      {"applied", "The effect has applied these settings, strength 50 %."},
  };
  for (std::size_t place = 0; place < lines.size(); ++place) {
    EXPECT_EQ(lines[place].name, rows[place].first);
    EXPECT_EQ(lines[place].state, "yes");
    EXPECT_EQ(lines[place].sentence, rows[place].second);
  }
}

struct Row {
  std::size_t place;
  std::vector<Change> changes;
  std::string_view line;
};

TEST(Checks, SayWhatIsMissing) {
  const Row rows[] = {
      {0,
       {{R"("clsid_registered":true)", R"("clsid_registered":false)"}},
       "no The effect is not registered with Windows."},
      {0,
       {{R"("apo_dll_present":true)", R"("apo_dll_present":false)"}},
       "no The effect's file is missing: C:\\apo.dll"},
      {0,
       {{R"("algorithm_present":true)", R"("algorithm_present":false)"}},
       "no fse.dll or model_weights.bin is missing beside the effect's file."},
      {2,
       {{R"("running":true)", R"("running":false)"}},
       "no The audio engine (audiodg.exe) does not run. Windows starts it when something plays."},
      {2,
       {{R"("running":true)", R"("running":false)"}, {R"("error_code":0)", R"("error_code":5)"}},
       "unknown The processes cannot be listed: 0x00000005."},
      {2, {{R"("process_id":4711)", R"("process_id":null)"}}, "yes The audio engine runs, process ?."},
      {3,
       {{R"("running":true)", R"("running":false)"}},
       "unknown Nothing is loaded while the engine does not run."},
      {3, {{R"("apo_loaded":true)", R"("apo_loaded":false)"}}, "no The engine has not loaded the effect."},
      {3,
       {{R"("algorithm_loaded":true)", R"("algorithm_loaded":false)"}},
       "no The engine has loaded the effect without its algorithm."},
      {3,
       {{R"("apo_loaded":true)", R"("apo_loaded":false)"},
        {R"("error_code":0)", R"("error_code":-2147024891)"}},
       "unknown The engine's modules cannot be listed: 0x80070005. The effect's own counters decide."},
      {4,
       {{R"("total_processed_blocks":200)", R"("total_processed_blocks":150)"}},
       "no No sound goes through the effect: 150 blocks so far, on all devices."},
      {4,
       {{R"("total_processed_blocks":200)", R"("total_processed_blocks":150)"},
        {R"("initialize_hresult":0)", R"("initialize_hresult":-2147467259)"}},
       "no The effect could not be initialized: 0x80004005."},
      {4,
       {{R"("total_processed_blocks":200)", R"("total_processed_blocks":150)"},
        {R"("initialize_hresult":0)", R"("initialize_hresult":-2147483638)"}},
       "no No sound goes through the effect: 150 blocks so far, on all devices."},
      {4, {{R"("total_processed_blocks":200)", R"("total_processed_blocks":3)"}}, "unknown Cannot be read."},
      {4, {{R"("available":true)", R"("available":false)"}}, "unknown The effect's report cannot be read."},
      {5,
       {{R"("applied_strength":0.5)", R"("applied_strength":0.25)"}},
       "no The effect has applied other settings, strength 25 %. It follows while sound plays."},
      {5,
       {{R"("applied_bypass":false)", R"("applied_bypass":true)"}},
       "no The effect has applied other settings, strength 50 %. It follows while sound plays."},
      {5,
       {{R"("applied_bypass_all":false)", R"("applied_bypass_all":true)"}},
       "no The effect has applied other settings, strength 50 %. It follows while sound plays."},
      {5,
       {{R"("applied_strength":0.5)", R"("applied_strength":nan)"}},
       "no The effect has applied other settings, strength ?. It follows while sound plays."},
      {5,
       {{R"("applied_strength":0.5)", R"("applied_strength":0.5000005)"}},
       "yes The effect has applied these settings, strength 50 %."},
      {5,
       {{R"("applied_valid":true)", R"("applied_valid":false)"}},
       "unknown The effect has not reported what it applies. It does while sound plays."},
      {5, {{R"("applied_valid":true)", R"("applied_valid":1)"}}, "unknown Cannot be read."},
  };
  for (const auto& [place, changes, line] : rows) EXPECT_EQ(line_of(place, documents_with(changes)), line);
}

TEST(Checks, TrustTheChainOnlyWhereBothDocumentsAgree) {
  const std::string yes = "yes The effect is in the device's effect chain.";
  const std::string no = "no The effect is not in the device's effect chain.";
  const std::string unknown = "unknown The device's effect chain cannot be read yet.";
  const Change unbound{R"("bound":true)", R"("bound":false)"};
  const Change unlisted{R"("id":"one","apo_bound":true)", R"("id":"one","apo_bound":false)"};
  EXPECT_EQ(line_of(1, documents_with({unbound}, {unlisted})), no);
  EXPECT_EQ(line_of(1, documents_with({unbound})), unknown);
  EXPECT_EQ(line_of(1, documents_with({}, {unlisted})), unknown);
  const Change other{R"("selected_render_endpoint_id":"one")", R"("selected_render_endpoint_id":"two")"};
  EXPECT_EQ(line_of(1, documents_with({}, {other})), unknown);
  // Where only one of them knows, it decides.
  EXPECT_EQ(line_of(1, documents_with({}, {{R"({"id":"one","apo_bound":true})", "{}"}})), yes);
  EXPECT_EQ(line_of(1, documents_with({{R"("bound":true)", R"("bound":null)"}})), yes);
}

TEST(Checks, KnowNothingWithoutDocuments) {
  const std::string_view unknown[] = {
      "unknown Cannot be read.", "unknown The device's effect chain cannot be read yet.",
      "unknown Cannot be read.", "unknown Cannot be read.",
      "unknown Cannot be read.", "unknown Cannot be read."};
  for (std::size_t place = 0; place < 6; ++place) EXPECT_EQ(line_of(place, {}), unknown[place]);
}

}  // namespace
}  // namespace velmora
