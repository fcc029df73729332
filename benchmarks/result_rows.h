// The rows of the table at the end of ./bench. Each benchmark appends its own to one file.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmora::bench {

enum class AimKind { none, at_least, at_most };

struct Aim {
  AimKind kind = AimKind::none;
  double value = 0;
};

// One line of the table. Empty texts and absent numbers are shown as a dash.
struct ResultRow {
  std::string part;  // such as "requests, Linux"
  std::string name;
  std::string ours;  // with its unit
  std::string peer;
  std::optional<double> ratio = std::nullopt;    // what the aim is about
  std::optional<double> control = std::nullopt;  // 1 in an ideal run
  Aim aim = {};
};

// Whether the control is so far from 1 that the run says nothing.
[[nodiscard]] bool is_noise(std::optional<double> control);

// "met", "missed", "noise", or a dash without an aim.
[[nodiscard]] std::string verdict_of(const ResultRow& row);

// `value` with `digits` behind the point, and the unit.
[[nodiscard]] std::string with_unit(double value, int digits, std::string_view unit);

// Appends a line to the file that VELMORA_BENCH_ROWS names. Does nothing without that variable.
void add_result_row(const ResultRow& row);

}  // namespace velmora::bench
