// The values of a render endpoint's FxProperties key that binding reads and writes. Text of the registry is
// 8-bit here: what is not ASCII becomes `?` and does not survive being read and written. Results are status
// values (base/status.h).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "binding/chain.h"
#include "platform/registry.h"

namespace velmora {

// PKEY_CompositeFX_ModeEffectClsid (mmdeviceapi.h): the composite mode effect chain, REG_MULTI_SZ.
constexpr std::u16string_view composite_chain_name = u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14";
// PKEY_FX_ModeEffectClsid: one class id. While it holds an effect, Windows ignores the composite chain.
constexpr std::u16string_view legacy_slot_name = u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},6";
// PKEY_MFX_ProcessingModes_Supported_For_Streaming and
// PKEY_MFX_Offload_ProcessingModes_Supported_For_Streaming: the processing modes that are offered to mode
// effects and to offloaded ones, REG_MULTI_SZ.
constexpr std::array<std::u16string_view, 2> mode_list_names = {
    u"{d3993a3f-99c2-4402-b5ec-a92a0367664b},6",
    u"{d3993a3f-99c2-4402-b5ec-a92a0367664b},12",
};

// Opens the FxProperties key of the render endpoint with this GUID (is_endpoint_guid); never makes it.
// Returns the call's error. `out` is assigned on success only.
[[nodiscard]] std::int32_t open_fx_properties(std::string_view endpoint_guid, std::uint32_t access,
                                              RegistryKey& out);

// Reads a REG_MULTI_SZ up to its first empty entry. A missing value is an empty list and no failure.
// `present` tells whether there is such a value; it stands with status_wrong_type too.
[[nodiscard]] std::int32_t read_multi_string_value(const RegistryKey& key, std::u16string_view name,
                                                   Chain& list, bool& present);

// Writes a REG_MULTI_SZ; an empty list removes the value, and one that is missing is no failure then.
[[nodiscard]] std::int32_t write_multi_string_value(const RegistryKey& key, std::u16string_view name,
                                                    const Chain& list);

// The effect in the legacy slot. False, with an empty text, where there is none or it cannot be read.
[[nodiscard]] bool read_legacy_mode_effect(const RegistryKey& key, std::string& text);

// Puts an effect into the legacy slot.
[[nodiscard]] std::int32_t write_legacy_mode_effect(const RegistryKey& key, std::string_view text);

// Writes default_processing_modes into each mode list that is missing and, where this system `added_earlier`
// what is there, into each that has been changed since. A driver's list stays, empty or not, and so does a
// value of another type. True when a list was written; a write that fails is not told.
[[nodiscard]] bool ensure_mode_lists(const RegistryKey& key, bool added_earlier);

// Removes both mode lists. Failures are not told.
void remove_mode_lists(const RegistryKey& key);

}  // namespace velmora
