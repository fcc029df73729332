#include "command/status.h"

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "command/client.h"
#include "command/report.h"
#include "command/run_folder.h"
#include "platform/clock.h"

namespace velmora {
namespace {

// Long enough for the effect to process some blocks of 10 ms.
constexpr std::uint32_t between_looks_ms = 500;

// Reads a document that must have these members.
Outcome ask_document(const RunRecord& run, std::string_view target,
                     std::initializer_list<std::string_view> needed, JsonNode& out) {
  std::string body;
  Outcome outcome = ask_service(run, target, body);
  if (outcome.failed()) return outcome;
  std::optional<JsonNode> document = read_document(body);
  bool is_complete = document.has_value();
  for (const std::string_view member : needed) {
    is_complete = is_complete && find_node(*document, {member}) != nullptr;
  }
  if (!is_complete) {
    return {CommandCode::senseless_answer,
            "The answer at " + public_address(run.port) +
                " makes no sense: end Velmora with velmora stop, then start it "
                "again."};
  }
  out = *std::move(document);
  return outcome;
}

Outcome ask_status(const RunRecord& run, JsonNode& out) {
  return ask_document(run, "/api/v1/status", {"footstep", "apo_diagnostics", "apo_host", "apo_binding"}, out);
}

Outcome ask_all(const RunRecord& run, StatusDocuments& documents) {
  Outcome outcome = ask_status(run, documents.before);
  if (outcome.failed()) return outcome;
  sleep_ms(between_looks_ms);
  outcome = ask_document(run, "/api/v1/render/effects/eq", {"bypass", "bands"}, documents.equalizer);
  if (outcome.failed()) return outcome;
  outcome = ask_document(run, "/api/v1/devices", {"render"}, documents.devices);
  if (outcome.failed()) return outcome;
  return ask_status(run, documents.now);
}

}  // namespace

Outcome report_status(bool as_json, std::string& report) {
  constexpr std::int64_t start_ms = 5000;
  const RunState state = find_run(start_ms);
  if (state.outcome.failed()) return state.outcome;
  StatusDocuments documents;
  Outcome outcome = ask_all(*state.run, documents);
  if (outcome.failed()) return outcome;
  report = as_json ? format_report_json(*state.run, documents) : format_report(*state.run, documents);
  return outcome;
}

}  // namespace velmora
