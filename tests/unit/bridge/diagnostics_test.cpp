// Offsets and values are typed independently of the product. One file because it mirrors one source, and its
// tables are long: every word read, and every word written.
#include "bridge/diagnostics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace velmora {
namespace {

constexpr std::size_t record_end = 0x240;
// Bytes that fill a region.
constexpr std::array<unsigned char, 3> foreign_bytes{0x00, 0xC7, 0xFF};

bool is_narrow(std::size_t offset) { return offset < 0x010 || offset == 0x060 || offset == 0x064; }

std::uint64_t word_at(const ControlBridgeRecord& record, std::size_t offset) {
  std::uint64_t value = 0;
  std::memcpy(&value, reinterpret_cast<const char*>(&record) + offset, is_narrow(offset) ? 4 : 8);
  return value;
}

void put_word(ControlBridgeRecord& record, std::size_t offset, std::uint64_t value) {
  std::memcpy(reinterpret_cast<char*>(&record) + offset, &value, is_narrow(offset) ? 4 : 8);
}

std::string hex(std::uint64_t value) {
  std::string text;
  for (int shift = 60; shift >= 0; shift -= 4) text.push_back("0123456789ABCDEF"[(value >> shift) & 15]);
  return text;
}

struct Word {
  std::size_t offset;
  std::uint64_t value;
};
using Words = std::vector<Word>;

std::vector<std::string> lines_of(Words words) {
  std::sort(words.begin(), words.end(), [](const Word& a, const Word& b) { return a.offset < b.offset; });
  std::vector<std::string> lines;
  for (const Word& word : words) lines.push_back(hex(word.offset).substr(13) + ": " + hex(word.value));
  return lines;
}

ControlBridgeRecord filled_with(unsigned char byte) {
  ControlBridgeRecord record;
  std::memset(&record, byte, sizeof record);
  return record;
}

// The words that the work changes in a region filled with `byte`.
std::vector<std::string> changed_by(const std::function<void(ControlBridgeRecord&)>& work,
                                    unsigned char byte) {
  const ControlBridgeRecord before = filled_with(byte);
  ControlBridgeRecord record = before;
  work(record);
  Words changed;
  for (std::size_t offset = 0; offset < record_end; offset += is_narrow(offset) ? 4 : 8) {
    const std::uint64_t value = word_at(record, offset);
    if (value != word_at(before, offset)) changed.push_back({offset, value});
  }
  return lines_of(changed);
}

// Every field with its name.
using Fields = std::vector<std::pair<std::string, std::string>>;

std::string text_of(bool value) { return value ? "true" : "false"; }
template <typename Number>
std::string text_of(Number value) {
  return std::to_string(value);
}

Fields fields_of(const ControlDiagnostics& read) {
  return {
      {"initialize_attempt_count", text_of(read.initialize_attempt_count)},
      {"initialize_runtime_count", text_of(read.initialize_runtime_count)},
      {"initialize_discovery_count", text_of(read.initialize_discovery_count)},
      {"initialize_count", text_of(read.initialize_count)},
      {"lock_count", text_of(read.lock_count)},
      {"initialize_data_size", text_of(read.initialize_data_size)},
      {"initialize_declared_size", text_of(read.initialize_declared_size)},
      {"initialize_structure", text_of(read.initialize_structure)},
      {"initialize_processing_mode", text_of(read.initialize_processing_mode)},
      {"initialize_for_discovery_only", text_of(read.initialize_for_discovery_only)},
      {"initialize_stage", text_of(read.initialize_stage)},
      {"initialize_hresult", text_of(read.initialize_hresult)},
      {"format_negotiation_count", text_of(read.format_negotiation_count)},
      {"input_format_negotiation_count", text_of(read.input_format_negotiation_count)},
      {"output_format_negotiation_count", text_of(read.output_format_negotiation_count)},
      {"get_effects_list_count", text_of(read.get_effects_list_count)},
      {"get_controllable_effects_list_count", text_of(read.get_controllable_effects_list_count)},
      {"get_latency_count", text_of(read.get_latency_count)},
      {"get_input_channel_count_count", text_of(read.get_input_channel_count_count)},
      {"last_effect_count", text_of(read.last_effect_count)},
      {"last_controllable_effect_count", text_of(read.last_controllable_effect_count)},
      {"last_latency_nonzero", text_of(read.last_latency_nonzero)},
      {"last_input_channel_count", text_of(read.last_input_channel_count)},
      {"get_effects_list_succeeded", text_of(read.get_effects_list_succeeded)},
      {"get_controllable_effects_list_succeeded", text_of(read.get_controllable_effects_list_succeeded)},
      {"get_latency_succeeded", text_of(read.get_latency_succeeded)},
      {"get_input_channel_count_succeeded", text_of(read.get_input_channel_count_succeeded)},
      {"lock_attempt_count", text_of(read.lock_attempt_count)},
      {"lock_stage", text_of(read.lock_stage)},
      {"lock_hresult", text_of(read.lock_hresult)},
      {"lock_input_sample_rate", text_of(read.lock_input_sample_rate)},
      {"lock_input_channels", text_of(read.lock_input_channels)},
      {"lock_input_valid_bits", text_of(read.lock_input_valid_bits)},
      {"lock_input_container_bytes", text_of(read.lock_input_container_bytes)},
      {"lock_input_format_type", text_of(read.lock_input_format_type)},
      {"lock_output_sample_rate", text_of(read.lock_output_sample_rate)},
      {"lock_output_channels", text_of(read.lock_output_channels)},
      {"lock_output_valid_bits", text_of(read.lock_output_valid_bits)},
      {"lock_output_container_bytes", text_of(read.lock_output_container_bytes)},
      {"lock_output_format_type", text_of(read.lock_output_format_type)},
      {"sample_rate", text_of(read.sample_rate)},
      {"channels", text_of(read.channels)},
      {"algorithm_requested", text_of(read.algorithm_requested)},
      {"pipeline_mode", text_of(read.pipeline_mode)},
      {"last_algorithm_error", text_of(read.last_algorithm_error)},
      {"applied_valid", text_of(read.applied_valid)},
      {"applied_bypass", text_of(read.applied_bypass)},
      {"applied_bypass_all", text_of(read.applied_bypass_all)},
      {"applied_strength", hex(std::bit_cast<std::uint32_t>(read.applied_strength)).substr(8)},
      {"processing_gain_valid", text_of(read.processing_gain_valid)},
      {"processing_gain_db", hex(std::bit_cast<std::uint32_t>(read.processing_gain_db)).substr(8)},
      {"processing_block_count", text_of(read.processing_block_count)},
      {"initialized_mode_mask", text_of(read.initialized_mode_mask)},
      {"locked_mode_mask", text_of(read.locked_mode_mask)},
      {"processed_mode_mask", text_of(read.processed_mode_mask)},
      {"total_processed_blocks", text_of(read.total_processed_blocks)},
      {"capture_reported", text_of(read.capture_reported)},
      {"capture_state", text_of(read.capture_state)},
      {"capture_seconds", text_of(read.capture_seconds)},
      {"capture_detail_code", text_of(read.capture_detail_code)},
  };
}

// The decoded fields of a record of zeros.
const Fields& fields_of_zeros() {
  static const Fields fields = [] {
    ControlDiagnostics zeros;
    zeros.applied_bypass = false;
    return fields_of(zeros);
  }();
  return fields;
}

ControlDiagnostics read_from(ControlBridgeRecord& record) {
  ControlDiagnostics read;
  read_diagnostics(record, read);
  return read;
}

// The decoded fields that differ from those of a record of zeros.
Fields shown_by(ControlBridgeRecord& record) {
  Fields shown = fields_of(read_from(record));
  for (const auto& zero : fields_of_zeros()) {
    shown.erase(std::remove(shown.begin(), shown.end(), zero), shown.end());
  }
  return shown;
}

TEST(DiagnosticsDefaults, AreZerosAndFalseExceptAppliedBypass) {
  Fields expected = fields_of_zeros();
  std::replace(expected.begin(), expected.end(), Fields::value_type{"applied_bypass", "false"},
               {"applied_bypass", "true"});
  ASSERT_EQ(expected.size(), 60u);
  EXPECT_EQ(fields_of(ControlDiagnostics{}), expected);
  for (const auto& [name, value] : fields_of_zeros()) {
    EXPECT_TRUE(value == "0" || value == "false" || value == "00000000") << name;
  }
}

TEST(DiagnosticsReader, DecodesANewRecordAsZeros) {
  ControlBridgeRecord record = filled_with(0xC7);
  initialise_record(record);
  EXPECT_EQ(shown_by(record), Fields{});
}

TEST(DiagnosticsReader, DecodesEachFieldFromItsOwnBits) {
  const struct {
    std::size_t offset;
    std::uint64_t word;
    Fields shown;
  } rows[] = {
      {0x018, ~0ULL, {{"initialize_count", "18446744073709551615"}}},
      {0x020, ~0ULL, {{"lock_count", "18446744073709551615"}}},
      {0x028, 0x00000000FFFFFFFF, {{"channels", "4294967295"}}},
      {0x028, 0xFFFFFFFF00000000, {{"sample_rate", "4294967295"}}},
      {0x030, 0x00000000FFFFFFFF, {{"last_algorithm_error", "-1"}}},
      {0x030, 0x000000007FFFFFFF, {{"last_algorithm_error", "2147483647"}}},
      {0x030, 0x7FFFFFFF00000000, {{"pipeline_mode", "2147483647"}}},
      {0x030, 0x8000000000000000, {{"algorithm_requested", "true"}}},
      {0x038, 0x00000000000000FF, {{"get_effects_list_count", "255"}}},
      {0x038, 0x000000000000FF00, {{"get_controllable_effects_list_count", "255"}}},
      {0x038, 0x0000000000FF0000, {{"get_latency_count", "255"}}},
      {0x038, 0x00000000FF000000, {{"get_input_channel_count_count", "255"}}},
      {0x038, 0x0000003F00000000, {{"last_effect_count", "63"}}},
      {0x038, 0x00000FC000000000, {{"last_controllable_effect_count", "63"}}},
      {0x038, 0x0003F00000000000, {{"last_latency_nonzero", "true"}}},
      {0x038, 0x0000100000000000, {{"last_latency_nonzero", "true"}}},
      {0x038, 0x0002000000000000, {{"last_latency_nonzero", "true"}}},
      {0x038, 0x00FC000000000000, {{"last_input_channel_count", "63"}}},
      {0x038, 0x0100000000000000, {{"get_effects_list_succeeded", "true"}}},
      {0x038, 0x0200000000000000, {{"get_controllable_effects_list_succeeded", "true"}}},
      {0x038, 0x0400000000000000, {{"get_latency_succeeded", "true"}}},
      {0x038, 0x0800000000000000, {{"get_input_channel_count_succeeded", "true"}}},
      {0x038, 0xF000000000000000, {}},
      {0x040,
       0x00000000FFFFFFFF,
       {{"initialize_attempt_count", "4294967295"}, {"initialize_runtime_count", "4294967295"}}},
      {0x040,
       0xFFFFFFFF00000000,
       {{"initialize_attempt_count", "4294967295"}, {"initialize_discovery_count", "4294967295"}}},
      {0x040,
       ~0ULL,
       {{"initialize_attempt_count", "8589934590"},
        {"initialize_runtime_count", "4294967295"},
        {"initialize_discovery_count", "4294967295"}}},
      {0x048, 0x00000000FFFFFFFF, {{"initialize_declared_size", "4294967295"}}},
      {0x048, 0xFFFFFFFF00000000, {{"initialize_data_size", "4294967295"}}},
      {0x050, 0x00000000FFFFFFFF, {{"initialize_processing_mode", "4294967295"}}},
      {0x050, 0x7FFFFFFF00000000, {{"initialize_structure", "2147483647"}}},
      {0x050, 0x8000000000000000, {{"initialize_for_discovery_only", "true"}}},
      {0x058, 0x0000000080004005, {{"initialize_hresult", "-2147467259"}}},
      {0x058, 0x000000007FFFFFFF, {{"initialize_hresult", "2147483647"}}},
      {0x058, 0xFFFFFFFF00000000, {{"initialize_stage", "4294967295"}}},
      {0x060, 0xFFFFFFFF, {{"lock_attempt_count", "4294967295"}}},
      {0x064,
       0x0000FFFF,
       {{"format_negotiation_count", "65535"}, {"input_format_negotiation_count", "65535"}}},
      {0x064,
       0xFFFF0000,
       {{"format_negotiation_count", "65535"}, {"output_format_negotiation_count", "65535"}}},
      {0x064,
       0xFFFFFFFF,
       {{"format_negotiation_count", "131070"},
        {"input_format_negotiation_count", "65535"},
        {"output_format_negotiation_count", "65535"}}},
      {0x068, 0x0000000080004005, {{"lock_hresult", "-2147467259"}}},
      {0x068, 0xFFFFFFFF00000000, {{"lock_stage", "4294967295"}}},
      {0x070, 0x00000000000000FF, {{"lock_input_channels", "255"}}},
      {0x070, 0x000000000000FF00, {{"lock_input_valid_bits", "255"}}},
      {0x070, 0x0000000000FF0000, {{"lock_input_container_bytes", "255"}}},
      {0x070, 0x00000000FF000000, {{"lock_input_format_type", "255"}}},
      {0x070, 0xFFFFFFFF00000000, {{"lock_input_sample_rate", "4294967295"}}},
      {0x078, 0x00000000000000FF, {{"lock_output_channels", "255"}}},
      {0x078, 0x000000000000FF00, {{"lock_output_valid_bits", "255"}}},
      {0x078, 0x0000000000FF0000, {{"lock_output_container_bytes", "255"}}},
      {0x078, 0x00000000FF000000, {{"lock_output_format_type", "255"}}},
      {0x078, 0xFFFFFFFF00000000, {{"lock_output_sample_rate", "4294967295"}}},
      {0x080, 0x00000000FFFFFFFF, {{"applied_strength", "FFFFFFFF"}}},
      {0x080, 0x0000000100000000, {{"applied_bypass", "true"}}},
      {0x080, 0x0000000200000000, {{"applied_bypass_all", "true"}}},
      {0x080, 0x7FFFFFFC00000000, {}},
      {0x080, 0x8000000000000000, {{"applied_valid", "true"}}},
      {0x088, 0x00000000FF800000, {{"processing_gain_db", "FF800000"}}},
      {0x088, 0x000000007F800001, {{"processing_gain_db", "7F800001"}}},
      {0x088, 0x7FFFFFFF00000000, {{"processing_block_count", "2147483647"}}},
      {0x088, 0x8000000000000000, {{"processing_gain_valid", "true"}}},
      {0x090, 0x000000000000FFFF, {{"initialized_mode_mask", "65535"}}},
      {0x090, 0x00000000FFFF0000, {{"locked_mode_mask", "65535"}}},
      {0x090, 0x0000FFFF00000000, {{"processed_mode_mask", "65535"}}},
      {0x090, 0xFFFF000000000000, {}},
      {0x098, ~0ULL, {{"total_processed_blocks", "18446744073709551615"}}},
      {0x0B0, 0x000000000000FFFF, {{"capture_state", "65535"}}},
      {0x0B0, 0x00000000FFFF0000, {{"capture_seconds", "65535"}}},
      {0x0B0, 0x7FFFFFFF00000000, {{"capture_detail_code", "2147483647"}}},
      {0x0B0, 0x8000000000000000, {{"capture_reported", "true"}, {"capture_detail_code", "-2147483648"}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(hex(row.offset) + ": " + hex(row.word));
    ControlBridgeRecord record{};
    put_word(record, row.offset, row.word);
    EXPECT_EQ(shown_by(record), row.shown);
  }
}

TEST(DiagnosticsReader, IgnoresOtherWords) {
  ControlBridgeRecord record{};
  for (std::size_t offset = 0; offset < record_end; offset += is_narrow(offset) ? 4 : 8) {
    const bool own = (offset >= 0x018 && offset < 0x0A0) || offset == 0x0B0;
    if (!own) put_word(record, offset, ~0ULL);
  }
  EXPECT_EQ(shown_by(record), Fields{});
}

TEST(DiagnosticsReader, OverwritesItsOutput) {
  ControlBridgeRecord full = filled_with(0xFF);
  ControlDiagnostics read = read_from(full);
  ControlBridgeRecord zeros{};
  read_diagnostics(zeros, read);
  EXPECT_EQ(fields_of(read), fields_of_zeros());
}

TEST(DiagnosticsReader, ChangesNoByteOfTheRecord) {
  for (const unsigned char byte : foreign_bytes) {
    ControlBridgeRecord record = filled_with(byte);
    const ControlBridgeRecord before = record;
    static_cast<void>(read_from(record));
    EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0);
  }
}

TEST(DiagnosticsWriters, ChangeOnlyTheirOwnWords) {
  const float odd_nan = std::bit_cast<float>(0x7FC12345u);
  const struct {
    const char* title;
    std::function<void(ControlBridgeRecord&)> work;
    Words changed;  // on a region that held C7 all over
  } rows[] = {
      {"an attempt for discovery",
       [](auto& record) {
         report_initialize_attempt(record, {96, 97, 4, 1, true});
       },
       {{0x048, 0x0000006000000061},
        {0x050, 0x8000000400000001},
        {0x058, 0x000000018000000A},
        {0x040, 0xC7C7C7C8C7C7C7C7}}},
      {"an attempt for real use",
       [](auto& record) {
         report_initialize_attempt(record, {0xFFFFFFFF, 0, 4, 0xFFFFFFFF, false});
       },
       {{0x048, 0xFFFFFFFF00000000},
        {0x050, 0x00000004FFFFFFFF},
        {0x058, 0x000000018000000A},
        {0x040, 0xC7C7C7C7C7C7C7C8}}},
      {"an attempt with all bits of a structure, for real use",
       [](auto& record) {
         report_initialize_attempt(record, {0, 0xFFFFFFFF, 0xFFFFFFFF, 0, false});
       },
       {{0x048, 0x00000000FFFFFFFF},
        {0x050, 0x7FFFFFFF00000000},
        {0x058, 0x000000018000000A},
        {0x040, 0xC7C7C7C7C7C7C7C8}}},
      {"an attempt with all bits of a structure, for discovery",
       [](auto& record) {
         report_initialize_attempt(record, {0, 0, 0xFFFFFFFF, 0, true});
       },
       {{0x048, 0}, {0x050, 0xFFFFFFFF00000000}, {0x058, 0x000000018000000A}, {0x040, 0xC7C7C7C8C7C7C7C7}}},
      {"a success", [](auto& record) { report_initialize_success(record); }, {{0x018, 0xC7C7C7C7C7C7C7C8}}},
      {"progress",
       [](auto& record) { report_initialize_progress(record, 6, 0); },
       {{0x058, 0x0000000600000000}}},
      {"progress into a failure",
       [](auto& record) { report_initialize_progress(record, 0xFFFFFFFE, 0x80070005); },
       {{0x058, 0xFFFFFFFE80070005}}},
      {"a negotiation of the input side",
       [](auto& record) { report_format_negotiation(record, 9); },
       {{0x070, 0}, {0x078, 0}, {0x068, 0x000000098000000A}, {0x064, 0xC7C7C7C8}}},
      {"a negotiation at stage 10",
       [](auto& record) { report_format_negotiation(record, 10); },
       {{0x070, 0}, {0x078, 0}, {0x068, 0x0000000A8000000A}, {0x064, 0xC7C8C7C7}}},
      {"a negotiation at stage 0",
       [](auto& record) { report_format_negotiation(record, 0); },
       {{0x070, 0}, {0x078, 0}, {0x068, 0x000000008000000A}, {0x064, 0xC7C8C7C7}}},
      {"a negotiation at a stage whose low bits are the input side's",
       [](auto& record) { report_format_negotiation(record, 0x80000009); },
       {{0x070, 0}, {0x078, 0}, {0x068, 0x800000098000000A}, {0x064, 0xC7C8C7C7}}},
      {"an attempt at a lock",
       [](auto& record) { report_lock_attempt(record); },
       {{0x070, 0}, {0x078, 0}, {0x068, 0x000000018000000A}, {0x060, 0xC7C7C7C8}}},
      {"an input format",
       [](auto& record) {
         report_lock_input_format(record, {0x12345678, 0x9A, 0xBC, 0xDE, 0xF0});
       },
       {{0x070, 0x12345678F0DEBC9A}}},
      {"an output format",
       [](auto& record) {
         report_lock_output_format(record, {48000, 2, 32, 4, 1});
       },
       {{0x078, 0x0000BB8001042002}}},
      {"lock progress",
       [](auto& record) { report_lock_progress(record, 8, 0x80004005); },
       {{0x068, 0x0000000880004005}}},
      {"a lock",
       [](auto& record) {
         report_lock_success(record, {48000, 2, true, 2, 0});
       },
       {{0x028, 0x0000BB8000000002}, {0x030, 0x8000000200000000}, {0x020, 0xC7C7C7C7C7C7C7C8}}},
      {"a lock with all bits of a pipeline, without the algorithm",
       [](auto& record) {
         report_lock_success(record, {0xFFFFFFFF, 0, false, 0xFFFFFFFF, 0x80004005});
       },
       {{0x028, 0xFFFFFFFF00000000}, {0x030, 0x7FFFFFFF80004005}, {0x020, 0xC7C7C7C7C7C7C7C8}}},
      {"a lock with all bits of a pipeline and of a channel count, with the algorithm",
       [](auto& record) {
         report_lock_success(record, {0, 0xFFFFFFFF, true, 0xFFFFFFFF, 0xFFFFFFFF});
       },
       {{0x028, 0x00000000FFFFFFFF}, {0x030, 0xFFFFFFFFFFFFFFFF}, {0x020, 0xC7C7C7C7C7C7C7C8}}},
      {"parameters",
       [](auto& record) { report_applied(record, false, true, 0.5f); },
       {{0x080, 0x800000023F000000}}},
      {"parameters of a bypass",
       [](auto& record) { report_applied(record, true, false, -0.0f); },
       {{0x080, 0x8000000180000000}}},
      {"parameters that are no number",
       [odd_nan](auto& record) { report_applied(record, true, true, odd_nan); },
       {{0x080, 0x800000037FC12345}}},
      {"a gain", [](auto& record) { report_processing(record, 3.25f, 43); }, {{0x088, 0x8000002B40500000}}},
      {"a gain of too many blocks",
       [](auto& record) { report_processing(record, -std::numeric_limits<float>::infinity(), 0x80000001); },
       {{0x088, 0x80000001FF800000}}},
      {"a gain of the most blocks",
       [](auto& record) { report_processing(record, 0.0f, 0x7FFFFFFF); },
       {{0x088, 0xFFFFFFFF00000000}}},
      {"a block", [](auto& record) { count_processed_block(record); }, {{0x098, 0xC7C7C7C7C7C7C7C8}}},
      {"a capture", [](auto& record) { report_capture(record, 2, 120, 0); }, {{0x0B0, 0x8000000000780002}}},
      {"a capture that failed",
       [](auto& record) { report_capture(record, 0xFFFF, 0xFFFE, 0x80070005); },
       {{0x0B0, 0x80070005FFFEFFFF}}},
      {"a capture with every bit of a detail but the highest",
       [](auto& record) { report_capture(record, 0, 0, 0x7FFFFFFF); },
       {{0x0B0, 0xFFFFFFFF00000000}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.title);
    EXPECT_EQ(changed_by(row.work, 0xC7), lines_of(row.changed));
  }
}

TEST(DiagnosticsWriters, WrapCountsAtTheirFullWidth) {
  const auto changed = [](auto work) { return changed_by(work, 0xFF); };
  EXPECT_EQ(changed([](auto& record) { report_initialize_success(record); }), lines_of({{0x018, 0}}));
  EXPECT_EQ(changed([](auto& record) { count_processed_block(record); }), lines_of({{0x098, 0}}));
  EXPECT_EQ(changed([](auto& record) { report_lock_attempt(record); }),
            lines_of({{0x060, 0}, {0x068, 0x000000018000000A}, {0x070, 0}, {0x078, 0}}));
  EXPECT_EQ(changed([](auto& record) {
              report_lock_success(record, {1, 2, false, 3, 4});
            }),
            lines_of({{0x020, 0}, {0x028, 0x0000000100000002}, {0x030, 0x0000000300000004}}));
}

TEST(DiagnosticsWriters, SetOneBitOfAModeMask) {
  for (std::uint32_t kind = 0; kind < 3; ++kind) {
    for (std::uint32_t mode = 0; mode < 16; ++mode) {
      const std::uint64_t bit = std::uint64_t{1} << (16 * kind + mode);
      SCOPED_TRACE(hex(bit));
      const auto work = [&](ControlBridgeRecord& record) {
        report_mode(record, mode, static_cast<ModeKind>(kind));
      };
      EXPECT_EQ(changed_by(work, 0x00), lines_of({{0x090, bit}}));
      EXPECT_EQ(changed_by(work, 0xFF), lines_of({}));
      ControlBridgeRecord record{};
      put_word(record, 0x090, 0x8001000100010001);
      work(record);
      EXPECT_EQ(word_at(record, 0x090), 0x8001000100010001 | bit);
    }
  }
}

TEST(DiagnosticsWriters, IgnoreAModeOf16OrAbove) {
  for (const std::uint32_t mode : {16u, 17u, 32u, 48u, 63u, 64u, 0x80000000u, 0xFFFFFFFFu}) {
    for (const ModeKind kind : {ModeKind::initialized, ModeKind::locked, ModeKind::processed}) {
      EXPECT_EQ(changed_by([&](auto& record) { report_mode(record, mode, kind); }, 0x00), lines_of({}))
          << mode;
    }
  }
}

TEST(DiagnosticsWriters, CountNonNegativeQueryResultsAsSuccess) {
  const struct {
    std::int32_t result;
    std::uint64_t word;
  } rows[] = {
      {0, 0x0800000001000000},
      {1, 0x0800000001000000},
      {2147483647, 0x0800000001000000},
      {-1, 0x0000000001000000},
      {-2, 0x0000000001000000},
      {-2147467259, 0x0000000001000000},
      {-2147483647 - 1, 0x0000000001000000},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(changed_by([&](auto& record) { report_query(record, 3, 0, row.result); }, 0x00),
              lines_of({{0x038, row.word}}))
        << row.result;
  }
}

TEST(DiagnosticsWriters, IgnoreAQueryBeyondTheFour) {
  for (const std::uint32_t index : {4u, 5u, 8u, 255u, 0x80000000u, 0xFFFFFFFFu}) {
    for (const unsigned char byte : foreign_bytes) {
      EXPECT_EQ(changed_by([&](auto& record) { report_query(record, index, 1, 0); }, byte), lines_of({}));
    }
  }
}

TEST(DiagnosticsWriters, CarryInputNegotiation65536IntoTheOutputCount) {
  ControlBridgeRecord record{};
  for (int round = 0; round < 65535; ++round) report_format_negotiation(record, 9);
  EXPECT_EQ(word_at(record, 0x064), 0x0000FFFFu);
  report_format_negotiation(record, 9);
  EXPECT_EQ(word_at(record, 0x064), 0x00010000u);
  const ControlDiagnostics read = read_from(record);
  EXPECT_EQ(read.input_format_negotiation_count, 0u);
  EXPECT_EQ(read.output_format_negotiation_count, 1u);
  EXPECT_EQ(read.format_negotiation_count, 1u);
}

TEST(DiagnosticsWriters, WrapOnlyTheOutputNegotiationCount) {
  ControlBridgeRecord record{};
  put_word(record, 0x064, 0xFFFF1234);
  report_format_negotiation(record, 11);
  EXPECT_EQ(word_at(record, 0x064), 0x00001234u);
  EXPECT_EQ(word_at(record, 0x060), 0u);
}

TEST(QueryWord, KeepsEachQueryInItsOwnBits) {
  const struct {
    std::uint64_t old;
    std::uint32_t index;
    std::uint32_t value;
    bool success;
    std::uint64_t updated;
  } rows[] = {
      {0, 0, 5, true, 0x0100000500000001},
      {0, 1, 5, true, 0x0200014000000100},
      {0, 2, 5, true, 0x0400500000010000},
      {0, 3, 5, true, 0x0814000001000000},
      {0, 0, 5, false, 0x0000000500000001},
      {0, 3, 63, false, 0x00FC000001000000},
      {0, 3, 64, false, 0x00FC000001000000},
      {0, 3, 0xFFFFFFFF, false, 0x00FC000001000000},
      {0, 0, 63, true, 0x0100003F00000001},
      {0, 1, 500, true, 0x02000FC000000100},
      {0, 2, 0x80000000, true, 0x0403F00000010000},
      {0, 2, 0, true, 0x0400000000010000},
      {0x0400000000010000, 2, 500, true, 0x0403F00000020000},
      {0x020001C000000100, 1, 3, false, 0x000000C000000200},
      // The other bits of a full word stay, bits 60 to 63 too.
      {~0ULL, 0, 0, false, 0xFEFFFFC0FFFFFFFF},
      {~0ULL, 1, 0, false, 0xFDFFF03FFFFFFFFF},
      {~0ULL, 2, 0, false, 0xFBFC0FFFFFFFFFFF},
      {~0ULL, 3, 0, false, 0xF703FFFFFFFFFFFF},
      {~0ULL, 3, 63, true, ~0ULL},
      {0x00000000000000FE, 0, 0, false, 0x00000000000000FF},
      {0x00000000000000FF, 0, 0, false, 0x00000000000000FF},
      {0x000000000000FE00, 1, 0, false, 0x000000000000FF00},
      {0x0000000000FF0000, 2, 0, false, 0x0000000000FF0000},
      {0x00000000FF000000, 3, 0, false, 0x00000000FF000000},
      {0x0F00000000000000, 0, 0, false, 0x0E00000000000001},
      {0x0123456789ABCDEF, 4, 1, true, 0x0123456789ABCDEF},
      {0x0123456789ABCDEF, 0xFFFFFFFF, 1, true, 0x0123456789ABCDEF},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(hex(row.old) + " index " + std::to_string(row.index) + " value " +
                 std::to_string(row.value));
    EXPECT_EQ(hex(update_query_word(row.old, row.index, row.value, row.success)), hex(row.updated));
  }
}

TEST(FormatWord, KeepsEachFieldInItsBitsAndSpillsALargeType) {
  const struct {
    StreamFormat format;
    std::uint64_t word;
  } rows[] = {
      {{0, 0, 0, 0, 0}, 0},
      {{48000, 2, 32, 4, 1}, 0x0000BB8001042002},
      {{0xFFFFFFFF, 0, 0, 0, 0}, 0xFFFFFFFF00000000},
      {{0, 0xFF, 0, 0, 0}, 0x00000000000000FF},
      {{0, 0, 0xFF, 0, 0}, 0x000000000000FF00},
      {{0, 0, 0, 0xFF, 0}, 0x0000000000FF0000},
      {{0, 0, 0, 0, 0xFF}, 0x00000000FF000000},
      {{48000, 2, 32, 4, 0x100}, 0x0000BB8100042002},
      {{48000, 2, 32, 4, 0x1FF}, 0x0000BB81FF042002},
      {{48001, 2, 32, 4, 0x100}, 0x0000BB8100042002},
      {{0, 0, 0, 0, 0xFFFFFFFF}, 0x00FFFFFFFF000000},
  };
  for (const auto& row : rows) EXPECT_EQ(hex(pack_format(row.format)), hex(row.word));
}

}  // namespace
}  // namespace velmora
