#include "binding/binding.h"

#include "base/status.h"
#include "base/text.h"
#include "binding/binding_record.h"
#include "binding/endpoint_values.h"
#include "binding/plan.h"
#include "platform/machine.h"

namespace velmora {
namespace {

constexpr Guid effect_class = {0x631D9145, 0xCACF, 0x44D7, {0x86, 0x1B, 0x5D, 0x82, 0xAD, 0xD8, 0xC8, 0x4F}};

// An endpoint opened for a change.
struct OpenEndpoint {
  RegistryKey key;
  std::string guid;
  Chain chain;
  std::string effect;  // the effect's class id
};

std::int32_t set_detail(std::string& detail, std::string_view text, std::int32_t status) {
  detail = text;
  return status;
}

std::int32_t refuse_id(std::string& detail) {
  return set_detail(detail, "endpoint id is not a render endpoint identifier", status_invalid_argument);
}

std::int32_t open_endpoint(std::string_view endpoint_id, OpenEndpoint& endpoint, std::string& detail) {
  if (!endpoint_guid_from_id(endpoint_id, endpoint.guid)) return refuse_id(detail);
  std::int32_t status = open_fx_properties(endpoint.guid, key_query_value | key_set_value, endpoint.key);
  if (status == status_invalid_argument) return refuse_id(detail);
  if (status != 0) {
    return set_detail(
        detail,
        "the endpoint FxProperties key could not be opened for writing (run the control service elevated)",
        status);
  }
  bool present = false;
  status = read_multi_string_value(endpoint.key, composite_chain_name, endpoint.chain, present);
  if (status != 0) return set_detail(detail, "the endpoint mode-effect chain could not be read", status);
  endpoint.effect = effect_clsid_text();
  return 0;
}

std::int32_t write_chain(const OpenEndpoint& endpoint, const BindingPlan& plan, std::string& detail) {
  if (!plan.chain_changes) return 0;
  const std::int32_t status = write_multi_string_value(endpoint.key, composite_chain_name, plan.chain);
  return status == 0 ? 0 : set_detail(detail, "the endpoint mode-effect chain could not be written", status);
}

// Reads the chain back into `endpoint` and checks that the effect is in it (`bound`) or is not.
std::int32_t confirm_chain(OpenEndpoint& endpoint, bool bound, std::string& detail) {
  bool present = false;
  const std::int32_t status =
      read_multi_string_value(endpoint.key, composite_chain_name, endpoint.chain, present);
  if (status != 0) return set_detail(detail, "the endpoint mode-effect chain could not be read back", status);
  if (chain_contains(endpoint.chain, endpoint.effect) == bound) return 0;
  return set_detail(detail, "the endpoint mode-effect chain did not keep the change", status_failed);
}

std::int32_t leave_bound(const OpenEndpoint& endpoint, std::string& detail) {
  if (!ensure_mode_lists(endpoint.key, read_added_mode_list(endpoint.guid))) {
    return set_detail(detail, "endpoint was already bound", 0);
  }
  write_added_mode_list(endpoint.guid);
  return set_detail(detail, "endpoint was already bound; refreshed the mode list", 0);
}

// Write the record first: an unbind could not restore an effect that is neither in the slot nor recorded.
bool move_legacy_effect(const OpenEndpoint& endpoint, const BindingPlan& plan) {
  if (plan.moves.empty() || !chain_contains(endpoint.chain, plan.moves)) return false;
  write_migrated_mode_effect(endpoint.guid, plan.moves);
  static_cast<void>(delete_registry_value(endpoint.key, legacy_slot_name));
  return true;
}

std::int32_t bind_open_endpoint(OpenEndpoint& endpoint, std::string& detail) {
  std::string legacy_slot;
  static_cast<void>(read_legacy_mode_effect(endpoint.key, legacy_slot));
  const BindingPlan plan = plan_bind(endpoint.chain, endpoint.effect, legacy_slot);
  if (has_nothing_to_do(plan)) return leave_bound(endpoint, detail);

  if (const std::int32_t status = write_chain(endpoint, plan, detail); status != 0) return status;
  const bool added = ensure_mode_lists(endpoint.key, read_added_mode_list(endpoint.guid));
  if (const std::int32_t status = confirm_chain(endpoint, true, detail); status != 0) return status;
  const bool moved = move_legacy_effect(endpoint, plan);
  endpoint.key.close();
  if (added) write_added_mode_list(endpoint.guid);
  if (moved) {
    return set_detail(
        detail,
        "endpoint bound; its existing mode effect was moved into the composite chain because the legacy "
        "slot suppresses it",
        0);
  }
  return set_detail(detail, added ? "endpoint bound and a default-mode list was added" : "endpoint bound", 0);
}

std::int32_t unbind_open_endpoint(OpenEndpoint& endpoint, std::string& detail) {
  std::string moved_earlier;
  static_cast<void>(read_migrated_mode_effect(endpoint.guid, moved_earlier));
  const BindingPlan plan = plan_unbind(endpoint.chain, endpoint.effect, moved_earlier);
  if (has_nothing_to_do(plan)) return set_detail(detail, "endpoint was not bound", 0);

  if (const std::int32_t status = write_chain(endpoint, plan, detail); status != 0) return status;
  if (read_added_mode_list(endpoint.guid)) remove_mode_lists(endpoint.key);
  if (const std::int32_t status = confirm_chain(endpoint, false, detail); status != 0) return status;
  if (!plan.restores.empty()) static_cast<void>(write_legacy_mode_effect(endpoint.key, plan.restores));
  endpoint.key.close();
  delete_binding_record(endpoint.guid);
  return set_detail(
      detail,
      plan.restores.empty() ? "endpoint unbound" : "endpoint unbound and its original mode effect restored",
      0);
}

std::int32_t apply_endpoint_binding(std::string_view endpoint_id, bool bind, std::string& detail) {
  OpenEndpoint endpoint;
  if (const std::int32_t status = open_endpoint(endpoint_id, endpoint, detail); status != 0) return status;
  return bind ? bind_open_endpoint(endpoint, detail) : unbind_open_endpoint(endpoint, detail);
}

}  // namespace

std::string effect_clsid_text() { return ascii_from_wide(guid_text(effect_class)); }

std::int32_t bind_endpoint_effect(std::string_view endpoint_id, std::string& detail) {
  return apply_endpoint_binding(endpoint_id, true, detail);
}

std::int32_t unbind_endpoint_effect(std::string_view endpoint_id, std::string& detail) {
  return apply_endpoint_binding(endpoint_id, false, detail);
}

std::int32_t inspect_endpoint_binding(std::string_view endpoint_id, EndpointBindingState& state) {
  state = {};
  std::string guid;
  if (!endpoint_guid_from_id(endpoint_id, guid)) return state.error_code = status_invalid_argument;
  RegistryKey key;
  state.error_code = open_fx_properties(guid, key_query_value, key);
  if (state.error_code != 0) return state.error_code;
  state.fx_key_present = true;
  bool present = false;
  state.error_code = read_multi_string_value(key, composite_chain_name, state.chain, present);
  key.close();
  if (state.error_code != 0) return state.error_code;
  state.bound = chain_contains(state.chain, effect_clsid_text());
  return 0;
}

bool endpoint_is_bound(std::string_view endpoint_id) {
  EndpointBindingState state;
  static_cast<void>(inspect_endpoint_binding(endpoint_id, state));
  return state.bound;
}

}  // namespace velmora
