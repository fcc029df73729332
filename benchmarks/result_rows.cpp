#include "result_rows.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace velmora::bench {
namespace {

constexpr double control_tolerance = 0.06;

std::string number_text(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

std::string optional_text(std::optional<double> value) { return value ? number_text(*value, 3) : "-"; }

std::string text_or_dash(const std::string& text) { return text.empty() ? "-" : text; }

std::string aim_text(const Aim& aim) {
  switch (aim.kind) {
    case AimKind::none: break;
    case AimKind::at_least: return ">= " + number_text(aim.value, 2);
    case AimKind::at_most: return "<= " + number_text(aim.value, 2);
  }
  return "-";
}

}  // namespace

bool is_noise(std::optional<double> control) {
  return control && !(std::abs(*control - 1.0) <= control_tolerance);
}

std::string verdict_of(const ResultRow& row) {
  if (row.aim.kind == AimKind::none || !row.ratio) return "-";
  if (is_noise(row.control)) return "noise";
  const bool met =
      row.aim.kind == AimKind::at_least ? *row.ratio >= row.aim.value : *row.ratio <= row.aim.value;
  return met ? "met" : "missed";
}

std::string with_unit(double value, int digits, std::string_view unit) {
  return number_text(value, digits).append(" ").append(unit);
}

void add_result_row(const ResultRow& row) {
  const char* path = std::getenv("VELMORA_BENCH_ROWS");
  if (path == nullptr || *path == '\0') return;
  std::ofstream file(path, std::ios::app);
  file << row.part << '\t' << row.name << '\t' << text_or_dash(row.ours) << '\t' << text_or_dash(row.peer)
       << '\t' << optional_text(row.ratio) << '\t' << optional_text(row.control) << '\t' << aim_text(row.aim)
       << '\t' << verdict_of(row) << '\n';
}

}  // namespace velmora::bench
