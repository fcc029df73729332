#include "command/report.h"

#include <algorithm>
#include <string_view>

#include "command/settings.h"
#include "command/words.h"
#include "json/write.h"

namespace velmora {
namespace {

constexpr std::size_t name_width = 13;
constexpr std::size_t state_width = 9;

std::string padded(std::string_view text, std::size_t width) {
  std::string out(text);
  out.resize(std::max(width, out.size()), ' ');
  return out;
}

void append_checks(std::string& out, const StatusDocuments& documents) {
  JsonObject checks(out);
  for (const CheckLine& line : judge_checks(documents)) {
    JsonObject check(checks.begin(line.name));
    check.add("state", line.state);
    check.add("text", line.sentence);
    check.end();
  }
  checks.end();
}

}  // namespace

std::string format_report(const RunRecord& run, const StatusDocuments& documents) {
  std::string out = "Velmora " + printable(run.version) + " at " + public_address(run.port) + "\n\n";
  for (const CheckLine& line : judge_checks(documents)) {
    out += padded(line.name, name_width) + padded(line.state, state_width) + printable(line.sentence) + '\n';
  }
  out += '\n';
  for (const SettingLine& line : list_settings(documents)) {
    out += padded(line.name, name_width) + printable(line.value) + '\n';
  }
  return out;
}

std::string format_report_json(const RunRecord& run, const StatusDocuments& documents) {
  std::string out;
  JsonObject members(out);
  members.add("version", run.version);
  members.add("address", public_address(run.port));
  append_checks(members.begin("checks"), documents);
  append_document(members.begin("status"), documents.now);
  append_document(members.begin("equalizer"), documents.equalizer);
  append_document(members.begin("devices"), documents.devices);
  members.end();
  return out + '\n';
}

}  // namespace velmora
