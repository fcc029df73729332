// The settings of a running service, one line for each. Pure.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "command/checks.h"

namespace velmora {

struct SettingLine {
  std::string_view name;  // lower case
  std::string value;      // "?" where the documents do not say
};

// Returns always the same lines in the same order.
[[nodiscard]] std::vector<SettingLine> list_settings(const StatusDocuments& documents);

}  // namespace velmora
