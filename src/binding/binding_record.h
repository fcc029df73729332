// What binding remembers of each endpoint that its own values can no longer tell: HKEY_LOCAL_MACHINE,
// SOFTWARE\Velmora\DevBinding, one key for each endpoint, named by its GUID (38 characters, case as in the
// id). Apart from the two readings nothing tells of a failure: without a record an unbind takes the effect
// out and leaves the rest.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// Whether this system wrote the endpoint's mode lists: AddedModeList, REG_DWORD, is 1.
[[nodiscard]] bool read_added_mode_list(std::string_view guid);
void write_added_mode_list(std::string_view guid);

// The effect that was moved out of the legacy slot: MigratedLegacyModeEffect, REG_SZ of at most 127
// characters. False, with an empty text, where there is none.
[[nodiscard]] bool read_migrated_mode_effect(std::string_view guid, std::string& text);
// Replaces an earlier one, which is then no longer remembered.
void write_migrated_mode_effect(std::string_view guid, std::string_view text);

// Removes the endpoint's key with both values.
void delete_binding_record(std::string_view guid);

}  // namespace velmora
