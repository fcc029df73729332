#include "binding/chain.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/hex.h"

namespace velmora {
namespace {

constexpr std::size_t guid_bytes = 38;

}  // namespace

bool is_endpoint_guid(std::string_view text) {
  if (text.size() != guid_bytes || text.front() != '{' || text.back() != '}') return false;
  for (std::size_t index = 1; index < guid_bytes - 1; ++index) {
    const bool is_dash_place = index == 9 || index == 14 || index == 19 || index == 24;
    if (is_dash_place ? text[index] != '-' : hex_digit_value(text[index]) < 0) return false;
  }
  return true;
}

bool endpoint_guid_from_id(std::string_view id, std::string& guid) {
  const std::size_t pair = id.rfind(".{");
  if (pair != std::string_view::npos) id.remove_prefix(pair + 1);
  if (!is_endpoint_guid(id)) return false;
  guid = id;
  return true;
}

bool same_effect_id(std::string_view left, std::string_view right) {
  return equal_ignoring_case(left, right);
}

bool chain_contains(const Chain& chain, std::string_view id) {
  return std::any_of(chain.begin(), chain.end(),
                     [id](const std::string& entry) { return same_effect_id(entry, id); });
}

Chain chain_with(Chain chain, std::string_view id) {
  if (!chain_contains(chain, id)) chain.emplace_back(id);
  return chain;
}

Chain chain_without(Chain chain, std::string_view id) {
  std::erase_if(chain, [id](const std::string& entry) { return same_effect_id(entry, id); });
  return chain;
}

}  // namespace velmora
