// What has been read from an export is written in each form and read back as the same.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <variant>

#include "platform/hosted/registry_export.h"

namespace velmora {
namespace {

void require(bool held) {
  if (!held) std::abort();
}

void check_form(const hosted::RegistryTree& tree, const hosted::ExportForm& form) {
  const std::string bytes = hosted::format_export(tree, form);
  const auto again = hosted::parse_export(bytes);
  const auto* parsed = std::get_if<hosted::ParsedExport>(&again);
  require(parsed != nullptr);
  require(parsed->tree == tree);
  require(hosted::format_export(parsed->tree, parsed->form) == bytes);
}

void check(std::string_view bytes) {
  const auto result = hosted::parse_export(bytes);
  if (const auto* trouble = std::get_if<hosted::ExportTrouble>(&result)) {
    require(trouble->line >= 1 && trouble->line <= bytes.size() + 1);
    require(!trouble->why.empty());
    return;
  }
  const auto& parsed = std::get<hosted::ParsedExport>(result);
  check_form(parsed.tree, parsed.form);
  check_form(parsed.tree, {.utf16 = true, .byte_order_mark = true, .carriage_returns = true});
  check_form(parsed.tree, {.utf16 = false, .byte_order_mark = false, .carriage_returns = false});
}

}  // namespace
}  // namespace velmora

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora::check({reinterpret_cast<const char*>(data), size});
  return 0;
}
