// The six checks from "installed" to "applied", as the page shows them. Pure.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "command/document.h"

namespace velmora {

// What the service answered. An empty node is a document that is missing.
struct StatusDocuments {
  JsonNode before;     // the status document of an earlier moment
  JsonNode now;        // the status document
  JsonNode equalizer;  // the equalizer's setting
  JsonNode devices;    // the device list
};

struct CheckLine {
  std::string_view name;   // one lower-case word
  std::string_view state;  // "yes", "no" or "unknown"
  std::string sentence;    // why
};

// Returns the checks in the order in which they build on each other. What a document lacks is unknown.
[[nodiscard]] std::vector<CheckLine> judge_checks(const StatusDocuments& documents);

}  // namespace velmora
