// What `velmora status` prints. Pure.
#pragma once

#include <string>

#include "command/checks.h"
#include "command/run_file.h"

namespace velmora {

// One line with version and address, one for each check and one for each setting, in two aligned blocks. The
// token is in none of them.
[[nodiscard]] std::string format_report(const RunRecord& run, const StatusDocuments& documents);

// All of it as one line of JSON: version, address, checks, status, equalizer and devices. The token is not in
// it.
[[nodiscard]] std::string format_report_json(const RunRecord& run, const StatusDocuments& documents);

}  // namespace velmora
